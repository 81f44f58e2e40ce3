// Groups, and the bitmaps that they share.

#include <limits>

#include "tests/multicast/McastWorld.h"

namespace {

using namespace McastTests;
using Names = std::vector< String >;

struct Groups : testing::Test, McastWorld {};

TEST( BitmapTest, EqualByItsBits ) {
   Bitmap small{ 1, 5 }, large{ 1, 5, 700 };
   EXPECT_NE( small, large );
   EXPECT_LT( small, large );
   EXPECT_LT( large, ( Bitmap{ 2, 5, 700 } ) ); // the greatest is in both
   EXPECT_TRUE( large.contains( small ) );
   EXPECT_FALSE( small.contains( large ) );
   large.bitIs( 700, false );
   EXPECT_EQ( small, large );
   EXPECT_EQ( small.hash(), large.hash() );
   EXPECT_EQ( ( small <=> large ), std::strong_ordering::equal );
   small |= Bitmap{ 128, 64 };
   EXPECT_EQ( small.stringValue(), "{1, 5, 64, 128}" );
   EXPECT_EQ( Bitmap( small.stringValue() ), small );
   EXPECT_EQ( small.count(), 4u );
   EXPECT_TRUE( Bitmap( "{}" ).empty() );
   EXPECT_FALSE( small.bit( 100'000 ) );
   for ( const char * wrong : { "", "1", "{1,}", "{-1}", "{x}", "{1048576}" } ) {
      EXPECT_THROW( Bitmap{ String( wrong ) }, Velto::RangeError ) << wrong;
   }
   // Copies are their own, whatever the size.
   Bitmap copy = large;
   copy.bitIs( 300 );
   large = copy;
   copy.clear();
   copy.bitIs( 2 );
   EXPECT_EQ( large, ( Bitmap{ 1, 5, 300 } ) );
   EXPECT_EQ( copy, Bitmap{ 2 } );
}

TEST_F( Groups, OfTheSamePortsShareABitmap ) {
   start();
   join( 1, eth( 1 ), 10 );
   join( 1, eth( 2 ), 10 );
   join( 1, eth( 2 ), 20 );
   join( 1, eth( 1 ), 20 );
   run();
   EXPECT_EQ( bitmap( 1, 10 ), bitmap( 1, 20 ) );
   EXPECT_EQ( bitmap( 1, 10 )->refCount(), 2u );
   EXPECT_EQ( out( 1, 20 ), ( Ports{ eth( 1 ), eth( 2 ) } ) );
   leave( 1, eth( 2 ), 20 );
   run();
   EXPECT_EQ( bitmap( 1, 10 )->refCount(), 1u );
   EXPECT_EQ( out( 1, 10 ), ( Ports{ eth( 1 ), eth( 2 ) } ) );
   EXPECT_EQ( out( 1, 20 ), Ports{ eth( 1 ) } );
   // Back again: what one of them held alone is free again.
   join( 1, eth( 2 ), 20 );
   run();
   EXPECT_EQ( chip->group.size(), 2u );
   // Changes that cancel out before the review cost the chip nothing.
   const U32 calls = chip->calls;
   leave( 1, eth( 2 ), 20 );
   join( 1, eth( 2 ), 20 );
   run();
   EXPECT_EQ( chip->calls, calls );
}

TEST_F( Groups, WithoutMembers ) {
   start();
   group( 1 );
   run();
   EXPECT_FALSE( out( 1 ) ) << "one that never had a member is nowhere";
   acsd->parityEventIs( Qon::ParityEvent::Key( "mac", 1 ), Qon::ParityEvent() );
   run();
   EXPECT_FALSE( out( 1 ) );
   join( 1, eth( 1 ) );
   join( 2, eth( 2 ) );
   run();
   leave( 1, eth( 1 ) );
   leave( 2, eth( 2 ) );
   run();
   EXPECT_EQ( out( 1 ), Ports() ) << "one that has lost its members goes nowhere";
   EXPECT_EQ( bitmap( 1 ), bitmap( 2 ) );
   noGroup( 1 );
   noGroup( 2 );
   run();
   EXPECT_TRUE( chip->macs.empty() );
   EXPECT_EQ( chip->group.size(), 1u ) << "only the set that floods is left";
   EXPECT_EQ( helper->entryLists(), 0u );
}

TEST_F( Groups, HaveIdsThatAreFree ) {
   start();
   group( 1 );
   EXPECT_EQ( entry( 1 )->vGroup(), 0 );
   helper->vGroupIs( std::numeric_limits< S64 >::max() );
   group( 2 );
   EXPECT_EQ( entry( 2 )->vGroup(), std::numeric_limits< S64 >::max() );
   EXPECT_EQ( helper->vGroup(), 0 );
   group( 3 );
   EXPECT_EQ( entry( 3 )->vGroup(), 1 ) << "0 is in use";
   helper->vGroupIs( 0 );
   noGroup( 1 );
   group( 4 );
   EXPECT_EQ( entry( 4 )->vGroup(), 2 ) << "0 is in use until it has gone from the chip";
   EXPECT_THROW( helper->createMulticastAddr( mac( 9 ), 4095, 2 ), Velto::RangeError );
}

TEST_F( Groups, AreReviewedInTheOrderInWhichTheyCame ) {
   start();
   for ( U32 n : { 9, 3, 7, 1 } ) {
      join( n, eth( n ) );
   }
   join( 9, eth( 2 ) ); // keeps its place
   run();
   EXPECT_EQ( chip->updates, ( std::vector{ key( 9 ), key( 3 ), key( 7 ), key( 1 ) } ) );
}

TEST_F( Groups, AreReviewedInSlices ) {
   start();
   run();
   for ( U32 n = 1; n <= 50; ++n ) {
      join( n, eth( 1 ) );
   }
   // Four groups, and the begin, read the time five times: the budget is used up by then.
   scheduler.readCostIs( 0.0026 );
   scheduler.settle( 1 );
   EXPECT_EQ( chip->updates.size(), 4u );
   EXPECT_EQ( helper->groupList().size(), 46u );
   EXPECT_LT( helper->ethGroupReviewSm()->ethGroupClock()->time(), scheduler.time() + 0.011 );
   noGroup( 49 ); // never had its turn
   run( 5 );
   EXPECT_EQ( chip->updates.size(), 49u );
   EXPECT_FALSE( chip->macs.contains( key( 49 ) ) );
   // A budget that is nothing still lets every run do one.
   config->reviewTimeIs( 0 );
   config->delTimeIs( 0 );
   for ( U32 n = 1; n <= 48; ++n ) {
      n % 2 ? join( n, eth( 2 ) ) : noGroup( n );
   }
   run( 5 );
   EXPECT_EQ( out( 47 ), ( Ports{ eth( 1 ), eth( 2 ) } ) );
   EXPECT_EQ( chip->macs.size(), 25u );
   EXPECT_EQ( chip->group.size(), 3u );
}

// --- No room for bitmaps ---------------------------------------------------------------------------

struct Overflow : Groups {
   /** One group floods, `n` have bitmaps. */
   void startWith( U32 n ) {
      chip->groups = n + 1;
      start();
      for ( U32 i = 1; i <= n; ++i ) {
         join( i, eth( i ) );
      }
      run();
      messages();
   }
};

TEST_F( Overflow, FloodsAndRecoversInTheOrderOfTheQueue ) {
   startWith( 2 );
   chip->limit = 4711;
   for ( U32 n : { 8, 5, 6 } ) {
      join( n, eth( n ) );
   }
   run( 0.5 );
   EXPECT_TRUE( floods( 8 ) && floods( 5 ) && floods( 6 ) );
   EXPECT_NE( logs.records().front().text.find( "4711" ), String::npos );
   EXPECT_EQ( messages(),
              ( Names{ "NOMULTICASTGROUPS 8", "NOMULTICASTGROUPS 5", "NOMULTICASTGROUPS 6" } ) );
   EXPECT_EQ( helper->overflow()->floodBitmap()->refCount(), 3u );
   // Trying again without room says nothing and changes no order.
   run( 12 );
   EXPECT_EQ( messages(), Names() );
   noGroup( 1 );
   run( 0.5 );
   EXPECT_EQ( out( 8 ), Ports{ eth( 8 ) } );
   EXPECT_TRUE( floods( 5 ) );
   EXPECT_EQ( messages(), Names{ "MULTICASTGROUPCLEAR 8" } );
   // The next is deleted while it waits: no word of it, and the one behind it is next.
   noGroup( 5 );
   noGroup( 2 );
   run( 0.5 );
   EXPECT_EQ( out( 6 ), Ports{ eth( 6 ) } );
   EXPECT_EQ( messages(), Names{ "MULTICASTGROUPCLEAR 6" } );
   EXPECT_EQ( helper->overflow()->floodBitmap()->refCount(), 0u );
   EXPECT_EQ( helper->overflow()->mcastEntryNeedingHwEntrys(), 0u );
   run( 10 );
   EXPECT_TRUE( helper->ethGroupReviewSm()->ethGroupOverflowClock()->idle() );
}

TEST_F( Overflow, WhoLeavesAndComesBackStandsAtTheEnd ) {
   startWith( 1 );
   join( 2, eth( 2 ) );
   join( 3, eth( 3 ) );
   run( 0.5 );
   // The set of group 1 is there already.
   join( 2, eth( 1 ) );
   leave( 2, eth( 2 ) );
   run( 0.5 );
   EXPECT_EQ( bitmap( 2 ), bitmap( 1 ) );
   join( 2, eth( 2 ) );
   run( 0.5 );
   EXPECT_TRUE( floods( 2 ) );
   EXPECT_EQ( messages(), ( Names{ "NOMULTICASTGROUPS 2", "NOMULTICASTGROUPS 3",
                                   "MULTICASTGROUPCLEAR 2", "NOMULTICASTGROUPS 2" } ) );
   noGroup( 1 );
   run( 0.5 );
   EXPECT_EQ( out( 3 ), Ports{ eth( 3 ) } );
   EXPECT_TRUE( floods( 2 ) );
}

TEST_F( Overflow, OfTheOnlyUserOfTheLastBitmapIsShort ) {
   startWith( 1 );
   join( 1, eth( 2 ) );
   run( 0.5 );
   EXPECT_EQ( out( 1 ), ( Ports{ eth( 1 ), eth( 2 ) } ) );
   EXPECT_EQ( messages(), ( Names{ "NOMULTICASTGROUPS 1", "MULTICASTGROUPCLEAR 1" } ) );
}

TEST_F( Overflow, FollowsThePortsThatThereAre ) {
   startWith( 0 );
   join( 1, eth( 1 ) );
   run();
   EXPECT_TRUE( floods( 1 ) );
   acsd->intfIs( eth( 30 ), true );
   EXPECT_TRUE( floods( 1 ) ) << "at once";
   acsd->intfDel( eth( 2 ) );
   EXPECT_TRUE( floods( 1 ) );
   run();
   EXPECT_EQ( messages(), Names{ "NOMULTICASTGROUPS 1" } );
}

TEST_F( Overflow, WithoutEvenAGroupThatFloodsLeavesItToTheChip ) {
   chip->groups = 0;
   start();
   join( 1, eth( 1 ) );
   run();
   EXPECT_FALSE( out( 1 ) ) << "an unknown address floods";
   EXPECT_TRUE( entry( 1 )->overflowLogged() );
   chip->groups = 2;
   run( 6 );
   EXPECT_EQ( out( 1 ), Ports{ eth( 1 ) } );
}

// --- No room for MAC entries -----------------------------------------------------------------------

TEST_F( Groups, WithoutRoomInTheMacTableAreTriedAgain ) {
   chip->macRoom = 2;
   start();
   for ( U32 n : { 1, 2, 3 } ) {
      join( n, eth( n ) );
   }
   run( 0.5 );
   EXPECT_FALSE( out( 3 ) );
   EXPECT_FALSE( entry( 3 )->overflowLogged() ) << "it has a bitmap";
   EXPECT_EQ( messages(), Names{ "NOMACTABLEENTRIES 3" } );
   run( 61 );
   join( 3, eth( 4 ) );
   run( 10 );
   EXPECT_EQ( messages(), Names() ) << "once an episode";
   chip->macRoom = 3;
   run( 6 );
   EXPECT_EQ( out( 3 ), ( Ports{ eth( 3 ), eth( 4 ) } ) );
   join( 3, eth( 6 ) ); // written once more
   run();
   EXPECT_EQ( messages(), Names{ "MACTABLEENTRYCLEAR 3" } );
   leave( 3, eth( 6 ) );
   run();
   // An entry that cannot be changed goes, since it would lead to a group that is freed.
   chip->refuse[key( 1 )] = TableAddStatus::full;
   join( 1, eth( 5 ) );
   run( 0.5 );
   EXPECT_FALSE( out( 1 ) );
   noGroup( 1 );
   run();
   EXPECT_EQ( messages(), Names{ "NOMACTABLEENTRIES 1" } ) << "deletion is no recovery";
}

TEST_F( Groups, ThatTheChipPutsOffOrRefuses ) {
   start();
   chip->refuse[key( 1 )] = TableAddStatus::notNow;
   chip->refuse[key( 2 )] = TableAddStatus::failed;
   join( 1, eth( 1 ) );
   join( 2, eth( 2 ) );
   run( 0.5 );
   chip->refuse.clear();
   run( 10 );
   EXPECT_EQ( out( 1 ), Ports{ eth( 1 ) } );
   EXPECT_FALSE( out( 2 ) ) << "not before something changes";
   join( 2, eth( 1 ) );
   run();
   EXPECT_EQ( out( 2 ), ( Ports{ eth( 1 ), eth( 2 ) } ) );
   EXPECT_EQ( messages(), Names() );
}

} // namespace
