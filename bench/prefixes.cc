// Prefix lists of forwarding classes, next to the same work written by hand in the same run: for each
// class one dense map of its prefixes (an index of positions, and the prefixes in order), found through
// one hash table of classes, with counts; no VRFs, no notification, no walks.
//
// Each line shows the time of one add, find or remove (ns), that of the floor, their ratio (medians of
// rounds by turns), and the bytes that a prefix, or a class with one prefix, takes.

#include <benchmark/benchmark.h>

#include <vector>

#include "Qon/include/adjacency/AdjGlobalPrefixList.h"
#include "bench/PrefixFloor.h"
#include "bench/Ratio.h"

namespace {

using Qon::AdjGlobalPrefixListWrapper;
using Qon::GlobalFecId;
using Qon::VrfId;

constexpr U32 rounds = 5;

void
report( benchmark::State & state, const char * what, const Bench::Compared & figures ) {
   const std::string name( what );
   state.counters[name + "_ns"] = figures.ours;
   state.counters[name + "_floor_ns"] = figures.floor;
   state.counters[name + "_ratio"] = figures.ratio;
}

template< class P >
void
prefixes( benchmark::State & state ) {
   const U32 n = U32( state.range( 0 ) ), fecs = U32( state.range( 1 ) );
   std::vector< std::pair< U32, P > > all;
   for ( U32 i = 0; i < n; ++i ) {
      all.emplace_back( fecs == n ? i : U32( Kiv::mix( i ) % fecs ), Bench::prefixOf< P >( i ) );
   }
   Bench::Rounds add, find, remove;
   double ours[3], floor[3], bytes = 0;
   U32 found = 0;
   const auto each = [&]( double & ns, auto act ) {
      ns = Bench::nsOf( [&] {
              for ( auto & [fec, p] : all ) {
                 act( fec, p );
              }
           } ) /
           n;
   };
   for ( auto _ : state ) {
      for ( U32 round = 0; round < rounds; ++round ) {
         const U64 before = Bench::bytesInUse();
         auto lists = Velto::make< AdjGlobalPrefixListWrapper >();
         each( ours[0], [&]( U32 fec, const P & p ) {
            lists->prefixIs( GlobalFecId( fec ), VrfId( 0 ), p, nullptr );
         } );
         bytes = double( Bench::bytesInUse() - before );
         each( ours[1], [&]( U32 fec, const P & p ) {
            auto * list = lists->adjGlobalPrefixList( GlobalFecId( fec ) );
            found += list->listOf< Qon::VrfPrefixListOf< P > >( VrfId( 0 ) )->prefixHas( p );
         } );
         each( ours[2], [&]( U32 fec, const P & p ) {
            lists->prefixDel( GlobalFecId( fec ), VrfId( 0 ), p, nullptr );
         } );
         Bench::PlainLists< P > plain( fecs );
         each( floor[0], [&]( U32 fec, const P & p ) { plain.add( fec, p ); } );
         each( floor[1], [&]( U32 fec, const P & p ) { found += plain.has( fec, p ); } );
         each( floor[2], [&]( U32 fec, const P & p ) { plain.remove( fec, p ); } );
         add.add( ours[0], floor[0] );
         find.add( ours[1], floor[1] );
         remove.add( ours[2], floor[2] );
      }
   }
   if ( found != 2 * rounds * n ) {
      state.SkipWithError( "not all were found" );
   }
   report( state, "add", add.result() );
   report( state, "find", find.result() );
   report( state, "remove", remove.result() );
   state.counters["bytes_a_prefix"] = bytes / n;
   state.counters["bytes_a_fec"] = bytes / fecs;
}

BENCHMARK( prefixes< Ulnet::Prefix > )->Args( { 1000, 10 } )->Iterations( 1 );
BENCHMARK( prefixes< Ulnet::Prefix > )->Args( { 1000000, 10000 } )->Iterations( 1 );
BENCHMARK( prefixes< Ulnet::Prefix > )->Args( { 1000000, 1000000 } )->Iterations( 1 );
BENCHMARK( prefixes< Ulnet::Ip6Prefix > )->Args( { 1000000, 10000 } )->Iterations( 1 );
BENCHMARK( prefixes< Ulnet::Ip6Prefix > )->Args( { 1000000, 1000000 } )->Iterations( 1 );

} // namespace
