// Tap ports and tool ports: their set-up, their settings, port-channels and members.

#include "tests/tapagg/TapAggWorld.h"

namespace {

using namespace TapAggTests;
using Bridging::Input::ToolIdentityMode;

TEST( TapAggPort, IsSetUpInOrderAndTakenBackInReverse ) {
   TapAggWorld w;
   w.startInMode();
   w.otherMode();
   w.wait( 10 );
   auto made = w.tap( eth( 1 ), "a" );
   made->truncationSizeIs( 100 );
   made->identityIs( Bridging::IdentityTuple( 10, 20 ) );
   made->vxlanStripIs( true );
   auto tool = w.tool( eth( 11 ), "a" );
   tool->identityTaggingIs( ToolIdentityMode::qinq );
   tool->brStripIs( true );
   w.log.take();
   w.mode();
   EXPECT_EQ(
         w.log.take(),
         Calls( { "hwInit", "getMaxExternalFrameSizeTapAgg", "toolPortIs Ethernet11, True, False",
                  "taggingOnEgressIs Ethernet11, qinq", "toolBrStripIs Ethernet11, True",
                  "allocateAggGroup a", "addToolPortAssociation Ethernet11, 1",
                  "tapPortIs Ethernet1, True, False", "tapTruncationSizeIs Ethernet1, 100",
                  "identityTagIs Ethernet1, " + Kiv::toText( Bridging::IdentityTuple( 10, 20 ) ),
                  "tapVxlanStripIs Ethernet1, True", "addTapPortAssociation Ethernet1, 1" } ) );
   EXPECT_EQ( w.sm->initedTapPortCount(), 1 );
   EXPECT_EQ( w.sm->initedToolPortCount(), 1 );
   EXPECT_EQ( w.reached( eth( 1 ) ), "Ethernet11" );
   w.otherMode();
   EXPECT_EQ(
         w.log.take(),
         Calls( { "removeTapPortAssociation Ethernet1", "tapVxlanStripIs Ethernet1, False",
                  "identityTagIs Ethernet1, " + Kiv::toText( Bridging::IdentityTuple() ),
                  "tapTruncationSizeIs Ethernet1, 0", "tapPortIs Ethernet1, False, False",
                  "removeToolPortAssociation Ethernet11, 1", "toolBrStripIs Ethernet11, False",
                  "taggingOnEgressIs Ethernet11, none", "toolPortIs Ethernet11, False, False" } ) );
   EXPECT_EQ( w.sm->initedTapPortCount() + w.sm->initedToolPortCount(), 0 );
}

TEST( TapAggPort, EachSettingIsToldOnceAndTakenBack ) {
   TapAggWorld w;
   auto tap = w.tap( eth( 1 ), "a" );
   auto tool = w.tool( eth( 11 ), "a" );
   w.startInMode();
   const auto mac = Ulnet::EthAddr( U64( 5 ) );
   const auto end = Ulnet::IpGenAddr( "10.0.0.1" );
   const std::vector< std::pair< String, std::function< void( bool ) > > > settings = {
         { "tapTruncationSizeIs", [&]( bool on ) { tap->truncationSizeIs( on ? 64 : 0 ); } },
         { "identityTagIs",
           [&]( bool on ) {
              tap->identityIs( on ? Bridging::IdentityTuple( 1, 2 ) : Bridging::IdentityTuple() );
           } },
         { "tapMacAddressIs",
           [&]( bool on ) { tap->macAddressIs( on ? mac : Ulnet::EthAddr() ); } },
         { "tapHeaderRemoveIs", [&]( bool on ) { tap->headerRemoveIs( on ? 8 : 0 ); } },
         { "tapGreStripIs", [&]( bool on ) { tap->greStripIs( on ); } },
         { "tapGreStripForEpIs", [&]( bool on ) { tap->greStripForEpIs( end, on ); } },
         { "tapVxlanStripIs", [&]( bool on ) { tap->vxlanStripIs( on ); } },
         { "tapMplsPopIs", [&]( bool on ) { tap->mplsPopIs( on ); } },
         { "toolTruncationSizeIs", [&]( bool on ) { tool->truncationSizeIs( on ? 64 : 0 ); } },
         { "taggingOnEgressIs",
           [&]( bool on ) {
              tool->identityTaggingIs( on ? ToolIdentityMode::dot1q : ToolIdentityMode::none );
           } },
         { "toolDot1qRemoveIs", [&]( bool on ) { tool->dot1qRemoveIs( on ? 2 : 0 ); } },
         { "toolBrStripIs", [&]( bool on ) { tool->brStripIs( on ); } },
         { "toolVnStripIs", [&]( bool on ) { tool->vnStripIs( on ); } },
         { "toolMplsPopIs", [&]( bool on ) { tool->mplsPopIs( on ); } } };
   for ( auto & [hook, set] : settings ) {
      for ( bool on : { true, false } ) {
         set( on );
         ASSERT_EQ( w.log.calls.size(), 1u ) << hook;
         EXPECT_TRUE( w.log.take()[0].starts_with( hook + " Ethernet" ) ) << hook;
      }
      set( true );
      w.log.take();
   }
   // What a configuration that goes had set goes with it; one that comes anew has nothing of it.
   w.config->tapPortDel( eth( 1 ) );
   w.config->toolPortDel( eth( 11 ) );
   EXPECT_EQ( w.log.take().size(), settings.size() + 4 );
   w.tap( eth( 1 ), "a" );
   w.tool( eth( 11 ), "a" );
   EXPECT_EQ( w.log.take().size(), 4u );
   EXPECT_EQ( w.reached( eth( 1 ) ), "Ethernet11" );
}

TEST( TapAggPort, FramesOfARawPortPassAsTheyAre ) {
   TapAggWorld w;
   auto tap = w.tap( eth( 1 ), "a" );
   w.tool( eth( 11 ), "a" );
   tap->mplsPopIs( true );
   tap->greStripForEpIs( Ulnet::IpGenAddr( "10.0.0.1" ), true );
   w.config->tapRawIntfIs( eth( 1 ) );
   w.startInMode();
   QonChip::HeldTapPort neutral;
   neutral.group = w.id( "a" );
   EXPECT_EQ( w.table.held().taps.at( eth( 1 ) ), neutral );
   tap->headerRemoveIs( 4 );
   EXPECT_EQ( w.log.take(), Calls() );
   w.config->tapRawIntfDel( eth( 1 ) );
   EXPECT_EQ( w.log.take(),
              Calls( { "tapHeaderRemoveIs Ethernet1, 4", "tapMplsPopIs Ethernet1, True",
                       "tapGreStripForEpIs Ethernet1, 10.0.0.1, True" } ) );
}

TEST( TapAggPort, TruncationHasTheChipsBound ) {
   TapAggWorld w;
   auto tap = w.tap( eth( 1 ), "" );
   tap->truncationSizeIs( 1001 );
   w.startInMode();
   EXPECT_EQ( w.table.held().taps.at( eth( 1 ) ).truncationSize, 1000u );
   tap->truncationSizeIs( 2000 );
   EXPECT_EQ( w.log.take(), Calls() );
   // Another profile may have another bound.
   w.config->tcamProfileIs( "long" );
   EXPECT_EQ( w.log.take(),
              Calls( { "handleTcamProfile long", "getMaxExternalFrameSizeTapAgg" } ) );
   w.otherMode();
   w.log.take();
   w.config->tcamProfileIs( "" );
   EXPECT_EQ( w.log.take(), Calls{ "handleTcamProfile" } );
}

TEST( TapAggPort, APortCanBeBoth ) {
   TapAggWorld w;
   w.tap( eth( 1 ), "a" );
   w.tool( eth( 1 ), "b" );
   w.tap( eth( 2 ), "b" );
   w.startInMode();
   EXPECT_EQ( w.reached( eth( 2 ) ), "Ethernet1" );
   w.config->tapPortDel( eth( 1 ) );
   EXPECT_EQ( w.reached( eth( 2 ) ), "Ethernet1" );
   EXPECT_EQ( w.sm->initedTapPortCount(), 1 );
   EXPECT_EQ( w.sm->initedToolPortCount(), 1 );
}

TEST( TapAggPort, ToolPortChannelsCarryByTheirMembers ) {
   TapAggWorld w;
   w.tap( eth( 1 ), "a" );
   w.tool( po( 1 ), "a" );
   w.join( 1, 5 );
   w.startInMode();
   EXPECT_EQ( w.reached( eth( 1 ) ), "Port-Channel1(Ethernet5)" );
   w.join( 1, 6 );
   EXPECT_EQ( w.log.take(),
              Calls{ "updateToolInterfaceLagMembership Port-Channel1, Ethernet6, 1, True" } );
   w.leave( 1, 5 );
   EXPECT_EQ( w.log.take(),
              Calls{ "updateToolInterfaceLagMembership Port-Channel1, Ethernet5, 1, False" } );
   w.tool( po( 1 ), "b" );
   w.config->toolPort( po( 1 ) )->groupDel( "a" );
   EXPECT_EQ( w.log.take(),
              Calls( { "allocateAggGroup b", "addToolPortAssociation Port-Channel1, 2",
                       "updateToolInterfaceLagMembership Port-Channel1, Ethernet6, 2, True",
                       "updateToolInterfaceLagMembership Port-Channel1, Ethernet6, 1, False",
                       "removeToolPortAssociation Port-Channel1, 1" } ) );
   w.config->toolPortDel( po( 1 ) );
   EXPECT_EQ( w.log.take(),
              Calls( { "updateToolInterfaceLagMembership Port-Channel1, Ethernet6, 2, False",
                       "removeToolPortAssociation Port-Channel1, 2",
                       "toolPortIs Port-Channel1, False, True" } ) );
}

TEST( TapAggPort, AMemberIsNothingOfItsOwn ) {
   TapAggWorld w;
   w.tap( eth( 1 ), "a" );
   w.tool( eth( 11 ), "a" );
   w.tap( po( 1 ), "b" );
   w.startInMode();
   w.join( 1, 1 );
   EXPECT_FALSE( w.table.held().taps.contains( eth( 1 ) ) );
   EXPECT_TRUE( w.table.held().taps.contains( po( 1 ) ) );
   EXPECT_EQ( w.sm->tapSm( eth( 1 ) )->reason(), Qon::TapAggReason::lagMember );
   w.log.take();
   w.config->tapPort( eth( 1 ) )->mplsPopIs( true );
   w.tap( eth( 1 ), "c" );
   EXPECT_EQ( w.log.take(), Calls() );
   EXPECT_FALSE( w.sm->groupInUse( "c" ) );
   w.leave( 1, 1 );
   EXPECT_TRUE( w.table.held().taps.at( eth( 1 ) ).mplsPop );
   EXPECT_TRUE( w.sm->groupInUse( "c" ) );
   EXPECT_EQ( w.broken(), "" );
}

TEST( TapAggPort, AnInactiveToolIsInNoGroup ) {
   TapAggWorld w;
   w.tap( eth( 1 ), "a" );
   w.tool( eth( 11 ), "a,b" );
   w.tool( eth( 12 ), "a" );
   w.startInMode();
   const U32 b = w.id( "b" );
   w.toolPorts->activeIs( eth( 11 ), false );
   EXPECT_EQ( w.log.take(), Calls( { "removeToolPortAssociation Ethernet11, 1",
                                     "removeToolPortAssociation Ethernet11, 2" } ) );
   EXPECT_EQ( w.reached( eth( 1 ) ), "Ethernet12" );
   EXPECT_EQ( w.sm->initedToolPortCount(), 2 );
   EXPECT_EQ( w.sm->toolSm( eth( 11 ) )->reason(), Qon::TapAggReason::inactive );
   w.wait( 10 );
   EXPECT_EQ( w.id( "b" ), b ); // it waits for its group
   w.toolPorts->activeDel( eth( 11 ) );
   EXPECT_EQ( w.reached( eth( 1 ) ), "Ethernet11 Ethernet12" );
}

/** Whatever comes first: configuration, mode, port-channels, or the state machine. */
TEST( TapAggPort, AnyOrderComesToTheSameEnd ) {
   std::vector< U32 > order = { 0, 1, 2, 3, 4 };
   do {
      TapAggWorld w;
      for ( U32 step : order ) {
         switch ( step ) {
         case 0:
            w.start();
            break;
         case 1:
            w.mode();
            break;
         case 2:
            w.tap( eth( 1 ), "a,b" )->greStripIs( true );
            w.tap( eth( 5 ), "a" );
            w.config->tapRawIntfIs( eth( 5 ) );
            break;
         case 3:
            w.tool( po( 1 ), "b" );
            w.tool( eth( 11 ), "a" );
            w.toolPorts->activeIs( eth( 12 ), false );
            break;
         default:
            w.join( 1, 5 );
            w.join( 1, 6 );
         }
      }
      auto held = w.table.held();
      EXPECT_EQ( w.reached( eth( 1 ) ), "Ethernet11 Port-Channel1(Ethernet5,Ethernet6)" );
      EXPECT_EQ( held.taps.size() + held.tools.size(), 3u );
      EXPECT_EQ( w.broken(), "" );
   } while ( std::next_permutation( order.begin(), order.end() ) && !HasFailure() );
}

TEST( TapAggPort, APauseIsMadeGood ) {
   TapAggWorld w;
   w.tap( eth( 1 ), "a" )->mplsPopIs( true );
   w.tool( eth( 11 ), "a" );
   w.tool( po( 1 ), "a" );
   w.join( 1, 5 );
   w.tap( eth( 2 ), "b" );
   w.startInMode();
   w.sm->initializedIs( false );
   w.config->tapPort( eth( 1 ) )->mplsPopIs( false );
   w.config->tapPortDel( eth( 2 ) );
   w.config->toolPortDel( eth( 11 ) );
   w.tool( eth( 11 ), "c" );
   w.tap( eth( 3 ), "c" );
   w.leave( 1, 5 );
   w.join( 1, 6 );
   w.toolPorts->activeIs( eth( 9 ), false );
   EXPECT_EQ( w.log.take(), Calls() );
   w.wait( 10 ); // the clock fires, and nobody hears it
   w.sm->initializedIs( true );
   EXPECT_EQ( w.reached( eth( 1 ) ), "Port-Channel1(Ethernet6)" );
   EXPECT_EQ( w.reached( eth( 3 ) ), "Ethernet11" );
   EXPECT_FALSE( w.table.held().taps.at( eth( 1 ) ).mplsPop );
   w.wait( 1.1 );
   EXPECT_EQ( w.id( "b" ), 0u );
   EXPECT_EQ( w.broken(), "" );
   w.sm->initializedIs( false );
   w.otherMode();
   w.wait( 10 );
   w.sm->initializedIs( true );
   w.wait( 5.1 );
   EXPECT_TRUE( w.empty() );
}

} // namespace
