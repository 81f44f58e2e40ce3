// Arming and firing 10, 1k and 100k clocks, against std::multimap and a hierarchical wheel.

#include <benchmark/benchmark.h>

#include <list>
#include <map>
#include <memory>
#include <vector>

#include "bench/Ratio.h"
#include "platform/Kiv/TaskScheduler.h"

namespace {

/** Firing times of a burst, in seconds from its start: spread over ten seconds. */
std::vector< double >
timesOf( int n ) {
   std::vector< double > times;
   U32 random = 12345;
   for ( int i = 0; i < n; ++i ) {
      random = random * 1664525 + 1013904223;
      times.push_back( double( random >> 8 ) / double( 1 << 24 ) * 10 );
   }
   return times;
}

class Owner : public Velto::Node {
 public:
   Owner() { hasNotificationActiveIs( true ); }
   void handleFired() { ++fired; }
   U64 fired = 0;
   Kiv::ClockReactor< Owner, &Owner::handleFired > clock;
};

/** The floor by the book: four wheels of 256 slots of a millisecond. */
class Wheel {
 public:
   struct Timer {
      U64 tick;
      U64 * fired;
   };
   void arm( U64 tick, U64 * fired ) { place( { tick, fired } ); }
   void runUntil( U64 tick ) {
      for ( ; now_ <= tick; ++now_ ) {
         for ( int level = 1; level < 4 && ( now_ & ( ( U64( 1 ) << 8 * level ) - 1 ) ) == 0;
               ++level ) {
            auto down = std::move( slots_[level][( now_ >> 8 * level ) & 255] );
            slots_[level][( now_ >> 8 * level ) & 255].clear();
            for ( auto & t : down ) {
               place( t );
            }
         }
         auto due = std::move( slots_[0][now_ & 255] );
         slots_[0][now_ & 255].clear();
         for ( auto & t : due ) {
            ++*t.fired;
         }
      }
   }
   U64 now_ = 0;

 private:
   void place( const Timer & t ) {
      U64 span = t.tick - now_;
      int level = span < 256 ? 0 : span < 65536 ? 1 : span < 16777216 ? 2 : 3;
      slots_[level][( t.tick >> 8 * level ) & 255].push_back( t );
   }
   std::vector< Timer > slots_[4][256];
};

double
multimap( const std::vector< double > & times ) {
   std::multimap< double, U64 * > timers;
   U64 fired = 0;
   return Bench::nsPerCall(
                [&] {
                   for ( double t : times ) {
                      timers.emplace( t, &fired );
                   }
                   while ( !timers.empty() ) {
                      auto first = timers.begin();
                      U64 * f = first->second;
                      timers.erase( first );
                      ++*f;
                      benchmark::DoNotOptimize( fired );
                   }
                },
                1, 7 ) /
          double( times.size() );
}

double
wheel( const std::vector< double > & times ) {
   auto wheel = std::make_unique< Wheel >();
   U64 fired = 0;
   return Bench::nsPerCall(
                [&] {
                   U64 start = wheel->now_;
                   for ( double t : times ) {
                      wheel->arm( start + U64( t * 1000 ), &fired );
                   }
                   wheel->runUntil( start + 10001 );
                   benchmark::DoNotOptimize( fired );
                },
                1, 7 ) /
          double( times.size() );
}

void
clocks( benchmark::State & state ) {
   auto times = timesOf( int( state.range( 0 ) ) );
   Kiv::VirtualScheduler scheduler( 0 );
   std::vector< Velto::Ptr< Owner > > owners;
   for ( size_t i = 0; i < times.size(); ++i ) {
      owners.push_back( Velto::make< Owner >() );
      owners.back()->clock.attach( owners.back().ptr(), Velto::make< Kiv::Clock >() );
   }
   auto round = [&] {
      double start = Kiv::now();
      for ( size_t i = 0; i < times.size(); ++i ) {
         owners[i]->clock->timeIs( start + times[i] );
      }
      scheduler.runUntil( start + 10 );
   };
   double ns = Bench::nsPerCall( round, 1, 7 ) / double( times.size() );
   for ( auto _ : state ) {
      round();
   }
   state.counters["ns_a_clock"] = ns;
   state.counters["to_multimap"] = ns / multimap( times );
   state.counters["to_wheel"] = ns / wheel( times );
}
BENCHMARK( clocks )->Arg( 10 )->Arg( 1000 )->Arg( 100000 );

} // namespace

BENCHMARK_MAIN();
