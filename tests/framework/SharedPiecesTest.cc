// The pieces that every feature stands on: children per key, the view of link aggregation,
// reconciliation.

#include <functional>
#include <map>
#include <vector>

#include "Qon/include/framework/Bitmap.h"
#include "Qon/include/framework/LagView.h"
#include "Qon/include/framework/SequenceMap.h"
#include "Qon/include/framework/SmCollection.h"
#include "Qon/include/framework/TimeSlice.h"
#include "Qon/include/framework/WorkQueue.h"
#include "tests/harness/World.h"

namespace {

using Tests::intf;
using Ulnet::IntfId;
using Velto::Ptr;
using Velto::String;
using Lines = std::vector< String >;

class ChildSm : public Qon::QonBaseSm {
 public:
   ChildSm( U32 key, U32 * heard, std::function< void( U32 ) > start )
       : key_( key ), heard_( heard ), start_( start ) {}
   void handleInitialized() override { start_( key_ ); }
   void handleHeard() { ++*heard_; }
   void listen( const Qon::QonCommonSmData * acsd ) { heardWatch_.attach( this, acsd ); }

 private:
   U32 key_;
   U32 * heard_;
   std::function< void( U32 ) > start_;
   Kiv::Watch< Qon::QonCommonSmData::minIntfsAttr, ChildSm, &ChildSm::handleHeard > heardWatch_;
};

/** Keeps a child per key of a table of input entities, and writes down what happens. */
class ParentSm : public Qon::QonBaseSm {
 public:
   using Input = Ptr< Kiv::Entity >;
   Ptr< ChildSm > makeChild( const U32 & key, const Input & ) {
      lines.push_back( "make " + std::to_string( key ) );
      return Qon::smIs< ChildSm >( key, &heard, [this]( U32 k ) {
         lines.push_back( "start " + std::to_string( k ) );
         call( onStart );
      } );
   }
   void cleanUpChild( const U32 & key, ChildSm * ) {
      lines.push_back( "clean " + std::to_string( key ) + ( children.has( key ) ? "" : "!" ) );
      call( onCleanUp );
   }
   void call( std::function< void() > & act ) {
      if ( auto once = std::exchange( act, nullptr ) ) {
         once();
      }
   }
   void review( U32 key ) { children.review( key, wanted( key ) ); }
   Input wanted( U32 key ) {
      auto input = inputs.find( key );
      return input ? *input : Input();
   }
   void create( U32 key ) { *inputs.emplace( key ).first = Velto::make< Kiv::Entity >( "e" ); }
   Lines take() { return std::exchange( lines, {} ); }

