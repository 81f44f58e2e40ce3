// Next-hop collections and layer-2 adjacencies, each next to the same work written by hand in the same
// run: plain vectors, an intrusive hash set of lists without flags, checks or copies on write, and the
// standard library's set. An entry of the floor counts its next hop, too: tables hold a next hop as long
// as some list names it.
//
// Each line shows the time of one operation (ns), that of the floor (floor_ns) and ratio_to_floor; the
// lines on memory show bytes.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <memory>
#include <new>
#include <unordered_set>

#include "Qon/include/adjacency/QonL2AdjTypes.h"
#include "bench/Ratio.h"

namespace {

using Qon::GlobalFecId;
using Qon::L2Adjacency;
using Qon::NextHop;
using Qon::NextHopCollection;
using Qon::PlatformApi::ViaListDedupTable;

/** The vias of all lists; as many as a large switch has neighbours. */
struct Vias {
   Vias() {
      for ( U32 i = 0; i < 4096; ++i ) {
         Qon::PlatformApi::Via via;
         Qon::ViaGen gen;
         gen.nextHopIs( Ulnet::IpGenAddr::ipv4( 0x0a000000 + i ) );
         via.viaGenIs( gen );
         hops.push_back( table.handle( via ) );
      }
   }
   Qon::NextHopDedupTable table;
   std::vector< NextHop > hops;
};
const Vias &
vias() {
   static const Vias all;
   return all;
}
/** Entry `i` of list `number`. */
U32
place( U32 number, U32 i ) {
   return ( number * 7 + i * ( 1 + number / 4096 ) ) % 4096;
}

NextHopCollection
collection( U32 number, U32 size ) {
   NextHopCollection c;
   c.duplicatesAllowedIs( true );
   c.viaAndWeightsReserve( size );
   for ( U32 i = 0; i < size; ++i ) {
      c.viaAndWeightPush( { vias().hops[place( number, i )], 1 + number % 3 } );
   }
   return c;
}

/** The floor's next hop, and a counted pointer to one. */
struct PlainVia {
   Qon::PlatformApi::Via via;
   U32 users = 0;
};
class PlainHop {
 public:
   PlainHop( U32 number ) : via_( &all()[number] ) { ++via_->users; }
   PlainHop( const PlainHop & o ) : via_( o.via_ ) { ++via_->users; }
   PlainHop( PlainHop && o ) noexcept : via_( std::exchange( o.via_, nullptr ) ) {}
   PlainHop & operator=( PlainHop o ) noexcept {
      std::swap( via_, o.via_ );
      return *this;
   }
   ~PlainHop() {
      if ( via_ && --via_->users == 0 ) {
         via_->via = {};
      }
   }
   bool operator==( const PlainHop & o ) const { return via_ == o.via_; }
   U64 hash() const { return reinterpret_cast< std::uintptr_t >( via_ ); }

 private:
   static std::vector< PlainVia > & all() {
      static std::vector< PlainVia > all( 4096 );
      return all;
   }
   PlainVia * via_;
};
using PlainVias = std::vector< std::pair< PlainHop, U32 > >;

/** The floor: a list that knows nothing. */
struct PlainList {
   PlainVias vias;
   U32 users = 0;
   U64 hash = 0;
   PlainList * next = nullptr;
};
PlainList *
plainList( U32 number, U32 size ) {
   auto list = new PlainList;
   list->vias.reserve( size );
   for ( U32 i = 0; i < size; ++i ) {
      list->vias.emplace_back( place( number, i ), 1 + number % 3 );
   }
   return list;
}
class PlainTable {
 public:
   PlainTable() : buckets_( 1 << 15 ) {}
   ~PlainTable() {
      for ( auto * list : buckets_ ) {
         while ( list ) {
            delete std::exchange( list, list->next );
         }
      }
   }
   PlainList * intern( PlainList * list ) {
      U64 h = 0;
      for ( auto & [hop, weight] : list->vias ) {
         h = Kiv::hashCombine( h, hop.hash() + weight );
      }
      list->hash = h;
      for ( auto * held = buckets_[h % buckets_.size()]; held; held = held->next ) {
         if ( held->hash == h && held->vias == list->vias ) {
            delete list;
            ++held->users;
            return held;
         }
      }
      list->next = std::exchange( buckets_[h % buckets_.size()], list );
      ++list->users;
      return list;
   }

