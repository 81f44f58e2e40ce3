// Tables in shared memory: look-up, write and following an entry against a private hash map and a plain
// copy in the same run; longest call of the writer; bytes an entry; from the write to the handler of a
// process that sleeps, against a bare byte over a socket.

#include <benchmark/benchmark.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "bench/Ratio.h"
#include "platform/Kiv/DenseMap.h"
#include "platform/Kiv/Rng.h"
#include "platform/Quarn/Follower.h"
#include "platform/Quarn/TableWriter.h"

namespace QuarnBench {

struct Key {
   U64 id = 0;
   bool operator==( const Key & ) const = default;
   U64 hash() const { return id; }
};
QUARN_LAYOUT( Key, id )

struct Value {
   U64 a = 0;
   U64 b = 0;
   bool operator==( const Value & ) const = default;
};
QUARN_LAYOUT( Value, a, b )

} // namespace QuarnBench

namespace {

using namespace QuarnBench;
using Table = Quarn::TableOf< 2, 4 >;
using View = Quarn::ViewOf< 2, 4 >;
constexpr Quarn::TableType type = Quarn::tableType< Key, Value >();

/** Keys in no order. */
std::vector< Key >
keysOf( U32 n ) {
   std::vector< Key > keys( n );
   for ( U32 i = 0; i < n; ++i ) {
      keys[i].id = Kiv::scrambled( i );
   }
   return keys;
}

void
fill( Table & table, const std::vector< Key > & keys, U64 value ) {
   for ( const Key & key : keys ) {
      table.valueIs( Quarn::wordsOf( key ), Quarn::wordsOf( Value{ value, key.id } ) );
   }
}

/** Keys of a few steps through the table, so that neighbours in time are none in memory. */
class Steps {
 public:
   explicit Steps( const std::vector< Key > & keys ) : keys_( keys ) {}
   const Key & next() { return keys_[at_ = ( at_ + 7919 ) % U32( keys_.size() )]; }

 private:
   const std::vector< Key > & keys_;
   U32 at_ = 0;
};

void
find( benchmark::State & state ) {
   const auto keys = keysOf( U32( state.range( 0 ) ) );
   Table table( nullptr, "bench", { U32( keys.size() ) }, type );
   fill( table, keys, 1 );
   Kiv::DenseMap< Key, Value > map;
   for ( const Key & key : keys ) {
      map.emplace( key, Value{ 1, key.id } );
   }
   const View view( *table.memory() );
   Steps steps( keys ), floorSteps( keys );
   View::Entry entry;
   Value value;
   auto look = [&] {
      benchmark::DoNotOptimize( view.find( Quarn::wordsOf( steps.next() ), &entry ) );
      benchmark::DoNotOptimize( entry );
   };
   const double floor = Bench::nsPerCall( [&] {
      value = *map.find( floorSteps.next() );
      benchmark::DoNotOptimize( value );
   } );
   const double ns = Bench::nsPerCall( look );
   for ( auto _ : state ) {
      look();
   }
   state.counters["ns"] = ns;
   state.counters["map_ns"] = floor;
   state.counters["to_map"] = ns / floor;
}
BENCHMARK( find )->Arg( 1000 )->Arg( 1000000 );

void
set( benchmark::State & state ) {
   const auto keys = keysOf( U32( state.range( 0 ) ) );
   Table table( nullptr, "bench", { U32( keys.size() ) }, type );
   fill( table, keys, 1 );
   Kiv::DenseMap< Key, Value > map;
   for ( const Key & key : keys ) {
      map.emplace( key, Value{ 1, key.id } );
   }
   Steps steps( keys ), floorSteps( keys );
   U64 number = 1;
   auto write = [&] {
      table.valueIs( Quarn::wordsOf( steps.next() ), Quarn::wordsOf( Value{ ++number, 0 } ) );
   };
   const double floor = Bench::nsPerCall( [&] {
      *map.find( floorSteps.next() ) = Value{ ++number, 0 };
      benchmark::ClobberMemory();
   } );
   const double ns = Bench::nsPerCall( write );
   for ( auto _ : state ) {
      write();
   }
   state.counters["ns"] = ns;
   state.counters["map_ns"] = floor;
   state.counters["to_map"] = ns / floor;
}
BENCHMARK( set )->Arg( 1000 )->Arg( 1000000 );

/** From nothing; the longest call by the processor's time, that of the kernel included. */
void
grow( benchmark::State & state ) {
   const auto keys = keysOf( U32( state.range( 0 ) ) );
   double ns = 0, longest = 0, bytes = 0;
   for ( auto _ : state ) {
      Table table( nullptr, "bench", { U32( keys.size() ) }, type );
      ns = Bench::nsOf( [&] { fill( table, keys, 1 ); } ) / double( keys.size() );
      bytes = double( table.bytes() ) / double( keys.size() );
      Table timed( nullptr, "bench", { U32( keys.size() ) }, type );
      longest = 0;
      for ( const Key & key : keys ) {
         const double before = Bench::threadTime();
         timed.valueIs( Quarn::wordsOf( key ), Quarn::wordsOf( Value{ 1, 1 } ) );
         longest = std::max( longest, Bench::threadTime() - before );
      }
   }
   state.counters["ns_an_entry"] = ns;
   state.counters["longest_us"] = longest / 1000;
   state.counters["bytes_an_entry"] = bytes;
   state.counters["own_bytes"] = double( sizeof( Key ) + sizeof( Value ) );
}
BENCHMARK( grow )->Arg( 1000 )->Arg( 1000000 )->Arg( 1300000 )->Iterations( 2 );

class Sums : public Quarn::ChaseOf< 2, 4 > {
 public:
   void workAll( const std::shared_ptr< Quarn::Mapping > & memory ) { work( memory ); }
   U64 sum = 0;
   U64 told = 0;

