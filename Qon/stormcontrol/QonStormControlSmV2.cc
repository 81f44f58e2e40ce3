#include "Qon/include/stormcontrol/QonStormControlSmV2.h"

#include <algorithm>

#include "Qon/include/framework/HookTap.h"
#include "Qon/stormcontrol/StormControlTrace.h"

namespace Qon {

using QonTypes::TableAddStatus;
using StormControl::levelKinds;
using StormControl::Threshold;
using Ulnet::IntfId;

// --- What the chip says of a port, and of a traffic class ----------------------------------------

PlatformIntfStatusSm::PlatformIntfStatusSm( QonStormControlSmV2 * owner,
                                            Velto::Ptr< const Status > status )
    : owner_( owner ), status_( std::move( status ) ) {}

void
PlatformIntfStatusSm::handleInitialized() {
   if ( initialized() ) {
      versionWatch_.attach( this, status_.ptr() );
      resultWatch_.attach( this, status_.ptr() );
      handleVersionId();
   }
}

void
PlatformIntfStatusSm::handleVersionId() {
   owner_->reported( intf() );
}

void
PlatformIntfStatusSm::handleResult( const LevelType & ) {
   owner_->reported( intf() );
}

bool
PlatformIntfStatusSm::current() const {
   auto config = owner_->platformConfig()->platformIntfConfig( intf() );
   return config && config->versionId() == status_->versionId();
}

void
PlatformIntfStatusSm::writeIntfStatus() {
   // fixed text
   // clang-format off
   VELTO_ASSERT( qonStormControlSmV2() ->platformConfig() ->platformIntfConfig( intf() ) ->versionId() == platformIntfStatus()->versionId() );
   // clang-format on
   const Velto::Ptr config( owner_->platformConfig()->platformIntfConfig( intf() ) );
   const auto status = owner_->statusIs( intf() );
   Velto::FirstError error;
   for ( auto & kind : levelKinds ) {
      if ( kind.cpu || !config->levelHas( kind.type ) ) {
         continue;
      }
      error.run( [&] {
         status_->result( kind.type ) == TableAddStatus::success
               ? status->levelIs( kind.level, config->level( kind.type ) )
               : status->levelDel( kind.level );
      } );
   }
   error.run( [&] { status->lagIs( config->lag() ); } );
   error.pass();
}

AggregateTcStatusSm::AggregateTcStatusSm( QonStormControlSmV2 * owner,
                                          Velto::Ptr< const Status > status )
    : owner_( owner ), status_( std::move( status ) ) {}

void
AggregateTcStatusSm::handleInitialized() {
   if ( initialized() ) {
      versionWatch_.attach( this, status_.ptr() );
      resultWatch_.attach( this, status_.ptr() );
      handleVersionId();
   }
}

void
AggregateTcStatusSm::handleVersionId() {
   owner_->tcReported( trafficClass() );
}

bool
AggregateTcStatusSm::current() const {
   auto config = owner_->platformConfig()->platformAggregateTcConfig( trafficClass() );
   return config && config->versionId() == status_->versionId();
}

void
AggregateTcStatusSm::writeAggregateTcStatus() {
   // fixed text
   // clang-format off
   VELTO_ASSERT( qonStormControlSmV2() ->platformConfig() ->platformAggregateTcConfig( trafficClass() ) ->versionId() == platformAggregateTcStatus()->versionId() );
   // clang-format on
   const Velto::Ptr config( owner_->platformConfig()->platformAggregateTcConfig( trafficClass() ) );
   const Velto::Ptr status( owner_->status()->aggregateTcStatusIs( trafficClass() ) );
   const bool held = status_->result() == TableAddStatus::success;
   status->thresholdIs( held ? StormControl::OptionalThreshold( config->threshold() )
                             : StormControl::OptionalThreshold() );
}

// --- Start ---------------------------------------------------------------------------------------

QonStormControlSmV2::QonStormControlSmV2( Inputs inputs,
                                          Velto::Ptr< QonStormControlSmHelperV2 > helper,
                                          Velto::Ptr< PlatformConfig > platformConfig,
                                          Velto::Ptr< const PlatformStatus > platformStatus )
    : StormControlBaseSm( std::move( inputs ) ), helper_( std::move( helper ) ),
      platformConfig_( std::move( platformConfig ) ),
      platformStatus_( std::move( platformStatus ) ) {}

void
QonStormControlSmV2::kivDoZombieReactors() {
   StormControlBaseSm::kivDoZombieReactors();
   intfStatusSms_.kivDoZombieReactors();
   tcStatusSms_.kivDoZombieReactors();
}

void
QonStormControlSmV2::handleInitialized() {
   if ( !initialized() ) {
      intfStatusSms_.rest();
      tcStatusSms_.rest();
   }
   const Velto::Hold alive( this );
   Velto::FirstError error;
   error.run( [this] { StormControlBaseSm::handleInitialized(); } );
   if ( initialized() && started() ) {
      intfStatusWatch_.attach( this, platformStatus() );
      tcStatusWatch_.attach( this, platformStatus() );
      error.run( [this] {
         intfStatusSms_.reviewAll( platformStatus()->platformIntfStatusIteratorConst(),
                                   [this]( IntfId intf ) {
                                      return Velto::Ptr< const StormControl::PlatformIntfStatus >(
                                            platformStatus()->platformIntfStatus( intf ) );
                                   } );
      } );
      error.run( [this] {
         tcStatusSms_.reviewAll(
               platformStatus()->platformAggregateTcStatusIteratorConst(),
               [this]( U8 trafficClass ) {
                  return Velto::Ptr< const StormControl::PlatformAggregateTcStatus >(
                        platformStatus()->platformAggregateTcStatus( trafficClass ) );
               } );
      } );
   }
   error.pass();
}

/** What an agent before this one left, and nobody wants any more, goes. */
void
QonStormControlSmV2::begin() {
   VELTO_ASSERT( helper() );
   VELTO_ASSERT( platformConfig() );
   VELTO_ASSERT( platformStatus() );
   findVersions();
   Velto::FirstError error;
   for ( auto && entry : keysOf< IntfId >( platformConfig()->platformIntfConfigIteratorConst() ) ) {
      const Want want = wantOf( entry.key );
      if ( !want.machine || !want.active ) {
         auto leftBehind = [&] { reset( entry.key ); };
         error.run( leftBehind ) || error.run( leftBehind );
      }
   }
   error.pass();
}

void
QonStormControlSmV2::findVersions() {
   for ( auto && [intf, config] : platformConfig()->platformIntfConfigIteratorConst() ) {
      version_ = std::max( version_, config->versionId() );
   }
   for ( auto && [tc, config] : platformConfig()->platformAggregateTcConfigIteratorConst() ) {
      version_ = std::max( version_, config->versionId() );
   }
   for ( auto && [intf, status] : platformStatus()->platformIntfStatusIteratorConst() ) {
      version_ = std::max( version_, status->versionId() );
   }
   for ( auto && [tc, status] : platformStatus()->platformAggregateTcStatusIteratorConst() ) {
      version_ = std::max( version_, status->versionId() );
   }
}

// --- Interfaces ----------------------------------------------------------------------------------

void
QonStormControlSmV2::machineBegins( StormControlIntfSm & machine ) {
   if ( !StormControl::isPort( machine.intf() ) ) {
      statusIs( machine.intf() );
   }
}

/** The version before the hooks: who is told of a level finds all of them. */
void
QonStormControlSmV2::program( StormControlIntfSm & machine, const Want & want ) {
   const IntfId intf = machine.intf();
   AllGiven wanted;
   const Velto::Ptr platform( platformConfig()->platformIntfConfig( intf ) );
   bool changed = !platform;
   for ( auto & kind : levelKinds ) {
      if ( has( kind ) ) {
         wanted[U8( kind.level )] = wantedLevel( machine, kind, want );
         changed = changed || !( wanted[U8( kind.level )] == machine.given( kind.level ) );
      }
   }
   Velto::FirstError error;
   if ( changed ) {
      error.run( [&] { publish( machine, wanted, platform ); } );
   }
   error.run( [&] { reviewBcastSkip( intf, !want.effective.config->broadcastLevel() ); } );
   for ( auto & kind : levelKinds ) {
      const Given & level = wanted[U8( kind.level )];
      Given & given = machine.given_[U8( kind.level )];
      if ( !has( kind ) || level == given || machine.zombie() ) {
         continue;
      }
      error.run( [&] {
         given.given = false;
         QON_HOOK( QonStormControlSmHelperV2, helper(), handlePortRulesHelper, kind.type, intf,
                   level.lag, level.speedKbps, level.threshold );
         given = level;
      } );
   }
   error.pass();
}

void
QonStormControlSmV2::publish( const StormControlIntfSm & machine, const AllGiven & wanted,
                              Velto::Ptr< StormControl::PlatformIntfConfig > platform ) {
   const U32 version = ++version_;
   Velto::FirstError error;
   if ( !platform ) {
      error.run( [&] { platformConfig()->platformIntfConfigIs( machine.intf() ); } );
      if ( machine.zombie() ) {
         error.pass();
         return; // whoever watches has taken everything back
      }
      platform = platformConfig()->platformIntfConfigIs( machine.intf() );
   }
   const Given & any = wanted[U8( StormControl::Level::broadcast )];
   error.run( [&] { platform->lagIs( any.lag ); } );
   error.run( [&] { platform->speedIs( any.speedKbps ); } );
   for ( auto & kind : levelKinds ) {
      if ( has( kind ) ) {
         const Threshold & threshold = wanted[U8( kind.level )].threshold;
         error.run( [&] { platform->levelIs( kind.type, threshold ); } );
      }
   }
   error.run( [&] { platform->versionIdIs( version ); } );
   error.pass();
}

/** Its status stays, without levels. */
void
QonStormControlSmV2::clear( StormControlIntfSm & machine, const Want & ) {
   const IntfId intf = machine.intf();
   machine.forget();
   Velto::FirstError error;
   error.run( [&] { reviewBcastSkip( intf, true ); } );
   error.run( [&] { reset( intf ); } );
   if ( const auto status = statusOf( intf ); status ) {
      error.run( [&] { status->levelDelAll(); } );
   }
   error.pass();
}

void
QonStormControlSmV2::reset( IntfId intf ) {
   Velto::FirstError error;
   error.run( [&] { platformConfig()->platformIntfConfigDel( intf ); } );
   error.run( [&] { QON_HOOK( QonStormControlSmHelperV2, helper(), resetPortConfig, intf ); } );
   error.pass();
}

void
QonStormControlSmV2::machineEnds( StormControlIntfSm & machine ) {
   Velto::FirstError error;
   if ( StormControl::isPort( machine.intf() ) && !machine.cleared() ) {
      error.run( [&] { clear( machine, {} ); } );
   }
   error.run( [&] { statusDel( machine.intf() ); } );
   error.pass();
}

void
QonStormControlSmV2::tellBcastSkip( IntfId intf, bool skip ) {
   QON_HOOK( QonStormControlSmHelperV2, helper(), updateBcastSkipRule, intf, skip );
}

/** Between a version and the chip's answer nobody knows of which levels the drops are. */
std::optional< StormControl::AllDrops >
QonStormControlSmV2::dropsOf( const StormControlIntfSm & machine ) const {
   const auto slices = StormControlBaseSm::dropsOf( machine );
   if ( !StormControl::isPort( machine.intf() ) ) {
      return slices;
   }
   auto sm = intfStatusSms_.sm( machine.intf() );
   if ( !sm || !sm->current() ) {
      return {};
   }
   constexpr U32 byPort = ~0U; // no slice reports it: the port's own counters
   return slices && slices->reporters()
                ? *slices
                : StormControl::AllDrops( sm->platformIntfStatus()->drops(), byPort );
}

// --- Traffic classes -----------------------------------------------------------------------------

void
QonStormControlSmV2::programTrafficClass(
      U8 trafficClass, const Velto::Ptr< const StormControl::AggregateTcConfig > & config ) {
   auto given = classes_.find( trafficClass );
   Velto::FirstError error;
   if ( config ) {
      const Threshold wanted = config->threshold();
      if ( given && *given == wanted &&
           platformConfig()->platformAggregateTcConfigHas( trafficClass ) ) {
         return;
      }
      classes_.erase( trafficClass ); // until the hook returns
      const U32 version = ++version_;
      error.run( [&] { platformConfig()->platformAggregateTcConfigIs( trafficClass ); } );
      const auto platform = platformConfig()->platformAggregateTcConfigIs( trafficClass );
      error.run( [&] { platform->thresholdIs( wanted ); } );
      error.run( [&] { platform->versionIdIs( version ); } );
      error.run( [&] {
         QON_HOOK( QonStormControlSmHelperV2, helper(), handleAggregateTcRulesHelper, trafficClass,
                   wanted );
         if ( platformConfig()->platformAggregateTcConfigHas( trafficClass ) ) {
            *classes_.emplace( trafficClass ).first = wanted;
         }
      } );
   } else if ( given || platformConfig()->platformAggregateTcConfigHas( trafficClass ) ) {
      error.run( [&] { platformConfig()->platformAggregateTcConfigDel( trafficClass ); } );
      error.run( [&] {
         QON_HOOK( QonStormControlSmHelperV2, helper(), handleAggregateTcRulesHelper, trafficClass,
                   Threshold() );
         classes_.erase( trafficClass );
      } );
      error.run( [&] { status()->aggregateTcStatusDel( trafficClass ); } );
   }
   error.pass();
}

std::vector< U8 >
QonStormControlSmV2::programmedClasses() const {
   auto all = keysOf< U8 >( platformConfig()->platformAggregateTcConfigIteratorConst() );
   for ( auto && [trafficClass, threshold] : classes_ ) {
      all.emplace( trafficClass );
   }
   std::vector< U8 > classes;
   for ( auto && entry : all ) {
      classes.push_back( entry.key );
   }
   return classes;
}

// --- Answers -------------------------------------------------------------------------------------

void
QonStormControlSmV2::handlePlatformIntfStatus( const IntfId & intf ) {
   intfStatusSms_.review( intf, platformStatus()->platformIntfStatus( intf ) );
}

void
QonStormControlSmV2::handlePlatformAggregateTcStatus( const U8 & trafficClass ) {
   tcStatusSms_.review( trafficClass, platformStatus()->platformAggregateTcStatus( trafficClass ) );
}

Velto::Ptr< PlatformIntfStatusSm >
QonStormControlSmV2::makeIntfStatusSm(
      const IntfId &, const Velto::Ptr< const StormControl::PlatformIntfStatus > & status ) {
   return smIs< PlatformIntfStatusSm >( this, status );
}

Velto::Ptr< AggregateTcStatusSm >
QonStormControlSmV2::makeTcStatusSm(
      const U8 &, const Velto::Ptr< const StormControl::PlatformAggregateTcStatus > & status ) {
   return smIs< AggregateTcStatusSm >( this, status );
}

void
QonStormControlSmV2::reported( IntfId intf ) {
   ask( What::report, intf );
}

void
QonStormControlSmV2::tcReported( U8 trafficClass ) {
   ask( What::tcReport, {}, trafficClass );
}

void
QonStormControlSmV2::reviewReport( IntfId intf ) {
   const Velto::Ptr< PlatformIntfStatusSm > sm( intfStatusSms_.sm( intf ) );
   if ( sm && sm->current() && intfSm( intf ) ) {
      sm->writeIntfStatus();
   }
}

void
QonStormControlSmV2::reviewTcReport( U8 trafficClass ) {
   const Velto::Ptr< AggregateTcStatusSm > sm( tcStatusSms_.sm( trafficClass ) );
   if ( sm && sm->current() ) {
      sm->writeAggregateTcStatus();
   }
}

String
QonStormControlSmV2::checkInvariants() const {
   for ( auto && [intf, platform] : platformConfig()->platformIntfConfigIteratorConst() ) {
      auto machine = intfSm( intf );
      if ( !machine || machine->cleared() ) {
         return "a configuration of the chip that nobody wants: " + intf.stringValue();
      }
      if ( platform->versionId() > version_ ) {
         return "a version that was never given: " + intf.stringValue();
      }
   }
   for ( IntfId intf : machineKeys() ) {
      const bool port = StormControl::isPort( intf );
      if ( !wantOf( intf ).machine ) {
         return "storm control of nobody: " + intf.stringValue();
      }
      if ( !port && !status()->intfStatusHas( intf ) ) {
         return "storm control without status: " + intf.stringValue();
      }
      if ( port && !intfSm( intf )->cleared() &&
           !platformConfig()->platformIntfConfigHas( intf ) ) {
         return "no configuration of the chip: " + intf.stringValue();
      }
   }
   for ( auto && [intf, entry] : status()->intfStatusIteratorConst() ) {
      if ( !intfSm( intf ) ) {
         return "status of nobody: " + intf.stringValue();
      }
   }
   return {};
}

Velto::Ptr< QonStormControlSmV2 >
QonStormControlSmV2Is( StormControlBaseSm::Inputs inputs,
                       Velto::Ptr< QonStormControlSmHelperV2 > helper,
                       Velto::Ptr< StormControl::PlatformConfig > platformConfig,
                       Velto::Ptr< const StormControl::PlatformStatus > platformStatus ) {
   return smIs< QonStormControlSmV2 >( std::move( inputs ), std::move( helper ),
                                       std::move( platformConfig ), std::move( platformStatus ) );
}

} // namespace Qon
