// What a listener hears of topologies: every hook of the helper and of the state machine, with all
// that the chip can read from it.

#include <gtest/gtest.h>

#include "Qon/include/framework/HookTap.h"
#include "Qon/include/topology/QonVlanHelper.h"
#include "tests/topology/TopologyWorld.h"

namespace {

using namespace Tests;
using Lines = std::vector< String >;

class Listener : public Qon::HookListener {
 public:
   void hookCalled( const char * hook, const String & arguments ) override {
      lines.push_back( Qon::HookTap::shown( hook, arguments ) );
   }
   Lines take() { return std::exchange( lines, {} ); }
   Lines lines;
};

class HookTapOfTopologies : public ::testing::Test, protected TopologyWorld {
 protected:
   Listener tap;
};

TEST_F( HookTapOfTopologies, EveryHookIsHeard ) {
   auto helper = Velto::make< RecordingTopoHelper >();
   helper->pvstIs( true );
   stp.topo( "A", 1 );
   stp.vlan( 10, "A" );
   stp.vlan( 20, "A" );
   stp.port( "A", "Ethernet1", PortState::forwarding );
   start( helper );
   EXPECT_EQ( tap.take(),
              ( Lines{ "TopoHelper::hwInit()", "TopoHelper::allocTopo( A )",
                       "TopoHelper::setStpState( 1, A, Ethernet1, forwarding )",
                       "TopoHelper::addVlanToTopo( A, 10 )", "TopoHelper::addVlanToTopo( A, 20 )",
                       "StpSm::configureBpduTrapping( False, False )" } ) );
   stp.portConfig( "A", "Ethernet1" )->fdbFlushIs( 1 );
   stp.vlan( 20, "" );
   helper->pvstIs( false );
   stp.portConfig( "A", "Ethernet1" )->fdbFlushIs( 2 );
   stp.config->bpduTrapEnabledIs( true );
   stpSm->handleVerify();
   stp.topoDel( "A" );
   EXPECT_EQ( tap.take(), ( Lines{ "TopoHelper::flushTopoPortVlan( A, {10 20}, Ethernet1 )",
                                   "TopoHelper::delVlanFromTopo( A, 20 )",
                                   "TopoHelper::flushTopoPort( 1, Ethernet1 )",
                                   "StpSm::configureBpduTrapping( True, False )", "StpSm::verify()",
                                   "TopoHelper::verify()",
                                   "TopoHelper::setStpState( 1, A, Ethernet1, forwarding )",
                                   "TopoHelper::freeTopo( A )" } ) );
   tapAggTopo( "tap", 7 );
   tapAgg->toolIntfIs( intf( "Ethernet2" ) );
   mode( Qon::HwOperationalMode::tapAgg );
   const auto all = tap.take();
   EXPECT_EQ( all.front(), "TopoHelper::allocTopo( tap )" );
   EXPECT_EQ( all[all.size() - 2], "TopoHelper::setStpState( 7, tap, Ethernet2, forwarding )" );
}

TEST_F( HookTapOfTopologies, AnUpdateOfAVlanTellsItsWholeMembership ) {
   struct Chip : Qon::VlanHelper {
      using VlanHelper::VlanHelper;
      void doCreateHwVlan( VlanId ) override {}
      void doUpdateVlan( VlanId vlan ) override {
         updateVlanDone( vlan, Qon::VlanProgrammingStatus::success );
      }
   };
   auto chip = Velto::make< Chip >( "vlanHelper", acsd.ptr() );
   auto want = [&]( const String & port, bool tagged, bool ingress, bool egress ) {
      chip->requestPortVlanMembershipChange( Qon::PortVlanMembershipChangeKind::setOverride,
                                             intf( port ), VlanId( 10 ), tagged, ingress, egress );
   };
   want( "Ethernet1", true, true, true );
   want( "Ethernet2", false, true, false );
   scheduler.runFor( 1 );
   want( "Ethernet1", false, false, false );
   scheduler.runFor( 1 );
   EXPECT_EQ( tap.take(),
              ( Lines{ "VlanHelper::doAddPortToVlan( Ethernet1, 10, True, True, True )",
                       "VlanHelper::doAddPortToVlan( Ethernet2, 10, False, True, False )",
                       "VlanHelper::doCreateHwVlan( 10 )",
                       "VlanHelper::doUpdateVlan( 10, {Ethernet1 tie, Ethernet2 i} )",
                       "VlanHelper::doRemovePortFromVlan( Ethernet1, 10 )",
                       "VlanHelper::doUpdateVlan( 10, {Ethernet2 i} )" } ) );
}

} // namespace
