// Collections that share, consolidate and write, next to plain vectors that do nothing of the kind:
// random histories, and after every step all collections are what their models say.

#include <algorithm>
#include <map>
#include <optional>
#include <set>

#include "platform/Kiv/Rng.h"
#include "tests/adjacency/Vias.h"

namespace {

using namespace Tests;
using Qon::NextHopCollectionShimBuiltAttrs;
using Qon::PlatformApi::ViaAndWeight;
using Qon::PlatformApi::ViaList;

constexpr U64 most = 0xffffffff;
constexpr int unset = -1;
constexpr int distinctHops = 5;
constexpr U32 collections = 4;
constexpr int apart = -1, ended = -2; // in no table, in one that is no more

struct Entry {
   int via;
   U64 weight;
   bool operator==( const Entry & ) const = default;
};
using Entries = std::vector< Entry >;

/** What a collection should be. */
struct Model {
   Entries entries;
   bool group = false, duplicates = false, ordered = false, unordered = false, swOnly = false;
   U16 shim = 0;
   U32 type = 0; // of the tunnel
   std::optional< U32 > ttl;
   int table = apart; // that it is consolidated in

   bool mayDuplicate() const { return group || duplicates || ordered || shim & 1; }
   bool hasOrder() const { return ordered || ( group && !unordered ); }
   bool sameList( const Model & o ) const {
      return entries == o.entries && type == o.type && ttl == o.ttl;
   }
   bool operator==( const Model & o ) const {
      return sameList( o ) && group == o.group && duplicates == o.duplicates &&
             ordered == o.ordered && unordered == o.unordered && swOnly == o.swOnly &&
             shim == o.shim;
   }

   bool repeats() const {
      std::set< int > seen;
      for ( auto & e : entries ) {
         if ( e.via != unset && !seen.insert( e.via ).second ) {
            return true;
         }
      }
      return false;
   }
   void del( const std::set< int > & gone ) {
      Entries left;
      for ( auto & e : entries ) {
         if ( !gone.count( e.via ) ) {
            left.push_back( e );
         }
      }
      entries = left;
   }
   /** Equal next hops into the first of them that still has room, unless they may stand apart. */
   void merge() {
      Entries left;
      for ( auto & e : entries ) {
         Entry * last = nullptr;
         for ( auto & f : left ) {
            last = f.via == e.via && e.via != unset ? &f : last;
         }
         if ( last && last->weight + e.weight <= most && !mayDuplicate() ) {
            last->weight += e.weight;
         } else {
            left.push_back( e );
         }
      }
      entries = left;
   }
   void compress() {
      Entries left;
      for ( auto & e : entries ) {
         if ( !left.empty() && left.back().via == e.via && left.back().weight + e.weight <= most ) {
            left.back().weight += e.weight;
         } else {
            left.push_back( e );
         }
      }
      entries = mayDuplicate() && !group ? left : entries;
   }
};

class History {
 public:
   explicit History( U64 seed ) : rng( seed ) {
      for ( int i = 0; i < distinctHops; ++i ) {
         hops.push_back( vias.handle( via( U32( i ) ) ) );
      }
      tables[0].emplace();
      tables[1].emplace();
   }

   void step() {
      at = rng.below( collections );
      const Model before = model();
      const auto list = real().viaListWrapper().viaList();
      const bool quiet = act( rng.below( 24 ) );
      if ( quiet && model() == before ) { // what changes nothing copies nothing
         EXPECT_EQ( list, real().viaListWrapper().viaList() );
      } else if ( quiet && !model().sameList( before ) ) {
         model().table = apart;
      }
      checkOne( real(), model() );
   }
   /** All of them, and how they compare. */
   void check() {
      for ( U32 i = 0; i < collections; ++i ) {
         checkOne( reals[i], models[i] );
         if ( models[i].mayDuplicate() || !models[i].repeats() ) {
            reals[i].verify();
         }
      }
      checkTables();
      checkEquality();
      for ( const auto & view : views ) {
         checkView( view );
      }
   }

 private:
   /** Iterators of one moment, and what they are to show. */
   struct View {
      Qon::ViaAndWeightIteratorConst entry;
      Qon::NextHopIteratorConst nextHop;
      Qon::NextHopAggregateWeightIteratorConst sum;
      Qon::NextHopBitmapExternIteratorConst bitmap;
      Entries entries;
   };