   Kiv::DenseMap< U32, Input > inputs;
   Lines lines;
   U32 heard = 0;
   std::function< void() > onStart, onCleanUp;
   Qon::SmCollection< U32, Input, ChildSm, ParentSm, &ParentSm::makeChild, &ParentSm::cleanUpChild >
         children{ this };
};

TEST( PortLists, TheOrderOfTheirPortsIsOfNoAccountWhatTheyMayDoIs ) {
   Qon::QonPortList some, others;
   Qon::QonLagPortList members, reversed, passive;
   for ( auto port : { "Ethernet1", "Ethernet2" } ) {
      some.portIs( intf( port ) );
      members.portIs( intf( port ), Qon::QonLagPort( true, true ) );
      passive.portIs( intf( port ), Qon::QonLagPort( true, false ) );
   }
   for ( auto port : { "Ethernet2", "Ethernet1" } ) {
      others.portIs( intf( port ) );
      reversed.portIs( intf( port ), Qon::QonLagPort( true, true ) );
   }
   EXPECT_TRUE( some == others && members == reversed );
   EXPECT_EQ( some.hash(), others.hash() );
   EXPECT_EQ( members.hash(), reversed.hash() );
   EXPECT_FALSE( members == passive );
   others.portDel( intf( "Ethernet1" ) );
   EXPECT_FALSE( some == others );
}

TEST( PortLists, AreReadAsTheyAreWritten ) {
   Qon::QonPortList ports;
   Qon::QonLagPortList members;
   const U64 none = members.hash();
   for ( auto port : { "Ethernet1", "Ethernet2" } ) {
      ports.portIs( intf( port ) );
      members.portIs( intf( port ), Qon::QonLagPort( port[8] == '1', true ) );
   }
   EXPECT_EQ( ports.stringValue(), "{Ethernet1, Ethernet2}" );
   EXPECT_EQ( Kiv::fromText< Qon::QonPortList >( ports.stringValue() ), ports );
   EXPECT_EQ( Kiv::fromText< Qon::QonPortList >( "{}" ), Qon::QonPortList() );
   EXPECT_EQ( Kiv::fromText< Qon::QonLagPortList >( members.stringValue() ), members );
   EXPECT_NE( members.hash(), none );
   for ( auto text : { "", "{", "Ethernet1", "{Ethernet1", "Ethernet1}", "{Eth}" } ) {
      EXPECT_THROW( Kiv::fromText< Qon::QonPortList >( text ), Velto::RangeError ) << text;
   }
}

TEST( Bitmaps, HoldNumbersBelowTheirSize ) {
   using QonTypes::Bitmap;
   const Bitmap some( { 3, 70, Bitmap::maxBits - 1 } );
   EXPECT_EQ( Bitmap( some.stringValue() ), some );
   EXPECT_EQ( Bitmap( "{}" ), Bitmap() );
   EXPECT_EQ( some.count(), 3u );
   for ( auto text : { String( "{" + std::to_string( Bitmap::maxBits ) + "}" ), String( "{1,}" ),
                       String( "1" ), String( "{-1}" ), String( "{x}" ) } ) {
      EXPECT_THROW( Bitmap{ text }, Velto::RangeError ) << text;
   }
   EXPECT_TRUE( some.contains( { 3, 70 } ) && some.contains( Bitmap() ) );
   EXPECT_FALSE( some.contains( { 3, 4 } ) ); // of one word
   EXPECT_FALSE( Bitmap( { 3 } ).contains( some ) );
   EXPECT_TRUE( Bitmap( { 3 } ) < Bitmap( { 3, 70 } ) && Bitmap( { 63 } ) < Bitmap( { 64 } ) );
   EXPECT_TRUE( Bitmap( { 3, 70 } ) > Bitmap( { 4 } ) && Bitmap( { 3 } ) < Bitmap( { 4 } ) );
}

TEST( WorkQueue, OneQuestionAtATimeAndOneThatRaisesIsAskedOnceMore ) {
   struct Owner : Velto::Node {
      Qon::WorkQueue< U32 > work;
   };
   auto owner = Velto::make< Owner >();
   std::vector< U32 > asked;
   owner->work.add( 1 );
   owner->work.add( 2 );
   owner->work.drain( owner.ptr(), [&]( U32 question ) {
      asked.push_back( question );
      if ( question == 1 ) {
         EXPECT_TRUE( owner->work.draining() );
         owner->work.add( 3 );
         owner->work.drain( owner.ptr(), [&]( U32 ) { ADD_FAILURE(); } ); // one further out does it
      }
   } );
   EXPECT_EQ( asked, ( std::vector< U32 >{ 1, 2, 3 } ) );

   asked.clear();
   U32 raised = 0;
   for ( U32 question : { 4, 5, 6 } ) {
      owner->work.add( question );
   }
   auto act = [&]( U32 question ) {
      asked.push_back( question );
      if ( question == 4 || ( question == 5 && ++raised == 1 ) ) {
         throw Velto::RangeError( std::to_string( question ) );
      }
   };
   try {
      owner->work.drain( owner.ptr(), act );
      ADD_FAILURE();
   } catch ( const Velto::RangeError & e ) {
      EXPECT_STREQ( "4", e.what() ); // the first one
   }
   EXPECT_EQ( asked, ( std::vector< U32 >{ 4, 5, 6, 4, 5 } ) );
   EXPECT_FALSE( owner->work.draining() );

   asked.clear();
   owner->work.ask( owner.ptr(), 6, [&]( U32 question ) { // nobody is before it
      if ( question == 6 ) {
         owner->work.ask( owner.ptr(), 2, [&]( U32 ) { ADD_FAILURE(); } );
      }
      act( question );
   } );
   EXPECT_EQ( asked, ( std::vector< U32 >{ 6, 2 } ) ); // what comes meanwhile, behind it
   asked.clear();
   owner->work.add( 3 );
   EXPECT_THROW( owner->work.ask( owner.ptr(), 4, act ), Velto::RangeError );
   EXPECT_EQ( asked, ( std::vector< U32 >{ 3, 4, 4 } ) );
   asked.clear();
   EXPECT_THROW( owner->work.ask( owner.ptr(), 4, act ), Velto::RangeError );
   EXPECT_EQ( asked, ( std::vector< U32 >{ 4, 4 } ) );

   asked.clear();
   owner->work.add( 7 );
   owner->work.add( 8 );
   Velto::Ptr< Owner > last = std::move( owner );
   Owner & queue = *last;
   queue.work.drain( &queue, [&]( U32 question ) { // the owner ends in the middle
      asked.push_back( question );
      last = nullptr;
   } );
   EXPECT_EQ( asked, ( std::vector< U32 >{ 7, 8 } ) );
}

class SmCollectionFlow : public ::testing::Test {
 protected:
   Tests::World world;
   Ptr< ParentSm > parent = Qon::smIs< ParentSm >();
};

TEST_F( SmCollectionFlow, MakesKeepsReplacesAndRemoves ) {
   parent->create( 1 );
   parent->review( 1 );
   parent->review( 1 );
   EXPECT_EQ( parent->take(), ( Lines{ "make 1", "start 1" } ) );
   parent->inputs.erase( 1 );
   parent->create( 1 ); // deleted and created between two reviews: another entity
   parent->review( 1 );
   EXPECT_EQ( parent->take(), ( Lines{ "clean 1", "make 1", "start 1" } ) );
   parent->inputs.erase( 1 );
   parent->review( 1 );
   parent->review( 1 );
   EXPECT_EQ( parent->take(), ( Lines{ "clean 1" } ) );
   EXPECT_EQ( 0u, parent->children.size() );
}

TEST_F( SmCollectionFlow, ReviewOfAllWalksHeldAndWantedKeys ) {
   for ( U32 key : { 3, 1, 2 } ) {
      parent->create( key );
      parent->review( key );
   }
   parent->take();
   parent->inputs.erase( 3 );
   parent->inputs.erase( 2 );
   parent->create( 2 );
   parent->create( 9 );
   parent->children.reviewAll( parent->inputs, [&]( U32 k ) { return parent->wanted( k ); } );
   EXPECT_EQ( parent->take(),
              ( Lines{ "clean 3", "clean 2", "make 2", "start 2", "make 9", "start 9" } ) );
   EXPECT_EQ( parent->children.heldKeys(), ( std::vector< U32 >{ 1, 2, 9 } ) );
}

TEST_F( SmCollectionFlow, CallbacksMayReviewTheSameKey ) {
   parent->create( 1 );
   parent->onStart = [&] {
      parent->inputs.erase( 1 ); // gone again while its child starts
      parent->review( 1 );
   };
   parent->review( 1 );
   EXPECT_EQ( parent->take(), ( Lines{ "make 1", "start 1", "clean 1" } ) );
   EXPECT_FALSE( parent->children.has( 1 ) );

   parent->create( 1 );
   parent->review( 1 );
   parent->inputs.erase( 1 );
   parent->onCleanUp = [&] {
      parent->create( 1 ); // back while the old one is cleaned up
      parent->review( 1 );
      for ( U32 key = 100; key < 300; ++key ) { // and the table moves under it
         parent->create( key );
         parent->review( key );
      }
      for ( U32 key = 100; key < 300; ++key ) {
         parent->inputs.erase( key );
         parent->review( key );
      }
      parent->take();
   };
   parent->review( 1 );
   EXPECT_EQ( parent->take(), ( Lines{ "make 1", "start 1" } ) );
   EXPECT_EQ( 1u, parent->children.size() );
}

TEST_F( SmCollectionFlow, AChildThatIsCleanedUpHearsNothingMore ) {
   parent->create( 1 );
   parent->review( 1 );
   Ptr< ChildSm > kept = parent->children.sm( 1 );
   kept->listen( world.acsd.ptr() );
   world.acsd->minIntfsIs( 1 );
   EXPECT_EQ( 1u, parent->heard );
   parent->children.removeAll();
   world.acsd->minIntfsIs( 2 );
   EXPECT_EQ( 1u, parent->heard );
}

/** Writes down what a follower tells. */
class FollowingSm : public Qon::QonBaseSm {
 public:
   void handleMember( IntfId port, IntfId from, IntfId to ) {
      lines.push_back( port.stringValue() + ": " + from.stringValue() + " > " + to.stringValue() );
      if ( lets ) {
         follower.attach( this, nullptr );
      }
      raise();
   }
   void handleList( IntfId lag, IntfId port ) {
      lines.push_back( lag.stringValue() + " lists " + port.stringValue() ); // or no more
      raise();
   }
   void raise() const {
      if ( raises ) {
         throw Velto::RangeError( "told" );
      }
   }
   Lines take() { return std::exchange( lines, {} ); }
   Lines lines;
   bool raises = false, lets = false; // lets go of the maps on hearing
   Qon::LagFollower< FollowingSm, &FollowingSm::handleMember, &FollowingSm::handleList > follower;
};

class LagViewFlow : public ::testing::Test {
 protected:
   Qon::QonLagPortList list( std::initializer_list< IntfId > ports ) {
      Qon::QonLagPortList l;
      for ( IntfId port : ports ) {
         l.portIs( port, Qon::QonLagPort( true, true ) );
      }
      return l;
   }
   std::vector< IntfId > targets( IntfId of, Qon::EmptyAggregate empty ) {
      std::vector< IntfId > seen;
      Qon::LagView( acsd.ptr() ).forEachTarget( of, empty, [&]( IntfId p ) {
         seen.push_back( p );
      } );
      return seen;
   }
   using Ports = std::vector< IntfId >;

