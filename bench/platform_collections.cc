// The collections against the standard library's hash map, in the same run: a million keys must
// cost no more, and grow no worse, than there.
//
// Each line `.../keys` shows the time of one operation (ns), that of the floor (`floor_ns`) and
// `ratio_to_floor`, below 1 where Kiv::DenseMap is ahead.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <new>
#include <unordered_map>
#include <vector>

#include "bench/Ratio.h"
#include "platform/Kiv/DenseMap.h"
#include "platform/Kiv/Rng.h"

namespace {

U64 bytesInUse = 0;

} // namespace

[[gnu::noinline]] void *
operator new( std::size_t n ) {
   void * p = std::malloc( n );
   if ( !p ) {
      throw std::bad_alloc();
   }
   bytesInUse += malloc_usable_size( p ) + sizeof( void * );
   return p;
}
[[gnu::noinline]] void
operator delete( void * p ) noexcept {
   if ( p ) {
      bytesInUse -= malloc_usable_size( p ) + sizeof( void * );
      std::free( p );
   }
}
void
operator delete( void * p, std::size_t ) noexcept {
   operator delete( p );
}

namespace {

/** A MAC address in a VLAN: keys that differ in a few low bits of two fields. */
struct MacAndVlan {
   U64 mac;
   U16 vlan;
   bool operator==( const MacAndVlan & ) const = default;
   U64 hash() const { return mac | U64( vlan ) << 48; }
};

struct StandardHash {
   template< class K >
   std::size_t operator()( const K & key ) const {
      // The floor gets a hash that is good enough for it too: the identity is not, for pairs.
      return std::is_integral_v< K > ? std::size_t( Kiv::hashOf( key ) )
                                     : std::size_t( Kiv::mix( Kiv::hashOf( key ) ) );
   }
};

void
keyAt( U64 i, U64 & key ) {
   key = Kiv::mix( i + 1 );
}
void
keyAt( U64 i, MacAndVlan & key ) {
   key = { 0x021122000000ull + i / 16, U16( 1 + i % 16 ) };
}

/** `n` keys from the i-th on, in an order that no allocator follows. */
template< class K >
std::vector< K >
keysFrom( U64 first, U32 n ) {
   std::vector< K > keys( n );
   for ( U32 i = 0; i < n; ++i ) {
      keyAt( first + i, keys[i] );
   }
   std::shuffle( keys.begin(), keys.end(), Kiv::Rng( 1 ) );
   return keys;
}

template< class K >
bool
found( Kiv::DenseMap< K, U64 > & m, const K & k ) {
   return m.find( k ) != nullptr;
}
template< class K >
bool
found( std::unordered_map< K, U64, StandardHash > & m, const K & k ) {
   return m.find( k ) != m.end();
}
template< class K >
U64
valueOf( const typename Kiv::DenseMap< K, U64 >::template Shown< U64 > & e ) {
   return e.value;
}
template< class K >
U64
valueOf( std::pair< const K, U64 > & e ) {
   return e.second;
}

struct Costs {
   double insert = 1e9, find = 1e9, miss = 1e9, iterate = 1e9, erase = 1e9; // ns an item
   double bytes = 0;                                                        // an item
   double longest = 0;                                                      // insert, ns
};

template< class Work >
void
measure( double & best, U32 items, Work work ) {
   double start = Bench::spent();
   work();
   best = std::min( best, ( Bench::spent() - start ) / items );
}

/** The longest insert. Every round does the same, so what an insert takes in all of them is its own
    and not the machine's other work. */
template< class Map, class K >
double
longestInsert( const std::vector< K > & keys ) {
   std::vector< float > least( keys.size(), 1e9f );
   for ( U32 round = 0; round < 5; ++round ) {
      Map map;
      for ( U32 i = 0; i < keys.size(); ++i ) {
         double start = Bench::wallTime();
         map.emplace( keys[i], 1u );
         least[i] = std::min( least[i], float( Bench::wallTime() - start ) );
      }
   }
   return *std::max_element( least.begin(), least.end() );
}

/** The keys of one size, in the orders in which they are used. */
template< class K >
struct Load {
   explicit Load( U32 n ) : keys( keysFrom< K >( 0, n ) ), strangers( keysFrom< K >( n, n ) ) {
      again = keys;
      std::shuffle( again.begin(), again.end(), Kiv::Rng( 2 ) );
   }
   std::vector< K > keys, strangers, again;
};

/** One round; keeps the least of all rounds in `c`. */
template< class Map, class K >
void
runRound( Costs & c, const Load< K > & load ) {
   Map map;
   U32 n = U32( load.keys.size() );
   U64 before = bytesInUse, hits = 0;
   measure( c.insert, n, [&] {
      for ( auto & k : load.keys ) {
         map.emplace( k, 1u );
      }
   } );
   c.bytes = double( bytesInUse - before ) / n;
   measure( c.find, n, [&] {
      for ( auto & k : load.again ) {
         hits += found( map, k );
      }
   } );
   measure( c.miss, n, [&] {
      for ( auto & k : load.strangers ) {
         hits += found( map, k );
      }
   } );
   measure( c.iterate, n, [&] {
      for ( auto && e : map ) {
         hits += valueOf< K >( e );
      }
   } );
   benchmark::DoNotOptimize( hits );
   measure( c.erase, n, [&] {
      for ( auto & k : load.again ) {
         map.erase( k );
      }
   } );
}

/** Both maps' costs for n keys, measured once and in turns. */
template< class K >
const std::pair< Costs, Costs > &
bothFor( U32 n ) {
   using Dense = Kiv::DenseMap< K, U64 >;
   using Standard = std::unordered_map< K, U64, StandardHash >;
   static std::unordered_map< U32, std::pair< Costs, Costs > > known;
   auto [it, fresh] = known.try_emplace( n );
   auto & [dense, floor] = it->second;
   if ( fresh ) {
      Load< K > load( n );
      U32 rounds = std::max( 1u, 200000 / n );
      for ( U32 turn = 0; turn < 5; ++turn ) {
         for ( U32 i = 0; i < rounds; ++i ) {
            runRound< Standard >( floor, load );
         }
         for ( U32 i = 0; i < rounds; ++i ) {
            runRound< Dense >( dense, load );
         }
      }
      floor.longest = longestInsert< Standard >( load.keys );
      dense.longest = longestInsert< Dense >( load.keys );
   }
   return it->second;
}

template< class K >
void
compare( benchmark::State & state, double Costs::*what, const char * unit ) {
   auto & [dense, floor] = bothFor< K >( U32( state.range( 0 ) ) );
   for ( auto _ : state ) {
      state.SetIterationTime( dense.*what * 1e-9 );
   }
   state.counters[unit] = dense.*what;
   state.counters[std::string( "floor_" ) + unit] = floor.*what;
   state.counters["ratio_to_floor"] = dense.*what / ( floor.*what );
}

template< class K >
void
registerAll( const std::string & name ) {
   struct {
      const char * name;
      double Costs::*what;
      const char * unit;
   } lines[] = {
         { "find", &Costs::find, "ns" },
         { "find_absent", &Costs::miss, "ns" },
         { "insert", &Costs::insert, "ns" },
         { "longest_insert", &Costs::longest, "ns" },
         { "erase", &Costs::erase, "ns" },
         { "iterate", &Costs::iterate, "ns" },
         { "bytes_an_entry", &Costs::bytes, "bytes" },
   };
   for ( auto & line : lines ) {
      benchmark::RegisterBenchmark( ( name + "/" + line.name ).c_str(), compare< K >, line.what,
                                    line.unit )
            ->Arg( 1000 )
            ->Arg( 100000 )
            ->Arg( 1000000 )
            ->Iterations( 1 )
            ->UseManualTime();
   }
}

/** 4,096 keys, of which one is erased and another inserted, a million times. */
void
churn( benchmark::State & state, bool oldestFirst ) {
   constexpr U32 held = 4096, steps = 1000000;
   for ( auto _ : state ) {
      Kiv::DenseMap< U64, U64 > map;
      std::vector< U64 > keys( held );
      Kiv::Rng random( 3 );
      U64 before = bytesInUse, most = 0;
      for ( U32 i = 0; i < held; ++i ) {
         keyAt( i, keys[i] );
         map.emplace( keys[i], i );
      }
      double start = Bench::spent();
      for ( U32 i = 0; i < steps; ++i ) {
         U64 & key = keys[oldestFirst ? i % held : random() % held];
         map.erase( key );
         keyAt( held + i, key );
         map.emplace( key, i );
         most = std::max( most, bytesInUse - before );
      }
      state.counters["ns_a_step"] = ( Bench::spent() - start ) / steps;
      state.counters["most_bytes_an_entry"] = double( most ) / held;
   }
}
BENCHMARK_CAPTURE( churn, oldest_first, true )->Iterations( 1 );
BENCHMARK_CAPTURE( churn, at_random, false )->Iterations( 1 );

} // namespace

int
main( int argc, char ** argv ) {
   registerAll< U64 >( "number" );
   registerAll< MacAndVlan >( "mac_and_vlan" );
   benchmark::Initialize( &argc, argv );
   benchmark::RunSpecifiedBenchmarks();
}
