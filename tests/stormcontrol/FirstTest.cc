// What the first generation alone does: the CPU's levels, the capabilities, the order of the start.

#include "platform/Kiv/Listener.h"
#include "tests/stormcontrol/StormWorld.h"

namespace {

using namespace StormTests;

class StormFirst : public testing::Test, public FirstWorld {
 protected:
   String cpu( U32 port ) {
      return notes().told["Ethernet" + std::to_string( port ) + " cpu Broadcast"];
   }
   void cpuLevel( IntfId i, U64 rate ) { of( i )->broadcastCpuLevelIs( kbps( rate ) ); }
};

TEST_F( StormFirst, TheStartHasAnOrder ) {
   helper->uucast = helper->burst = true;
   config->burstConfigIs( Bridging::StormControl::BurstConfig( 50 ) );
   config->aggregateTcIs( 2 )->thresholdIs( kbps( 5 ) );
   broadcast( eth( 1 ), 100 );
   status->intfStatusIs( eth( 7 ) );
   status->aggregateTcStatusIs( 6 );
   bool orphansThere = true;
   notes().during = [&]( const String & call ) {
      if ( call == "installRules" ) {
         orphansThere = status->intfStatusHas( eth( 7 ) );
      } else if ( call.starts_with( "burst" ) ) {
         EXPECT_FALSE( status->intfStatusHas( eth( 7 ) ) || status->aggregateTcStatusHas( 6 ) );
      }
   };
   start();
   EXPECT_TRUE( orphansThere );
   const String at = " at 0", free = ": free at 0";
   EXPECT_EQ( notes().take(),
              ( Calls{ "hwInit", "installRules", "burst 50", "class 2: 5 kbps",
                       "Ethernet1 UUcast" + free, "Ethernet1 cpu UUcast" + free,
                       "Ethernet1 Broadcast: 100 kbps" + at, "Ethernet1 cpu Broadcast" + free,
                       "Ethernet1 Multicast" + free, "Ethernet1 cpu Multicast" + free,
                       "Ethernet1 All" + free, "Ethernet1 cpu All" + free } ) );
   config->burstConfigIs( Bridging::StormControl::BurstConfig( 60 ) );
   of( eth( 1 ) )->uUcastLevelIs( kbps( 1 ) );
   EXPECT_EQ( notes().take(), ( Calls{ "burst 60", "Ethernet1 UUcast: 1 kbps at 0" } ) );
   EXPECT_EQ( statusOf( eth( 1 ) )->level( Level::broadcast ), kbps( 100 ) );
}

TEST_F( StormFirst, WhatTheChipCannotDoIsNotAskedOfIt ) {
   config->burstConfigIs( Bridging::StormControl::BurstConfig( 50 ) );
   of( eth( 1 ) )->uUcastLevelIs( kbps( 1 ) );
   of( eth( 1 ) )->uUcastCpuLevelIs( kbps( 2 ) );
   start();
   config->burstConfigIs( Bridging::StormControl::BurstConfig( 60 ) );
   for ( auto & call : notes().calls ) {
      EXPECT_TRUE( call.find( "UUcast" ) == String::npos && !call.starts_with( "burst" ) ) << call;
   }
}

TEST_F( StormFirst, ARateOfZeroToTheCpuIsRefused ) {
   phy( 1 );
   start();
   cpuLevel( eth( 1 ), 0 );
   EXPECT_EQ( cpu( 1 ), "free at 10000000" );
   cpuLevel( eth( 1 ), 50 );
   cpuLevel( eth( 1 ), 0 ); // what was before stays, at whatever speed
   of( eth( 1 ) )->broadcastCpuLevelIs( Threshold( Unit::percent, 0 ) );
   EXPECT_EQ( cpu( 1 ), "50 kbps at 10000000" );
   phy( 1, EthSpeed::speed25Gbps );
   EXPECT_EQ( cpu( 1 ), "50 kbps at 25000000" );
   cpuLevel( po( 1 ), 0 );
   member( 1, 1 ); // another configuration: nothing was accepted under it
   EXPECT_EQ( cpu( 1 ), "free at 25000000 of Port-Channel1" );
   cpuLevel( po( 1 ), 70 );
   EXPECT_EQ( cpu( 1 ), "70 kbps at 25000000 of Port-Channel1" );
   cpuLevel( po( 1 ), 0 );
   phys->intfStatus( eth( 1 ) )->activeIs( false );
   phys->intfStatus( eth( 1 ) )->activeIs( true );
   EXPECT_EQ( cpu( 1 ), "70 kbps at 25000000 of Port-Channel1" );
   of( po( 1 ) )->broadcastCpuLevelIs( OptionalThreshold() ); // none is not zero
   EXPECT_EQ( cpu( 1 ), "free at 25000000 of Port-Channel1" );
   for ( auto & call : notes().calls ) {
      EXPECT_EQ( call.find( "cpu Broadcast: 0" ), String::npos ) << call;
   }
}

TEST_F( StormFirst, TheChipHearsOfPortChannelsBeforeTheLevels ) {
   of( po( 1 ) );
   start();
   notes().take();
   member( 1, 1 );
   EXPECT_EQ( notes().calls[0], "Ethernet1 lag" );
   notes().take();
   broadcast( po( 1 ), 500 );
   EXPECT_EQ( notes().take(), ( Calls{ "Ethernet1 lag", "Ethernet1 skips not",
                                       "Ethernet1 Broadcast: 500 kbps at 0 of Port-Channel1" } ) );
   broadcast( eth( 1 ), 100 ); // not its port-channel's
   EXPECT_EQ( notes().take(), Calls{} );
   noConfig( po( 1 ) );
   EXPECT_EQ( notes().take()[0], "Ethernet1 lag" );
   member( 1, 0 );
   EXPECT_EQ( notes().take()[0], "Ethernet1 lag" );
}

TEST_F( StormFirst, TrafficClassesAreProgrammedOnceAndTakenBack ) {
   start();
   notes().take();
   config->aggregateTcIs( 3 )->thresholdIs( kbps( 7 ) );
   config->aggregateTcIs( 3 )->thresholdIs( kbps( 7 ) );
   EXPECT_EQ( notes().take(), ( Calls{ "class 3: free", "class 3: 7 kbps" } ) );
   EXPECT_EQ( status->aggregateTcStatus( 3 )->threshold(), kbps( 7 ) );
   config->aggregateTcDel( 3 );
   EXPECT_EQ( notes().take(), Calls{ "class 3: free" } );
   EXPECT_FALSE( status->aggregateTcStatusHas( 3 ) );
}

TEST_F( StormFirst, VerificationAsksForWhatIsExpected ) {
   phy( 2 )->activeIs( false );
   broadcast( eth( 1 ), 100 );
   broadcast( eth( 2 ), 100 );
   broadcast( po( 1 ), 500 );
   member( 3, 1 );
   config->aggregateTcIs( 3 )->thresholdIs( kbps( 7 ) );
   start();
   notes().take();
   acsd->verifyData()->runChecks();
   EXPECT_EQ(
         notes().take(),
         ( Calls{ "verify Ethernet2 off", "verify Ethernet2 free at 10000000",
                  "verify Ethernet1 on", "verify Ethernet1 100 kbps at 0", "verify Ethernet3 on",
                  "verify Ethernet3 500 kbps at 0 of Port-Channel1", "verify class 3 7 kbps" } ) );
}

// --- Hooks and watchers that do more than they should --------------------------------------------

TEST_F( StormFirst, AHookMayChangeWhatItIsAbout ) {
   start();
   notes().during = [&]( const String & call ) {
      if ( call.starts_with( "Ethernet1 Broadcast: 100 kbps" ) ) {
         notes().during = nullptr;
         member( 1, 1 );
         broadcast( po( 1 ), 500 );
         noConfig( eth( 1 ) );
         of( eth( 2 ) )->allLevelIs( kbps( 2 ) );
      }
   };
   broadcast( eth( 1 ), 100 );
   EXPECT_EQ( told( 1 ), "500 kbps at 0 of Port-Channel1" );
   EXPECT_EQ( notes().told["Ethernet2 All"], "2 kbps at 0" );
   EXPECT_EQ( sm->checkInvariants(), "" );
}

TEST_F( StormFirst, AHookThatRaisesIsCalledOnceMoreAndCostsNothingElse ) {
   U32 raises = 1;
   const auto raise = [&]( const String & call ) {
      if ( call.starts_with( "Ethernet1 Broadcast: 100" ) && raises ) {
         --raises;
         throw Velto::RangeError( "chip" );
      }
   };
   start();
   notes().during = raise;
   EXPECT_THROW( broadcast( eth( 1 ), 100 ), Velto::RangeError );
   EXPECT_EQ( told( 1 ), "100 kbps at 0" ) << "the second call";
   broadcast( eth( 2 ), 200 );
   EXPECT_EQ( told( 2 ), "200 kbps at 0" );
   raises = 2; // whatever is changed next asks again
   noConfig( eth( 1 ) );
   auto config = of( eth( 1 ) );
   EXPECT_THROW( config->broadcastLevelIs( kbps( 100 ) ), Velto::RangeError );
   EXPECT_TRUE( free( 1 ) );
   config->allLevelIs( kbps( 3 ) );
   EXPECT_EQ( told( 1 ), "100 kbps at 0" );
   EXPECT_EQ( sm->checkInvariants(), "" );
}

TEST_F( StormFirst, AHookMayEndTheStateMachineOrCleanItUp ) {
   phy( 1 );
   for ( bool cleanUp : { true, false } ) {
      start();
      notes().during = [&]( const String & call ) {
         if ( call.starts_with( "Ethernet1 Broadcast: 100" ) ) {
            notes().during = nullptr;
            cleanUp ? sm->doCleanup() : void( sm = nullptr );
         }
      };
      broadcast( eth( 1 ), 100 );
      broadcast( eth( 2 ), 100 ); // nobody hears it
      EXPECT_EQ( told( 2 ), "" );
      if ( cleanUp ) {
         EXPECT_TRUE( free( 1 ) ) << told( 1 );
         EXPECT_EQ( notes().told["Ethernet1 Multicast"], "free at 10000000" );
         EXPECT_EQ( status->intfStatuss(), 0u );
      }
      sm = nullptr;
      config->intfDelAll();
   }
}

TEST_F( StormFirst, AStartThatFailsCanBeRepeated ) {
   U32 failures = 2;
   notes().during = [&]( const String & call ) {
      if ( call == "hwInit" && failures ) {
         --failures;
         throw Velto::RangeError( "no chip" );
      }
   };
   broadcast( eth( 1 ), 100 );
   EXPECT_THROW( start(), Velto::RangeError );
   broadcast( eth( 2 ), 100 );
   EXPECT_EQ( told( 1 ) + told( 2 ), "" ) << "nothing without a start";
   sm->initializedIs( false );
   sm->initializedIs( true );
   EXPECT_EQ( told( 1 ), "100 kbps at 0" );
   EXPECT_EQ( told( 2 ), "100 kbps at 0" );
}

TEST_F( StormFirst, AHookThatAlwaysRaisesCostsNothingElse ) {
   start();
   broadcast( po( 1 ), 500 );
   notes().during = []( const String & call ) {
      if ( call.ends_with( " lag" ) || call.starts_with( "verify Ethernet1" ) ) {
         throw Velto::RangeError( "chip" );
      }
   };
   EXPECT_THROW( member( 1, 1 ), Velto::RangeError );
   EXPECT_THROW( member( 2, 1 ), Velto::RangeError );
   EXPECT_EQ( told( 1 ), "500 kbps at 0 of Port-Channel1" );
   notes().take();
   EXPECT_THROW( sm->handleVerify(), Velto::RangeError );
   EXPECT_EQ( notes().take().back(), "verify Ethernet2 500 kbps at 0 of Port-Channel1" );
}

TEST_F( StormFirst, AStartThatItsOwnHookCleansUpBeginsAnew ) {
   broadcast( eth( 1 ), 100 );
   notes().during = [&]( const String & call ) {
      if ( call == "installRules" ) {
         sm->doCleanup();
      }
   };
   sm = Qon::StormControlSmIs( inputs(), helper, acsd->verifyData() );
   sm->initializedIs( true );
   EXPECT_EQ( told( 1 ), "" );
   notes().during = nullptr;
   notes().take();
   sm->initializedIs( true );
   EXPECT_EQ( notes().take().front(), "hwInit" );
   EXPECT_EQ( told( 1 ), "100 kbps at 0" );
}

} // namespace
