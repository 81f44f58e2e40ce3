// The collections against a slow and obvious model of each, with walks open across every change;
// and what a model cannot see: who dies when, what moves, what is given back.

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <set>
#include <vector>

#include "platform/Kiv/DenseMap.h"
#include "platform/Kiv/Fifo.h"
#include "platform/Kiv/OrderedMap.h"
#include "platform/Kiv/Rng.h"

namespace {

using Kiv::DenseMap;
using Kiv::Fifo;
using Kiv::OrderedMap;
using Velto::String;

struct Weak { // every key of a kind has the same hash
   U32 v;
   bool operator==( const Weak & ) const = default;
   auto operator<=>( const Weak & ) const = default;
   U64 hash() const { return v % 3; }
};

template< class K >
K keyOf( U32 n );
template<>
U64
keyOf( U32 n ) {
   return U64( n ) << 20;
}
template<>
String
keyOf( U32 n ) {
   return "Ethernet" + std::to_string( n );
}
template<>
Weak
keyOf( U32 n ) {
   return { n };
}

using Owned = std::unique_ptr< U32 >;

/** What a map should hold: entries in the order of a walk, each with a number of its own. */
struct Model {
   struct Entry {
      U32 key, value;
      U64 birth;
   };
   std::vector< Entry > entries;
   bool ordered;
   U64 births = 0;

   auto at( U32 key ) {
      return std::find_if( entries.begin(), entries.end(),
                           [key]( const Entry & e ) { return e.key == key; } );
   }
   bool add( U32 key, U32 value ) {
      if ( at( key ) != entries.end() ) {
         return false;
      }
      auto before = ordered ? std::find_if( entries.begin(), entries.end(),
                                            [key]( const Entry & e ) { return e.key > key; } )
                            : entries.end();
      entries.insert( before, { key, value, births++ } );
      return true;
   }
};

template< class Map, class K >
class Driver {
 public:
   Driver( U32 seed, U32 keys, bool ordered ) : random_( seed ), keys_( keys ) {
      model_.ordered = ordered;
   }
   void run( U32 steps ) {
      for ( U32 i = 0; i < steps && !testing::Test::HasFailure(); ++i ) {
         step();
         checkWalks();
         if ( i % 64 == 0 ) {
            checkAll();
         }
      }
      checkAll();
   }

 private:
   struct OpenWalk {
      explicit OpenWalk( Map & m ) : walk( m ) {}
      typename Map::Walk walk;
      Model::Entry on{}; // what it stood on last
   };

   U32 pick( U32 n ) { return random_() % n; }
   U32 anyKey() { return pick( keys_ ); }

   void step() {
      U32 kind = pick( 1000 );
      // Now mostly growing, now mostly shrinking, so that every size is passed both ways.
      if ( pick( 500 ) == 0 ) {
         bias_ = 150 + pick( 700 );
      }
      if ( kind < 3 ) {
         map_.clear();
         model_.entries.clear();
      } else if ( kind < 6 ) {
         Map other( std::move( map_ ) );
         EXPECT_TRUE( map_.empty() );
         map_.swap( other );
      } else if ( kind < 30 && walks_.size() < 4 ) {
         openWalk();
      } else if ( kind < 45 && !walks_.empty() ) {
         walks_.erase( walks_.begin() + pick( U32( walks_.size() ) ) );
      } else if ( kind < 150 && !walks_.empty() ) {
         advance( *walks_[pick( U32( walks_.size() ) )] );
      } else if ( pick( 1000 ) < bias_ ) {
         insert();
      } else {
         erase();
      }
   }
   void insert() {
      U32 key = anyKey(), value = U32( random_() );
      auto [there, fresh] = map_.emplace( keyOf< K >( key ), std::make_unique< U32 >( value ) );
      EXPECT_EQ( fresh, model_.add( key, value ) );
      EXPECT_EQ( **there, model_.at( key )->value );
   }
   void erase() {
      U32 key = anyKey();
      if ( pick( 4 ) == 0 && !model_.entries.empty() ) {
         key = model_.entries.front().key; // by a reference to the dying key
         EXPECT_TRUE( map_.erase( map_.front().key ) );
      } else if ( pick( 4 ) == 0 ) {
         auto taken = map_.take( keyOf< K >( key ) );
         ASSERT_EQ( taken.has_value(), model_.at( key ) != model_.entries.end() );
         EXPECT_TRUE( !taken || **taken == model_.at( key )->value );
      } else {
         EXPECT_EQ( map_.erase( keyOf< K >( key ) ), model_.at( key ) != model_.entries.end() );
      }
      if ( auto e = model_.at( key ); e != model_.entries.end() ) {
         model_.entries.erase( e );
      }
   }

