// Versions and answers of the second generation.

#include "tests/stormcontrol/StormWorld.h"

namespace {

using namespace StormTests;
using QonTypes::TableAddStatus;

class StormSecond : public testing::Test, public SecondWorld {
 protected:
   /** The broadcast level that the status shows; "" is none. */
   String shows( IntfId i ) {
      auto s = statusOf( i );
      return s && s->levelHas( Level::broadcast ) ? shown( s->level( Level::broadcast ) ) : "";
   }
   void TearDown() override {
      if ( sm ) {
         EXPECT_EQ( sm->checkInvariants(), "" );
      }
   }
};

TEST_F( StormSecond, AStatusIsWrittenWhenTheChipHoldsTheVersionOfTheMoment ) {
   start();
   broadcast( eth( 1 ), 100 );
   const U32 first = version( 1 );
   EXPECT_FALSE( statusOf( eth( 1 ) ) );
   answer( 1, first - 1 ); // of before
   EXPECT_FALSE( statusOf( eth( 1 ) ) );
   answer( 1, first );
   EXPECT_EQ( shows( eth( 1 ) ), "100 kbps" );
   broadcast( eth( 1 ), 200 );
   EXPECT_EQ( version( 1 ), first + 1 );
   EXPECT_EQ( shows( eth( 1 ) ), "100 kbps" ) << "until the chip says so";
   answer( 1, first - 1 );
   answer( 1, first ); // late
   EXPECT_EQ( shows( eth( 1 ) ), "100 kbps" );
   answer( 1, first + 1 );
   EXPECT_EQ( shows( eth( 1 ) ), "200 kbps" );
}

TEST_F( StormSecond, AFormerLifeOfAnInterfaceIsNotAnswered ) {
   start();
   broadcast( eth( 1 ), 100 );
   const U32 former = version( 1 );
   noConfig( eth( 1 ) );
   EXPECT_EQ( notes().calls.back(), "Ethernet1 reset" );
   EXPECT_FALSE( platformConfig->platformIntfConfigHas( eth( 1 ) ) );
   broadcast( eth( 1 ), 300 );
   EXPECT_GT( version( 1 ), former );
   answer( 1, former );
   EXPECT_FALSE( statusOf( eth( 1 ) ) );
   noConfig( eth( 1 ) );
   answer( 1, former + 1 ); // of nobody
   EXPECT_FALSE( statusOf( eth( 1 ) ) );
}

TEST_F( StormSecond, VersionsBeginAboveWhatIsFound ) {
   platformConfig->platformIntfConfigIs( eth( 1 ) )->versionIdIs( 40 );
   platformConfig->platformIntfConfigIs( eth( 2 ) )->versionIdIs( 3 );
   platformConfig->platformAggregateTcConfigIs( 5 )->versionIdIs( 6 );
   answer( 1, 41 );
   broadcast( eth( 1 ), 100 );
   start();
   EXPECT_EQ( version( 1 ), 42u );
   EXPECT_FALSE( statusOf( eth( 1 ) ) );
   EXPECT_EQ( version( 2 ), 0u ) << "left behind, and nobody's";
   EXPECT_EQ( notes().calls[0], "Ethernet2 reset" );
   EXPECT_EQ( notes().calls[1], "class 5: free" );
   EXPECT_FALSE( platformConfig->platformAggregateTcConfigHas( 5 ) );
}

TEST_F( StormSecond, LevelsOfTheCpuRaiseNoVersion ) {
   start();
   broadcast( eth( 1 ), 100 );
   const U32 before = version( 1 );
   notes().take();
   of( eth( 1 ) )->broadcastCpuLevelIs( kbps( 5 ) );
   of( eth( 1 ) )->dropLoggingIs( true );
   broadcast( eth( 1 ), 100 );
   EXPECT_EQ( version( 1 ), before );
   EXPECT_EQ( notes().calls, Calls{} );
}

TEST_F( StormSecond, MembersHaveAStatusOfTheirOwnAndThePortChannelHasOne ) {
   broadcast( po( 1 ), 500 );
   start();
   EXPECT_TRUE( statusOf( po( 1 ) ) );
   member( 1, 1 );
   answer( 1, version( 1 ) );
   EXPECT_EQ( shows( eth( 1 ) ), "500 kbps" );
   EXPECT_EQ( statusOf( eth( 1 ) )->lag(), po( 1 ) );
   member( 1, 0 );
   EXPECT_FALSE( statusOf( eth( 1 ) ) );
   noConfig( po( 1 ) );
   EXPECT_EQ( status->intfStatuss(), 0u );
}

TEST_F( StormSecond, WhatTheChipHasNoRoomForIsNoLevelUntilThereIs ) {
   start();
   broadcast( eth( 1 ), 100 );
   auto platform = platformStatus->platformIntfStatusIs( eth( 1 ) );
   platform->resultIs( LevelType::levelTypeBroadcast, TableAddStatus::full );
   answer( 1, version( 1 ) );
   EXPECT_TRUE( statusOf( eth( 1 ) ) );
   EXPECT_EQ( shows( eth( 1 ) ), "" );
   platform->resultIs( LevelType::levelTypeBroadcast, TableAddStatus::success );
   EXPECT_EQ( shows( eth( 1 ) ), "100 kbps" );
   phy( 1 )->activeIs( false );
   EXPECT_EQ( shows( eth( 1 ) ), "" );
   EXPECT_TRUE( statusOf( eth( 1 ) ) );
}

TEST_F( StormSecond, TrafficClassesHaveVersionsToo ) {
   start();
   config->aggregateTcIs( 3 )->thresholdIs( kbps( 7 ) );
   const auto now = [&] { return platformConfig->platformAggregateTcConfig( 3 )->versionId(); };
   const U32 first = now();
   auto answer = platformStatus->platformAggregateTcStatusIs( 3 );
   answer->versionIdIs( first - 1 );
   EXPECT_FALSE( status->aggregateTcStatusHas( 3 ) );
   answer->versionIdIs( first );
   EXPECT_EQ( status->aggregateTcStatus( 3 )->threshold(), kbps( 7 ) );
   config->aggregateTc( 3 )->thresholdIs( kbps( 8 ) );
   EXPECT_EQ( status->aggregateTcStatus( 3 )->threshold(), kbps( 7 ) );
   answer->resultIs( TableAddStatus::full ); // still of the older one
   EXPECT_EQ( status->aggregateTcStatus( 3 )->threshold(), kbps( 7 ) );
   answer->versionIdIs( now() );
   EXPECT_FALSE( status->aggregateTcStatus( 3 )->threshold() );
   config->aggregateTcDel( 3 );
   EXPECT_EQ( notes().calls.back(), "class 3: free" );
   EXPECT_FALSE( status->aggregateTcStatusHas( 3 ) );
}

TEST_F( StormSecond, AChipThatAnswersInsideTheHookIsHeard ) {
   notes().during = [&]( const String & call ) {
      if ( call.find( " All: " ) != String::npos ) {
         answer( 1, version( 1 ) );
      }
   };
   broadcast( eth( 1 ), 100 );
   start();
   EXPECT_EQ( shows( eth( 1 ) ), "100 kbps" );
   broadcast( eth( 1 ), 200 ); // only that level's hook; nothing answers
   EXPECT_EQ( shows( eth( 1 ) ), "100 kbps" );
   of( eth( 1 ) )->allLevelIs( kbps( 1 ) );
   EXPECT_EQ( shows( eth( 1 ) ), "200 kbps" );
}

TEST_F( StormSecond, CountersWaitForTheVersionOfTheMoment ) {
   config->counterPeriodIs( 2 );
   start();
   broadcast( eth( 1 ), 100 );
   Qon::StormControl::Drops dropped;
   dropped.broadcastDropIs( 9 );
   drops->allIntfStatusIs( eth( 1 ), Qon::StormControl::AllDrops( dropped, 1 ) );
   scheduler.runFor( 5 ); // no status yet
   answer( 1, version( 1 ) );
   scheduler.runFor( 2 );
   EXPECT_EQ( statusOf( eth( 1 ) )->broadcastDrop(), 9u );
   dropped.broadcastDropIs( 10 );
   drops->allIntfStatusIs( eth( 1 ), Qon::StormControl::AllDrops( dropped, 1 ) );
   broadcast( eth( 1 ), 200 );
   scheduler.runFor( 9 );
   EXPECT_EQ( statusOf( eth( 1 ) )->broadcastDrop(), 9u );
   answer( 1, version( 1 ) );
   scheduler.runFor( 2 );
   EXPECT_EQ( statusOf( eth( 1 ) )->broadcastDrop(), 10u );
}

TEST_F( StormSecond, AChipThatCountsByPortNeedsNoSlices ) {
   config->counterPeriodIs( 2 );
   start();
   broadcast( eth( 1 ), 100 );
   answer( 1, version( 1 ) );
   const Ptr platform( platformStatus->platformIntfStatus( eth( 1 ) ) );
   auto drops = [&]( U64 count ) {
      Qon::StormControl::Drops dropped;
      dropped.broadcastDropIs( count );
      platform->dropsIs( dropped );
      scheduler.runFor( 2 );
      return statusOf( eth( 1 ) )->broadcastDrop();
   };
   EXPECT_EQ( drops( 9 ), 9u );
   broadcast( eth( 1 ), 200 );
   EXPECT_EQ( drops( 10 ), 9u ) << "of an older version";
   answer( 1, version( 1 ) );
   EXPECT_EQ( drops( 1ull << 40 ), 1ull << 40 );
   Qon::StormControl::Drops sum;
   sum.broadcastDropIs( 7 );
   this->drops->allIntfStatusIs( eth( 1 ), Qon::StormControl::AllDrops( sum, 1 ) );
   EXPECT_EQ( drops( 20 ), 7u ) << "where slices report, they alone";
}

TEST_F( StormSecond, AHookThatRaisesIsCalledOnceMore ) {
   start();
   U32 raises = 1;
   notes().during = [&]( const String & call ) {
      if ( call.find( "Broadcast: 100" ) != String::npos && raises ) {
         --raises;
         throw Velto::RangeError( "chip" );
      }
   };
   EXPECT_THROW( broadcast( eth( 1 ), 100 ), Velto::RangeError );
   EXPECT_EQ( told( 1 ), "100 kbps at 0" );
   answer( 1, version( 1 ) );
   EXPECT_EQ( shows( eth( 1 ) ), "100 kbps" );
}

TEST_F( StormSecond, ALevelThatAllowsEverythingIsOneForBroadcasts ) {
   start();
   of( eth( 1 ) )->multicastLevelIs( kbps( 5 ) );
   EXPECT_TRUE( sm->bcastSkipped( eth( 1 ) ) );
   notes().take();
   of( eth( 1 ) )->broadcastLevelIs( Threshold() ); // for the chip the same as none
   EXPECT_EQ( notes().take(), Calls{ "Ethernet1 skips not" } );
   of( eth( 1 ) )->broadcastLevelIs( {} );
   EXPECT_EQ( notes().take(), Calls{ "Ethernet1 skips" } );
}

TEST_F( StormSecond, WhatWasLeftBehindIsResetOnceMoreToo ) {
   platformConfig->platformIntfConfigIs( eth( 9 ) )->versionIdIs( 4 );
   U32 resets = 0;
   notes().during = [&]( const String & ) {
      if ( !resets++ ) {
         throw Velto::RangeError( "chip" );
      }
   };
   EXPECT_THROW( start(), Velto::RangeError );
   EXPECT_EQ( notes().take(), ( Calls{ "Ethernet9 reset", "Ethernet9 reset" } ) );
   broadcast( eth( 1 ), 100 );
   EXPECT_EQ( told( 1 ), "100 kbps at 0" );
}

TEST_F( StormSecond, WhatAlwaysRaisedIsSaidWhenItRaisesNoMore ) {
   start();
   broadcast( eth( 1 ), 100 );
   const auto port = phy( 1 );
   config->aggregateTcIs( 1 )->thresholdIs( kbps( 1 ) );
   notes().during = []( const String & ) { throw Velto::RangeError( "chip" ); };
   EXPECT_THROW( port->activeIs( false ), Velto::RangeError );
   EXPECT_THROW( config->aggregateTc( 1 )->thresholdIs( kbps( 2 ) ), Velto::RangeError );
   EXPECT_THROW( config->aggregateTcIs( 2 ), Velto::RangeError );
   notes().during = nullptr;
   port->activeIs( true );
   EXPECT_EQ( told( 1 ), "100 kbps at 10000000" );
   config->aggregateTc( 1 )->thresholdIs( kbps( 1 ) ); // as the chip was told last
   EXPECT_EQ( platformConfig->platformAggregateTcConfig( 1 )->threshold(), kbps( 1 ) );
   notes().during = []( const String & call ) {
      if ( call.starts_with( "class 3" ) ) {
         throw Velto::RangeError( "chip" );
      }
   };
   EXPECT_THROW( config->aggregateTcIs( 3 ), Velto::RangeError );
   notes().during = nullptr;
   sm->doCleanup();
   EXPECT_EQ( platformConfig->platformAggregateTcConfigs(), 0u );
}

} // namespace
