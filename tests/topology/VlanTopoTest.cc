// The walks of topologies over VLANs, and what their acknowledgements wait for.

#include <functional>

#include "tests/topology/ChipWorld.h"

namespace {

using namespace Tests;

class VlanTopoTest : public testing::Test, public ChipWorld {
 protected:
   VlanTopoTest() : ChipWorld( ChipKind::perVlan ) {}
   void build( U32 vlanCount = 8 ) {
      stp.topo( "a", 1 );
      stp.topo( "b", 2 );
      for ( U32 vlan = 1; vlan <= vlanCount; ++vlan ) {
         stp.vlan( vlan, "a" );
         member( "Ethernet1", vlan );
         member( "Ethernet2", vlan );
      }
      stp.port( "a", "Ethernet1", blocked );
      stp.port( "a", "Ethernet2", blocked );
      run();
      rest();
   }
   /** One unit of work a slice. */
   void slow() {
      Kiv::SliceBudget budget;
      budget.units = 1;
      scheduler.budgetIs( budget );
   }
};

TEST_F( VlanTopoTest, ChangesThatWaitAreMergedIntoOneWalk ) {
   build();
   latencyIs( Kiv::never );
   stp.port( "a", "Ethernet1", forwarding );
   stp.port( "b", "Ethernet1", forwarding );
   stp.port( "a", "Ethernet1", blocked );
   stp.port( "a", "Ethernet2", forwarding );
   stp.port( "a", "Ethernet1", forwarding );
   EXPECT_EQ( vlanTopo->remainingWorkUnits(), 2u );
   auto update = vlanTopo->topoUpdateMap( "a" );
   EXPECT_EQ( update->stpStateChanges(), 2u );
   EXPECT_EQ( update->stpStateChange( intf( "Ethernet1" ) ), forwarding );
   slow();
   U32 slices = 0;
   for ( ; vlanTopo->remainingWorkUnits(); ++slices ) {
      scheduler.turn();
   }
   // A slice for each VLAN, one for the end of the walk and one for the topology without VLANs.
   EXPECT_LE( slices, 8u + 2 );
   EXPECT_EQ( stp.acked( "b", "Ethernet1" ), 3 ); // no VLANs, nothing to wait for
   EXPECT_EQ( stp.acked( "a", "Ethernet1" ), 1 );
   EXPECT_EQ( vlanTopo->topoPendingVlans( "a" )->pendingVlanUpdateGenIds(), 8u );
   rest();
   EXPECT_EQ( stp.acked( "a", "Ethernet1" ), 3 );
   EXPECT_EQ( vlanTopo->topoPendingVlans( "a" ), nullptr );
}

TEST_F( VlanTopoTest, AnOlderGenerationAcknowledgesNothing ) {
   build( 1 );
   latencyIs( Kiv::never );
   stp.port( "a", "Ethernet1", forwarding );
   scheduler.settle();
   const U64 wanted = vlans->updateState( VlanId( 1 ) ).requested;
   vlanTopo->handleVlanUpdateCompletion( 1, wanted - 1 );
   vlanTopo->handleVlanUpdateCompletion( 2, wanted );
   EXPECT_EQ( stp.acked( "a", "Ethernet1" ), 1 );
   vlanTopo->handleVlanUpdateCompletion( 1, wanted );
   EXPECT_EQ( stp.acked( "a", "Ethernet1" ), 3 );
}

TEST_F( VlanTopoTest, AnAcknowledgementWaitsForNothingThatOthersAskedFor ) {
   build( 1 );
   stp.port( "a", "Ethernet1", forwarding );
   rest();
   latencyIs( Kiv::never );
   // Another feature's change is under way in the VLAN, and fails for ever.
   member( "Ethernet3", 1 );
   scheduler.settle();
   vlans->updateVlanDone( VlanId( 1 ), Qon::VlanProgrammingStatus::failed );
   stp.port( "a", "Ethernet4", forwarding ); // no member of the VLAN
   scheduler.settle();
   EXPECT_EQ( stp.acked( "a", "Ethernet4" ), int( forwarding ) );
   // What its own states changed is waited for.
   stp.port( "a", "Ethernet1", blocked );
   scheduler.settle();
   stp.port( "a", "Ethernet4", blocked );
   scheduler.settle();
   EXPECT_EQ( stp.acked( "a", "Ethernet4" ), int( forwarding ) );
   rest();
   EXPECT_EQ( stp.acked( "a", "Ethernet1" ), int( blocked ) );
}

TEST_F( VlanTopoTest, AnAcknowledgementWaitsForItsOwnVlansOnly ) {
   build( 1 );
   slow();
   latencyIs( Kiv::never );
   stp.port( "b", "Ethernet1", forwarding );
   scheduler.turn(); // the update of "b", which has no VLANs, is about to end
   stp.vlan( 2, "a" );
   stp.vlan( 3, "a" );
   EXPECT_EQ( vlanTopo->topoVlanOp( 2 ), "a" );
   while ( vlanTopo->currentTopoUpdate() ) {
      scheduler.turn();
   }
   EXPECT_NE( vlanTopo->remainingWorkUnits(), 0u );
   EXPECT_EQ( stp.acked( "b", "Ethernet1" ), int( forwarding ) );
   // A VLAN that is about to enter holds back, until it goes elsewhere.
   stp.port( "a", "Ethernet4", forwarding );
   stp.port( "b", "Ethernet4", forwarding );
   stp.vlan( 4, "b" );
   vlanTopo->handleVlanUpdateCompletion( 1, ~U64( 0 ) );
   EXPECT_EQ( stp.acked( "b", "Ethernet4" ), int( PortState::disabled ) );
   rest();
   EXPECT_EQ( stp.acked( "b", "Ethernet4" ), int( forwarding ) );
}

TEST_F( VlanTopoTest, AVlanThatMovesCarriesAlongWhatItWasTold ) {
   build( 1 );
   stp.port( "a", "Ethernet2", forwarding );
   rest();
   latencyIs( Kiv::never );
   // Blocked on leaving one topology, the VLAN need not be blocked on entering another.
   stp.config->vidToTopoMapDel( VlanId( 1 ) );
   scheduler.settle();
   stp.port( "b", "Ethernet2", blocked );
   stp.vlan( 1, "b" );
   scheduler.settle();
   EXPECT_TRUE( forwards( 1, "Ethernet2" ) );
   EXPECT_EQ( stp.acked( "b", "Ethernet2" ), int( PortState::disabled ) );
   rest();
   EXPECT_EQ( stp.acked( "b", "Ethernet2" ), int( blocked ) );

   // The same where the last thing it was told of is a state.
   stp.vlan( 1, "a" );
   stp.port( "a", "Ethernet2", forwarding );
   rest();
   latencyIs( Kiv::never );
   stp.port( "a", "Ethernet2", blocked );
   scheduler.settle();
   stp.vlan( 1, "b" );
   stp.port( "b", "Ethernet2", learning );
   scheduler.settle();
   EXPECT_TRUE( forwards( 1, "Ethernet2" ) );
   EXPECT_EQ( stp.acked( "b", "Ethernet2" ), int( blocked ) );
   rest();
   EXPECT_EQ( stp.acked( "b", "Ethernet2" ), int( learning ) );
}

TEST_F( VlanTopoTest, AVlanWithoutMembersHoldsBackUntilItHasEntered ) {
   build( 1 );
   for ( U32 vlan : { 5, 6, 7 } ) {
      stp.vlan( vlan, "b" );
   }
   rest();
   slow();
   stp.port( "b", "Ethernet4", forwarding );
   while ( !vlanTopo->currentTopoUpdate() ) {
      scheduler.turn();
   }
   U32 slices = 0;
   for ( U32 vlan = 11; vlan <= 20; ++vlan ) {
      stp.vlan( vlan, "b" );
   }
   for ( ; vlanTopo->remainingWorkUnits(); ++slices ) {
      EXPECT_EQ( stp.acked( "b", "Ethernet4" ), int( PortState::disabled ) );
      scheduler.turn();
   }
   EXPECT_GE( slices, 10u ); // one for each that enters
   EXPECT_EQ( stp.acked( "b", "Ethernet4" ), int( forwarding ) );
}

TEST_F( VlanTopoTest, ATopologyThatComesBackWaitsForNothingOfTheFormerOne ) {
   build( 1 );
   latencyIs( Kiv::never );
   stp.port( "a", "Ethernet1", forwarding );
   scheduler.settle();
   ASSERT_NE( vlanTopo->topoPendingVlans( "a" ), nullptr );
   stp.topoDel( "a" ); // while the VLAN is still mapped to it
   EXPECT_EQ( vlanTopo->topoPendingVlans( "a" ), nullptr );
   stp.config->vidToTopoMapDelAll();
   stp.topo( "a", 1 );
   stp.port( "a", "Ethernet1", forwarding );
   scheduler.settle();
   EXPECT_EQ( stp.acked( "a", "Ethernet1" ), int( forwarding ) );
}

/** Does something once, when the status of a port is written. */
class Watcher : public Velto::Node {
 public:
   Watcher( const Bridging::Topology::TopoPortStatus * status, std::function< void() > act )
       : act_( std::move( act ) ) {
      hasNotificationActiveIs( true );
      watch_.attach( this, status );
   }
   void handleState() {
      watch_.detach();
      act_();
   }

