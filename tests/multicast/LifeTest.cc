// Beginnings and ends: of groups, of state machines, and in the middle of hooks.

#include "platform/Kiv/Restart.h"
#include "tests/multicast/McastWorld.h"

namespace {

using namespace McastTests;

struct Life : testing::Test, McastWorld {};

TEST_F( Life, DeletedAndCreatedAgainBeforeTheDeletion ) {
   start();
   join( 1, eth( 1 ) );
   run();
   const S64 former = entry( 1 )->vGroup();
   noGroup( 1 );
   EXPECT_TRUE( entry( 1 )->deleted() );
   EXPECT_TRUE( out( 1 ) ) << "in the chip until its clock fires";
   helper->addIntf( eth( 4 ), former ); // goes nowhere
   helper->removeIntf( eth( 1 ), former );
   EXPECT_TRUE( helper->groupList().empty() );
   join( 1, eth( 2 ) );
   EXPECT_NE( entry( 1 )->vGroup(), former );
   EXPECT_FALSE( helper->entryListHas( former ) );
   run();
   EXPECT_EQ( out( 1 ), Ports{ eth( 2 ) } );
   // A whole VLAN in one burst.
   join( 2, po( 1 ) );
   run();
   status->vlanStatusDel( VlanId( 10 ) );
   join( 2, eth( 3 ) );
   run();
   EXPECT_EQ( out( 2 ), Ports{ eth( 3 ) } );
   EXPECT_FALSE( out( 1 ) );
   EXPECT_EQ( chip->group.size(), 2u );
   EXPECT_FALSE( helper->lagGroupMembership( po( 1 ) ) );
}

TEST_F( Life, OfAnIndexThatIsNotValid ) {
   start();
   group( 1 )->indexValidIs( false );
   join( 1, eth( 1 ) );
   run();
   EXPECT_FALSE( entry( 1 ) );
   group( 1 )->indexValidIs( true );
   join( 1, eth( 2 ) );
   run();
   EXPECT_EQ( out( 1 ), ( Ports{ eth( 1 ), eth( 2 ) } ) );
   group( 1 )->indexValidIs( false );
   leave( 1, eth( 1 ) );
   run();
   EXPECT_FALSE( out( 1 ) );
   group( 1 )->indexValidIs( true );
   run();
   EXPECT_EQ( out( 1 ), Ports{ eth( 2 ) } );
}

TEST_F( Life, OfTwoWhoWantTheSameGroup ) {
   start();
   fixed( 1 )->intfIs( eth( 1 ) );
   join( 1, eth( 2 ) );
   run();
   EXPECT_EQ( out( 1 ), Ports{ eth( 1 ) } ) << "the first has it";
   join( 1, eth( 3 ) );
   run();
   EXPECT_EQ( out( 1 ), Ports{ eth( 1 ) } );
   staticConfig->groupDel( Qon::McastAddr( mac( 1 ), 10 ) );
   EXPECT_EQ( out( 1 ), Ports{ eth( 1 ) } );
   fixed( 1 )->intfIs( eth( 4 ) ); // behind the one that waits already
   run();
   EXPECT_EQ( out( 1 ), ( Ports{ eth( 2 ), eth( 3 ) } ) );
   // Who waits no more is not asked.
   staticConfig->groupDel( Qon::McastAddr( mac( 1 ), 10 ) );
   noGroup( 1 );
   run();
   EXPECT_FALSE( out( 1 ) );
   EXPECT_EQ( helper->entryLists(), 0u );
   // A VLAN that is none.
   staticConfig->groupIs( Qon::McastAddr( mac( 2 ), 4095 ) )->intfIs( eth( 1 ) );
   run();
   EXPECT_EQ( helper->entryLists(), 0u );
}

TEST_F( Life, PausesAndStartsAgain ) {
   lag( 1, { 1, 2 } );
   start();
   join( 1, po( 1 ) );
   join( 2, eth( 3 ) );
   run();
   sm->initializedIs( false );
   noGroup( 2 );
   join( 3, eth( 4 ) );
   join( 1, eth( 9 ) );
   acsd->intfIs( eth( 9 ), true );
   acsd->intfDel( eth( 1 ) );
   acsd->lagToPortDel( po( 1 ) );
   lag( 2, { 5 } );
   join( 4, po( 2 ) );
   const U32 calls = chip->calls;
   run();
   EXPECT_EQ( chip->calls, calls );
   sm->initializedIs( true );
   run();
   EXPECT_EQ( out( 1 ), Ports{ eth( 9 ) } );
   EXPECT_FALSE( out( 2 ) );
   EXPECT_EQ( out( 3 ), Ports{ eth( 4 ) } );
   EXPECT_EQ( out( 4 ), Ports{ eth( 5 ) } );
   // The review pauses on its own, too.
   helper->ethGroupReviewSm()->initializedIs( false );
   join( 3, eth( 5 ) );
   noGroup( 4 );
   scheduler.runFor( 1 );
   EXPECT_EQ( out( 3 ), Ports{ eth( 4 ) } );
   helper->ethGroupReviewSm()->initializedIs( true );
   run();
   EXPECT_EQ( out( 3 ), ( Ports{ eth( 4 ), eth( 5 ) } ) );
   EXPECT_FALSE( out( 4 ) );
}

TEST_F( Life, EndsWithACleanUpOrWithoutAWord ) {
   chip->groups = 3;
   lag( 1, { 6 } );
   start();
   for ( U32 n : { 1, 2, 3, 4 } ) {
      join( n, eth( n ) );
   }
   run();
   noGroup( 1 );
   sm->doCleanup();
   EXPECT_TRUE( chip->macs.empty() );
   EXPECT_TRUE( chip->group.empty() );
   EXPECT_EQ( helper->checkInvariants(), "" );
   sm->initializedIs( true );
   run();
   EXPECT_EQ( out( 2 ), Ports{ eth( 2 ) } );
   EXPECT_TRUE( floods( 4 ) );
   // State machines that end without a clean-up: new ones take their groups over.
   const U32 calls = chip->calls;
   sm = nullptr;
   run( 0.5 );
   EXPECT_EQ( chip->calls, calls );
   noGroup( 2 );
   join( 5, eth( 5 ) );
   join( 3, po( 1 ) );
   acsd->intfDel( eth( 8 ) );
   acsd->lagToPortDel( po( 1 ) );
   for ( auto & [index, ports] : chip->group ) {
      ports = {}; // nobody hears of it
   }
   acsd->parityEventIs( Qon::ParityEvent::Key( "multicast", 1 ), Qon::ParityEvent() );
   restart();
   run( 6 );
   EXPECT_EQ( out( 3 ), Ports{ eth( 3 ) } ) << "without what went meanwhile";
   EXPECT_EQ( helper->overflow()->floodBitmap()->ports().count(), 7u );
   EXPECT_FALSE( out( 2 ) ) << "nobody's any more";
   acsd->verifyData()->runChecks();
   EXPECT_EQ( acsd->verifyData()->verifyInc(), 0u );
   // All of it ends: no hook is called.
   const U32 last = chip->calls;
   sm = nullptr;
   helper = nullptr;
   EXPECT_EQ( chip->calls, last );
}

TEST_F( Life, LeavesTheChipAsItIsForAnAgentThatRestarts ) {
   start();
   join( 1, eth( 1 ) );
   join( 2, eth( 2 ) );
   run();
   noGroup( 2 ); // its clock has not fired yet
   join( 1, eth( 3 ) );
   Kiv::agentRestartingIs( true );
   const U32 calls = chip->calls;
   sm->doCleanup();
   scheduler.runFor( 10 );
   sm = nullptr;
   helper = nullptr;
   Kiv::agentRestartingIs( false );
   EXPECT_EQ( chip->calls, calls );
   EXPECT_EQ( chip->macs.size(), 2u );
}

/** Whatever comes first at the start, the end is the same. */
TEST( LifeOrder, AnyOrderComesToTheSameEnd ) {
   std::vector< U32 > order = { 0, 1, 2, 3, 4 };
   do {
      McastWorld w( 0 );
      const std::vector< std::function< void() > > steps = {
            [&] { w.start(); },
            [&] {
               for ( U32 n = 1; n <= 8; ++n ) {
                  w.acsd->intfIs( eth( n ), true );
               }
            },
            [&] {
               w.lag( 1, { 1, 2 } );
            },
            [&] {
               w.join( 1, po( 1 ) );
               w.join( 1, eth( 3 ) );
            },
            [&] { w.fixed( 2 )->intfIs( eth( 2 ) ); } };
      for ( U32 step : order ) {
         steps[step]();
         w.scheduler.runFor( 0.1 );
      }
      w.run();
      EXPECT_EQ( w.out( 1 ), ( Ports{ eth( 1 ), eth( 2 ), eth( 3 ) } ) );
      EXPECT_EQ( w.out( 2 ), Ports{ eth( 2 ) } );
      EXPECT_EQ( w.helper->overflow()->floodBitmap()->ports().count(), 8u );
   } while ( std::next_permutation( order.begin(), order.end() ) );
}

// --- In the middle of hooks ------------------------------------------------------------------------

TEST_F( Life, BeginsOnceThoughTheFactoryMakesSomebodyElseWantIt ) {
   start();
   auto once = [&]( std::function< void() > act ) {
      chip->during = [act, done = false]( U32 ) mutable {
         if ( !std::exchange( done, true ) ) {
            act();
         }
      };
   };
   once( [&] { fixed( 1 )->intfIs( eth( 2 ) ); } );
   join( 1, eth( 1 ) );
   run();
   EXPECT_EQ( out( 1 ), Ports{ eth( 1 ) } );
   noGroup( 1 );
   run();
   EXPECT_EQ( out( 1 ), Ports{ eth( 2 ) } ) << "who came second waited";
   once( [&] { noGroup( 2 ); } );
   group( 2 );
   run();
   EXPECT_FALSE( entry( 2 ) );
   // A port that comes while the set that floods is written is in it, and it takes no second group.
   once( [&] { acsd->intfIs( eth( 31 ), true ); } );
   acsd->intfIs( eth( 30 ), true );
   EXPECT_EQ( chip->group[0].count(), 10u );
   sm->doCleanup();
   once( [&] { acsd->intfIs( eth( 32 ), true ); } );
   sm->initializedIs( true );
   run();
   EXPECT_EQ( chip->group.size(), 2u );
   EXPECT_EQ( helper->overflow()->floodBitmap()->ports().count(), 11u );
}

TEST_F( Life, SaysWhatAHookRaisedThoughItWasRightTheSecondTime ) {
   start();
   run();
   U32 raise = 1;
   chip->during = [&]( U32 ) {
      if ( raise && raise-- ) {
         throw Velto::RangeError( "sabotage" );
      }
   };
   EXPECT_THROW( group( 1 ), Velto::RangeError );
   join( 1, eth( 1 ) );
   join( 2, eth( 1 ) );
   run();
   EXPECT_EQ( out( 1 ), Ports{ eth( 1 ) } );
   // A clean-up that a hook asked for, here that of the MAC entry, is carried out though all deletions raise.
   chip->during = [&, at = chip->calls + 4]( U32 call ) {
      if ( call == at ) {
         sm->doCleanup();
         raise = 3;
      } else if ( raise && raise-- ) {
         throw Velto::RangeError( "sabotage" );
      }
   };
   join( 1, eth( 2 ) );
   EXPECT_THROW( scheduler.runFor( 1 ), Velto::RangeError );
   run();
   EXPECT_TRUE( chip->macs.empty() );
   EXPECT_TRUE( chip->group.empty() );
}

/** Everything that a flow asks of the chip: groups come, share, overflow, recover and go. `spoil` is done
    at the call number `at`; true if there was such a call. */
template< class Spoil >
bool
spoiledFlow( McastWorld & w, U32 at, Spoil && spoil ) {
   w.chip->groups = 3;
   w.chip->during = [&]( U32 call ) {
      if ( call == at ) {
         spoil();
      }
   };
   auto step = [&]( const std::function< void() > & act ) {
      try {
         act();
      } catch ( const Velto::RangeError & error ) {
         EXPECT_STREQ( error.what(), "sabotage" );
      }
      for ( U32 i = 0; i < 20; ++i ) {
         try {
            w.scheduler.runFor( 0.5 );
         } catch ( const Velto::RangeError & error ) {
            EXPECT_STREQ( error.what(), "sabotage" );
         }
      }
      if ( w.helper ) {
         EXPECT_EQ( w.helper->checkInvariants(), "" ) << "call " << at;
      }
   };
   auto join = [&]( U32 n, IntfId port ) {
      try {
         w.group( n ); // its entry is made
      } catch ( const Velto::RangeError & ) {
      }
      w.join( n, port );
   };
   step( [&] { w.start(); } );
   step( [&] {
      join( 1, eth( 1 ) );
      join( 2, eth( 1 ) );
      join( 3, eth( 2 ) );
   } );
   step( [&] { join( 4, eth( 4 ) ); } );
   for ( const char * table : { "mac", "multicast" } ) {
      step( [&] { w.acsd->parityEventIs( { table, 1 }, Qon::ParityEvent() ); } );
   }
   step( [&] { w.join( 3, eth( 5 ) ); } );
   step( [&] { w.acsd->intfDel( eth( 8 ) ); } );
   step( [&] { w.noGroup( 3 ); } );
   step( [&] {
      w.noGroup( 1 );
      join( 1, eth( 1 ) ); // deletes the former one
   } );
   const bool struck = w.chip->calls >= at;
   w.chip->during = nullptr;
   return struck;
}

TEST( LifeInHooks, ThatRaise ) {
   U32 at = 1;
   for ( bool struck = true; struck && !testing::Test::HasFailure(); ++at ) {
      McastWorld w;
      struck = spoiledFlow( w, at, [] { throw Velto::RangeError( "sabotage" ); } );
      w.scheduler.runFor( 20 );
      EXPECT_EQ( w.out( 1 ), Ports{ eth( 1 ) } ) << "call " << at;
      EXPECT_EQ( w.out( 2 ), Ports{ eth( 1 ) } ) << "call " << at;
      EXPECT_EQ( w.out( 4 ), Ports{ eth( 4 ) } ) << "call " << at;
      EXPECT_EQ( w.chip->macs.size(), 3u ) << "call " << at;
      EXPECT_EQ( w.chip->group.size(), 3u ) << "call " << at;
   }
   EXPECT_GT( at, 15u );
}

TEST( LifeInHooks, ThatDropTheLastReference ) {
   bool struck = true;
   for ( U32 at = 1; struck && !testing::Test::HasFailure(); ++at ) {
      McastWorld w;
      struck = spoiledFlow( w, at, [&] {
         w.sm = nullptr;
         w.helper = nullptr;
      } );
   }
}

TEST( LifeInHooks, ThatReplaceTheGroupOrCleanUp ) {
   for ( bool cleans : { false, true } ) {
      bool struck = true;
      for ( U32 at = 2; struck && !testing::Test::HasFailure(); ++at ) {
         McastWorld w;
         struck = spoiledFlow( w, at, [&] {
            if ( cleans ) {
               w.sm->doCleanup();
               w.sm->initializedIs( true );
               return;
            }
            for ( U32 n : { 1, 2, 3, 4 } ) {
               if ( w.group( n )->intfs() ) {
                  w.noGroup( n );
                  w.join( n, eth( n == 2 ? 1 : n ) ); // as it was, so that all find a bitmap
               }
            }
         } );
         w.scheduler.runFor( 20 );
         EXPECT_EQ( w.helper->checkInvariants(), "" ) << "call " << at;
         EXPECT_EQ( w.out( 4 ), Ports{ eth( 4 ) } ) << "call " << at;
         EXPECT_EQ( w.out( 1 ), Ports{ eth( 1 ) } ) << "call " << at;
      }
   }
}

} // namespace
