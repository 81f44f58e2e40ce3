// The framework's contract: setters, watches, walks, deaths.

#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "platform/Kiv/Describe.h"
#include "platform/Kiv/Generic.h"
#include "platform/Kiv/Listener.h"
#include "platform/types/Ulnet.h"

namespace {

using Ulnet::IntfId;
using Velto::String;

class Leaf : public Kiv::Entity {
   KIV_BODY( Leaf, Kiv::Entity )
   KIV_ATTR( U32, level, 7 )
 public:
   explicit Leaf( const IntfId & intf ) : Kiv::Entity( intf.stringValue() ) {}
   ~Leaf() override { ++deaths; }
   static inline int deaths = 0;
};

class Base : public Kiv::Entity {
   KIV_BODY( Base, Kiv::Entity )
   KIV_ATTR( U32, count, 3 )
   KIV_ATTR( String, text, "x" )
 public:
   explicit Base( const String & name ) : Kiv::Entity( name ) {}
   static void * operator new( std::size_t size ) { return ::operator new( size ); }
   /** Leaves nothing behind that whoever reads a dead entity could take for one that lives. */
   static void operator delete( void * memory, std::size_t size ) {
      auto bytes = static_cast< volatile U8 * >( memory );
      for ( std::size_t i = 0; i < size; ++i ) {
         bytes[i] = 0xdb;
      }
      ::operator delete( memory );
   }
};

class Tree : public Base {
   KIV_BODY( Tree, Base )
   KIV_MAP( IntfId, U32, vlan )
   KIV_ENTITIES( IntfId, Leaf, leaf )
   KIV_SET( IntfId, port )
   KIV_QUEUE( U8, freeId )
   KIV_ORDERED_MAP( U32, String, label )
   KIV_PTR( Base, other )
   KIV_OWNED( Base, child )
 public:
   explicit Tree( const String & name ) : Base( name ) {}
};

} // namespace

KIV_DEFINE( Leaf )
KIV_DEFINE( Base )
KIV_DEFINE( Tree )

namespace {

const IntfId eth1( "Ethernet1" ), eth2( "Ethernet2" ), eth3( "Ethernet3" );

/** Reacts to a Tree, writing down what it hears; `act` is done on hearing, once. */
class Ear : public Velto::Node {
 public:
   explicit Ear( String name, std::vector< String > * heard ) : name_( name ), heard_( heard ) {
      hasNotificationActiveIs( true );
   }
   void handleCount() { hear( "count" ); }
   void handleVlan( const IntfId & k ) { hear( "vlan " + k.stringValue() ); }
   void handleLeaf( const IntfId & k ) { hear( "leaf " + k.stringValue() ); }

   std::function< void() > act;
   Velto::Ptr< Ear > self;
   Kiv::Watch< Base::countAttr, Ear, &Ear::handleCount > count;
   Kiv::Watch< Tree::vlanAttr, Ear, &Ear::handleVlan > vlan;
   Kiv::Watch< Tree::leafAttr, Ear, &Ear::handleLeaf > leaf;