 private:
   std::function< void() > act_;
   Kiv::Watch< Bridging::Topology::TopoPortStatus::stateAttr, Watcher, &Watcher::handleState >
         watch_;
};

TEST_F( VlanTopoTest, WhatWatchersOfAnAcknowledgementChangeHoldsForTheVlansThatFollow ) {
   build( 1 );
   stp.port( "b", "Ethernet1", forwarding );
   stp.port( "b", "Ethernet2", forwarding );
   rest();
   for ( U32 vlan : { 11, 12 } ) {
      member( "Ethernet1", vlan );
      member( "Ethernet2", vlan );
   }
   // In one slice: a VLAN enters "b", "a" is acknowledged, another VLAN enters "b".
   stp.vlan( 11, "b" );
   stp.port( "a", "Ethernet3", forwarding );
   auto watcher = Velto::make< Watcher >( stp.portStatus( "a", "Ethernet3" ), [&] {
      stp.port( "b", "Ethernet1", blocked );
      stp.config->topoConfig( "b" )->topoPortConfigDel( intf( "Ethernet2" ) );
      stp.vlan( 12, "b" );
   } );
   rest();
   EXPECT_EQ( notAtRest(), "" );
   EXPECT_FALSE( forwards( 12, "Ethernet1" ) || forwards( 12, "Ethernet2" ) );
}

TEST_F( VlanTopoTest, APortThatGoesDuringItsUpdateForwardsInNoFurtherVlan ) {
   build();
   slow();
   stp.port( "a", "Ethernet1", forwarding );
   for ( U32 turn = 0; turn < 3; ++turn ) {
      scheduler.turn();
   }
   ASSERT_NE( vlanTopo->currentTopoUpdate(), nullptr );
   stp.config->topoConfig( "a" )->topoPortConfigDel( intf( "Ethernet1" ) );
   rest();
   EXPECT_FALSE( forwards( 8, "Ethernet1" ) );
}

TEST_F( VlanTopoTest, ATapPortThatGoesDuringItsUpdateForwardsInNoFurtherVlan ) {
   build();
   tapAggTopo( "tap", 100 );
   mode( Qon::HwOperationalMode::tapAgg );
   for ( U32 vlan = 20; vlan < 40; ++vlan ) {
      member( "Ethernet3", vlan );
   }
   rest();
   slow();
   tapAgg->tapIntfIs( intf( "Ethernet3" ) );
   for ( U32 turn = 0; !forwards( 20, "Ethernet3" ); ++turn ) {
      ASSERT_LT( turn, 4094u );
      scheduler.turn();
      completions().finishAll();
   }
   tapAgg->tapIntfDel( intf( "Ethernet3" ) );
   for ( U32 turn = 0; turn < 40; ++turn ) {
      scheduler.turn();
      completions().finishAll();
      EXPECT_FALSE( forwards( 39, "Ethernet3" ) );
   }
}

TEST_F( VlanTopoTest, ACleanUpAndAnotherStateMachineLeaveNothingBehind ) {
   build();
   latencyIs( Kiv::never );
   stp.port( "a", "Ethernet1", forwarding );
   scheduler.settle();
   stp.vlan( 9, "a" );
   stpSm->doCleanup();
   scheduler.settle();
   EXPECT_EQ( vlanTopo->remainingWorkUnits() + vlanTopo->topoPendingVlanss(), 0u );

   stpSm->initializedIs( true );
   scheduler.settle();
   ASSERT_NE( vlanTopo->topoPendingVlanss(), 0u );
   stp.config->vidToTopoMapDelAll();
   stp.vlan( 10, "a" );
   stpSm = nullptr;
   stp.config->vidToTopoMapDelAll();
   start( helper ); // before the task has run
   EXPECT_EQ( vlanTopo->topoPendingVlanss(), 0u );
   EXPECT_FALSE( vlanTopo->topoVlanOpHas( 10 ) );
   scheduler.settle();
   EXPECT_EQ( broken(), "" );
   EXPECT_EQ( stp.acked( "a", "Ethernet1" ), int( forwarding ) );
}

TEST_F( VlanTopoTest, AQueuedOrUnfinishedUpdateHoldsTheAcknowledgementBack ) {
   build();
   latencyIs( 0 );
   slow();
   stp.port( "a", "Ethernet1", forwarding );
   for ( U32 turn = 0; turn < 5; ++turn ) {
      scheduler.turn(); // VLANs complete while the walk goes on
   }
   ASSERT_NE( vlanTopo->currentTopoUpdate(), nullptr );
   EXPECT_EQ( stp.acked( "a", "Ethernet1" ), 1 );
   stp.port( "a", "Ethernet2", forwarding );
   while ( vlanTopo->currentTopoUpdate() ) {
      scheduler.turn();
   }
   EXPECT_EQ( stp.acked( "a", "Ethernet1" ), 1 ); // another update of it is queued
   rest();
   EXPECT_EQ( stp.acked( "a", "Ethernet1" ), 3 );
}

TEST_F( VlanTopoTest, VlansLeaveAndEnterInTheMiddleOfAWalk ) {
   build();
   slow();
   stp.port( "a", "Ethernet1", forwarding );
   for ( U32 turn = 0; turn < 3; ++turn ) {
      scheduler.turn();
   }
   stp.vlan( 8, "b" );
   stp.vlan( 1, "b" );
   stp.vlan( 9, "a" );
   member( "Ethernet1", 9 );
   stp.vlan( 7, "b" );
   stp.vlan( 7, "a" );
   while ( vlanTopo->currentTopoUpdate() ) {
      scheduler.turn();
      EXPECT_FALSE( vlans->forwards( intf( "Ethernet1" ), VlanId( 8 ) ) ); // not for a moment
   }
   rest();
   EXPECT_EQ( notAtRest(), "" );
   EXPECT_FALSE( forwards( 8, "Ethernet1" ) || forwards( 1, "Ethernet1" ) );
   EXPECT_TRUE( forwards( 7, "Ethernet1" ) && forwards( 9, "Ethernet1" ) );
}

TEST_F( VlanTopoTest, AVlanThatHasMovedOnIsNotAddedToItsFormerTopology ) {
   build();
   stp.port( "b", "Ethernet1", forwarding );
   stp.vlan( 8, "b" );
   rest();
   vlanTopo->deferredAddVlanToTopo( "a", 8 );
   rest();
   EXPECT_TRUE( forwards( 8, "Ethernet1" ) );
}

TEST_F( VlanTopoTest, ToolPortsForwardInNoVlanOfAnotherTopology ) {
   build();
   for ( U32 vlan : { 20, 30 } ) {
      member( "Ethernet3", vlan );
   }
   tapAggTopo( "tapAgg", 100 );
   tapAgg->toolIntfIs( intf( "Ethernet3" ) );
   mode( Qon::HwOperationalMode::tapAgg );
   rest();
   EXPECT_TRUE( forwards( 20, "Ethernet3" ) && forwards( 30, "Ethernet3" ) );
   stp.vlan( 20, "a" );
   rest();
   EXPECT_TRUE( !forwards( 20, "Ethernet3" ) && forwards( 30, "Ethernet3" ) );
}

TEST_F( VlanTopoTest, AWaitForNothingIsABrokenInvariant ) {
   build( 1 );
   latencyIs( Kiv::never );
   // A chip that has a VLAN enter of its own accord, and nobody has mapped it.
   member( "Ethernet1", 9 );
   vlanTopo->deferredAddVlanToTopo( "a", 9 );
   EXPECT_EQ( vlanTopo->checkInvariants(), "a waits for VLAN 9, which is not in it" );
   rest();
   EXPECT_EQ( broken(), "" );
   // A completion that went unheard.
   latencyIs( Kiv::never );
   stp.port( "a", "Ethernet1", forwarding );
   scheduler.settle();
   vlanTopo->hasNotificationActiveIs( false );
   completions().finishAll();
   vlanTopo->hasNotificationActiveIs( true );
   EXPECT_EQ( vlanTopo->checkInvariants(), "a waits for VLAN 1, which is done" );
}

TEST_F( VlanTopoTest, WithoutAVlanHelperEverythingIsDone ) {
   build();
   latencyIs( Kiv::never );
   stp.port( "a", "Ethernet1", forwarding );
   scheduler.settle();
   vlanTopo->vlanHelperIs( nullptr );
   scheduler.settle();
   EXPECT_EQ( stp.acked( "a", "Ethernet1" ), 3 );
   stp.port( "b", "Ethernet1", forwarding );
   stp.vlan( 1, "b" );
   scheduler.settle();
   EXPECT_EQ( stp.acked( "b", "Ethernet1" ), 3 );
}

TEST_F( VlanTopoTest, AnotherVlanHelperIsToldEverything ) {
   build();
   latencyIs( Kiv::never );
   stp.port( "a", "Ethernet1", forwarding );
   scheduler.settle(); // waits for the helper that goes
   vlanTopo->vlanHelperIs( nullptr );
   vlans = nullptr; // the chip has one at a time
   vlans = Velto::make< SoftChip::SoftVlanHelper >( "others", acsd.ptr(), vlanTable );
   vlanTopo->vlanHelperIs( vlans );
   member( "Ethernet1", 8 );
   member( "Ethernet2", 8 );
   EXPECT_EQ( stp.acked( "a", "Ethernet1" ), int( blocked ) );
   rest();
   EXPECT_EQ( notAtRest(), "" );
   EXPECT_TRUE( forwards( 8, "Ethernet1" ) && !forwards( 8, "Ethernet2" ) );
   EXPECT_EQ( stp.acked( "a", "Ethernet1" ), int( forwarding ) );
}

TEST_F( VlanTopoTest, APortWhoseStateRaisesKeepsNoOtherBack ) {
   struct Raising : SoftChip::SoftVlanHelper {
      using SoftVlanHelper::SoftVlanHelper;
      U64 doHandlePortState( IntfId port, VlanId vlan, bool forwarding ) override {
         if ( std::exchange( raises, false ) ) {
            throw Velto::RangeError( "chip" );
         }
         return SoftVlanHelper::doHandlePortState( port, vlan, forwarding );
      }
      bool raises = false;
   };
   build( 1 );
   vlanTopo->vlanHelperIs( nullptr );
   vlans = nullptr;
   auto raising = Velto::make< Raising >( "raising", acsd.ptr(), vlanTable );
   vlans = raising;
   vlanTopo->vlanHelperIs( vlans );
   member( "Ethernet1", 1 );
   member( "Ethernet2", 1 );
   rest();
   stp.port( "a", "Ethernet1", forwarding );
   stp.port( "a", "Ethernet2", forwarding );
   raising->raises = true;
   EXPECT_THROW( scheduler.settle(), Velto::RangeError );
   rest();
   EXPECT_TRUE( forwards( 1, "Ethernet2" ) && !forwards( 1, "Ethernet1" ) );
}

/** What the former helper's chip holds by now is of no account to another chip. */
TEST_F( VlanTopoTest, AnotherChipIsToldWhatHasBeenDoneLongAgo ) {
   build();
   stp.port( "a", "Ethernet1", forwarding );
   rest();
   SoftChip::VlanTable blank{ faults };
   auto others = Velto::make< SoftChip::SoftVlanHelper >( "others", acsd.ptr(), blank );
   for ( String port : { "Ethernet1", "Ethernet2" } ) {
      others->requestPortVlanMembershipChange( Qon::PortVlanMembershipChangeKind::setOverride,
                                               intf( port ), VlanId( 8 ), true, true, true );
   }
   vlanTopo->vlanHelperIs( others );
   for ( U32 round = 0; round < 10; ++round ) {
      scheduler.settle();
      blank.completions().finishAll();
   }
   EXPECT_TRUE( blank.has( VlanId( 8 ), intf( "Ethernet1" ) ) );
   EXPECT_FALSE( blank.has( VlanId( 8 ), intf( "Ethernet2" ) ) ); // blocked
   stpSm = nullptr;
   vlanTopo->vlanHelperIs( nullptr ); // its table goes first
}

TEST_F( VlanTopoTest, AVlanOutOfRangeIsRefusedAndForgotten ) {
   build( 1 );
   for ( U16 vlan : { 0, 4095 } ) {
      vlanTopo->addVlanToTopo( "a", vlan );
      try {
         vlanTopo->performVlanTopoOperations();
         ADD_FAILURE() << vlan;
      } catch ( const Velto::RangeError & e ) {
         EXPECT_STREQ( e.what(), "Bridging::VlanId::value < 1 or > 4094 not allowed" );
      }
      EXPECT_EQ( vlanTopo->remainingWorkUnits(), 0u );
   }
   vlanTopo->delVlanFromTopo( "a", 4095 );
   EXPECT_THROW( vlanTopo->performVlanTopoOperations(), Velto::RangeError );
}

TEST_F( VlanTopoTest, TheTaskOutlivesTheStateMachine ) {
   build();
   stp.port( "a", "Ethernet1", forwarding );
   stp.vlan( 9, "a" );
   stp.config->vidToTopoMapDel( VlanId( 8 ) );
   stpSm = nullptr;
   scheduler.settle();
   EXPECT_EQ( vlanTopo->remainingWorkUnits(), 0u );
}

} // namespace