   void checkEquality() {
      for ( U32 i = 0; i < collections; ++i ) {
         for ( U32 j = 0; j < collections; ++j ) {
            const bool same = models[i] == models[j];
            ASSERT_EQ( same, reals[i] == reals[j] );
            ASSERT_EQ( same, ( reals[i] <=> reals[j] ) == 0 );
            ASSERT_TRUE( !same || reals[i].hash() == reals[j].hash() );
         }
      }
   }
   void checkView( View view ) {
      std::vector< int > order; // of the next hops
      std::map< int, std::pair< U64, QonTypes::ViaBitmap > > gathered;
      for ( U32 at = 0; at < view.entries.size(); ++at, ++view.entry ) {
         const auto & e = view.entries[at];
         ASSERT_EQ( hopOf( e.via ), view.entry->via() );
         ASSERT_EQ( e.weight, view.entry->weight() );
         if ( e.via != unset ) {
            auto [g, fresh] = gathered.try_emplace( e.via );
            fresh ? order.push_back( e.via ) : void();
            g->second.first += e.weight;
            g->second.second.bitIs( at );
         }
      }
      for ( int via : order ) {
         ASSERT_EQ( hopOf( via ), *view.nextHop );
         ASSERT_EQ( hopOf( via ), view.sum->nextHop );
         ASSERT_EQ( gathered[via].first, view.sum->weight );
         ASSERT_EQ( hopOf( via ), view.bitmap->nextHop );
         ASSERT_EQ( gathered[via].second, view.bitmap->bitmap );
         ++view.nextHop, ++view.sum, ++view.bitmap;
      }
      ASSERT_FALSE( view.entry || view.nextHop || view.sum || view.bitmap );
   }

   NextHopCollection & real() { return reals[at]; }
   Model & model() { return models[at]; }
   NextHop hopOf( int number ) {
      if ( number == unset ) {
         return {};
      }
      return rng.percent( 20 ) ? hop( U32( number ) ) : hops[U32( number )];
   }
   int anyHop() { return rng.percent( 5 ) ? unset : int( rng.below( distinctHops ) ); }
   U32 weight() { return rng.percent( 10 ) ? U32( most ) - rng.below( 3 ) : rng.between( 1, 9 ); }
   bool has( int number ) {
      for ( auto & e : model().entries ) {
         if ( e.via == number ) {
            return true;
         }
      }
      return false;
   }
   std::set< int > someHops( Qon::NextHopSetTransient & set ) {
      std::set< int > numbers;
      for ( U32 n = rng.below( 4 ); n; --n ) {
         numbers.insert( anyHop() );
      }
      for ( int number : numbers ) {
         set.nextHopIs( hopOf( number ) );
      }
      return numbers;
   }
   NextHopCollection::Indexes someIndexes() {
      NextHopCollection::Indexes indexes;
      for ( U32 i = 0; i < model().entries.size(); ++i ) {
         for ( U32 n = rng.below( 3 ); n; --n ) { // perhaps twice
            indexes.push_back( i );
         }
      }
      return indexes;
   }
   void mergeUnlessAllowed() {
      model().table = apart;
      model().merge();
   }

