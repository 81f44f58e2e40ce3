#include "simulation/World.h"

#include <algorithm>
#include <sstream>

#include "platform/Kiv/Restart.h"
#include "platform/Velto/Assert.h"
#include "simulation/SimLag.h"

namespace Sim {

namespace {

// More turns than any work of a small world takes at one moment of time.
constexpr U32 mostTurns = 20000;
// Longer than the longest chain of retries and back-offs.
constexpr Kiv::Seconds longestWayToRest = 600;
// After this much time only what may wait for ever is still waiting.
constexpr Kiv::Seconds longestWait = 100;

void
addFault( SoftChip::FaultPlan & plan, const String & line ) {
   std::istringstream in( line );
   String first, second;
   SoftChip::Fault fault;
   if ( in >> first >> second && first == "limit" ) {
      U32 entries;
      if ( in >> entries ) {
         plan.limitIs( second, entries );
         return;
      }
   } else if ( in >> fault.call >> fault.times >> fault.inThousand ) {
      fault.hook = first;
      fault.trouble = Kiv::fromText< SoftChip::Trouble >( second );
      plan.add( fault );
      return;
   }
   throw Velto::RangeError( "expected \"<hook> <trouble> <first call> <calls> <in thousand>\" or "
                            "\"limit <table> <entries>\": " +
                            line );
}

Velto::Ptr< Qon::QonCommonSmData >
sharedData() {
   auto data = Qon::qonCommonSmDataFactory( "acsd" );
   data->initializedIs( true );
   return data;
}

/** What others than the state machines said to the former agent, they say to its successor. */
void
sayAgain( const Qon::QonCommonSmData & former, Qon::QonCommonSmData & next, bool lagsToo ) {
   for ( auto && [intf, managed] : former.intfIteratorConst() ) {
      next.intfIs( intf, managed );
   }
   for ( auto && [intf, drops] : former.mlagIntfPortIteratorConst() ) {
      next.mlagIntfPortIs( intf, drops );
   }
   for ( auto && [intf, vlan] : former.internalVlanIteratorConst() ) {
      next.internalVlanIs( intf, vlan );
   }
   for ( auto && [lag, features] : former.lagToFeatureSetIteratorConst() ) {
      next.lagToFeatureSetIs( lag, features );
   }
   next.tapAggHwConfigIs( former.tapAggHwConfig() );
   next.operationalModeIs( former.operationalMode() );
   if ( !lagsToo ) {
      return;
   }
   for ( auto && [lag, ports] : former.lagToPortIteratorConst() ) {
      next.lagToPortIs( lag, ports );
   }
   for ( auto && [port, lag] : former.portToLagIteratorConst() ) {
      next.portToLagIs( port, lag );
   }
}

} // namespace

World::World( const Plan & plan )
    : plan_( plan ), formerSink_( Kiv::logSinkIs( static_cast< Kiv::LogSink * >( this ) ) ) {
   Kiv::logWindowsReset();
   Rng rng = chance( 1 );
   // Small worlds, in which things collide; now and then a larger one.
   U32 scale = rng.percent( 10 ) ? 3 : 1;
   ports_ = rng.between( 2, 12 * scale );
   lags_ = rng.between( 1, 5 * scale );
   vlans_ = rng.between( 1, 8 * scale );
   topos_ = rng.between( 1, 4 );
   keys_ = rng.between( 2, 24 * scale );
   perVlan_ = rng.percent( 50 );
   SoftChip::Shape shape;
   shape.kind = perVlan_ ? SoftChip::ChipKind::vlan : SoftChip::ChipKind::topology;
   for ( auto & kind : featureKinds() ) {
      if ( kind.shape ) {
         kind.shape( *this, shape );
      }
   }
   chip = std::make_unique< SoftChip::Chip >( scheduler, shape );
   chip->faults().seedIs( U32( rng.next() ) );
   acsd = sharedData();
   auto kinds = featureKinds();
   auto named = [&]( const FeatureKind & kind ) {
      return std::find( plan_.features.begin(), plan_.features.end(), kind.name ) !=
             plan_.features.end();
   };
   const bool all = std::none_of( kinds.begin(), kinds.end(), [&]( const FeatureKind & kind ) {
      return named( kind ) && !kind.looksOn();
   } );
   for ( U32 kind = 0; kind < kinds.size(); ++kind ) {
      if ( kind == 0 || named( kinds[kind] ) || ( all && !kinds[kind].apart ) ) {
         features_.push_back( { kind, kinds[kind].make( *this ) } );
      }
   }
   faultLines_ = plan_.faults;
   for ( Rng faults = chance( 3 ); auto & entry : features_ ) {
      if ( plan_.faults.empty() ) {
         entry.feature->drawFaults( faults, faultLines_ );
      }
   }
}

World::~World() {
   while ( !features_.empty() ) {
      features_.pop_back();
   }
   Kiv::logSinkIs( formerSink_ );
}

void
World::start() {
   for ( auto & entry : features_ ) {
      entry.feature->start();
   }
   faultsAre( true );
}

void
World::faultsAre( bool on ) {
   chip->faults().clear();
   for ( auto & line : on ? faultLines_ : std::vector< String >() ) {
      addFault( chip->faults(), line );
   }
   for ( auto & entry : features_ ) {
      entry.feature->faultsIs( on );
   }
}

bool
World::has( U32 kind ) const {
   return std::any_of( features_.begin(), features_.end(),
                       [&]( auto & entry ) { return entry.kind == kind; } );
}

U32
World::size( Range range ) const {
   switch ( range ) {
   case Range::port:
      return ports_;
   case Range::lag:
      return lags_;
   case Range::intf:
      return ports_ + lags_;
   case Range::vlan:
      return vlans_;
   case Range::topo:
      return topos_;
   case Range::key:
      return keys_;
   case Range::flag:
      return 2;
   case Range::few:
      return 8;
   case Range::hundred:
      return 100;
   case Range::micros:
      return 600000000;
   case Range::none:
      break;
   }
   return 1;
}

Ulnet::IntfId
World::port( U32 i ) const {
   return Ulnet::EthIntfId::intfId( i % ports_ + 1 );
}

Ulnet::IntfId
World::lag( U32 i ) const {
   return Ulnet::PortChannelIntfId::intfId( i % lags_ + 1 );
}

Ulnet::IntfId
World::intf( U32 i ) const {
   i %= ports_ + lags_;
   return i < ports_ ? port( i ) : lag( i - ports_ );
}

Bridging::VlanId
World::vlan( U32 i ) const {
   return Bridging::VlanId( i % vlans_ * 10 + 10 );
}

String
World::topo( U32 i ) const {
   return "Mst" + std::to_string( i % topos_ );
}

void
World::message( const Kiv::LogDescriptor & descriptor, const String & text ) {
   transcript.add( "log", descriptor.name, text );
   for ( auto & entry : features_ ) {
      entry.feature->heard( descriptor, text );
   }
}

void
World::hookCalled( const char * hook, const String & arguments ) {
   look( String( "before " ) + hook );
   transcript.add( hook, arguments );
}

void
World::report( const char * feature, const String & what ) {
   if ( !finding_ ) {
      finding_ = { feature, what };
   }
}

Finding
World::checkStep( const Event & event, Checks checks ) {
   const bool all = checks == Checks::all;
   const auto turn = &features_[++steps_ % features_.size()];
   if ( !finding_ && !stopped_ ) {
      check( &SimFeature::checkStep );
   }
   if ( finding_ || stopped_ ) {
      return finding_;
   }
   const Kiv::Seconds cost = scheduler.readCost(); // else a step that is checked is a longer one
   scheduler.readCostIs( 0 );
   for ( auto & entry : features_ ) {
      if ( all || &entry == turn || entry.kind == event.feature ) {
         report( featureKinds()[entry.kind].name, entry.feature->checkInvariants() );
      }
   }
   scheduler.readCostIs( cost );
   return finding_;
}

void
World::check( String ( SimFeature::*what )() const ) {
   for ( auto & entry : features_ ) {
      report( featureKinds()[entry.kind].name, ( *entry.feature.*what )() );
   }
}

void
World::apply( const Event & event ) {
   if ( stopped_ ) {
      return;
   }
   for ( auto & entry : features_ ) {
      if ( entry.kind == event.feature && entry.feature->ready() ) {
         ( entry.feature.get()->*event.kind().act )( event );
      }
   }
}

void
World::turns( U32 count ) {
   while ( count-- && scheduler.nextTime() <= scheduler.time() ) {
      try {
         scheduler.turn();
      } catch ( const Raised & ) {
         transcript.add( "raised" );
      }
      look( "in a turn" );
   }
}

/** Works off what is due, at most until `until`. A loop is one in which the time stands still: where
    reading it costs time, work that takes longer than its period is overload, which ends with the
    span. */
bool
World::turnsUntil( Kiv::Seconds until ) {
   U32 still = 0;
   while ( scheduler.nextTime() <= scheduler.time() && scheduler.time() <= until ) {
      const Kiv::Seconds before = scheduler.time();
      turns( 1 );
      still = scheduler.time() > before ? 0 : still + 1;
      if ( still == mostTurns ) {
         report( "world", "no end: there is always something to do at one moment" );
         return false;
      }
   }
   return true;
}

void
World::runFor( Kiv::Seconds span ) {
   Kiv::Seconds until = scheduler.time() + span;
   while ( turnsUntil( until ) && scheduler.nextTime() <= until && scheduler.time() <= until ) {
      scheduler.advance( std::max( 0.0, scheduler.nextTime() - scheduler.time() ) );
   }
   scheduler.advance( std::max( 0.0, until - scheduler.time() ) );
}

void
World::rest() {
   faultsAre( false );
   settle();
   faultsAre( true );
}

/** Until nothing is due, and looks at it. */
void
World::settle() {
   scheduler.readCostIs( 0 );
   Kiv::Seconds start = scheduler.time();
   auto any = [&]( bool ( SimFeature::*does )() const ) {
      return std::any_of( features_.begin(), features_.end(),
                          [&]( auto & entry ) { return ( *entry.feature.*does )(); } );
   };
   auto waits = [&] {
      return scheduler.time() > start + longestWait && any( &SimFeature::mayStayArmed ) &&
             !any( &SimFeature::working );
   };
   const Kiv::Seconds until = start + longestWayToRest;
   while ( turnsUntil( until ) && scheduler.nextTime() <= until && !waits() ) {
      scheduler.advance( scheduler.nextTime() - scheduler.time() );
   }
   if ( scheduler.nextTime() != Kiv::never && !waits() ) {
      report( "world", "no rest: a clock stays armed with nothing to wait for" );
   }
   check( &SimFeature::checkInvariants );
   check( &SimFeature::checkAtRest );
}

void
World::restart( Ending ending ) {
   if ( ending == Ending::midway ) {
      replaceAgent( ending );
      return;
   }
   faultsAre( false );
   settle();
   hitless_ = std::make_unique< Hitless >( holdings() );
   replaceAgent( ending );
   faultsAre( false );
   settle();
   report( "world", hitless_->judge( holdings() ) );
   hitless_ = nullptr;
   faultsAre( true );
}

void
World::replaceAgent( Ending ending ) {
   Kiv::agentRestartingIs( ending == Ending::planned );
   for ( auto entry = features_.rbegin(); entry != features_.rend(); ++entry ) {
      entry->feature->kill( ending );
      look( String( "end of " ) + featureKinds()[entry->kind].name );
   }
   Kiv::agentRestartingIs( false );
   auto next = sharedData();
   sayAgain( *acsd, *next, !feature< SimLag >() );
   acsd = next;
   for ( auto & entry : features_ ) {
      entry.feature->start();
      look( String( "start of " ) + featureKinds()[entry.kind].name );
   }
}

Holdings
World::holdings() const {
   Holdings all;
   for ( auto & entry : features_ ) {
      entry.feature->held( all );
   }
   return all;
}

void
World::look( const String & during ) {
   if ( hitless_ ) {
      hitless_->look( holdings(), during );
   }
}

void
World::end() {
   for ( auto entry = features_.rbegin(); entry != features_.rend(); ++entry ) {
      entry->feature->tearDown();
   }
   rest();
   check( &SimFeature::checkTornDown );
   if ( scheduler.nextTime() != Kiv::never ) {
      report( "world", "no rest: a clock stays armed after everything was taken away" );
   }
   for ( auto entry = features_.rbegin(); entry != features_.rend(); ++entry ) {
      entry->feature->stop();
   }
   stopped_ = true;
}

} // namespace Sim
