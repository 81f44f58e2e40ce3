// Prefix lists of forwarding classes, next to the same work written by hand in the same run: for each
// class one dense map of its prefixes (an index of positions, and the prefixes in order), found through
// one hash table of classes, with counts; no VRFs, no notification, no walks.
//
// Each line shows the time of one add, find or remove (ns), that of the floor, their ratio, and the
// bytes that a prefix, or a class with one prefix, takes.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <memory>
#include <vector>

#include "Qon/include/adjacency/AdjGlobalPrefixList.h"
#include "bench/Ratio.h"

namespace {

using Qon::AdjGlobalPrefixListWrapper;
using Qon::GlobalFecId;
using Qon::VrfId;

U64
bytesInUse() {
   const auto info = mallinfo2();
   return info.uordblks + info.hblkhd;
}

/** The floor: positions by hash, from half full on twice as many. */
template< class P >
class PlainMap {
 public:
   bool add( const P & p ) {
      if ( ( used_ + 1 ) * 2 > index_.size() ) {
         grow();
      }
      U32 & slot = index_[search( p )];
      if ( slot ) {
         return false;
      }
      entries_.push_back( p );
      slot = U32( entries_.size() );
      ++used_;
      return true;
   }
   bool has( const P & p ) const { return !index_.empty() && index_[search( p )]; }
   bool remove( const P & p ) {
      U32 * slot = index_.empty() ? nullptr : &index_[search( p )];
      if ( !slot || !*slot ) {
         return false;
      }
      *slot = ~0u;
      return true;
   }

 private:
   U32 search( const P & p ) const {
      const U32 mask = U32( index_.size() ) - 1;
      U32 i = U32( Kiv::mix( p.hash() ) ) & mask;
      while ( index_[i] && ( index_[i] == ~0u || entries_[index_[i] - 1] != p ) ) {
         i = ( i + 1 ) & mask;
      }
      return i;
   }
   void grow() {
      index_.assign( index_.empty() ? 8 : index_.size() * 2, 0 );
      for ( U32 i = 0; i < entries_.size(); ++i ) {
         index_[search( entries_[i] )] = i + 1;
      }
   }
   std::vector< U32 > index_;
   std::vector< P > entries_;
   U32 used_ = 0;
};

template< class P >
class PlainLists {
 public:
   explicit PlainLists( U32 fecs ) {
      U32 room = 8;
      while ( room < fecs * 2 ) {
         room *= 2;
      }
      slots_.resize( room );
   }
   struct Fec {
      U64 id = 0;
      U32 prefixes = 0;
      U32 defaults = 0;
      PlainMap< P > map;
   };
   void add( U64 id, const P & p ) {
      auto & slot = slots_[search( id )];
      if ( !slot ) {
         slot = std::make_unique< Fec >();
         slot->id = id;
      }
      if ( slot->map.add( p ) ) {
         ++slot->prefixes;
         slot->defaults += p.isDefaultRoute();
      }
   }
   bool has( U64 id, const P & p ) const {
      auto & slot = slots_[search( id )];
      return slot && slot->map.has( p );
   }
   void remove( U64 id, const P & p ) {
      auto & slot = slots_[search( id )];
      if ( slot && slot->map.remove( p ) ) {
         slot->defaults -= p.isDefaultRoute();
         if ( --slot->prefixes == 0 ) {
            slot->map = {};
         }
      }
   }

 private:
   U32 search( U64 id ) const {
      const U32 mask = U32( slots_.size() ) - 1;
      U32 i = U32( Kiv::mix( id ) ) & mask;
      while ( slots_[i] && slots_[i]->id != id ) {
         i = ( i + 1 ) & mask;
      }
      return i;
   }
   std::vector< std::unique_ptr< Fec > > slots_;
};

template< class P >
P
prefixOf( U32 i ) {
   typename P::Bytes bytes = {};
   for ( U32 k = 0; k < 4; ++k ) {
      bytes[k] = U8( i * 2654435761u >> ( 24 - 8 * k ) ); // a bijection, so that no two are equal
   }
   return P( bytes, 32 );
}

void
report( benchmark::State & state, const char * what, double ns, double floor ) {
   const std::string name( what );
   state.counters[name + "_ns"] = ns;
   state.counters[name + "_floor_ns"] = floor;
   state.counters[name + "_ratio"] = ns / floor;
}

template< class P >
void
prefixes( benchmark::State & state ) {
   const U32 n = U32( state.range( 0 ) ), fecs = U32( state.range( 1 ) );
   std::vector< std::pair< U32, P > > all;
   for ( U32 i = 0; i < n; ++i ) {
      all.emplace_back( fecs == n ? i : U32( Kiv::mix( i ) % fecs ), prefixOf< P >( i ) );
   }
   double ours[3] = { 1e300, 1e300, 1e300 }, floor[3] = { 1e300, 1e300, 1e300 }, bytes = 0;
   U32 found = 0;
   const auto each = [&]( double & best, auto act ) {
      best = std::min( best, Bench::nsOf( [&] {
                                for ( auto & [fec, p] : all ) {
                                   act( fec, p );
                                }
                             } ) / n );
   };
   for ( auto _ : state ) {
      for ( U32 round = 0; round < 3; ++round ) {
         const U64 before = bytesInUse();
         auto lists = Velto::make< AdjGlobalPrefixListWrapper >();
         each( ours[0], [&]( U32 fec, const P & p ) {
            lists->prefixIs( GlobalFecId( fec ), VrfId( 0 ), p, nullptr );
         } );
         bytes = double( bytesInUse() - before );
         each( ours[1], [&]( U32 fec, const P & p ) {
            auto * list = lists->adjGlobalPrefixList( GlobalFecId( fec ) );
            found += list->listOf< Qon::VrfPrefixListOf< P > >( VrfId( 0 ) )->prefixHas( p );
         } );
         each( ours[2], [&]( U32 fec, const P & p ) {
            lists->prefixDel( GlobalFecId( fec ), VrfId( 0 ), p, nullptr );
         } );
         PlainLists< P > plain( fecs );
         each( floor[0], [&]( U32 fec, const P & p ) { plain.add( fec, p ); } );
         each( floor[1], [&]( U32 fec, const P & p ) { found += plain.has( fec, p ); } );
         each( floor[2], [&]( U32 fec, const P & p ) { plain.remove( fec, p ); } );
      }
   }
   if ( found != 6 * n ) {
      state.SkipWithError( "not all were found" );
   }
   report( state, "add", ours[0], floor[0] );
   report( state, "find", ours[1], floor[1] );
   report( state, "remove", ours[2], floor[2] );
   state.counters["bytes_a_prefix"] = bytes / n;
   state.counters["bytes_a_fec"] = bytes / fecs;
}

BENCHMARK( prefixes< Ulnet::Prefix > )->Args( { 1000, 10 } )->Iterations( 1 );
BENCHMARK( prefixes< Ulnet::Prefix > )->Args( { 1000000, 10000 } )->Iterations( 1 );
BENCHMARK( prefixes< Ulnet::Prefix > )->Args( { 1000000, 1000000 } )->Iterations( 1 );
BENCHMARK( prefixes< Ulnet::Ip6Prefix > )->Args( { 1000000, 10000 } )->Iterations( 1 );
BENCHMARK( prefixes< Ulnet::Ip6Prefix > )->Args( { 1000000, 1000000 } )->Iterations( 1 );

} // namespace