   /** Whether what happened is a write of the list, which may turn out to change nothing. */
   bool act( U32 what ) {
      return what < 11 ? write( what ) : what < 18 ? flag( what ) : share( what );
   }
   void push( U32 what, int number, U32 w ) {
      auto & m = model();
      if ( m.mayDuplicate() && !m.entries.empty() && rng.percent( 20 ) ) {
         real().viaAndWeightPush( real().viaAndWeightFront() ); // which lies in the list
         m.entries.push_back( m.entries[0] );
      } else if ( m.mayDuplicate() || !has( number ) ) {
         what == 0 ? real().viaAndWeightPush( { hopOf( number ), w } )
                   : real().viaAndWeightEmplaceBack( hopOf( number ), w );
         m.entries.push_back( { number, w } );
      }
   }
   bool write( U32 what ) {
      auto & m = model();
      const int number = anyHop();
      const U32 w = weight();
      Qon::NextHopSetTransient set;
      switch ( what ) {
      case 0:
      case 1:
      case 2:
         push( what, number, w );
         return true;
      case 3:
         if ( !m.entries.empty() ) {
            const U32 index = rng.below( U32( m.entries.size() ) );
            const int kept = m.entries[index].via;
            real().viaAndWeightIs( index, { hopOf( kept ), w } );
            m.entries[index].weight = w;
         }
         return true;
      case 4:
         if ( !m.mayDuplicate() || !has( number ) ) {
            real().nextHopIs( hopOf( number ), w );
            bool found = false;
            for ( auto & e : m.entries ) {
               if ( e.via == number && !found ) {
                  found = true;
                  e.weight = w;
               }
            }
            if ( !found ) {
               m.entries.push_back( { number, w } );
            }
         }
         return true;
      case 5:
         // the argument may lie in the list that it changes
         if ( !m.entries.empty() && m.entries[0].via == number ) {
            real().nextHopDel( real().viaFront() );
         } else {
            real().nextHopDel( hopOf( number ) );
         }
         m.del( { number } );
         return true;
      case 6:
         m.del( someHops( set ) );
         real().delNextHops( set );
         return true;
      case 7: {
         const auto indexes = someIndexes();
         real().delNextHopsAtIndexes( indexes );
         for ( U32 i = U32( m.entries.size() ); i-- > 0; ) {
            if ( std::binary_search( indexes.begin(), indexes.end(), i ) ) {
               m.entries.erase( m.entries.begin() + i );
            }
         }
         return true;
      }
      case 8:
      case 9:
         return replace( what, number );
      default:
         real().compressAdjacentVias();
         m.compress();
         return true;
      }
   }
   bool replace( U32 what, int number ) {
      auto & m = model();
      Qon::NextHopSetTransient set;
      const auto before = m.entries;
      if ( what == 8 ) {
         const auto numbers = someHops( set );
         real().replaceNextHops( set, hopOf( number ) );
         for ( auto & e : m.entries ) {
            e.via = numbers.count( e.via ) ? number : e.via;
         }
      } else {
         const auto indexes = someIndexes();
         real().replaceNextHopsAtIndexes( indexes, hopOf( number ) );
         for ( U32 i : indexes ) {
            m.entries[i].via = number;
         }
      }
      if ( !( m.entries == before ) ) {
         m.merge();
      }
      return true;
   }
   bool flag( U32 what ) {
      auto & m = model();
      const bool v = rng.percent( 50 );
      const Model before = m;
      switch ( what ) {
      case 11:
         real().isNextHopGroupIs( m.group = v && rng.percent( 30 ) );
         break;
      case 12:
         real().duplicatesAllowedIs( m.duplicates = v );
         break;
      case 13:
         real().nextHopOrderSpecifiedIs( m.ordered = v && rng.percent( 50 ) );
         break;
      case 14:
         m.shim = U16( rng.next() );
         real().shimAttrsIs( NextHopCollectionShimBuiltAttrs( m.shim ) );
         break;
      case 15: {
         Qon::NextHopGroupNhCollMetadata metadata;
         metadata.nextHopGroupUnorderedIs( m.unordered = v );
         real().nhgMetadataIs( metadata );
         break;
      }
      case 16:
         real().swOnlyIs( m.swOnly = v );
         return true;
      default:
         real().tunnelTypeIs( ViaList::TunnelType( m.type = rng.below( 3 ) ) );
         return true;
      }
      if ( !( m == before ) ) {
         mergeUnlessAllowed();
      }
      return true;
   }
   bool share( U32 what ) {
      auto & m = model();
      const U32 other = rng.below( collections );
      switch ( what ) {
      case 18:
      case 19:
         if ( const U32 table = rng.below( 2 ); rng.percent( 3 ) ) {
            endTable( int( table ) );
         } else {
            real().consolidate( &*tables[table] );
            m.table = m.table == apart ? int( table ) : m.table;
         }
         return false;
      case 20:
         models[other] = m;
         if ( other != at && rng.percent( 30 ) ) {
            reals[other] = std::move( real() );
            m = Model();
         } else {
            reals[other] = real();
         }
         return false;
      case 21:
         if ( views.size() > 4 ) {
            views.erase( views.begin() + rng.below( U32( views.size() ) ) );
         }
         views.push_back( { real().viaAndWeightIteratorConst(), real().nextHopIteratorConst(),
                            real().nextHopAggregateWeightIteratorConst(),
                            real().nextHopBitmapExternIteratorConst(), m.entries } );
         return true;
      case 22:
         if ( rng.percent( 30 ) ) {
            real().ttlIs( *( m.ttl = rng.between( 1, 3 ) ) );
         } else if ( rng.percent( 50 ) ) {
            m.table = real().nhgInfo() == reals[other].nhgInfo() ? m.table : apart;
            real().nhgInfoIs( reals[other].nhgInfo() );
            m.ttl = models[other].ttl;
            return false;
         } else {
            rng.percent( 50 ) ? real().unconsolidate() : real().viaAndWeightsReserve( 50 );
            m.table = real().consolidated() ? m.table : apart;
            return false;
         }
         return true;
      default:
         if ( rng.percent( 20 ) ) {
            real().viaAndWeightClear();
            m.entries.clear();
         } else if ( rng.percent( 30 ) ) {
            real() = NextHopCollection( real().stringValue() );
            mergeUnlessAllowed();
            return false;
         } else {
            return replaceWrapper( other );
         }
         return true;
      }
   }
   bool replaceWrapper( U32 other ) {
      auto & m = model();
      const auto & o = models[other];
      if ( m.mayDuplicate() || !o.mayDuplicate() ) {
         real().replaceViaListWrapper( reals[other].viaListWrapper() );
         m.entries = o.entries;
         m.type = o.type;
         m.ttl = o.ttl;
         m.table = m.mayDuplicate() == o.mayDuplicate() && m.hasOrder() == o.hasOrder() ? o.table
                                                                                        : apart;
         return false;
      }
      return true;
   }

