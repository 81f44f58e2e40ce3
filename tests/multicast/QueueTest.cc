// Many groups that wait, for a bitmap or for their review: in what order, in how large steps, and at which
// place each stands.

#include "tests/multicast/McastWorld.h"

namespace {

using namespace McastTests;

struct Queue : testing::Test, McastWorld {
   Queue() : McastWorld( 10 ) {}
   /** A set of ports of its own for each number below 1,024. */
   void joinAll( U32 n ) {
      for ( U32 bit = 0; bit < 10; ++bit ) {
         if ( n >> bit & 1 ) {
            join( n, eth( bit + 1 ) );
         }
      }
   }
   /** `n` groups flood, from 1: the chip has one group, for the set that floods. */
   void startWith( U32 n ) {
      chip->groups = 1;
      start();
      for ( U32 i = 1; i <= n; ++i ) {
         joinAll( i );
      }
      run( 0.5 );
   }
   U32 waiting() { return helper->overflow()->mcastEntryNeedingHwEntrys(); }
   std::vector< U32 > reviewed() {
      std::vector< U32 > all;
      for ( auto & each : chip->updates ) {
         all.push_back( U32( each.mac().value() - mac( 0 ).value() ) );
      }
      chip->updates.clear();
      return all;
   }
};

std::vector< U32 >
numbers( U32 first, U32 last ) {
   std::vector< U32 > all;
   for ( U32 n = first; n <= last; ++n ) {
      all.push_back( n );
   }
   return all;
}

TEST_F( Queue, OfAThousandIsReviewedInStepsAndInItsOrder ) {
   startWith( 1000 );
   ASSERT_EQ( waiting(), 1000u );
   reviewed();
   chip->groups = 401;
   helper->reviewOverflowedGroups();
   EXPECT_EQ( helper->groupList().size(), 256u ) << "no more at once";
   EXPECT_EQ( waiting(), 744u );
   EXPECT_EQ( helper->checkInvariants(), "" );
   run( 0.5 );
   EXPECT_EQ( reviewed(), numbers( 1, 400 ) ) << "those that flood on keep their MAC entry";
   EXPECT_EQ( waiting(), 600u );
   EXPECT_EQ( helper->retries(), 1000u );
   EXPECT_EQ( helper->overflow()->mcastEntryNeedingHwEntryFront(), entry( 401 ) );
   EXPECT_EQ( helper->overflow()->mcastEntryNeedingHwEntryBack(), entry( 1000 ) );
   // One bitmap is enough for all of them to be asked: the first has it, the others keep their order.
   noGroup( 7 );
   run( 0.5 );
   EXPECT_EQ( reviewed(), numbers( 401, 401 ) );
   EXPECT_EQ( waiting(), 599u );
   EXPECT_EQ( helper->overflow()->mcastEntryNeedingHwEntryFront(), entry( 402 ) );
   // The clock of those without room finds all of them, whatever its budget.
   chip->groups = 2000;
   config->overflowTimeIs( 0 );
   run( 6 );
   EXPECT_EQ( reviewed(), numbers( 402, 1000 ) );
   EXPECT_EQ( waiting(), 0u );
}

TEST_F( Queue, GoesOnWhereItPausedOrWasLeft ) {
   startWith( 1000 );
   chip->groups = 2000;
   helper->reviewOverflowedGroups();
   // All that had been taken up go: the others have their turn nevertheless.
   for ( U32 n = 1; n <= 256; ++n ) {
      noGroup( n );
   }
   EXPECT_TRUE( helper->groupList().empty() );
   helper->ethGroupReviewSm()->initializedIs( false );
   scheduler.runFor( 0.5 );
   EXPECT_EQ( waiting(), 744u );
   EXPECT_FALSE( helper->handleVerify( sm->vlan( VlanId( 10 ) )->group( mac( 300 ) ) ) );
   helper->ethGroupReviewSm()->initializedIs( true );
   run( 0.5 );
   EXPECT_EQ( waiting(), 0u );
   EXPECT_EQ( chip->group.size(), 745u );
}

TEST_F( Queue, OfOneChangeIsTakenUpInStepsAndInItsOrder ) {
   lag( 1, { 1, 2 } );
   start();
   for ( U32 n = 1; n <= 1000; ++n ) {
      join( n, po( 1 ) );
   }
   run();
   reviewed();
   lag( 1, { 1 } );
   EXPECT_EQ( helper->groupList().size(), 256u ) << "no more at once";
   EXPECT_TRUE( helper->isPending( *entry( 1000 ) ) );
   join( 2000, eth( 3 ) ); // behind all of them
   join( 500, eth( 1 ) );  // keeps its place
   noGroup( 999 );
   EXPECT_EQ( helper->checkInvariants(), "" );
   run();
   auto order = numbers( 1, 998 );
   order.insert( order.end(), { 1000, 2000 } );
   EXPECT_EQ( reviewed(), order );
   EXPECT_EQ( out( 1000 ), Ports{ eth( 1 ) } );
   // An error of the MAC table calls no hook at once, and is known of each group until its turn comes.
   const U32 calls = chip->calls;
   acsd->parityEventIs( Qon::ParityEvent::Key( "mac", 1 ), Qon::ParityEvent() );
   EXPECT_EQ( chip->calls, calls );
   EXPECT_EQ( helper->groupList().size(), 256u );
   EXPECT_FALSE( entry( 1000 )->macTableEntryCreated() );
   helper->ethGroupReviewSm()->initializedIs( false );
   scheduler.runFor( 1 );
   helper->ethGroupReviewSm()->initializedIs( true );
   run();
   EXPECT_EQ( reviewed(), order );
   EXPECT_EQ( chip->forgotten, 1000u );
   EXPECT_TRUE( entry( 1000 )->macTableEntryCreated() );
}

TEST_F( Queue, KnowsThePlaceOfEach ) {
   constexpr U32 groups = 1023;
   startWith( groups );
   // Again and again to the end: places far beyond the number of those that wait.
   for ( U32 pass = 0; pass < 3; ++pass ) {
      helper->reviewOverflowedGroups();
      run( 0.5 );
   }
   for ( U32 n = 3; n <= groups; n += 3 ) {
      noGroup( n );
   }
   run( 0.5 );
   U32 place = 0;
   for ( U32 n = 1; n <= groups; ++n ) {
      if ( n % 3 ) {
         ASSERT_EQ( helper->placeInQueue( *entry( n ) ), ++place ) << n;
      }
   }
   EXPECT_EQ( waiting(), place );
}

} // namespace