   bool behind( const Model::Entry & e, const Model::Entry & on ) const {
      return model_.ordered ? e.key > on.key : e.birth > on.birth;
   }
   void openWalk() {
      auto w = std::make_unique< OpenWalk >( map_ );
      ASSERT_EQ( bool( w->walk ), !model_.entries.empty() );
      if ( w->walk ) {
         w->on = model_.entries.front();
         walks_.push_back( std::move( w ) );
      }
   }
   void advance( OpenWalk & w ) {
      ++w.walk;
      auto next = std::find_if( model_.entries.begin(), model_.entries.end(),
                                [&]( const Model::Entry & e ) { return behind( e, w.on ); } );
      ASSERT_EQ( bool( w.walk ), next != model_.entries.end() );
      if ( w.walk ) {
         w.on = *next;
      } else {
         std::erase_if( walks_, [&]( auto & p ) { return p.get() == &w; } );
      }
   }
   void checkWalks() {
      for ( auto & w : walks_ ) {
         auto e = model_.at( w->on.key );
         bool alive = e != model_.entries.end() && e->birth == w->on.birth;
         ASSERT_TRUE( bool( w->walk ) );
         ASSERT_EQ( w->walk.alive(), alive );
         if ( alive ) {
            EXPECT_EQ( w->walk.key(), keyOf< K >( w->on.key ) );
            EXPECT_EQ( *w->walk.value(), w->on.value );
         }
      }
   }
   void checkAll() {
      ASSERT_EQ( map_.size(), model_.entries.size() );
      auto e = model_.entries.begin();
      for ( auto && [key, value] : std::as_const( map_ ) ) {
         ASSERT_EQ( key, keyOf< K >( e->key ) );
         ASSERT_EQ( *value, e->value );
         ++e;
      }
      for ( U32 key = 0; key < keys_; key += 1 + keys_ / 64 ) {
         ASSERT_EQ( map_.has( keyOf< K >( key ) ), model_.at( key ) != model_.entries.end() );
      }
   }