   Tests::World world;
   Ptr< Qon::QonCommonSmData > acsd = world.acsd;
   IntfId po1 = intf( "Port-Channel1" ), po2 = intf( "Port-Channel2" );
   IntfId eth1 = intf( "Ethernet1" ), eth2 = intf( "Ethernet2" );
};

TEST_F( LagViewFlow, EachMapAnswersItsOwnQuestion ) {
   Qon::LagView view( acsd.ptr() );
   EXPECT_EQ( Qon::LagRole::plain, view.role( eth1 ) );
   EXPECT_EQ( Qon::LagRole::aggregate, view.role( po1 ) );
   EXPECT_EQ( targets( eth1, Qon::EmptyAggregate::nothing ), ( Ports{ eth1 } ) );
   EXPECT_EQ( targets( po1, Qon::EmptyAggregate::nothing ), ( Ports{} ) );
   EXPECT_EQ( targets( po1, Qon::EmptyAggregate::itself ), ( Ports{ po1 } ) );
   acsd->lagToPortIs( po1, list( { eth2, eth1 } ) );
   EXPECT_EQ( targets( po1, Qon::EmptyAggregate::nothing ), ( Ports{ eth2, eth1 } ) );
   EXPECT_EQ( Qon::LagRole::plain, view.role( eth1 ) );
   acsd->lagToPortDel( po1 );
   acsd->portToLagIs( eth1, po1 );
   EXPECT_EQ( Qon::LagRole::member, view.role( eth1 ) );
   EXPECT_EQ( targets( eth1, Qon::EmptyAggregate::nothing ), ( Ports{ eth1 } ) );
   EXPECT_EQ( targets( po1, Qon::EmptyAggregate::nothing ), ( Ports{} ) );
}

TEST_F( LagViewFlow, FollowerTellsOfEachMapOnItsOwn ) {
   acsd->lagToPortIs( po1, list( { eth1 } ) );
   acsd->portToLagIs( eth1, po1 );
   auto sm = Qon::smIs< FollowingSm >();
   sm->follower.attach( sm.ptr(), acsd.ptr() );
   EXPECT_EQ( sm->take(),
              ( Lines{ "Ethernet1:  > Port-Channel1", "Port-Channel1 lists Ethernet1" } ) );

   acsd->lagToPortIs( po1, list( { eth2, eth1 } ) );
   EXPECT_EQ( sm->take(), Lines{ "Port-Channel1 lists Ethernet2" } );
   auto flags = list( { eth2, eth1 } );
   flags.portIs( eth1, Qon::QonLagPort( false, true ) );
   acsd->lagToPortIs( po1, flags ); // the same ports
   EXPECT_EQ( sm->take(), Lines() );
   acsd->portToLagIs( eth2, po1 );
   EXPECT_EQ( sm->take(), Lines{ "Ethernet2:  > Port-Channel1" } );
   acsd->portToLagIs( eth2, po2 );
   EXPECT_EQ( sm->take(), Lines{ "Ethernet2: Port-Channel1 > Port-Channel2" } );
   acsd->lagToPortDel( po1 );
   EXPECT_EQ( sm->take(),
              ( Lines{ "Port-Channel1 lists Ethernet1", "Port-Channel1 lists Ethernet2" } ) );
   acsd->portToLagDel( eth1 );
   EXPECT_EQ( sm->take(), Lines{ "Ethernet1: Port-Channel1 > " } );
}

TEST_F( LagViewFlow, FollowerTellsOfAllWhoeverRaises ) {
   acsd->lagToPortIs( po1, list( { eth1, eth2 } ) );
   acsd->portToLagIs( eth1, po1 );
   acsd->portToLagIs( eth2, po1 );
   auto sm = Qon::smIs< FollowingSm >();
   sm->raises = true;
   EXPECT_THROW( sm->follower.attach( sm.ptr(), acsd.ptr() ), Velto::RangeError );
   EXPECT_EQ( sm->take().size(), 4u );
   EXPECT_THROW( acsd->lagToPortDel( po1 ), Velto::RangeError );
   EXPECT_EQ( sm->take().size(), 2u );
}

TEST_F( LagViewFlow, FollowerThatIsAttachedAgainTellsTheDifference ) {
   auto sm = Qon::smIs< FollowingSm >();
   acsd->lagToPortIs( po1, list( { eth1 } ) );
   acsd->portToLagIs( eth1, po1 );
   sm->follower.attach( sm.ptr(), acsd.ptr() );
   sm->follower.attach( sm.ptr(), nullptr );
   sm->take();
   acsd->lagToPortIs( po1, list( { eth2 } ) );
   acsd->portToLagDel( eth1 );
   acsd->portToLagIs( eth2, po1 );
   EXPECT_EQ( sm->take(), Lines() );
   sm->follower.attach( sm.ptr(), acsd.ptr() );
   EXPECT_EQ( sm->take(),
              ( Lines{ "Ethernet1: Port-Channel1 > ", "Ethernet2:  > Port-Channel1",
                       "Port-Channel1 lists Ethernet1", "Port-Channel1 lists Ethernet2" } ) );
}

TEST_F( LagViewFlow, FollowerThatLetsGoWhileItTellsTellsNoMore ) {
   acsd->lagToPortIs( po1, list( { eth1, eth2 } ) );
   acsd->portToLagIs( eth1, po1 );
   acsd->portToLagIs( eth2, po1 );
   auto sm = Qon::smIs< FollowingSm >();
   sm->lets = true;
   sm->follower.attach( sm.ptr(), acsd.ptr() );
   EXPECT_EQ( sm->take().size(), 1u );
   sm->lets = false;
   sm->follower.attach( sm.ptr(), acsd.ptr() ); // the rest of it
   EXPECT_EQ( sm->take().size(), 3u );
}

TEST( TimeSlice, IsOverAtItsDeadline ) {
   Kiv::VirtualScheduler scheduler;
   EXPECT_TRUE( Qon::TimeSlice( 0, 1 ).usedUp() );
   Qon::TimeSlice slice( 0.5, 2 );
   auto items = [&]( U32 count ) {
      bool over = false;
      while ( count-- ) {
         over = slice.usedUp();
      }
      return over;
   };
   scheduler.runFor( 0.25 );
   EXPECT_FALSE( items( 2 ) );
   scheduler.runFor( 0.25 );
   EXPECT_FALSE( items( 1 ) ); // the time is read after each second one
   EXPECT_TRUE( items( 1 ) );
   EXPECT_EQ( slice.now(), slice.deadline() );
}

/** Blocks of 64 and of 4,096 numbers, filled and emptied in all orders. */
TEST( SequenceMap, IsAMapInAscendingOrder ) {
   const U64 keys[] = { 0, 1, 63, 64, 4095, 4096, 8191, 8192, 20480, U64( 1 ) << 40, ~U64( 0 ) };
   Qon::SequenceMap< U32 > map;
   std::map< U64, U32 > model;
   auto differs = [&] {
      for ( U64 from : keys ) {
         for ( U64 key : { from, from + 1 } ) {
            auto expected = model.lower_bound( key );
            auto walk = map.lowerBound( key );
            for ( ; expected != model.end(); ++expected, ++walk ) {
               if ( !walk || walk.key() != expected->first || walk.value() != expected->second ) {
                  return true;
               }
            }
            if ( walk || map.has( key ) != model.contains( key ) ) {
               return true;
            }
         }
      }
      return map.size() != model.size();
   };
   U32 seed = 1;
   for ( U32 step = 0; step < 400; ++step ) {
      seed = seed * 1103515245 + 12345;
      const U64 key = keys[( seed >> 16 ) % std::size( keys )];
      if ( seed >> 30 == 0 ) {
         EXPECT_EQ( map.erase( key ), model.erase( key ) == 1 );
      } else {
         EXPECT_EQ( map.emplace( key, step ), model.emplace( key, step ).second );
      }
      ASSERT_FALSE( differs() ) << "step " << step;
      if ( step % 40 == 0 ) { // what a walk stands on may go
         auto walk = map.begin();
         while ( walk && !model.empty() ) {
            const U64 at = walk.key();
            map.erase( at );
            model.erase( at );
            ++walk;
         }
         ASSERT_FALSE( differs() );
      }
   }
}

TEST( Reconcile, RemovesFirstAndReadsBothBeforeItCalls ) {
   std::vector< U32 > have{ 4, 1, 3 }, want{ 5, 3, 2, 5 };
   std::vector< int > calls;
   Qon::reconcile< U32 >(
         have, want,
         [&]( U32 k ) {
            std::erase( have, k );
            calls.push_back( -int( k ) );
         },
         [&]( U32 k ) {
            have.push_back( k );
            want.clear();
            calls.push_back( int( k ) );
         } );
   EXPECT_EQ( calls, ( std::vector< int >{ -4, -1, 5, 2 } ) );
   EXPECT_EQ( have, ( std::vector< U32 >{ 3, 5, 2 } ) );
}

} // namespace
