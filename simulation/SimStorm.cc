#include "simulation/SimStorm.h"

#include "simulation/SimLag.h"
#include "simulation/World.h"

namespace Sim {

using Bridging::StormControl::IntfConfig;
using Bridging::StormControl::OptionalThreshold;
using Bridging::StormControl::Unit;
using Interface::EthSpeed;
using Ulnet::IntfId;

namespace {

/** The setter of each level, by its number. */
constexpr void ( IntfConfig::*stormSetters[] )( Kiv::Read< OptionalThreshold > ) = {
      &IntfConfig::uUcastLevelIs,    &IntfConfig::uUcastCpuLevelIs,
      &IntfConfig::broadcastLevelIs, &IntfConfig::broadcastCpuLevelIs,
      &IntfConfig::multicastLevelIs, &IntfConfig::multicastCpuLevelIs,
      &IntfConfig::allLevelIs,       &IntfConfig::allCpuLevelIs };

} // namespace

void
SimStorm::drawFaults( Rng & rng, std::vector< String > & lines ) const {
   lines.push_back( "stormLimiter busy 0 0 " + often( rng, 300 ) );
   if ( rng.percent( 20 ) ) {
      lines.push_back( "limit stormLimiters " + often( rng, 20 ) );
   }
}

FeatureKind
simStorm() {
   return featureKindOf< SimStorm >( "storm" );
}

std::span< const Operation >
SimStorm::operations() {
   static const Operation table[] = {
         { "level",
           40,
           { Range::intf, Range::few, Range::few, Range::hundred },
           &SimStorm::levelIs },
         { "config", 12, { Range::intf, Range::flag }, &SimStorm::configIs },
         { "recreate", 4, { Range::intf, Range::few }, &SimStorm::recreate },
         { "class", 4, { Range::few, Range::few }, &SimStorm::classIs },
         { "speed", 8, { Range::port, Range::few }, &SimStorm::speedIs },
         { "active", 8, { Range::port, Range::flag }, &SimStorm::activeIs },
         { "model", 4, { Range::port, Range::few }, &SimStorm::modelIs },
         { "status", 4, { Range::port, Range::flag }, &SimStorm::statusIs },
         { "member", 16, { Range::port, Range::lag, Range::few }, &SimStorm::memberIs },
         { "managed", 3, { Range::port, Range::flag }, &SimStorm::managedIs },
         { "sub", 2, { Range::intf, Range::few, Range::flag }, &SimStorm::subIntfIs },
         { "traffic", 8, { Range::port, Range::few, Range::hundred }, &SimStorm::trafficIs },
         { "slice", 2, { Range::few, Range::flag }, &SimStorm::sliceIs },
         { "logging", 3, { Range::intf, Range::few, Range::few }, &SimStorm::loggingIs },
         { "cause", 2, { Range::flag }, &SimStorm::causeIs },
         { "recover", 3, { Range::port }, &SimStorm::recover },
         { "answer", 4, { Range::port, Range::few }, &SimStorm::answer },
         { "latency", 2, { Range::few }, &SimStorm::latencyIs },
         { "finish", 6, { Range::few }, &SimStorm::finish },
         { "pause", 2, { Range::flag }, &SimStorm::pauseIs },
         { "restart", 2, { Range::few }, &SimStorm::restart },
   };
   return table;
}

SimStorm::SimStorm( World & world )
    : SimFeature( world ), second_( world.chance( 70 ).percent( 50 ) ),
      chip_( world.chip->of< SoftChip::StormControlPart >() ),
      config_( Velto::make< Bridging::StormControl::Config >( "config" ) ),
      status_( Velto::make< Bridging::StormControl::Status >( "status" ) ),
      phys_( Velto::make< Interface::EthPhyIntfStatusDir >( "phys" ) ),
      slices_( Velto::make< Qon::StormControl::DropSliceDir >( "slices" ) ),
      drops_( Velto::make< Qon::StormControl::DropStatus >( "drops" ) ),
      platformConfig_( Velto::make< Qon::StormControl::PlatformConfig >( "platform" ) ),
      platformStatus_( Velto::make< Qon::StormControl::PlatformStatus >( "platform" ) ),
      causes_( Velto::make< Errdisable::CauseConfig >( "causes" ) ),
      disabled_( Velto::make< Errdisable::CauseStatus >( "storm-control" ) ) {
   causeHeard_.attach( disabled_.ptr(), [this]( const IntfId & intf ) { causeHeard( intf ); } );
   statusHeard_.attach( status_.ptr(), [this]( const IntfId & intf ) { statusHeard( intf ); } );
}

void
SimStorm::shape( const World & world, SoftChip::Shape & shape ) {
   Rng rng = world.chance( 71 );
   shape.storm.limiters = rng.percent( 50 ) ? 1000 : rng.between( 1, 40 );
   shape.storm.slices = rng.between( 1, 4 );
   shape.storm.uucast = rng.percent( 80 );
   shape.storm.burst = rng.percent( 50 );
}

Qon::StormControlBaseSm &
SimStorm::sm() const {
   return second_ ? static_cast< Qon::StormControlBaseSm & >( *smV2_ ) : *smV1_;
}

void
SimStorm::start() {
   told_.clear();
   if ( !counter_ ) {
      counter_ = chip_.makeDropCounter( slices_ );
   }
   Qon::StormControlBaseSm::Inputs inputs = { config_,     status_, phys_,
                                              world_.acsd, drops_,  world_.scheduler.timerWheel() };
   if ( second_ ) {
      helperV2_ = chip_.makeStormControlHelperV2( platformConfig_, platformStatus_ );
      smV2_ = Qon::QonStormControlSmV2Is( inputs, helperV2_, platformConfig_, platformStatus_ );
   } else {
      helper_ = chip_.makeStormControlHelper( world_.acsd );
      smV1_ = Qon::StormControlSmIs( inputs, helper_, world_.acsd->verifyData() );
   }
   dropSm_ = Qon::StormControlDropSmIs(
         { config_, status_, slices_, drops_, world_.acsd, world_.scheduler.timerWheel() } );
   errdisableSm_ =
         Qon::StormControlErrdisableSmIs( { config_, status_, causes_, disabled_, world_.acsd } );
   initializedIs( true );
}

void
SimStorm::initializedIs( bool on ) {
   paused_ = !on;
   dropSm_->initializedIs( on );
   sm().initializedIs( on );
   errdisableSm_->initializedIs( on );
}

void
SimStorm::stop() {
   errdisableSm_ = nullptr;
   dropSm_ = nullptr;
   smV1_ = nullptr;
   smV2_ = nullptr;
   helper_ = nullptr;
   helperV2_ = nullptr;
}

bool
SimStorm::ready() {
   return true;
}

// --- What happens --------------------------------------------------------------------------------

void
SimStorm::levelIs( const Event & event ) {
   auto config = config_->intf( world_.intf( event[0] ) );
   const U32 level = event[1];
   if ( !config ) {
      return;
   }
   OptionalThreshold threshold;
   if ( event[2] ) {
      const Unit unit = Unit( event[2] % 3 );
      threshold = Threshold( unit, unit == Unit::percent ? event[3] : event[3] * 10 );
   }
   if ( level % 2 && threshold ) { // of the CPU
      cpuRates_[config->intfId()][Level( level )].insert( threshold->value() );
   }
   only_ = Kiv::toText( Level( level ) );
   judged_ = true;
   ( config->*stormSetters[level] )( threshold );
   judged_ = false;
}

void
SimStorm::configIs( const Event & event ) {
   const IntfId intf = world_.intf( event[0] );
   event[1] ? void( config_->intfIs( intf ) ) : configDel( intf );
}

void
SimStorm::configDel( IntfId intf ) {
   cpuRates_.erase( intf );
   config_->intfDel( intf );
}

/** Gone and back before anything else happens; with a level, or without. */
void
SimStorm::recreate( const Event & event ) {
   const IntfId intf = world_.intf( event[0] );
   if ( config_->intfHas( intf ) ) {
      configDel( intf );
      auto config = config_->intfIs( intf );
      if ( event[1] ) {
         config->broadcastLevelIs( Threshold( Unit::kbps, event[1] ) );
      }
   }
}

void
SimStorm::classIs( const Event & event ) {
   if ( event[1] ) {
      config_->aggregateTcIs( U8( event[0] ) )->thresholdIs( Threshold( Unit::pps, event[1] ) );
   } else {
      config_->aggregateTcDel( U8( event[0] ) );
   }
}

void
SimStorm::speedIs( const Event & event ) {
   if ( auto phy = phys_->intfStatus( world_.port( event[0] ) ) ) {
      only_ = "";
      judged_ = true;
      phy->speedIs( EthSpeed( event[1] ) );
      judged_ = false;
   }
}

void
SimStorm::activeIs( const Event & event ) {
   if ( auto phy = phys_->intfStatus( world_.port( event[0] ) ) ) {
      phy->activeIs( event[1] );
   }
}

void
SimStorm::modelIs( const Event & event ) {
   if ( auto phy = phys_->intfStatus( world_.port( event[0] ) ) ) {
      phy->forwardingModelIs( event[1] == 1 ? Interface::ForwardingModel::routed
                                            : Interface::ForwardingModel::bridged );
   }
}

void
SimStorm::statusIs( const Event & event ) {
   const IntfId port = world_.port( event[0] );
   event[1] ? void( phys_->intfStatusIs( port ) ) : phys_->intfStatusDel( port );
}

/** Where nobody else says who is a member. */
void
SimStorm::memberIs( const Event & event ) {
   if ( world_.feature< SimLag >() ) {
      return;
   }
   auto & acsd = *world_.acsd;
   const IntfId port = world_.port( event[0] ), from = acsd.portToLag( port ),
                to = event[2] < 3 ? IntfId() : world_.lag( event[1] );
   for ( IntfId lag : { from, to } ) {
      if ( lag ) {
         Qon::QonLagPortList list = acsd.lagToPort( lag );
         lag == to ? list.portIs( port, Qon::QonLagPort( true, true ) ) : list.portDel( port );
         event[2] == 7 && lag != to ? acsd.lagToPortDel( lag ) : acsd.lagToPortIs( lag, list );
      }
   }
   to ? acsd.portToLagIs( port, to ) : acsd.portToLagDel( port );
}

void
SimStorm::managedIs( const Event & event ) {
   if ( !world_.feature< SimLag >() ) {
      event[1] ? world_.acsd->intfIs( world_.port( event[0] ), true )
               : world_.acsd->intfDel( world_.port( event[0] ) );
   }
}

void
SimStorm::subIntfIs( const Event & event ) {
   const IntfId sub = Ulnet::SubIntfId::intfId( world_.intf( event[0] ), event[1] + 1 );
   event[2] ? void( config_->intfIs( sub ) ) : config_->intfDel( sub );
}

void
SimStorm::trafficIs( const Event & event ) {
   chip_.trafficIs( world_.port( event[0] ), Qon::LevelType( 1 + event[1] % 3 ), event[1] > 5,
                    { event[2] * 20.0, 128 } );
}

void
SimStorm::sliceIs( const Event & event ) {
   const String unit = SoftChip::StormMeter::sliceName( event[0] % chip_.meter().slices() );
   world_.chip->faults().unitLostIs( unit, event[1] );
   chip_.changed();
}

void
SimStorm::loggingIs( const Event & event ) {
   constexpr double spans[] = { 0, 0, 3, 10, 40, 3, 10, 40 };
   if ( auto config = config_->intf( world_.intf( event[0] ) ) ) {
      config->dropLoggingIs( event[1] % 2 );
   }
   config_->dropLoggingIs( event[1] > 5 );
   config_->dropLoggingIntervalIs( spans[event[2]] );
   config_->counterPeriodIs( spans[event[1]] );
}

void
SimStorm::causeIs( const Event & event ) {
   event[0] ? causes_->enabledIs( "storm-control" ) : causes_->enabledDel( "storm-control" );
}

void
SimStorm::recover( const Event & event ) {
   disabled_->intfStatusDel( world_.port( event[0] ) );
}

/** An answer to an older version: it was late, or comes twice. */
void
SimStorm::answer( const Event & event ) {
   const IntfId port = world_.port( event[0] );
   auto config = platformConfig_->platformIntfConfig( port );
   if ( !config || config->versionId() <= event[1] + 1 ) {
      return;
   }
   fooled_.insert( port );
   platformStatus_->platformIntfStatusIs( port )->versionIdIs( config->versionId() - 1 - event[1] );
}

void
SimStorm::latencyIs( const Event & event ) {
   latency_ = event[0];
   chip_.latencyIs( latency_ < 3   ? 0
                    : latency_ < 6 ? ( 1u << 4 * ( latency_ - 3 ) ) * 1e-4
                                   : Kiv::never );
}

void
SimStorm::finish( const Event & event ) {
   if ( chip_.completions().waiting() ) {
      chip_.completions().finish( event[0] % chip_.completions().waiting() );
   }
}

void
SimStorm::pauseIs( const Event & event ) {
   if ( paused_ != bool( event[0] ) ) {
      initializedIs( !event[0] );
   }
}

void
SimStorm::kill( Ending ) {
   stop();
   counter_ = nullptr;
}

/** By taking everything back, or over what there is. */
void
SimStorm::restart( const Event & event ) {
   if ( event[0] < 4 ) {
      sm().doCleanup();
      if ( !chip_.table().held().empty() || !chip_.table().waiting().empty() ) {
         world_.report( "storm", "limits are left in the chip after the clean-up" );
      }
      if ( status_->intfStatuss() || status_->aggregateTcStatuss() ) {
         world_.report( "storm", "statuses are left after the clean-up" );
      }
      told_.clear();
      initializedIs( true );
   } else {
      stop();
      start();
   }
}

void
SimStorm::faultsIs( bool on ) {
   Event quick{};
   quick.args[0] = on ? latency_ : 3;
   const U32 latency = latency_;
   latencyIs( quick );
   latency_ = latency;
   while ( !on && chip_.completions().waiting() ) {
      chip_.completions().finish( 0 );
   }
   if ( !on ) {
      for ( U32 i = 0; i < world_.size( Range::port ); ++i ) {
         for ( U32 kind = 0; kind < 8; ++kind ) {
            chip_.trafficIs( world_.port( i ), Qon::LevelType( 1 + kind % 3 ), kind > 5, {} );
         }
      }
      if ( dropSm_ && paused_ ) {
         initializedIs( true );
      }
      chip_.table().admit();
   }
}

// --- What must hold while it happens -------------------------------------------------------------

/** "levelTypeAll, Ethernet1, , 1000, Value(...)" of the hooks that program a level. */
void
SimStorm::hookCalled( const char * hook, const String & arguments ) {
   const std::string_view name( hook );
   const bool cpu = name == "StormControlSmHelper::setCpuHwRate";
   if ( !cpu && name != "StormControlSmHelper::setHwRate" &&
        name != "QonStormControlSmHelperV2::handlePortRulesHelper" ) {
      return;
   }
   const auto first = arguments.find( ", " ), second = arguments.find( ", ", first + 2 );
   const String level = arguments.substr( 0, first ) + ( cpu ? " cpu" : "" ),
                key = level + arguments.substr( first, second - first ),
                rest = arguments.substr( second );
   if ( judged_ && told_.contains( key ) && told_[key] == rest ) {
      world_.report( "storm", "a level is told again: " + key + rest );
   }
   const String type = arguments.substr( 9, first - 9 );
   if ( judged_ && !only_.empty() ) {
      String expected = only_;
      const bool cpuLevel = expected.ends_with( "Cpu" );
      expected = expected.substr( 0, expected.size() - ( cpuLevel ? 3 : 0 ) );
      expected[0] = char( std::toupper( expected[0] ) );
      if ( type != expected || cpu != cpuLevel ) {
         world_.report( "storm", "another level is told: " + key + ", not " + only_ );
      }
   }
   told_[key] = rest;
}

void
SimStorm::causeHeard( IntfId intf ) {
   if ( disabled_->intfStatusHas( intf ) &&
        ( !causes_->enabledHas( "storm-control" ) || !ownerOf( intf ) ) ) {
      world_.report( "storm", "disabled for no reason: " + intf.stringValue() );
   }
}

void
SimStorm::statusHeard( IntfId intf ) {
   if ( auto status = status_->intfStatus( intf ) ) {
      levelHeard_[intf].attach(
            status, [this, intf]( const Level & level ) { levelHeard( intf, level ); } );
   } else {
      levelHeard_.erase( intf );
   }
}

bool
SimStorm::answered( IntfId port ) const {
   auto platform = platformConfig_->platformIntfConfig( port );
   auto report = platformStatus_->platformIntfStatus( port );
   return platform && report && report->versionId() == platform->versionId();
}

void
SimStorm::levelHeard( IntfId intf, Level level ) {
   if ( second_ && status_->intfStatus( intf )->levelHas( level ) && !answered( intf ) ) {
      world_.report( "storm", "status of an older version: " + intf.stringValue() );
   }
}

} // namespace Sim