 private:
   void hear( const String & what ) {
      heard_->push_back( name_ + ":" + what );
      if ( auto once = std::exchange( act, nullptr ) ) {
         once();
      }
   }
   String name_;
   std::vector< String > * heard_;
};

template< class Attr, auto handler >
concept Pairs = requires {
   typename Kiv::Watch< Attr, Ear, handler >;
};
static_assert( Pairs< Tree::countAttr, &Ear::handleCount > );
static_assert( Pairs< Tree::vlanAttr, &Ear::handleVlan > );
static_assert( !Pairs< Tree::vlanAttr, &Ear::handleCount >, "a keyed attribute hands a key over" );
static_assert( !Pairs< Tree::countAttr, &Ear::handleVlan >, "a scalar has no key" );

class Attributes : public ::testing::Test {
 protected:
   Velto::Ptr< Ear > ear( const String & name ) { return Velto::make< Ear >( name, &heard ); }
   std::vector< String > heard;
   Velto::Ptr< Tree > tree = Velto::make< Tree >( "tree" );
   using Heard = std::vector< String >;
};

TEST_F( Attributes, SettersPublishOnlyWhatChanges ) {
   auto a = ear( "a" );
   a->count.attach( a.ptr(), tree.ptr() );
   a->vlan.attach( a.ptr(), tree.ptr() );
   a->leaf.attach( a.ptr(), tree.ptr() );
   tree->countIs( 3 );
   tree->countIs( 4 );
   tree->countIs( 4 );
   tree->vlanDel( eth1 );
   tree->vlanIs( eth1, 0 ); // a default value is a value
   tree->vlanIs( eth1, 0 );
   tree->vlanIs( eth1, 5 );
   tree->vlanDel( eth1 );
   tree->vlanDelAll();
   auto first = tree->leafIs( eth1 );
   EXPECT_EQ( first, tree->leafIs( eth1 ) );
   tree->leafDel( eth1 );
   EXPECT_NE( first, tree->leafIs( eth1 ) );
   EXPECT_EQ( heard, ( Heard{ "a:count", "a:vlan Ethernet1", "a:vlan Ethernet1", "a:vlan Ethernet1",
                              "a:leaf Ethernet1", "a:leaf Ethernet1", "a:leaf Ethernet1" } ) );
   EXPECT_EQ( 0u, tree->vlan( eth3 ) );
   EXPECT_EQ( nullptr, tree->leaf( eth3 ) );
}

TEST_F( Attributes, DeliveryIsInOrderAndDepthFirst ) {
   auto a = ear( "a" ), b = ear( "b" );
   a->count.attach( a.ptr(), tree.ptr() );
   b->count.attach( b.ptr(), tree.ptr() );
   b->vlan.attach( b.ptr(), tree.ptr() );
   a->act = [&] {
      tree->vlanIs( eth1, 1 );
      tree->countIs( 6 );
   };
   tree->countIs( 5 );
   EXPECT_EQ( heard, ( Heard{ "a:count", "b:vlan Ethernet1", "a:count", "b:count", "b:count" } ) );
}

TEST_F( Attributes, WhoIsDetachedOrDeadOrNewHearsNothing ) {
   auto a = ear( "a" ), b = ear( "b" ), c = ear( "c" ), d = ear( "d" ), e = ear( "e" );
   for ( auto & x : { a, b, c, d } ) {
      x->count.attach( x.ptr(), tree.ptr() );
   }
   a->act = [&] {
      b->count.detach();
      c = nullptr; // dies, watch and all
      d->kivDoZombieReactors();
      e->count.attach( e.ptr(), tree.ptr() );
   };
   tree->countIs( 5 );
   EXPECT_EQ( heard, ( Heard{ "a:count" } ) );
   tree->countIs( 6 );
   EXPECT_EQ( heard, ( Heard{ "a:count", "a:count", "e:count" } ) );
   a->hasNotificationActiveIs( false );
   tree->countIs( 7 );
   EXPECT_EQ( 4u, heard.size() );
}

TEST_F( Attributes, AnotherEntityThatDiesCostsNoDelivery ) {
   auto a = ear( "a" );
   auto other = Velto::make< Tree >( "other" );
   a->vlan.attach( a.ptr(), tree.ptr() );
   tree->vlanIs( eth1, 1 );
   tree->vlanIs( eth2, 2 );
   heard.clear();
   a->act = [&] { other = nullptr; };
   tree->vlanDelAll();
   EXPECT_EQ( heard, ( Heard{ "a:vlan Ethernet1", "a:vlan Ethernet2" } ) );
}

TEST_F( Attributes, TheLastOfAListMayGoWhileOthersAreAdded ) {
   auto a = ear( "a" ), b = ear( "b" ), c = ear( "c" );
   a->count.attach( a.ptr(), tree.ptr() );
   b->count.attach( b.ptr(), tree.ptr() );
   a->act = [&] {
      c->count.attach( c.ptr(), tree.ptr() );
      b->count.attach( b.ptr(), tree.ptr() ); // attached anew: hears the next change
   };
   tree->countIs( 5 );
   EXPECT_EQ( heard, ( Heard{ "a:count" } ) );
   tree->countIs( 6 );
   EXPECT_EQ( heard, ( Heard{ "a:count", "a:count", "c:count", "b:count" } ) );
}

TEST_F( Attributes, WhoComesWhenTheLastHasGoneAndWhoGoesInsideANestedChange ) {
   auto a = ear( "a" ), b = ear( "b" ), c = ear( "c" ), late = ear( "late" );
   for ( auto & x : { a, b, c } ) {
      x->count.attach( x.ptr(), tree.ptr() );
   }
   a->act = [&] {
      c->count.detach();
      late->count.attach( late.ptr(), tree.ptr() );
   };
   tree->countIs( 5 );
   EXPECT_EQ( heard, ( Heard{ "a:count", "b:count" } ) );
   heard.clear();
   a->act = [&] { tree->countIs( 7 ); };
   b->act = [&] { b->count.detach(); }; // the outer delivery has b before it
   tree->countIs( 6 );
   EXPECT_EQ( heard, ( Heard{ "a:count", "a:count", "b:count", "late:count", "late:count" } ) );
}

TEST_F( Attributes, AHandlerMayEndItsOwnerOrTheEntity ) {
   auto a = ear( "a" ), b = ear( "b" );
   auto * lone = a.ptr();
   a->count.attach( a.ptr(), tree.ptr() );
   b->count.attach( b.ptr(), tree.ptr() );
   b->vlan.attach( b.ptr(), tree.ptr() );
   lone->act = [&] { a = nullptr; };
   tree->countIs( 5 );
   EXPECT_EQ( heard, ( Heard{ "a:count", "b:count" } ) );
   for ( U32 i = 0; i < 20; ++i ) {
      tree->vlanIs( IntfId( "Ethernet" + std::to_string( i ) ), i );
   }
   heard.clear();
   b->act = [&] { tree = nullptr; };
   Tree * dying = tree.ptr();
   dying->vlanDelAll();
   EXPECT_EQ( heard, ( Heard{ "b:vlan Ethernet0" } ) );
   EXPECT_FALSE( b->count.attached() );
}

TEST_F( Attributes, RemovedEntriesOutliveTheirKeysDelivery ) {
   auto a = ear( "a" );
   a->leaf.attach( a.ptr(), tree.ptr() );
   tree->leafIs( eth1 );
   heard.clear();
   Leaf::deaths = 0;
   int deathsWhenHeard = -1;
   a->act = [&] {
      EXPECT_FALSE( tree->leafHas( eth1 ) );
      deathsWhenHeard = Leaf::deaths;
   };
   tree->leafDel( tree->leafIteratorConst().key() ); // the key lies in the entry that goes
   EXPECT_EQ( 0, deathsWhenHeard );
   EXPECT_EQ( 1, Leaf::deaths );
   EXPECT_EQ( heard, ( Heard{ "a:leaf Ethernet1" } ) );
}

TEST_F( Attributes, AWalkGoesOnWhileItsCollectionChanges ) {
   for ( auto & k : { eth3, eth1, eth2 } ) {
      tree->vlanIs( k, 1 );
   }
   std::vector< String > seen;
   for ( auto i = tree->vlanIteratorConst(); i; ++i ) {
      IntfId key = i.key();
      seen.push_back( key.stringValue() );
      tree->vlanDel( key );
      if ( key == eth3 ) {
         tree->vlanDel( eth1 );
         tree->vlanIs( IntfId( "Ethernet9" ), 1 );
      }
   }
   EXPECT_EQ( seen, ( Heard{ "Ethernet3", "Ethernet2", "Ethernet9" } ) );
   EXPECT_EQ( 0u, tree->vlans() );
}

TEST_F( Attributes, QueuesAndSetsAndPointers ) {
   for ( U8 id : { 5, 6, 5 } ) {
      tree->freeIdEnq( id );
   }
   EXPECT_EQ( 3u, tree->freeIds() );
   tree->freeIdDeq();
   EXPECT_EQ( 6, tree->freeIdFront() );
   EXPECT_EQ( 5, tree->freeIdBack() );
   tree->freeIdDelAll();
   tree->freeIdDeq();
   EXPECT_THROW( tree->freeIdFront(), Velto::RangeError );
   tree->portIs( eth1 );
   EXPECT_TRUE( tree->portHas( eth1 ) && !tree->portHas( eth2 ) );
   auto child = tree->childIs( "c" );
   EXPECT_EQ( child, tree->childIs( "other name" ) );
   tree->otherIs( child );
   tree->childDel();
   EXPECT_EQ( child.ptr(), tree->other() );
}

TEST_F( Attributes, ByNameAndPath ) {
   using Kiv::GenericIf;
   GenericIf::set( *tree, "count", "12" );
   GenericIf::set( *tree, "vlan[Ethernet3/1]", "40" );
   GenericIf::insert( *tree, "leaf[Ethernet2]" );
   GenericIf::set( *tree, "leaf[Ethernet2]/level", "9" );
   GenericIf::set( *tree, "label[4]", "a = [b]\nc" );
   GenericIf::set( *tree, "label[5]", "d:\\new\\" );
   GenericIf::set( *tree, "freeId", "3" );
   GenericIf::set( *tree, "freeId", "3" );
   GenericIf::insert( *tree, "child" );
   GenericIf::insert( *tree, "port[Ethernet1]" );
   EXPECT_EQ( "12", GenericIf::get( *tree, "count" ) );
   EXPECT_EQ( "9", GenericIf::get( *tree, "leaf[Ethernet2]/level" ) );
   EXPECT_EQ( "None", GenericIf::get( *tree, "vlan[Ethernet7]" ) );
   EXPECT_EQ( "{Ethernet3/1: 40}", GenericIf::get( *tree, "vlan" ) );
   EXPECT_EQ( "[3, 3]", GenericIf::get( *tree, "freeId" ) );
   auto copy = Velto::make< Tree >( "copy" );
   GenericIf::load( *copy, GenericIf::dump( *tree ) );
   EXPECT_EQ( GenericIf::dump( *tree ), GenericIf::dump( *copy ) );
   EXPECT_EQ( 40u, copy->vlan( IntfId( "Ethernet3/1" ) ) );
   EXPECT_EQ( "a = [b]\nc", copy->label( 4 ) );
   EXPECT_EQ( "d:\\new\\", copy->label( 5 ) );
   GenericIf::del( *tree, "leaf[Ethernet2]" );
   GenericIf::del( *tree, "vlan" );
   EXPECT_EQ( 0u, tree->leafs() + tree->vlans() );
}

TEST_F( Attributes, WhatIsWrongWithAPathIsSaid ) {
   auto error = [&]( auto && use ) -> String {
      String before = Kiv::GenericIf::dump( *tree );
      try {
         use();
      } catch ( const Velto::RangeError & e ) {
         EXPECT_EQ( before, Kiv::GenericIf::dump( *tree ) );
         return e.what();
      }
      return "accepted";
   };
   auto set = [&]( const char * path, const char * value ) {
      return error( [&] { Kiv::GenericIf::set( *tree, path, value ); } );
   };
   EXPECT_EQ( "colour: Tree has no attribute 'colour'", set( "colour", "1" ) );
   EXPECT_EQ( "leaf[Ethernet2]/level: there is no leaf[Ethernet2]",
              set( "leaf[Ethernet2]/level", "1" ) );
   EXPECT_EQ( "vlan: 'vlan' is keyed: expected 'vlan[KEY]'", set( "vlan", "1" ) );
   EXPECT_EQ( "count[1]: 'count' has no keys", set( "count[1]", "1" ) );
   EXPECT_EQ( "port[Ethernet1]: expected True for a set's key, not 'False' (or delete it)",
              set( "port[Ethernet1]", "False" ) );
   EXPECT_EQ( "leaf[Ethernet3/1]: 'leaf' holds entities: insert, or name an attribute",
              set( "leaf[Ethernet3/1]", "1" ) );
   EXPECT_EQ( "count: 'count' cannot be deleted",
              error( [&] { Kiv::GenericIf::del( *tree, "count" ); } ) );
   EXPECT_NE( "accepted", set( "count", "4294967296" ) );
   EXPECT_NE( "accepted", set( "vlan[no such name]", "1" ) );
   EXPECT_NE( "accepted", set( "vlan[Ethernet1", "1" ) );
   EXPECT_NE( "accepted", set( "count/deeper", "1" ) );
   EXPECT_NE( "accepted", set( "other", "1" ) );
   EXPECT_NE( "accepted", set( "", "1" ) );
}

TEST_F( Attributes, WhatASetterSaysIsNotTakenForAnErrorOfTheText ) {
   Kiv::Listener< Base::countAttr > strict( tree.ptr(),
                                            [] { throw Velto::RangeError( "seven at most" ); } );
   try {
      Kiv::GenericIf::set( *tree, "count", "8" );
      ADD_FAILURE();
   } catch ( const Velto::RangeError & e ) {
      EXPECT_STREQ( "seven at most", e.what() );
   }
}

struct Everything {
   int calls = 0;
   String last;
};

/** What ends beside an entity while it tells of a change costs its own watchers nothing. */
TEST_F( Attributes, AnotherEntitysEndIsItsOwn ) {
   auto owner = ear( "tool" ), end = ear( "end" );
   Velto::Ptr< Kiv::Entity > other = Velto::make< Kiv::Entity >( "other" );
   int calls = 0;
   Kiv::EntityWatch watch;
   watch.attach(
         owner.ptr(), tree.ptr(),
         []( void * c, const Kiv::Entity &, int, const void * ) { ++*static_cast< int * >( c ); },
         &calls );
   end->count.attach( end.ptr(), tree.ptr() );
   end->act = [&] { other = nullptr; };
   tree->countIs( 8 );
   EXPECT_EQ( 1, calls );
}

TEST_F( Attributes, AToolHearsEveryAttribute ) {
   auto owner = ear( "tool" );
   Everything all;
   Kiv::EntityWatch watch;
   watch.attach(
         owner.ptr(), tree.ptr(),
         []( void * c, const Kiv::Entity & e, int attribute, const void * key ) {
            auto & all = *static_cast< Everything * >( c );
            ++all.calls;
            auto attr = e.typeData()->at( attribute );
            all.last = String( attr->name ) + "=" + Kiv::GenericIf::text( e, *attr, key );
         },
         &all );
   tree->countIs( 8 );
   EXPECT_EQ( "count=8", all.last );
   tree->vlanIs( eth2, 6 );
   EXPECT_EQ( "vlan=6", all.last );
   tree->vlanDel( eth2 );
   EXPECT_EQ( "vlan=None", all.last );
   EXPECT_EQ( 3, all.calls );
   auto end = ear( "end" );
   end->count.attach( end.ptr(), tree.ptr() );
   end->act = [&] { tree = nullptr; };
   Tree * dying = tree.ptr();
   dying->countIs( 9 );
   EXPECT_EQ( 3, all.calls );
   EXPECT_FALSE( watch.attached() );
}

TEST_F( Attributes, AListenerHearsKeysAndMayEndItself ) {
   Kiv::Listener< Tree::vlanAttr > vlans( tree.ptr(), [&]( const IntfId & key ) {
      heard.push_back( key.stringValue() );
      if ( key == eth2 ) {
         vlans.detach();
         heard.push_back( key.stringValue() ); // the function and its key are still there
      }
   } );
   Kiv::Listener< Base::countAttr > count( tree.ptr(), [&] { heard.push_back( "count" ); } );
   auto other = Velto::make< Tree >( "other" );
   tree->vlanIs( eth1, 1 );
   tree->countIs( 5 );
   tree->vlanIs( eth2, 1 );
   tree->vlanIs( eth3, 1 );
   count.attach( other.ptr(), [&] { heard.push_back( "other" ); } );
   tree->countIs( 6 );
   other->countIs( 6 );
   EXPECT_EQ( heard, ( Heard{ "Ethernet1", "count", "Ethernet2", "Ethernet2", "other" } ) );
}

} // namespace
