// The model of storm control: what is wanted by the configuration alone, and what must hold.

#include "simulation/SimLag.h"
#include "simulation/SimStorm.h"
#include "simulation/World.h"

namespace Sim {

using Bridging::StormControl::IntfConfig;
using Bridging::StormControl::OptionalThreshold;
using Ulnet::IntfId;

namespace {

const SoftChip::StormTable::Limit noLimit{};
constexpr U32 allLevels = 8;

/** The attribute of each level, by its number. */
constexpr Kiv::Read< OptionalThreshold > ( IntfConfig::*stormGetters[] )() const = {
      &IntfConfig::uUcastLevel,       &IntfConfig::uUcastCpuLevel, &IntfConfig::broadcastLevel,
      &IntfConfig::broadcastCpuLevel, &IntfConfig::multicastLevel, &IntfConfig::multicastCpuLevel,
      &IntfConfig::allLevel,          &IntfConfig::allCpuLevel };
bool
stormOfCpu( U32 level ) {
   return level % 2;
}

} // namespace

// --- What is wanted ------------------------------------------------------------------------------

IntfId
SimStorm::lagOf( IntfId port ) const {
   auto lag = world_.feature< SimLag >();
   return lag ? lag->wantedLag( port ) : world_.acsd->portToLag( port );
}

IntfId
SimStorm::ownerOf( IntfId port ) const {
   const IntfId lag = lagOf( port ), owner = lag ? lag : port;
   return config_->intfHas( owner ) ? owner : IntfId();
}

bool
SimStorm::wanted( IntfId port ) const {
   auto phy = phys_->intfStatus( port );
   const bool known = world_.acsd->intfs() == 0 || world_.acsd->intfHas( port );
   const bool bridged = !phy || phy->forwardingModel() == Interface::ForwardingModel::bridged;
   return ownerOf( port ) && known && bridged && ( !phy || phy->active() );
}

bool
SimStorm::programs( Level level ) const {
   const bool uucast = level == Level::uUcast || level == Level::uUcastCpu;
   return second_ ? !stormOfCpu( U32( level ) ) : !uucast || chip_.shape().uucast;
}

SimStorm::Limits
SimStorm::wantedLimits( IntfId port ) const {
   Limits limits;
   if ( !wanted( port ) ) {
      return limits;
   }
   auto phy = phys_->intfStatus( port );
   const U64 speed = phy ? Interface::EthSpeedApi::speedKbps( phy->speed() ) : 0;
   auto config = config_->intf( ownerOf( port ) );
   for ( U32 level = 0; level < allLevels; ++level ) {
      const OptionalThreshold threshold = ( config->*stormGetters[level] )();
      if ( programs( Level( level ) ) && threshold && !( *threshold == Threshold() ) ) {
         limits[Level( level )] = { *threshold, speed };
      }
   }
   return limits;
}

/** A limit that waits for a limiter stops nothing. */
std::optional< bool >
SimStorm::stops( IntfId port, Level level, U8 trafficClass ) const {
   const bool broadcast = level == Level::broadcast;
   if ( broadcast && wanted( port ) && !config_->intf( ownerOf( port ) )->broadcastLevel() ) {
      return false; // they pass by all limits
   }
   for ( auto & [limited, limit] : wantedLimits( port ) ) {
      if ( ( limited == level || limited == Level::all ) && limit.threshold.value() == 0 &&
           !chip_.table().waits( port, limited ) ) {
         return true;
      }
   }
   auto ofClass = config_->aggregateTc( trafficClass );
   const bool stopped = ofClass && ofClass->threshold().value() == 0;
   return stopped && broadcast && !wanted( port ) ? std::nullopt : std::optional( stopped );
}

SimStorm::Limits
SimStorm::asked( IntfId port ) const {
   Limits limits;
   for ( auto & [key, limit] : chip_.table().held() ) {
      if ( key.first == port ) {
         limits[key.second] = limit;
      }
   }
   for ( auto & [key, limit] : chip_.table().waiting() ) {
      if ( key.first == port ) {
         limits[key.second] = limit;
      }
   }
   return limits;
}

/** A rate of zero to the CPU leaves what was there under this configuration. */
String
SimStorm::checkLimits( IntfId port, const Limits & limits ) const {
   const Limits want = wantedLimits( port );
   for ( U32 n = 0; n < allLevels; ++n ) {
      const Level level = Level( n );
      auto wantedOne = want.find( level ), held = limits.find( level );
      const auto & w = wantedOne == want.end() ? noLimit : wantedOne->second;
      const auto & h = held == limits.end() ? noLimit : held->second;
      auto name = [&] { return port.stringValue() + " " + Kiv::toText( level ); };
      if ( stormOfCpu( n ) && w.threshold.value() == 0 ) {
         auto rates = cpuRates_.find( ownerOf( port ) );
         const bool known = rates != cpuRates_.end() && rates->second.contains( level ) &&
                            rates->second.at( level ).contains( h.threshold.value() );
         if ( h.threshold.value() == 0 || ( !known && !( h.threshold == Threshold() ) ) ) {
            return "a rate of zero to the CPU: " + name();
         }
      } else if ( !( h.threshold == w.threshold ) ) {
         return "limit: " + name() + " has " + h.threshold.stringValue() + ", not " +
                w.threshold.stringValue();
      } else if ( held != limits.end() && h.speedKbps != w.speedKbps ) {
         return "speed of a limit: " + name();
      }
   }
   return {};
}

String
SimStorm::checkPlatform( IntfId port ) const {
   auto platform = platformConfig_->platformIntfConfig( port );
   if ( bool( platform ) != wanted( port ) ) {
      return "platform configuration: " + port.stringValue();
   }
   if ( !platform ) {
      return {};
   }
   if ( platform->lag() != lagOf( port ) ) {
      return "port-channel in the platform configuration: " + port.stringValue();
   }
   Limits limits;
   for ( U32 n = 0; n < allLevels; n += 2 ) {
      const Threshold threshold = platform->level( Qon::LevelType( 1 + n / 2 ) );
      if ( !( threshold == Threshold() ) ) {
         limits[Level( n )] = { threshold, platform->speed() };
      }
   }
   return checkLimits( port, limits );
}

String
SimStorm::checkStatus( IntfId port ) const {
   auto platform = platformConfig_->platformIntfConfig( port );
   auto report = platformStatus_->platformIntfStatus( port );
   auto status = status_->intfStatus( port );
   std::map< Level, Threshold > now;
   for ( U32 n = 0; status && n < allLevels; n += 2 ) {
      if ( status->levelHas( Level( n ) ) ) {
         now[Level( n )] = status->level( Level( n ) );
      }
   }
   if ( !status || !platform ) {
      return now.empty() ? "" : "levels of nobody: " + port.stringValue();
   }
   if ( !answered( port ) ) {
      return {}; // as it was: see levelHeard()
   }
   for ( U32 n = 0; n < allLevels; n += 2 ) {
      const auto type = Qon::LevelType( 1 + n / 2 );
      const bool there = report->result( type ) == QonTypes::TableAddStatus::success;
      const bool shown = now.contains( Level( n ) );
      if ( shown != there || ( shown && !( now[Level( n )] == platform->level( type ) ) ) ) {
         return "status of the version: " + port.stringValue();
      }
   }
   return {};
}

String
SimStorm::checkPort( IntfId port ) const {
   if ( wanted( port ) && chip_.table().skipped( port ) ==
                                bool( config_->intf( ownerOf( port ) )->broadcastLevel() ) ) {
      return "broadcasts that pass by the rules: " + port.stringValue();
   }
   auto status = status_->intfStatus( port );
   const bool chipAsked = second_ && platformConfig_->platformIntfConfigHas( port );
   if ( status && ( !chipAsked || answered( port ) ) && status->lag() != lagOf( port ) ) {
      return "port-channel in the status: " + port.stringValue();
   }
   if ( second_ ) {
      String wrong = checkPlatform( port );
      return wrong.empty() ? checkStatus( port ) : wrong;
   }
   return checkLimits( port, asked( port ) );
}

String
SimStorm::checkSums() const {
   std::map< IntfId, std::array< U64, 3 > > sums;
   for ( auto && [name, slice] : slices_->sliceIteratorConst() ) {
      for ( auto && [intf, status] : slice->intfStatusIteratorConst() ) {
         auto & sum = sums[intf];
         sum[0] += status->drops().broadcastDrop();
         sum[1] += status->drops().allDropOcts();
         sum[2] += status->drops().multicastCpuDrop();
      }
   }
   if ( sums.size() != drops_->allIntfStatuss() ) {
      return "sums: of " + std::to_string( drops_->allIntfStatuss() ) + " interfaces";
   }
   for ( auto & [intf, sum] : sums ) {
      const Drops drops = drops_->allIntfStatus( intf ).drops();
      if ( sum != std::array< U64, 3 >{ drops.broadcastDrop(), drops.allDropOcts(),
                                        drops.multicastCpuDrop() } ) {
         return "sums: of " + intf.stringValue();
      }
   }
   return {};
}

String
SimStorm::checkClasses() const {
   if ( !second_ && chip_.table().classes().size() != config_->aggregateTcs() ) {
      return "traffic classes: number";
   }
   for ( auto && [trafficClass, config] : config_->aggregateTcIteratorConst() ) {
      auto held = chip_.table().classes().find( trafficClass );
      if ( !second_ && !( held->second == config->threshold() ) ) {
         return "traffic classes: " + std::to_string( trafficClass );
      }
   }
   return {};
}

String
SimStorm::checkInvariants() const {
   if ( paused_ ) {
      return {};
   }
   String wrong = second_ ? smV2_->checkInvariants() : smV1_->checkInvariants();
   if ( !wrong.empty() ) {
      return "own invariant: " + wrong;
   }
   for ( U32 i = 0; i < world_.size( Range::port ); ++i ) {
      if ( wrong = checkPort( world_.port( i ) ); !wrong.empty() ) {
         return wrong;
      }
   }
   wrong = checkClasses();
   return wrong.empty() ? checkSums() : wrong;
}

// --- Rest and end --------------------------------------------------------------------------------

U32
SimStorm::waiting() const {
   return U32( chip_.table().waiting().size() );
}

bool
SimStorm::mayStayArmed() const {
   return config_->counterPeriod() > 0 || config_->dropLoggingInterval() > 0;
}

String
SimStorm::checkAtRest() const {
   const U32 room = chip_.shape().limiters;
   if ( waiting() && chip_.table().held().size() < room ) {
      return "a level waits although there is room";
   }
   for ( U32 i = 0; i < world_.size( Range::port ); ++i ) {
      const IntfId port = world_.port( i );
      if ( String wrong = checkLimits( port, asked( port ) ); !wrong.empty() ) {
         return wrong;
      }
      auto status = status_->intfStatus( port );
      if ( second_ && platformConfig_->platformIntfConfigHas( port ) && !answered( port ) &&
           !fooled_.contains( port ) ) {
         return "no answer of the chip: " + port.stringValue();
      }
      if ( !second_ && bool( status ) < wanted( port ) ) {
         return "no status: " + port.stringValue();
      }
      const auto drops = drops_->allIntfStatus( port ).drops();
      if ( status && config_->counterPeriod() > 0 && ( !second_ || answered( port ) ) &&
           ( status->broadcastDrop() != drops.broadcastDrop() ||
             status->allDropOcts() != drops.allDropOcts() ||
             status->uucastCpuDrop() != drops.uucastCpuDrop() ) ) {
         return "counters have not arrived: " + port.stringValue();
      }
   }
   return chip_.table().classes().size() == config_->aggregateTcs() ? "" : "traffic classes";
}

void
SimStorm::tearDown() {
   config_->intfDelAll();
   config_->aggregateTcDelAll();
   config_->dropLoggingIs( false );
   config_->counterPeriodIs( 0 );
   config_->dropLoggingIntervalIs( 0 );
   causes_->enabledDelAll();
   phys_->intfStatusDelAll();
   if ( !world_.feature< SimLag >() ) {
      world_.acsd->portToLagDelAll();
      world_.acsd->lagToPortDelAll();
      world_.acsd->intfDelAll();
   }
}

String
SimStorm::checkTornDown() const {
   return chip_.table().held().empty() && chip_.table().classes().empty() && waiting() == 0 &&
                      status_->intfStatuss() == 0 && status_->aggregateTcStatuss() == 0 &&
                      platformConfig_->platformIntfConfigs() == 0
                ? ""
                : "left over: limits or statuses without configuration";
}

} // namespace Sim