 private:
   std::vector< PlainList * > buckets_;
};

void
report( benchmark::State & state, double ns, double floor ) {
   state.counters["ns"] = ns;
   state.counters["floor_ns"] = floor;
   state.counters["ratio_to_floor"] = ns / floor;
}

/** A list is made that the table has already, and given up for the table's. */
void
buildAndConsolidate( benchmark::State & state ) {
   const U32 size = U32( state.range( 0 ) ), lists = 64;
   const long calls = 200000 / ( size + 1 ) + 10;
   double ours = 0, floor = 0;
   for ( auto _ : state ) {
      ViaListDedupTable table;
      PlainTable plain;
      std::vector< NextHopCollection > held;
      for ( U32 i = 0; i < lists; ++i ) {
         held.push_back( collection( i, size ) );
         held.back().consolidate( &table );
         plain.intern( plainList( i, size ) );
      }
      U32 round = 0;
      ours = Bench::nsPerCall(
            [&] {
               auto c = collection( ++round % lists, size );
               c.consolidate( &table );
            },
            calls );
      floor = Bench::nsPerCall(
            [&] { --plain.intern( plainList( ++round % lists, size ) )->users; }, calls );
   }
   report( state, ours, floor );
}

/** Every second entry is merged into the one before it. */
void
compress( benchmark::State & state ) {
   const U32 size = U32( state.range( 0 ) );
   NextHopCollection pairs;
   pairs.duplicatesAllowedIs( true );
   PlainVias plain;
   for ( U32 i = 0; i < size; ++i ) {
      pairs.viaAndWeightPush( { vias().hops[i / 2], 1 } );
      plain.emplace_back( i / 2, 1 );
   }
   const long calls = 100000 / size + 10;
   double ours = 0, floor = 0;
   for ( auto _ : state ) {
      ours = Bench::nsPerCall(
            [&] {
               auto c = pairs;
               c.compressAdjacentVias();
               benchmark::DoNotOptimize( c.totalWeight() );
            },
            calls );
      floor = Bench::nsPerCall(
            [&] {
               PlainVias copy;
               copy.reserve( size );
               for ( auto & entry : plain ) {
                  if ( !copy.empty() && entry.first == copy.back().first ) {
                     copy.back().second += entry.second;
                  } else {
                     copy.push_back( entry );
                  }
               }
               benchmark::DoNotOptimize( copy.data() );
            },
            calls );
   }
   report( state, ours, floor );
}

/** One next hop becomes another one, in a copy. */
void
replace( benchmark::State & state ) {
   const U32 size = U32( state.range( 0 ) );
   const auto all = collection( 0, size );
   const std::unique_ptr< PlainList > plain( plainList( 0, size ) );
   const PlainHop gone( place( 0, size / 2 ) ), fresh( 0 );
   const long calls = 100000 / size + 10;
   double ours = 0, floor = 0;
   for ( auto _ : state ) {
      ours = Bench::nsPerCall(
            [&] {
               auto c = all;
               c.replaceNextHops( { vias().hops[place( 0, size / 2 )] }, vias().hops[0] );
               benchmark::DoNotOptimize( c.totalWeight() );
            },
            calls );
      floor = Bench::nsPerCall(
            [&] {
               auto copy = plain->vias;
               for ( auto & entry : copy ) {
                  if ( entry.first == gone ) {
                     entry.first = fresh;
                  }
               }
               benchmark::DoNotOptimize( copy.data() );
            },
            calls );
   }
   report( state, ours, floor );
}

/** Two collections that are equal, with one list or with two; and the hash of one. */
void
equalityAndHash( benchmark::State & state, bool shared ) {
   const U32 size = U32( state.range( 0 ) );
   ViaListDedupTable table;
   auto a = collection( 1, size ), b = collection( 1, size );
   if ( shared ) {
      a.consolidate( &table );
      b.consolidate( &table );
   }
   const std::unique_ptr< PlainList > plainA( plainList( 1, size ) ),
         plainB( plainList( 1, size ) );
   const long calls = 1000000 / size + 10;
   double ours = 0, floor = 0;
   for ( auto _ : state ) {
      ours = Bench::nsPerCall( [&] { benchmark::DoNotOptimize( a == b && a.hash() ); }, calls );
      floor = Bench::nsPerCall(
            [&] {
               U64 h = 0;
               for ( auto & [hop, weight] : plainA->vias ) {
                  h = Kiv::hashCombine( h, hop.hash() + weight );
               }
               benchmark::DoNotOptimize( plainA->vias == plainB->vias && h );
            },
            calls );
   }
   report( state, ours, floor );
}

/** A million FECs with eight vias each, of 10,000 distinct lists. */
void
aMillionFecs( benchmark::State & state ) {
   constexpr U32 fecs = 1000000, lists = 10000, size = 8;
   vias();
   for ( auto _ : state ) {
      ViaListDedupTable table;
      std::vector< NextHopCollection > all;
      all.reserve( fecs );
      const U64 before = Bench::bytesInUse();
      double consolidation = 0;
      for ( U32 i = 0; i < fecs; i += lists ) {
         for ( U32 j = 0; j < lists; ++j ) {
            all.push_back( collection( j, size ) );
         }
         consolidation += Bench::nsOf( [&] {
            for ( U32 j = 0; j < lists; ++j ) {
               all[i + j].consolidate( &table );
            }
         } );
      }
      malloc_trim( 0 );
      state.counters["lists"] = table.viaLists();
      state.counters["ns_consolidation"] = consolidation / fecs;
      state.counters["bytes_a_fec"] = double( Bench::bytesInUse() - before ) / fecs;
      state.counters["bytes_own_record"] = sizeof( NextHopCollection );
   }
}

/** FECs join an adjacency, are looked for, and leave. */
void
fecSet( benchmark::State & state ) {
   const U32 members = U32( state.range( 0 ) );
   const long calls = 200000 / members + 10;
   double ours = 0, floor = 0;
   for ( auto _ : state ) {
      auto adj = Velto::make< L2Adjacency >( Qon::L2AdjKey() );
      std::unordered_set< U64 > plain;
      ours = Bench::nsPerCall(
                   [&] {
                      U32 found = 0;
                      for ( U32 i = 0; i < members; ++i ) {
                         adj->adjEntryIs( GlobalFecId( i ) );
                      }
                      for ( U32 i = 0; i < members; ++i ) {
                         found += adj->adjEntryHas( GlobalFecId( i ) );
                      }
                      for ( U32 i = 0; i < members; ++i ) {
                         adj->adjEntryDel( GlobalFecId( i ) );
                      }
                      benchmark::DoNotOptimize( found );
                   },
                   calls ) /
             members;
      floor = Bench::nsPerCall(
                    [&] {
                       U64 found = 0;
                       for ( U32 i = 0; i < members; ++i ) {
                          plain.insert( i );
                       }
                       for ( U32 i = 0; i < members; ++i ) {
                          found += plain.count( i );
                       }
                       for ( U32 i = 0; i < members; ++i ) {
                          plain.erase( i );
                       }
                       benchmark::DoNotOptimize( found );
                    },
                    calls ) /
              members;
   }
   report( state, ours, floor );
}

/** A type is set for a FEC of `members`, and taken away again. */
void
tableTypes( benchmark::State & state ) {
   const U32 members = U32( state.range( 0 ) );
   double ours = 0;
   for ( auto _ : state ) {
      auto adj = Velto::make< L2Adjacency >( Qon::L2AdjKey() );
      std::vector< Velto::Ptr< Qon::AdjEntry > > entries;
      for ( U32 i = 0; i < members; ++i ) {
         entries.push_back( Velto::make< Qon::AdjEntry >( GlobalFecId( i ) ) );
         adj->adjEntryIs( GlobalFecId( i ) );
         adj->setTableTypeForAdj( GlobalFecId( i ), Qon::TableType::unicast );
      }
      U32 round = 0;
      ours = Bench::nsPerCall(
            [&] {
               const auto & entry = *entries[++round % members];
               adj->setTableTypeForAdj( entry.globalFecId(), Qon::TableType::mpls );
               adj->unsetTableTypeForAdj( entry, Qon::TableType::mpls );
            },
            200000 );
   }
   state.counters["ns_set_and_unset"] = ours;
}

void
aMillionAdjacencies( benchmark::State & state ) {
   constexpr U32 count = 1000000;
   for ( auto _ : state ) {
      std::vector< Velto::Ptr< L2Adjacency > > all;
      all.reserve( count );
      const U64 before = Bench::bytesInUse();
      const double ns = Bench::nsOf( [&] {
         for ( U32 i = 0; i < count; ++i ) {
            all.push_back( Velto::make< L2Adjacency >( Qon::L2AdjKey() ) );
            all.back()->adjEntryIs( GlobalFecId( i ) );
            all.back()->setTableTypeForAdj( GlobalFecId( i ), Qon::TableType::unicast );
         }
      } );
      state.counters["ns_each"] = ns / count;
      state.counters["bytes_each"] = double( Bench::bytesInUse() - before ) / count;
      state.counters["bytes_object"] = sizeof( L2Adjacency );
   }
}

BENCHMARK( buildAndConsolidate )->Arg( 1 )->Arg( 8 )->Arg( 64 )->Arg( 4096 )->Iterations( 1 );
BENCHMARK( compress )->Arg( 8 )->Arg( 64 )->Arg( 4096 )->Iterations( 1 );
BENCHMARK( replace )->Arg( 8 )->Arg( 64 )->Arg( 4096 )->Iterations( 1 );
BENCHMARK_CAPTURE( equalityAndHash, shared, true )->Arg( 8 )->Arg( 4096 )->Iterations( 1 );
BENCHMARK_CAPTURE( equalityAndHash, apart, false )->Arg( 8 )->Arg( 4096 )->Iterations( 1 );
BENCHMARK( aMillionFecs )->Iterations( 1 );
BENCHMARK( fecSet )->Arg( 1 )->Arg( 2 )->Arg( 100 )->Arg( 10000 )->Iterations( 1 );
BENCHMARK( tableTypes )->Arg( 1 )->Arg( 2 )->Arg( 100 )->Arg( 10000 )->Iterations( 1 );
BENCHMARK( aMillionAdjacencies )->Iterations( 1 );

} // namespace
