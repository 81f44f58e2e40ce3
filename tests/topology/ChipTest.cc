// Port states down to the chip and back, for both kinds of chip.

#include "tests/topology/ChipWorld.h"

namespace {

using namespace Tests;
using Qon::HwOperationalMode;

constexpr PortState blocked = PortState::discarding, forwarding = PortState::forwarding;

class ChipTest : public testing::TestWithParam< ChipKind >, public ChipWorld {
 protected:
   ChipTest() : ChipWorld( GetParam() ) {}

   /** VLANs 10 and 20 in "a" (id 1), 30 in "b" (id 2); two ports in all of them. */
   void build() {
      stp.topo( "a", 1 );
      stp.topo( "b", 2 );
      for ( U32 vlan : { 10, 20, 30 } ) {
         stp.vlan( vlan, vlan == 30 ? "b" : "a" );
         for ( String port : { "Ethernet1", "Ethernet2", "Ethernet3", "Port-Channel1" } ) {
            member( port, vlan );
         }
      }
      for ( String topo : { "a", "b" } ) {
         stp.port( topo, "Ethernet1", blocked );
         stp.port( topo, "Ethernet2", forwarding );
      }
      run();
      rest();
      latencyIs( Kiv::never );
   }
   void expectRest() {
      rest();
      EXPECT_EQ( notAtRest(), "" );
   }
   bool acked( PortState state, const String & port = "Ethernet1" ) {
      return stp.acked( "a", port ) == int( state );
   }
};

TEST_P( ChipTest, AStateIsAcknowledgedOnlyAfterTheChipTookIt ) {
   build();
   EXPECT_EQ( notAtRest(), "" );
   EXPECT_TRUE( forwards( 10, "Ethernet2" ) );
   EXPECT_FALSE( forwards( 10, "Ethernet1" ) );
   stp.port( "a", "Ethernet1", forwarding );
   scheduler.settle();
   EXPECT_TRUE( acked( blocked ) );
   EXPECT_FALSE( forwards( 10, "Ethernet1" ) );
   while ( completions().waiting() > 1 ) {
      completions().finish( completions().waiting() - 1 ); // out of order
      scheduler.settle();
      EXPECT_TRUE( acked( blocked ) );
   }
   completions().finish( 0 );
   EXPECT_TRUE( acked( forwarding ) );
   EXPECT_TRUE( forwards( 10, "Ethernet1" ) && forwards( 20, "Ethernet1" ) );
   EXPECT_FALSE( forwards( 30, "Ethernet1" ) );
}

TEST_P( ChipTest, AStateThatChangesWhileTheChipWorksIsAcknowledgedOnce ) {
   build();
   stp.port( "a", "Ethernet1", forwarding );
   scheduler.settle();
   stp.port( "a", "Ethernet1", blocked );
   stp.port( "a", "Ethernet1", forwarding );
   stp.port( "a", "Ethernet2", blocked );
   scheduler.settle();
   expectRest();
   EXPECT_TRUE( acked( forwarding ) && acked( blocked, "Ethernet2" ) );
   EXPECT_EQ( stp.portStatus( "a", "Ethernet1" )->changeInfo().changeCount(), 3u );
}

TEST_P( ChipTest, AVlanThatMovesTakesTheStatesOfItsNewTopologyAndFreesTheOldOne ) {
   build();
   stp.port( "a", "Ethernet1", forwarding );
   scheduler.settle();
   stp.vlan( 10, "b" );
   stp.vlan( 20, "b" );
   scheduler.settle();
   EXPECT_EQ( broken(), "" );
   if ( kind == ChipKind::perVlan ) {
      // Nothing is left in the topology that could be waited for.
      EXPECT_TRUE( acked( forwarding ) );
   }
   expectRest();
   EXPECT_FALSE( forwards( 10, "Ethernet1" ) );
   EXPECT_TRUE( forwards( 10, "Ethernet2" ) );
   stp.config->vidToTopoMapDel( VlanId( 10 ) );
   expectRest();
   EXPECT_FALSE( forwards( 10, "Ethernet2" ) );
}

TEST_P( ChipTest, TheTopologyGoesAndComesBackWithAnotherIdWhileTheChipWorks ) {
   build();
   stp.port( "a", "Ethernet1", forwarding );
   scheduler.settle();
   stp.topoDel( "a" );
   scheduler.settle();
   const U32 old = completions().waiting();
   stp.topo( "a", 9 );
   stp.port( "a", "Ethernet1", forwarding );
   EXPECT_EQ( broken(), "" );
   // What is done for the old one is not done for the new one.
   for ( U32 i = 0; i < old; ++i ) {
      completions().finish( 0 );
   }
   EXPECT_TRUE( acked( PortState::disabled ) );
   expectRest();
   EXPECT_TRUE( acked( forwarding ) );
   EXPECT_TRUE( forwards( 20, "Ethernet1" ) );
   EXPECT_FALSE( forwards( 20, "Ethernet2" ) ); // no port of the topology any more
}

TEST_P( ChipTest, APortThatLeavesWhileTheChipWorksKeepsNobodyWaiting ) {
   build();
   stp.port( "a", "Ethernet1", forwarding );
   stp.port( "a", "Ethernet2", blocked );
   scheduler.settle();
   stp.config->topoConfig( "a" )->topoPortConfigDel( intf( "Ethernet1" ) );
   expectRest();
   EXPECT_EQ( stp.acked( "a", "Ethernet1" ), -1 );
   EXPECT_TRUE( acked( blocked, "Ethernet2" ) );
}

TEST_P( ChipTest, MembersFollowTheirAggregateInTheMiddleOfAnUpdate ) {
   build();
   stp.port( "a", "Port-Channel1", forwarding );
   stp.port( "a", "Ethernet3", blocked );
   lags.join( "Ethernet3", "Port-Channel1" );
   expectRest();
   EXPECT_TRUE( forwards( 10, "Ethernet3" ) );

   latencyIs( Kiv::never );
   stp.port( "a", "Port-Channel1", blocked );
   scheduler.settle();
   lags.join( "Ethernet1", "Port-Channel1" );
   lags.leave( "Ethernet3" );
   stp.port( "a", "Ethernet3", forwarding );
   stp.port( "a", "Port-Channel1", forwarding );
   scheduler.settle( 1 );
   lags.move( "Ethernet2", "Port-Channel1" );
   stp.port( "a", "Port-Channel1", blocked );
   expectRest();
   EXPECT_FALSE( forwards( 10, "Ethernet1" ) || forwards( 10, "Ethernet2" ) );
   EXPECT_TRUE( forwards( 10, "Ethernet3" ) );
   stp.port( "a", "Port-Channel1", forwarding );
   expectRest();
   EXPECT_TRUE( forwards( 10, "Ethernet1" ) && forwards( 20, "Ethernet2" ) );
   lags.leave( "Ethernet1" ); // its own state again
   expectRest();
   EXPECT_TRUE( forwards( 10, "Ethernet1" ) == ( stp.acked( "a", "Ethernet1" ) == 3 ) );
}

TEST_P( ChipTest, TapAggregationInEveryPhaseOfAnUpdate ) {
   build();
   tapAggTopo( "tapAgg", 100 );
   tapAgg->tapIntfIs( intf( "Ethernet1" ) );
   member( "Ethernet1", 40 );
   member( "Ethernet2", 40 );
   for ( U32 phase = 0; phase < 4; ++phase ) {
      latencyIs( Kiv::never );
      stp.port( "a", "Ethernet1", phase % 2 ? blocked : forwarding );
      stp.port( "a", "Ethernet2", phase % 2 ? forwarding : blocked );
      scheduler.settle( phase );
      mode( HwOperationalMode::tapAgg );
      EXPECT_TRUE( acked( forwarding ) );
      EXPECT_EQ( broken(), "" );
      stp.config->vidToTopoMapDel( VlanId( 20 ) );
      stp.port( "a", "Ethernet1", phase % 2 ? forwarding : blocked );
      expectRest();
      EXPECT_TRUE( forwards( 40, "Ethernet1" ) && forwards( 20, "Ethernet1" ) );
      EXPECT_FALSE( forwards( 40, "Ethernet2" ) );
      latencyIs( Kiv::never );
      scheduler.settle( phase );
      mode( HwOperationalMode::switching );
      EXPECT_EQ( broken(), "" );
      stp.vlan( 20, "a" );
      expectRest();
      EXPECT_FALSE( forwards( 40, "Ethernet1" ) );
   }
}

TEST_P( ChipTest, LatencyPassesWithTime ) {
   build();
   latencyIs( 0.5 );
   stp.port( "a", "Ethernet1", forwarding );
   scheduler.runFor( 0.4 );
   EXPECT_TRUE( acked( blocked ) );
   scheduler.runFor( 0.2 );
   EXPECT_TRUE( acked( forwarding ) );
}

INSTANTIATE_TEST_SUITE_P( Kinds, ChipTest, bothKinds(), kindName );

TEST( TopoTableTest, ATopologyWithoutRoomWaitsForAnotherToGo ) {
   TopologyWorld world;
   SoftChip::FaultPlan faults;
   faults.limitIs( "topoTable", 1 );
   SoftChip::TopoTable chip( 64, faults );
   world.stp.topo( "a", 1 );
   world.stp.topo( "b", 2 );
   world.stp.vlan( 10, "b" );
   world.stp.port( "b", "Ethernet1", forwarding );
   world.start( Velto::make< SoftChip::SoftTopoHelper >( chip ) );
   EXPECT_EQ( chip.topologies(), std::vector< String >{ "a" } );
   EXPECT_EQ( world.stp.acked( "b", "Ethernet1" ), 0 );
   EXPECT_FALSE( chip.forwards( 10, intf( "Ethernet1" ) ) );
   world.stp.topoDel( "a" );
   EXPECT_EQ( world.stp.acked( "b", "Ethernet1" ), 3 );
   EXPECT_TRUE( chip.forwards( 10, intf( "Ethernet1" ) ) );
   world.stpSm = nullptr; // before the chip
}

} // namespace
