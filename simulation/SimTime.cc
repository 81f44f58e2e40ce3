#include "simulation/SimTime.h"

#include "simulation/World.h"

namespace Sim {

std::span< const Operation >
SimTime::operations() {
   static const Operation table[] = {
         { "turn", 120, { Range::few }, &SimTime::turn },
         { "next", 150, {}, &SimTime::next },
         { "run", 60, { Range::micros }, &SimTime::run },
         { "cost", 2, { Range::few }, &SimTime::costIs },
         { "budget", 2, { Range::few }, &SimTime::budgetIs },
         { "rest", 1, {}, &SimTime::rest },
         { "restart", 0, { Range::few }, &SimTime::restart }, // in histories that name it
         { "end", 0, {}, &SimTime::end },
   };
   return table;
}

void
SimTime::turn( const Event & event ) {
   world_.turns( event[0] + 1 );
}

void
SimTime::next( const Event & ) {
   auto & scheduler = world_.scheduler;
   if ( scheduler.nextTime() != Kiv::never && scheduler.nextTime() > scheduler.time() ) {
      scheduler.advance( scheduler.nextTime() - scheduler.time() );
   }
   world_.turns( 1 );
}

void
SimTime::run( const Event & event ) {
   world_.runFor( event[0] * 1e-6 );
}

void
SimTime::costIs( const Event & event ) {
   world_.scheduler.readCostIs( event[0] % 4 * 0.001 );
}

void
SimTime::budgetIs( const Event & event ) {
   world_.scheduler.budgetIs( { 0.005, event[0] == 0 ? ~U32( 0 ) : event[0], 16 } );
}

void
SimTime::rest( const Event & ) {
   world_.rest();
}

void
SimTime::restart( const Event & event ) {
   world_.restart( Ending( event[0] % 3 ) );
}

void
SimTime::end( const Event & ) {
   world_.end();
}

FeatureKind
simTime() {
   return featureKindOf< SimTime >( "world" );
}

} // namespace Sim
