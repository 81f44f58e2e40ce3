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

const SoftChip::StormTable::Limit none{};

/** The setter of each level, by its number. */
constexpr void ( IntfConfig::*setters[] )( const OptionalThreshold & ) = {
      &IntfConfig::uUcastLevelIs,    &IntfConfig::uUcastCpuLevelIs,
      &IntfConfig::broadcastLevelIs, &IntfConfig::broadcastCpuLevelIs,
      &IntfConfig::multicastLevelIs, &IntfConfig::multicastCpuLevelIs,
      &IntfConfig::allLevelIs,       &IntfConfig::allCpuLevelIs };
constexpr const OptionalThreshold & ( IntfConfig::*getters[] )() const = {
      &IntfConfig::uUcastLevel,       &IntfConfig::uUcastCpuLevel, &IntfConfig::broadcastLevel,
      &IntfConfig::broadcastCpuLevel, &IntfConfig::multicastLevel, &IntfConfig::multicastCpuLevel,
      &IntfConfig::allLevel,          &IntfConfig::allCpuLevel };
constexpr U32 allLevels = 8;

bool
ofCpu( U32 level ) {
   return level % 2;
}

} // namespace

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
   heard_.attach( disabled_.ptr(), [this]( const IntfId & intf ) { causeHeard( intf ); } );
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
   sinceCheck_ = 0;
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
   if ( ofCpu( level ) && threshold ) {
      cpuRates_[config->intfId()][Level( level )].insert( threshold->value() );
   }
   only_ = Kiv::toText( Level( level ) );
   judged_ = true;
   ( config->*setters[level] )( threshold );
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
   return second_ ? !ofCpu( U32( level ) ) : !uucast || chip_.shape().uucast;
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
      const OptionalThreshold threshold = ( config->*getters[level] )();
      if ( programs( Level( level ) ) && threshold && !( *threshold == Threshold() ) ) {
         limits[Level( level )] = { *threshold, speed };
      }
   }
   return limits;
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
      const auto & w = wantedOne == want.end() ? none : wantedOne->second;
      const auto & h = held == limits.end() ? none : held->second;
      const String name = port.stringValue() + " " + Kiv::toText( level );
      if ( ofCpu( n ) && w.threshold.value() == 0 ) {
         auto rates = cpuRates_.find( ownerOf( port ) );
         const bool known = rates != cpuRates_.end() && rates->second.contains( level ) &&
                            rates->second.at( level ).contains( h.threshold.value() );
         if ( h.threshold.value() == 0 || ( !known && !( h.threshold == Threshold() ) ) ) {
            return "a rate of zero to the CPU: " + name;
         }
      } else if ( !( h.threshold == w.threshold ) ) {
         return "limit: " + name + " has " + h.threshold.stringValue() + ", not " +
                w.threshold.stringValue();
      } else if ( held != limits.end() && h.speedKbps != w.speedKbps ) {
         return "speed of a limit: " + name;
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

/** Of the version of the moment, or as it was. */
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
   const auto before = std::exchange( shown_[port], now );
   if ( !status || !platform ) {
      return now.empty() ? "" : "levels of nobody: " + port.stringValue();
   }
   if ( !report || report->versionId() != platform->versionId() ) {
      return now == before || now.empty() ? ""
                                          : "status of an older version: " + port.stringValue();
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
   if ( paused_ || ++sinceCheck_ > 2 ) {
      if ( sinceCheck_ < 32 ) {
         return {};
      }
      sinceCheck_ = 0;
   }
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
      auto platform = platformConfig_->platformIntfConfig( port );
      auto report = platformStatus_->platformIntfStatus( port );
      auto status = status_->intfStatus( port );
      const bool answered = report && platform && report->versionId() == platform->versionId();
      if ( second_ && platform && !answered && !fooled_.contains( port ) ) {
         return "no answer of the chip: " + port.stringValue();
      }
      if ( !second_ && bool( status ) < wanted( port ) ) {
         return "no status: " + port.stringValue();
      }
      const auto drops = drops_->allIntfStatus( port ).drops();
      if ( status && config_->counterPeriod() > 0 && ( !second_ || answered ) &&
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
