// Texts of topologies and VLANs that operators and tools search for: reports of missing hooks, failed
// assertions, traces. They stay as they are, blanks and all.

#include "tests/texts/Traced.h"
#include "tests/topology/ChipWorld.h"

namespace {

using namespace Tests;
using Qon::HwOperationalMode;
using Kind = Qon::PortVlanMembershipChangeKind;

class TopologyTexts : public testing::Test, public TopologyWorld {
 protected:
   Velto::Ptr< RecordingTopoHelper > helper = Velto::make< RecordingTopoHelper >();
};

TEST_F( TopologyTexts, HooksThatNobodyOverridesReport ) {
   Env env;
   env.unset( "SIMULATION_VMID" );
   env.set( "QON_NOOP_AGENT", "1" ); // not what these hooks look at
   auto bare = Velto::make< Qon::TopoHelper >();
   const Qon::MappedVlan vlans( "mst0" );
   const String text = "Call to unimplemented function TopoHelper::";
   EXPECT_DEATH( bare->maxTopo(), text + "maxTopo" );
   EXPECT_DEATH( bare->allocTopo( "mst0" ), text + "allocTopo" );
   EXPECT_DEATH( bare->freeTopo( "mst0" ), text + "freeTopo" );
   EXPECT_DEATH( bare->setStpState( 1, "mst0", intf( "Ethernet1" ), PortState::discarding ),
                 text + "setStpState" );
   EXPECT_DEATH( bare->addVlanToTopo( "mst0", 1 ), text + "addVlanToTopo" );
   EXPECT_DEATH( bare->delVlanFromTopo( "mst0", 1 ), text + "delVlanFromTopo" );
   EXPECT_DEATH( bare->flushTopoPort( 1, intf( "Ethernet1" ) ), text + "flushTopoMacAddr" );
   EXPECT_DEATH( bare->flushTopoPortVlan( vlans, intf( "Ethernet1" ) ), text + "flushTopoMacAddr" );
   env.set( "SIMULATION_VMID", "" );
   EXPECT_FALSE( bare->allocTopo( "mst0" ) );
   bare->verify();
   bare->hwInit();
}

TEST_F( TopologyTexts, WhatTheProgramGuarantees ) {
   Env env;
   env.unset( "QON_NOOP_AGENT" );
   EXPECT_DEATH( helper->setStpStateDoneTopoId( 1 ), "Assertion 'stpSm' failed" );
   start( helper );
   auto bare = Qon::StpSmIs( acsd, stp.config, stp.status, helper );
   EXPECT_DEATH( bare->configureBpduTrapping( true, true ),
                 "Call to unimplemented function StpSm::handleBpduTrapping" );
   EXPECT_DEATH( mode( HwOperationalMode::tapAgg ), "Assertion 'tapAggHwConfig' failed" );
   tapAggTopo( "tapAgg", 0 );
   EXPECT_DEATH( mode( HwOperationalMode::tapAgg ),
                 "Assertion 'tapAggHwConfig->tapAggTopoId\\(\\) > 0' failed" );
}

TEST_F( TopologyTexts, TracesOfTopologies ) {
   auto flow = [&] {
      stp.vlan( 10, "mst0" );
      stp.vlan( 20, "late" );
      stp.topo( "mst0", 7 );
      stp.port( "mst0", "Ethernet1", PortState::discarding );
      stp.port( "mst0", "Port-Channel1", PortState::forwarding );
      start( helper );
      helper->setStpStateDoneTopoId( 7 );
      stpSm->topoSm( "mst0" )->handleTopoPortChange( intf( "Ethernet1" ) );
      stpSm->handleOperationalMode();
      lags.join( "Ethernet1", "Port-Channel1" );
      lags.join( "Ethernet2", "Port-Channel2" );
      lags.leave( "Ethernet1" );
      stp.config->topoConfig( "mst0" )->topoPortConfigDel( intf( "Ethernet1" ) );
      tapAgg->toolIntfIs( intf( "Port-Channel1" ) );
      tapAggTopo( "tap", 9 );
      mode( HwOperationalMode::tapAgg );
      stp.vlan( 4094, "mst0" );
      mode( HwOperationalMode::switching );
      stp.topoDel( "mst0" );
      stpSm->doCleanup();
      stpSm->handleOperationalMode();
   };
   expectTraced( flow, {
                             "handleTopoChange creating topo mst0 with mapped vlan 1",
                             "topoSm not yet present for topology late",
                             " Creating topoPortSm for Ethernet1",
                             " setting intf Ethernet1 to state 1",
                             " Nothing to do ",
                             "handleOperationalMode nothing to do ",
                             "Ethernet1 joining lag Port-Channel1, lag in this stg",
                             "Ethernet1 part of a LAG, not updating",
                             "Ethernet2 joining lag Port-Channel2, but lag is not in this stg",
                             "Ethernet1 leaving lag Port-Channel1",
                             " Deleting topoPortSm for Ethernet1",
                             "configure all vlan into TapAggTopo",
                             "4094 is not in a topo. Add to TapAggTopo",
                             "Port-Channel1 is in tap/tool mode so it's perma-forwarding",
                             "Port-Channel1 is in tap/tool mode. skipping ",
                             "vlan was in TapAggTopo. take it out first",
                             "cleanup tapagg stuff",
                             "Deleting from TapAggTopo",
                             "configure regular topo stuff",
                             "handleTopoChange deleting topo mst0",
                             "cleanup regular topo stuff",
                             "not initialized. return",
                       } );
}

TEST_F( TopologyTexts, NoTraceOfWhatIsNotTheCase ) {
   stp.topo( "mst0", 7 );
   tapAggTopo( "tap", 9 );
   start( helper );
   expectNoTrace(
         [&] {
            stp.vlan( 10, "mst0" );
            mode( HwOperationalMode::tapAgg );
         },
         { "nothing to do", "configure regular", "take it out", "not yet" } );
}

TEST_F( TopologyTexts, TracesOfFlushesAndOfVlansThatLoseTheirTopology ) {
   auto flow = [&] {
      stp.topo( "mst0", 7 );
      stp.vlan( 10, "mst0" );
      stp.port( "mst0", "Ethernet1", PortState::forwarding );
      tapAggTopo( "tap", 9 );
      start( helper );
      mode( HwOperationalMode::tapAgg );
      stp.config->vidToTopoMapDel( VlanId( 10 ) );
      stp.portConfig( "mst0", "Ethernet1" )->fdbFlushIs( 1 );
      stpSm->topoSm( "mst0" )->topoPortSm( intf( "Ethernet1" ) )->handleFdbFlush();
      helper->pvstIs( true );
      stp.portConfig( "mst0", "Ethernet1" )->fdbFlushIs( 2 );
   };
   expectTraced( flow, {
                             "in TapAgg mode, placing vlan without topo in TapAggTopo",
                             "Ethernet1 skipping unchanged report",
                             "mst0: no mappedVlan",
                       } );
}

TEST( VlanTopoTexts, TracesOfTheWalk ) {
   ChipWorld world( ChipKind::perVlan );
   auto bare = Qon::VlanTopoHelperIs( nullptr, &world.scheduler );
   auto flow = [&] {
      world.stp.topo( "mst0", 7 );
      world.stp.topo( "empty", 8 );
      for ( U32 vlan : { 10, 20 } ) {
         world.stp.vlan( vlan, "mst0" );
         world.member( "Ethernet1", vlan );
      }
      world.latencyIs( 1 );
      world.run();
      world.stp.port( "mst0", "Ethernet1", PortState::discarding );
      world.stp.port( "empty", "Ethernet2", PortState::discarding );
      world.scheduler.runFor( 10 );
      world.start( bare );
      world.stp.port( "mst0", "Ethernet1", PortState::forwarding );
      world.scheduler.settle();
      world.stpSm = nullptr;
   };
   expectTraced( flow, {
                             " Mapped vlan NULL for topo empty",
                             "mst0 needs to wait for vlan 10 genId 3",
                             "mst0 vlan 10 completed",
                             "mst0 still waiting for 1 vlans",
                             "No Vlan helper",
                       } );
}

TEST( VlanTopoTexts, NoTraceOfWhatIsNotTheCase ) {
   ChipWorld world( ChipKind::perVlan );
   expectNoTrace(
         [&] {
            world.stp.topo( "mst0", 7 );
            world.stp.vlan( 10, "mst0" );
            world.member( "Ethernet1", 10 );
            world.run();
            world.stp.port( "mst0", "Ethernet1", PortState::forwarding );
            world.lags.join( "Ethernet1", "Port-Channel1" );
            world.scheduler.runFor( 10 );
         },
         { "TapAgg", "No Vlan helper", "no room", "NULL", "not yet", "Nothing" } );
}

TEST( VlanTopoTexts, AnUpdateThatSomebodyEmptiedOrTookAwayIsFatal ) {
   ChipWorld world( ChipKind::perVlan );
   world.stp.topo( "mst0", 7 );
   world.run();
   world.stp.port( "mst0", "Ethernet1", PortState::forwarding );
   auto without = [&]( auto && spoil ) {
      spoil();
      world.vlanTopo->performVlanTopoOperations();
   };
   EXPECT_DEATH(
         without( [&] { world.vlanTopo->topoUpdateMap( "mst0" )->stpStateChangeDelAll(); } ),
         "Assertion 'topoUpdate->stpStateChanges\\(\\) > 0' failed" );
   EXPECT_DEATH( without( [&] { world.vlanTopo->topoUpdateMapDel( "mst0" ); } ),
                 "Assertion 'topoUpdateMapHas\\( topoName \\)' failed" );
}

class VlanTexts : public testing::Test, public World {
 protected:
   struct Chip : Qon::VlanHelper {
      using VlanHelper::VlanHelper;
      void doCreateHwVlan( VlanId ) override {}
      void doUpdateVlan( VlanId ) override {}
   };
   U64 request( Kind kind, const String & port, bool tagged, bool ingress, bool egress ) {
      return helper->requestPortVlanMembershipChange( kind, intf( port ), v10, tagged, ingress,
                                                      egress );
   }
   U64 set( const String & port ) { return request( Kind::setOverride, port, true, true, true ); }

