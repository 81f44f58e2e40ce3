// Texts of tap aggregation that operators and tools search for: reports of missing hooks, traces.

#include "tests/tapagg/TapAggWorld.h"
#include "tests/texts/Traced.h"

// In their namespace: other files here have other ports called eth().
namespace TapAggTests {
namespace {

TEST( TapAggTexts, EveryMissingHookIsReported ) {
   Qon::TapAggHelper h( "helper" );
   const auto i = eth( 1 );
   const auto none = Bridging::Input::ToolIdentityMode::none;
   const std::map< String, std::function< void() > > hooks = {
         { "hwInit", [&] { h.hwInit(); } },
         { "hwCleanup", [&] { h.hwCleanup(); } },
         { "allocateAggGroup", [&] { EXPECT_EQ( h.allocateAggGroup( "a" ), 0u ); } },
         { "deallocateAggGroup", [&] { h.deallocateAggGroup( 1 ); } },
         { "tapPortIs", [&] { h.tapPortIs( i, true, false ); } },
         { "toolPortIs", [&] { h.toolPortIs( i, true, false ); } },
         { "addTapPortAssociation", [&] { h.addTapPortAssociation( i, 1 ); } },
         { "removeTapPortAssociation", [&] { h.removeTapPortAssociation( i ); } },
         { "addToolPortAssociation", [&] { h.addToolPortAssociation( i, 1 ); } },
         { "removeToolPortAssociation", [&] { h.removeToolPortAssociation( i, 1 ); } },
         { "updateToolInterfaceLagMembership",
           [&] { h.updateToolInterfaceLagMembership( po( 1 ), i, 1, true ); } },
         { "tapTruncationSizeIs", [&] { h.tapTruncationSizeIs( i, 1 ); } },
         { "toolTruncationSizeIs", [&] { h.toolTruncationSizeIs( i, 1 ); } },
         { "identityTagIs", [&] { h.identityTagIs( i, {} ); } },
         { "taggingOnEgressIs", [&] { h.taggingOnEgressIs( i, none ); } },
         { "handleTcamProfile", [&] { h.handleTcamProfile( "p" ); } },
         { "getMaxExternalFrameSizeTapAgg",
           [&] { EXPECT_EQ( h.getMaxExternalFrameSizeTapAgg(), 0u ); } },
         { "verifyHwState", [&] { EXPECT_TRUE( h.verifyHwState() ); } },
         { "verifyAggGroup", [&] { EXPECT_TRUE( h.verifyAggGroup( "a", 1 ) ); } },
         { "verifyTapPort", [&] { EXPECT_TRUE( h.verifyTapPort( i, true, false ) ); } },
         { "verifyToolPort", [&] { EXPECT_TRUE( h.verifyToolPort( i, true, false ) ); } },
         { "verifyTapPortAssociation", [&] { EXPECT_TRUE( h.verifyTapPortAssociation( i, 1 ) ); } },
         { "verifyToolPortAssociation",
           [&] { EXPECT_TRUE( h.verifyToolPortAssociation( i, 1 ) ); } },
         { "verifyTapTruncationSize", [&] { EXPECT_TRUE( h.verifyTapTruncationSize( i, 1 ) ); } },
         { "verifyToolTruncationSize", [&] { EXPECT_TRUE( h.verifyToolTruncationSize( i, 1 ) ); } },
         { "verifyIdentityTag", [&] { EXPECT_TRUE( h.verifyIdentityTag( i, {} ) ); } },
         { "verifyTaggingOnEgress", [&] { EXPECT_TRUE( h.verifyTaggingOnEgress( i, none ) ); } } };
   const std::map< String, std::function< void() > > toolHooks = {
         { "toolBrStripIs", [&] { h.toolBrStripIs( i, true ); } },
         { "toolMplsPopIs", [&] { h.toolMplsPopIs( i, true ); } },
         { "toolVnStripIs", [&] { h.toolVnStripIs( i, true ); } },
         { "verifyToolBrStrip", [&] { EXPECT_TRUE( h.verifyToolBrStrip( i, true ) ); } },
         { "verifyToolMplsPop", [&] { EXPECT_TRUE( h.verifyToolMplsPop( i, true ) ); } },
         { "verifyToolVnStrip", [&] { EXPECT_TRUE( h.verifyToolVnStrip( i, true ) ); } } };
   for ( auto & [name, call] : hooks ) {
      EXPECT_DEATH( call(), "Call to unimplemented function TapAggHelper::" + name );
   }
   for ( auto & [name, call] : toolHooks ) {
      EXPECT_DEATH( call(), "Unimplemented function " + name );
   }
   Tests::Env noop( "QON_NOOP_AGENT", "" );
   for ( auto & [name, call] : hooks ) {
      call();
   }
   for ( auto & [name, call] : toolHooks ) {
      call();
   }
   // What a chip need not have is silent anyhow.
   noop.unset( "QON_NOOP_AGENT" );
   h.tapMacAddressIs( i, {} );
   h.tapHeaderRemoveIs( i, 1 );
   h.tapGreStripIs( i, true );
   h.tapGreStripForEpIs( i, {}, true );
   h.tapVxlanStripIs( i, true );
   h.tapMplsPopIs( i, true );
   h.toolDot1qRemoveIs( i, 1 );
}

TEST( TapAggTexts, HooksHaveTheirPlaces ) {
   using H = Qon::TapAggHelper;
   auto slot = []( auto member ) {
      std::ptrdiff_t place;
      std::memcpy( &place, &member, sizeof place );
      return ( place - 1 ) / std::ptrdiff_t( sizeof( void * ) );
   };
   // Two destructors, typeData and kivDoZombieReactors stand before them.
   const std::vector< std::ptrdiff_t > places = { slot( &H::hwInit ),
                                                  slot( &H::hwCleanup ),
                                                  slot( &H::allocateAggGroup ),
                                                  slot( &H::deallocateAggGroup ),
                                                  slot( &H::tapPortIs ),
                                                  slot( &H::toolPortIs ),
                                                  slot( &H::addTapPortAssociation ),
                                                  slot( &H::removeTapPortAssociation ),
                                                  slot( &H::addToolPortAssociation ),
                                                  slot( &H::removeToolPortAssociation ),
                                                  slot( &H::updateToolInterfaceLagMembership ),
                                                  slot( &H::tapTruncationSizeIs ),
                                                  slot( &H::toolTruncationSizeIs ),
                                                  slot( &H::identityTagIs ),
                                                  slot( &H::taggingOnEgressIs ),
                                                  slot( &H::handleTcamProfile ),
                                                  slot( &H::getMaxExternalFrameSizeTapAgg ),
                                                  slot( &H::verifyHwState ),
                                                  slot( &H::verifyAggGroup ),
                                                  slot( &H::verifyTapPort ),
                                                  slot( &H::verifyToolPort ),
                                                  slot( &H::verifyTapPortAssociation ),
                                                  slot( &H::verifyToolPortAssociation ),
                                                  slot( &H::verifyTapTruncationSize ),
                                                  slot( &H::verifyToolTruncationSize ),
                                                  slot( &H::verifyIdentityTag ),
                                                  slot( &H::verifyTaggingOnEgress ),
                                                  slot( &H::toolBrStripIs ),
                                                  slot( &H::toolMplsPopIs ),
                                                  slot( &H::toolVnStripIs ),
                                                  slot( &H::verifyToolBrStrip ),
                                                  slot( &H::verifyToolMplsPop ),
                                                  slot( &H::verifyToolVnStrip ) };
   for ( std::size_t n = 0; n < places.size(); ++n ) {
      EXPECT_EQ( places[n], std::ptrdiff_t( 4 + n ) );
   }
   EXPECT_EQ( slot( &Qon::TapAggSm::handleInitialized ), 4 );
   EXPECT_EQ( slot( &Qon::TapAggSm::readyForHwCleanup ), 5 );
}

TEST( TapAggTexts, Traces ) {
   auto flow = [] {
      TapAggWorld w( 1 );
      w.tap( eth( 1 ), "a" );
      w.tap( po( 1 ), "b" );
      w.startInMode();
      w.join( 1, 5 );
      w.tap( eth( 5 ), "c" )->mplsPopIs( true );
      Bridging::HostFlush::FlushKey key;
      key.intfIs( po( 1 ) );
      w.replies->replyIs( key );
      w.config->tapPortDel( eth( 1 ) );
      w.wait( 1.1 );
   };
   Tests::expectTraced( flow, { "b: GroupId is 0 - returning", "Deleting unused group id: 1",
                                "Ethernet5 Intf part of lag - return",
                                "Enqueuing flush request for intf Port-Channel1",
                                "Deleting flush request for vlan 0 intf Port-Channel1" } );
}

} // namespace
} // namespace TapAggTests