   void endTable( int table ) {
      tables[table].emplace();
      for ( auto & m : models ) {
         m.table = m.table == table ? ended : m.table;
      }
   }

   void checkOne( const NextHopCollection & c, const Model & m ) {
      ASSERT_EQ( m.entries.size(), c.viaAndWeights() );
      U64 total = 0;
      for ( U32 i = 0; i < m.entries.size(); ++i ) {
         const auto & entry = c.viaAndWeight( i );
         total += m.entries[i].weight;
         if ( entry.weight() != m.entries[i].weight ||
              !( m.entries[i].via == unset ? !entry.via()
                                           : entry.via() == hops[U32( m.entries[i].via )] ) ) {
            FAIL() << "entry " << i << " of " << c.stringValue();
         }
      }
      if ( c.totalWeightAndShimAttrs() != ( total | U64( m.shim ) << 48 ) ||
           c.consolidated() != ( m.table != apart ) || c.isNextHopGroup() != m.group ||
           c.mayContainDuplicateNextHops() != m.mayDuplicate() ||
           c.specifiesNextHopOrder() != m.hasOrder() || c.swOnly() != m.swOnly ||
           U32( c.tunnelType() ) != m.type || bool( c.nhgInfo() ) != m.ttl.has_value() ||
           c.ttl() != m.ttl.value_or( 0 ) ) {
         FAIL() << "other than the model: " << c.stringValue();
      }
   }
   /** The tables hold what is held, each list once. */
   void checkTables() {
      std::set< const ViaList * > held;
      for ( U32 i = 0; i < collections; ++i ) {
         auto list = reals[i].viaListWrapper().viaList();
         ASSERT_EQ( models[i].table >= 0, list->interned() );
         if ( list->interned() ) {
            held.insert( list );
         }
         for ( U32 j = 0; j < i && models[i].table >= 0; ++j ) {
            const bool same = models[j].table == models[i].table &&
                              models[i].sameList( models[j] ) &&
                              models[i].mayDuplicate() == models[j].mayDuplicate() &&
                              models[i].hasOrder() == models[j].hasOrder();
            ASSERT_EQ( same, list == reals[j].viaListWrapper().viaList() );
         }
      }
      for ( auto & view : views ) {
         if ( view.entry.list()->interned() ) {
            held.insert( view.entry.list() );
         }
      }
      ASSERT_EQ( held.size(), tables[0]->viaLists() + tables[1]->viaLists() );
   }

   Kiv::Rng rng;
   Qon::NextHopDedupTable vias;
   std::optional< Qon::PlatformApi::ViaListDedupTable > tables[2];
   std::vector< NextHop > hops;
   NextHopCollection reals[collections];
   Model models[collections];
   std::vector< View > views;
   U32 at = 0;
};

TEST( CollectionHistory, EveryCollectionIsWhatItsOwnHistoryMadeOfIt ) {
   constexpr U32 steps = 2000;
   for ( U32 seed = 0; seed < seeds( 1000 ) && !testing::Test::HasFailure(); ++seed ) {
      SCOPED_TRACE( seed );
      History history( seed );
      for ( U32 i = 0; i < steps && !testing::Test::HasFailure(); ++i ) {
         history.step();
         if ( i % 16 == 0 ) {
            history.check();
         }
      }
   }
}

} // namespace