   const VlanId v10{ 10 };
   Velto::Ptr< Chip > helper = Velto::make< Chip >( "vlans", acsd.ptr() );
};

TEST_F( VlanTexts, WhatIsRefused ) {
   EXPECT_DEATH( set( "Ethernet1.100" ), "'!Ulnet::SubIntfId::isSubIntfId\\( port \\)' failed" );
   EXPECT_DEATH( request( Kind( 2 ), "Ethernet1", true, true, true ), "Assertion" );
   Env noop( "QON_NOOP_AGENT", "1" ); // nothing silences these
   auto base = Velto::make< Qon::VlanHelperBase >( "base" );
   const String text = "Call to unimplemented function VlanHelper";
   EXPECT_DEATH( base->verify(), text + "Base::verify" );
   EXPECT_DEATH( base->doUpdateVlan( v10 ), text + "::doUpdateVlan" );
   EXPECT_DEATH( base->doCreateHwVlan( v10 ), text + "::doCreateHwVlan" );
   EXPECT_DEATH( base->doUpdateVlanFid( v10, 1 ), text + "::doUpdateVlanFid" );
   EXPECT_DEATH( base->doRemovePortFromVlan( intf( "Ethernet1" ), v10 ),
                 text + "::doRemovePortFromVlan" );
   EXPECT_DEATH( base->requestPortVlanMembershipChange( Kind::setOverride, intf( "Ethernet1" ), v10,
                                                        true, true, true ),
                 text + "::doAddPortToVlan" );
   EXPECT_DEATH( base->requestPortVlanMembershipChange( Kind::expand, intf( "Ethernet1" ), v10,
                                                        true, true, true ),
                 "Call to non-overriden function VlanHelper::requestPortVlanMembershipChange whose "
                 "base implementation only supports PortVlanMembershipChangeKind::setOverride_" );
}

TEST_F( VlanTexts, TracesOfVlans ) {
   auto flow = [&] {
      set( "Ethernet1" );
      request( Kind::expand, "Ethernet1", true, true, false );
      scheduler.runFor( 1 );
      helper->doHandlePortState( intf( "Ethernet2" ), v10, false );
      helper->doAddPortToVlan( intf( "Ethernet2" ), v10, true, true, true );
      request( Kind::setOverride, "Ethernet1", false, false, false );
      helper->updateVlanDone( v10, Qon::VlanProgrammingStatus::success );
      helper->updateVlanDone( v10, Qon::VlanProgrammingStatus::failed );
      acsd->lagToFeatureSetIs( intf( "Port-Channel1" ), Lag::Recirc::RecircFeatureSet( 1 ) );
      helper->doRemovePortFromVlan( intf( "Port-Channel1" ), v10 );
   };
   expectTraced( flow,
                 {
                       "Ethernet1 vlan 10 overriding no existing port membership, "
                       "just going to set it to the provided parameters",
                       "Ethernet1 vlan 10 expanding",
                       "Ethernet2 vlan 10 Not Adding because of port state",
                       "Redo vlan update for vlan 10 . State changed while were were programming",
                       "10 failed to program in hardware",
                       "Port-Channel1 configured for recirc feature. Skipping remove.",
                 } );
}

} // namespace