   Kiv::Rng random_;
   U32 keys_;
   U32 bias_ = 600;
   Model model_;
   Map map_;
   std::vector< std::unique_ptr< OpenWalk > > walks_;
};

TEST( CollectionsModel, denseMapOfAnyKeyAndSize ) {
   for ( U32 seed = 0; seed < 12; ++seed ) {
      SCOPED_TRACE( seed );
      Driver< DenseMap< U64, Owned >, U64 >( seed, 6, false ).run( 4000 );
      Driver< DenseMap< U64, Owned >, U64 >( seed, 600, false ).run( 12000 );
      Driver< DenseMap< String, Owned >, String >( seed, 60, false ).run( 4000 );
      Driver< DenseMap< Weak, Owned >, Weak >( seed, 200, false ).run( 4000 );
   }
}

TEST( CollectionsModel, orderedMap ) {
   for ( U32 seed = 0; seed < 12; ++seed ) {
      SCOPED_TRACE( seed );
      Driver< OrderedMap< U64, Owned >, U64 >( seed, 6, true ).run( 4000 );
      Driver< OrderedMap< U64, Owned >, U64 >( seed, 300, true ).run( 8000 );
   }
}

/** Fills and empties a map of many segments; all keys must be found at every boundary. */
TEST( DenseMap, growsAndShrinksAcrossSegments ) {
   DenseMap< U64, U32 > map;
   constexpr U32 n = 60000;
   for ( U32 i = 0; i < n; ++i ) {
      ASSERT_TRUE( map.emplace( U64( i ) << 32, i ).second );
      ASSERT_EQ( *map.find( U64( i / 2 ) << 32 ), i / 2 );
      ASSERT_FALSE( map.has( U64( i + 1 ) << 32 ) );
   }
   Kiv::Rng random( 1 );
   std::vector< U32 > order( n );
   for ( U32 i = 0; i < n; ++i ) {
      order[i] = i;
   }
   std::shuffle( order.begin(), order.end(), random );
   for ( U32 i = 0; i < n; ++i ) {
      ASSERT_EQ( map.take( U64( order[i] ) << 32 ), order[i] );
      ASSERT_EQ( map.has( U64( order[n - 1] ) << 32 ), i + 1 < n );
      if ( i % 5000 == 0 ) {
         U32 seen = 0, last = 0;
         for ( auto && [key, value] : map ) {
            ASSERT_TRUE( seen == 0 || value > last );
            last = value;
            ++seen;
         }
         ASSERT_EQ( seen, map.size() );
      }
   }
   EXPECT_TRUE( map.empty() );
}

TEST( DenseMap, thousandsOfEqualHashesOnlyCostTime ) {
   DenseMap< Weak, U32 > map;
   for ( U32 i = 0; i < 6000; ++i ) {
      map.emplace( Weak{ i }, i );
   }
   for ( U32 i = 0; i < 6000; ++i ) {
      ASSERT_EQ( map.take( Weak{ i } ), i );
   }
}

TEST( DenseMap, insertingMovesNothingAndWalkedEntriesStay ) {
   DenseMap< U32, String > map;
   std::vector< const String * > places;
   for ( U32 i = 0; i < 5000; ++i ) {
      places.push_back( map.emplace( i, std::to_string( i ) ).first );
   }
   DenseMap< U32, String >::Walk walk( map );
   for ( U32 i = 0; i < 5000; ++i ) {
      ASSERT_EQ( map.find( i ), places[i] );
      if ( i % 100 ) {
         map.erase( i );
      }
   }
   for ( U32 i = 0; i < 5000; i += 100, ++walk ) {
      ASSERT_EQ( &walk.value(), places[i] );
   }
   EXPECT_FALSE( walk );
}

TEST( DenseMap, holesAreGivenBackAlthoughErasuresWereWalked ) {
   DenseMap< U32, U32 > map;
   for ( U32 i = 0; i < 64000; ++i ) {
      map.emplace( i, i );
   }
   for ( auto && [key, value] : map ) {
      if ( value % 64 ) {
         map.erase( key ); // leaves one entry in every chunk
      }
   }
   ASSERT_EQ( map.size(), 1000u );
   // Later erasures close the gaps: entries come to lie side by side.
   for ( U32 i = 0; i < 32000; i += 64 ) {
      map.erase( i );
   }
   auto * first = map.find( 32000 );
   U32 near = 0;
   for ( U32 i = 32000; i < 64000; i += 64 ) {
      near += std::abs( reinterpret_cast< const char * >( map.find( i ) ) -
                        reinterpret_cast< const char * >( first ) ) < 4096;
   }
   EXPECT_GT( near, 20u );
}

template< class Map >
class EveryMap : public testing::Test {};
using Maps = testing::Types< DenseMap< U32, Velto::Ptr< Velto::Node > >,
                             OrderedMap< U32, Velto::Ptr< Velto::Node > > >;
TYPED_TEST_SUITE( EveryMap, Maps );

/** A node that does something when it dies. */
template< class Act >
struct Dying : Velto::Node {
   explicit Dying( Act a ) : act( std::move( a ) ) {}
   ~Dying() override { act(); }
   Act act;
};
template< class Act >
Velto::Ptr< Velto::Node >
dying( Act act ) {
   return new Dying< Act >( std::move( act ) );
}

TYPED_TEST( EveryMap, entryMayChangeTheMapAsItDies ) {
   for ( U32 n : { 2u, 8u, 9u, 100u, 2000u } ) {
      TypeParam map;
      for ( U32 i = 0; i < n; ++i ) {
         map.emplace( i, dying( [&map, i, n] {
                         EXPECT_FALSE( map.has( i ) );
                         U32 seen = 0;
                         for ( auto && [key, value] : map ) {
                            EXPECT_NE( key, i );
                            ++seen;
                         }
                         EXPECT_EQ( seen, map.size() );
                         if ( i + 1 < n && i % 50 != 49 ) {
                            map.erase( i + 1 ); // which erases its next, and so on
                         }
                         map.emplace( n + i, nullptr );
                      } ) );
      }
      map.erase( 0 );
      EXPECT_EQ( map.size(), n );
      EXPECT_TRUE( map.has( n ) );
      EXPECT_FALSE( map.has( 1 ) );
      map.clear();
      EXPECT_EQ( map.size(), n > 50 ? n - 50 : 0 ); // what the dying ones have put in
   }
}

TYPED_TEST( EveryMap, entryMayDestroyTheMapAsItDies ) {
   auto map = std::make_unique< TypeParam >();
   for ( U32 i = 0; i < 20; ++i ) {
      map->emplace( i, i == 7 ? dying( [&] { map.reset(); } ) : nullptr );
   }
   typename TypeParam::Walk walk( *map );
   map->erase( 7 );
   EXPECT_FALSE( map );
   EXPECT_FALSE( walk );
   EXPECT_FALSE( walk.alive() );
   ++walk;
   EXPECT_FALSE( walk );
}

TYPED_TEST( EveryMap, walkEndsWithItsMapAndFollowsItsEntries ) {
   TypeParam from;
   for ( U32 i = 0; i < 3; ++i ) {
      from.emplace( i, nullptr );
   }
   typename TypeParam::Walk walk( from );
   TypeParam to( std::move( from ) );
   from.emplace( 9, nullptr );
   ++walk;
   EXPECT_EQ( walk.key(), 1u );
   to = TypeParam();
   EXPECT_FALSE( walk );
   EXPECT_EQ( from.size(), 1u );
   EXPECT_TRUE( to.empty() );
   TypeParam copy( from );
   from.clear();
   EXPECT_TRUE( copy.has( 9 ) );
}

TYPED_TEST( EveryMap, walkedToItsEndWhileEmptiedAndRefilled ) {
   TypeParam map;
   map.emplace( 0, nullptr );
   U32 seen = 0;
   for ( auto && [key, value] : map ) {
      U32 next = key + 1;
      ++seen;
      map.clear();
      if ( next < 200 ) {
         map.emplace( next, nullptr );
      }
   }
   EXPECT_EQ( seen, 200u );
   EXPECT_TRUE( map.empty() );
   EXPECT_DEATH(
         {
            map.emplace( 1, nullptr );
            typename TypeParam::Walk walk( map );
            map.erase( 1 );
            walk.key();
         },
         "Assertion 'alive\\(\\)' failed" );
}

/** Inserts others while it is made, and one in its own way. */
template< template< class, class > class Map >
struct Eager {
   using Eagers = Map< U32, Eager >;
   Eager( Eagers & map, U32 key, U32 tag = 0 ) : tag( tag ) {
      if ( tag == 0 && key < 300 ) {
         map.emplace( key, map, key, 1 );
         map.emplace( key + 1, map, key + 1 );
      }
   }
   static void check() {
      Eagers map;
      auto [first, fresh] = map.emplace( 0, map, 0 );
      EXPECT_FALSE( fresh );
      EXPECT_EQ( first, map.find( 0 ) );
      EXPECT_EQ( map.size(), 301u );
      EXPECT_EQ( map.find( 299 )->tag, 1u );
   }
   U32 tag;
};

TEST( Collections, valueMayInsertWhileItIsMade ) {
   Eager< DenseMap >::check();
   Eager< OrderedMap >::check();
}

TEST( OrderedMap, walksFromAKey ) {
   OrderedMap< U32, U32 > map;
   EXPECT_FALSE( map.lowerBound( 0 ) );
   for ( U32 i = 10; i <= 50; i += 10 ) {
      map.emplace( i, i );
   }
   EXPECT_EQ( map.lowerBound( 20 ).key(), 20u );
   EXPECT_EQ( map.upperBound( 20 ).key(), 30u );
   EXPECT_FALSE( std::as_const( map ).lowerBound( 51 ) );
   auto walk = map.lowerBound( 15 );
   map.erase( 20 );
   map.emplace( 25, 0 );
   map.emplace( 15, 0 );
   ++walk;
   EXPECT_EQ( walk.key(), 25u ); // behind the key it stood on, not behind the next of then
}

TEST( Fifo, keepsOrderAndDuplicates ) {
   Fifo< String > queue;
   EXPECT_THROW( queue.front(), Velto::RangeError );
   EXPECT_THROW( queue.back(), Velto::RangeError );
   queue.deq();
   for ( auto s : { "a", "b", "a" } ) {
      queue.enq( s );
   }
   queue.deq();
   EXPECT_TRUE( queue.has( "a" ) );
   queue.enq( queue.front() );
   EXPECT_EQ( queue.front(), "b" );
   EXPECT_EQ( queue.back(), "b" );
   queue.clear();
   EXPECT_FALSE( queue.has( "b" ) );
   EXPECT_TRUE( queue.empty() );
   static_assert( sizeof( queue ) == sizeof( void * ) );
}

TEST( Fifo, modelWithWalksOpen ) {
   for ( U32 seed = 0; seed < 10; ++seed ) {
      Kiv::Rng random( seed );
      Fifo< U32 > queue;
      std::vector< U32 > model; // all that ever came: each is its own number
      U32 gone = 0;
      std::unique_ptr< Fifo< U32 >::Walk > walk;
      U32 on = 0;
      for ( U32 i = 0; i < 5000; ++i ) {
         U32 kind = random() % 100;
         if ( kind < 40 ) {
            queue.enq( U32( model.size() ) );
            model.push_back( U32( model.size() ) );
         } else if ( kind < 78 ) {
            queue.deq();
            gone += gone < model.size();
         } else if ( kind < 79 ) {
            queue.clear();
            gone = U32( model.size() );
         } else if ( walk ) {
            ++*walk;
            on = std::max( on + 1, gone );
            ASSERT_EQ( bool( *walk ), on < model.size() );
            if ( !*walk ) {
               walk.reset();
            }
         } else if ( gone < model.size() ) {
            walk = std::make_unique< Fifo< U32 >::Walk >( queue );
            on = gone;
         }
         ASSERT_EQ( queue.size(), model.size() - gone );
         if ( walk ) {
            ASSERT_EQ( walk->alive(), on >= gone );
            ASSERT_TRUE( !walk->alive() || **walk == on );
         }
      }
   }
}

TEST( Fifo, elementMayChangeOrDestroyTheQueueAsItDies ) {
   auto queue = std::make_unique< Fifo< Velto::Ptr< Velto::Node > > >();
   queue->enq( dying( [&] {
      queue->enq( nullptr );
      queue->deq();
   } ) );
   queue->enq( dying( [&] { queue.reset(); } ) );
   queue->enq( nullptr );
   Fifo< Velto::Ptr< Velto::Node > >::Walk walk( *queue );
   queue->deq();
   EXPECT_FALSE( queue );
   EXPECT_FALSE( walk );
}

/** Fixed values: the same on 32 and 64 bit, whatever the machine. */
TEST( Hash, isTheSameEverywhere ) {
   EXPECT_EQ( Kiv::hashOf( S8( -1 ) ), ~0ull );
   EXPECT_EQ( Kiv::hashOf( String( "Port-Channel1000" ) ), 3096548389700560034u );
   EXPECT_EQ( Kiv::hashOf( String( "" ) ), 0u );
   EXPECT_EQ( Kiv::mix( 1 ), 4717996019076358352u );
}

TEST( Hash, namesThatDifferInADigitSpread ) {
   std::set< U32 > buckets;
   for ( U32 i = 0; i < 4096; ++i ) {
      buckets.insert( U32( Kiv::mix( Kiv::hashOf( keyOf< String >( i ) ) ) ) % 4096 );
   }
   EXPECT_GT( buckets.size(), 2500u ); // a random function fills 2,589
   EXPECT_NE( Kiv::hashOf( 1, 2 ), Kiv::hashOf( 2, 1 ) );
}

} // namespace