 private:
   void tell( const Key &, const Value & value ) override {
      sum += value[0];
      ++told;
   }
   void tellDel( const Key & ) override {}
   void tellComplete() override {}
   bool yields() override { return false; }
};

/** An entry that changed, in bursts that the ring holds; the walk over everything; and what two equal
    generations cost. The floor is a copy of as many entries in the same order. */
void
follow( benchmark::State & state ) {
   const U32 n = U32( state.range( 0 ) ), burst = std::min( n, 1000000u ) / 5;
   const auto keys = keysOf( n );
   Table table( nullptr, "bench", { n }, type );
   fill( table, keys, 1 );
   Sums sums;
   const double walk = Bench::nsOf( [&] { sums.workAll( table.memory() ); } ) / n;
   Steps steps( keys );
   std::vector< Value > values( n ), copies( burst );
   double told = 1e300, floor = 1e300;
   U64 number = 1;
   for ( auto _ : state ) {
      for ( U32 i = 0; i < burst; ++i ) {
         table.valueIs( Quarn::wordsOf( steps.next() ), Quarn::wordsOf( Value{ ++number, 0 } ) );
      }
      told = std::min( told, Bench::nsOf( [&] { sums.workAll( table.memory() ); } ) / burst );
      floor = std::min( floor, Bench::nsOf( [&] {
                                  U32 at = 0;
                                  for ( U32 i = 0; i < burst; ++i ) {
                                     std::memcpy( &copies[i], &values[at = ( at + 7919 ) % n],
                                                  sizeof( Value ) );
                                  }
                                  benchmark::DoNotOptimize( copies.data() );
                               } ) / burst );
   }
   Table next( nullptr, "bench", { n }, type );
   fill( next, keys, 2 );
   const double compare = Bench::nsOf( [&] { sums.workAll( next.memory() ); } );
   state.counters["ns_a_change"] = told;
   state.counters["copy_ns"] = floor;
   state.counters["to_copy"] = told / floor;
   state.counters["walk_ns_an_entry"] = walk;
   state.counters["new_generation_ms"] = compare / 1e6;
   state.counters["overtaken"] = double( sums.overtaken() );
}
BENCHMARK( follow )->Arg( 1000 )->Arg( 1000000 )->Iterations( 5 );

/** A process that does `act` every millisecond until it is killed. */
template< class Act >
pid_t
childThat( Act && act ) {
   const pid_t child = fork();
   if ( child == 0 ) {
      act();
      _exit( 0 );
   }
   return child;
}

void
report( benchmark::State & state, std::vector< double > times, const char * p50,
        const char * p99 ) {
   if ( !times.empty() ) {
      std::sort( times.begin(), times.end() );
      state.counters[p50] = times[times.size() / 2] / 1000;
      state.counters[p99] = times[times.size() * 99 / 100] / 1000;
   }
}

constexpr U32 samples = 2000;

std::vector< double >
bareWakes() {
   int ends[2];
   std::vector< double > times;
   if ( socketpair( AF_UNIX, SOCK_SEQPACKET, 0, ends ) != 0 ) {
      return times;
   }
   const pid_t child = childThat( [&] {
      while ( true ) {
         poll( nullptr, 0, 1 );
         const double now = Bench::wallTime();
         if ( write( ends[1], &now, sizeof( now ) ) < 0 ) {
            return;
         }
      }
   } );
   pollfd wait = { ends[0], POLLIN, 0 };
   double sent;
   while ( times.size() < samples && poll( &wait, 1, 1000 ) == 1 &&
           read( ends[0], &sent, sizeof( sent ) ) > 0 ) {
      times.push_back( Bench::wallTime() - sent );
   }
   kill( child, SIGKILL );
   waitpid( child, nullptr, 0 );
   close( ends[0] );
   close( ends[1] );
   return times;
}

struct Latency : Quarn::Follower< Key, Value > {
   using Follower::Follower;
   void handleValue( const Key &, const Value & value ) override {
      times.push_back( Bench::wallTime() - double( value.a ) );
   }
   void handleValueDel( const Key & ) override {}
   std::vector< double > times;
};

void
wake( benchmark::State & state ) {
   const Velto::String path = "/tmp/quarn-bench." + std::to_string( getpid() );
   for ( auto _ : state ) {
      report( state, bareWakes(), "bare_p50_us", "bare_p99_us" );
      const pid_t child = childThat( [&] {
         Kiv::EventLoop loop;
         Quarn::Server server( &loop, path );
         Quarn::TableWriter< Key, Value > writer( &server, "t" );
         writer.completeIs( true );
         while ( true ) {
            poll( nullptr, 0, 1 );
            writer.valueIs( Key{ 1 }, Value{ U64( Bench::wallTime() ), 0 } );
            loop.runOnce( 0 ); // the end of the turn
         }
      } );
      Kiv::EventLoop loop;
      Quarn::Source source( &loop, path );
      Quarn::TableReader< Key, Value > reader( &source, "t" );
      Latency latency( &reader, &loop, 3 );
      for ( U32 i = 0; latency.times.size() < samples && i < 20 * samples; ++i ) {
         loop.runOnce( 1 );
      }
      kill( child, SIGKILL );
      waitpid( child, nullptr, 0 );
      unlink( path.c_str() );
      unlink( ( path + ".lock" ).c_str() );
      report( state, latency.times, "p50_us", "p99_us" );
   }
}
BENCHMARK( wake )->Iterations( 1 );

} // namespace

BENCHMARK_MAIN();
