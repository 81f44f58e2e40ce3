// Set and notify with 0, 1 and 4 watchers, against a raw virtual call and a vector of
// std::function; an equal write against a compare.

#include <benchmark/benchmark.h>

#include <functional>
#include <vector>

#include "bench/Ratio.h"
#include "platform/Kiv/Describe.h"

namespace {

class Port : public Kiv::Entity {
   KIV_BODY( Port, Kiv::Entity )
   KIV_ATTR( U32, state, 0 )
 public:
   explicit Port( const Velto::String & name ) : Kiv::Entity( name ) {}
};

class Listener : public Velto::Node {
 public:
   Listener() { hasNotificationActiveIs( true ); }
   void handleState() {
      ++heard;
      benchmark::DoNotOptimize( heard );
   }
   U32 heard = 0;
   Kiv::Watch< Port::stateAttr, Listener, &Listener::handleState > watch;
};

struct Raw {
   virtual ~Raw() = default;
   virtual void hear() = 0;
};
struct RawListener : Raw {
   void hear() override {
      ++heard;
      benchmark::DoNotOptimize( heard );
   }
   U32 heard = 0;
};
/** The floor: stores the value and makes one virtual call a listener. */
struct RawPort {
   U32 state = 0;
   std::vector< Raw * > listeners;
   __attribute__( ( noinline ) ) void stateIs( U32 v ) {
      if ( v != state ) {
         state = v;
         for ( Raw * l : listeners ) {
            l->hear();
         }
      }
   }
};
struct FunctionPort {
   U32 state = 0;
   std::vector< std::function< void() > > listeners;
   __attribute__( ( noinline ) ) void stateIs( U32 v ) {
      if ( v != state ) {
         state = v;
         for ( auto & l : listeners ) {
            l();
         }
      }
   }
};

template< class P >
__attribute__( ( noinline ) ) void
setOnce( P & port, U32 value ) {
   port.stateIs( value );
}

double
rawCall( int listeners ) {
   RawPort port;
   RawListener listener;
   port.listeners.assign( size_t( listeners ), &listener );
   U32 i = 0;
   return Bench::nsPerCall( [&] { setOnce( port, ++i ); } );
}

double
functions( int listeners ) {
   FunctionPort port;
   RawListener listener;
   for ( int i = 0; i < listeners; ++i ) {
      port.listeners.push_back( [&] { listener.hear(); } );
   }
   U32 i = 0;
   return Bench::nsPerCall( [&] { setOnce( port, ++i ); } );
}

void
notify( benchmark::State & state ) {
   auto port = Velto::make< Port >( "port" );
   std::vector< Velto::Ptr< Listener > > listeners;
   for ( int i = 0; i < state.range( 0 ); ++i ) {
      listeners.push_back( Velto::make< Listener >() );
      listeners.back()->watch.attach( listeners.back().ptr(), port.ptr() );
   }
   U32 value = 0;
   double ns = Bench::nsPerCall( [&] { setOnce( *port, ++value ); } );
   for ( auto _ : state ) {
      setOnce( *port, ++value );
   }
   int n = int( state.range( 0 ) );
   state.counters["ns"] = ns;
   state.counters["to_virtual_call"] = ns / rawCall( n );
   state.counters["to_functions"] = ns / functions( n );
}
BENCHMARK( notify )->Arg( 0 )->Arg( 1 )->Arg( 4 );

void
equalWrite( benchmark::State & state ) {
   auto port = Velto::make< Port >( "port" );
   auto listener = Velto::make< Listener >();
   listener->watch.attach( listener.ptr(), port.ptr() );
   U32 held = 7;
   auto compare = [&] {
      benchmark::DoNotOptimize( held );
      bool same = held == 7;
      benchmark::DoNotOptimize( same );
   };
   port->stateIs( 7 );
   auto write = [&] {
      auto * p = port.ptr();
      benchmark::DoNotOptimize( p );
      p->stateIs( 7 );
   };
   double floor = Bench::nsPerCall( compare );
   double ns = Bench::nsPerCall( write );
   for ( auto _ : state ) {
      write();
   }
   state.counters["ns"] = ns;
   state.counters["ns_over_compare"] = ns - floor;
}
BENCHMARK( equalWrite );

} // namespace

KIV_DEFINE( Port )

BENCHMARK_MAIN();
