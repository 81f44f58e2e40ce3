// What a report, an exception, a pause or a clean-up in the middle leaves undone, and to whom it is told.

#include "platform/Kiv/Listener.h"
#include "tests/topology/ReentryWorld.h"

namespace {

using namespace Tests;

using InterruptTest = ReentryTest;

TEST_F( InterruptTest, AReportBeforeTheLastMemberWasToldIsNotTheGroups ) {
   run();
   at( "set 7 mst0 Ethernet2 3", [&] { helper->setStpStateDoneTopoId( 7 ); } );
   stp.port( "mst0", "Port-Channel1", forwarding );
   EXPECT_EQ( stp.acked( "mst0", "Port-Channel1" ), int( blocked ) );
   helper->setStpStateDoneTopoId( 7 );
   EXPECT_EQ( stp.acked( "mst0", "Port-Channel1" ), int( forwarding ) );
}

TEST_F( InterruptTest, WhoeverMadeTheChangeHearsOfAnException ) {
   run();
   {
      Kiv::Listener< Bridging::Topology::Inst::TopoStatus::topoPortStatusAttr > ports;
      ports.attach( stp.status->topoStatus( "mst0" ),
                    []( const IntfId & ) { throw std::runtime_error( "watcher" ); } );
      EXPECT_THROW( stp.port( "mst0", "Ethernet9", learning ), std::runtime_error );
      EXPECT_EQ( held( "Ethernet9" ), learning );
   }
   stp.topo( "mst9", 7 ); // two of one id are done together
   stp.port( "mst9", "Ethernet9", forwarding );
   Kiv::Listener< Bridging::Topology::TopoPortStatus::stateAttr > watcher(
         stp.portStatus( "mst0", "Ethernet9" ), [] { throw std::runtime_error( "watcher" ); } );
   EXPECT_THROW( helper->setStpStateDoneTopoId( 7 ), std::runtime_error );
   EXPECT_EQ( stp.acked( "mst0", "Ethernet9" ), int( learning ) );
   EXPECT_EQ( stp.acked( "mst9", "Ethernet9" ), int( forwarding ) );
}

TEST_F( InterruptTest, AVlanWhoseHookRaisesIsMovedAndToldOf ) {
   run();
   stp.topo( "mst1", 8 );
   helper->calls();
   for ( String call : { "del mst0 10", "add mst0 10" } ) {
      at( call, [] { throw std::runtime_error( "chip" ); } );
      EXPECT_THROW( stp.vlan( 10, call.starts_with( "del" ) ? "mst1" : "mst0" ),
                    std::runtime_error );
   }
   EXPECT_EQ( helper->calls(),
              ( Calls{ "del mst0 10", "add mst1 10", "del mst1 10", "add mst0 10" } ) );
   EXPECT_EQ( stpSm->vlanToTopoSmMap( 10 ), "mst0" );
}

TEST_F( InterruptTest, APauseInTheMiddleOfAMoveIsMadeGood ) {
   run();
   stp.topo( "mst1", 8 );
   helper->calls();
   at( "del mst0 10", [&] { stpSm->initializedIs( false ); } );
   stp.vlan( 10, "mst1" );
   EXPECT_EQ( helper->calls(), Calls{ "del mst0 10" } );
   stpSm->initializedIs( true );
   EXPECT_EQ( count( helper->calls(), "add mst1 10" ), 1u );
}

/** At a start, at the end of a pause, and where a port joins a group. */
TEST_F( InterruptTest, WhoeverStartsItHearsOfAnException ) {
   build();
   auto raises = [&] { at( "set 7 mst0", [] { throw std::runtime_error( "chip" ); } ); };
   raises();
   EXPECT_THROW( start( helper ), std::runtime_error );
   EXPECT_EQ( held( "Ethernet3" ), blocked );
   stpSm->initializedIs( false );
   raises();
   EXPECT_THROW( stpSm->initializedIs( true ), std::runtime_error );
   raises();
   EXPECT_THROW( lags.join( "Ethernet4", "Port-Channel1" ), std::runtime_error );
   stpSm->initializedIs( false );
   stp.vlan( 11, "mst0" );
   at( "add mst0 11", [] { throw std::runtime_error( "chip" ); } );
   EXPECT_THROW( stpSm->initializedIs( true ), std::runtime_error );
   EXPECT_EQ( held( "Ethernet4" ), blocked );
}

TEST_F( InterruptTest, TapAndToolPortsOfAPauseAreMadeGood ) {
   run();
   tapAgg->tapIntfIs( intf( "Ethernet5" ) );
   mode( HwOperationalMode::tapAgg );
   stpSm->initializedIs( false );
   tapAgg->tapIntfDel( intf( "Ethernet5" ) );
   tapAgg->toolIntfIs( intf( "Ethernet1" ) );
   helper->calls();
   stpSm->initializedIs( true );
   EXPECT_EQ( held( "Ethernet5", "tapAgg" ), blocked );
   EXPECT_EQ( held( "Ethernet1", "tapAgg" ), forwarding );
   EXPECT_EQ( stp.acked( "mst0", "Ethernet1" ), int( forwarding ) );
   EXPECT_EQ( count( helper->calls(), "set 7 mst0 Ethernet1" ), 0u );
}

TEST_F( InterruptTest, NothingIsHeardAfterACleanUp ) {
   Env enable( "ENABLE_VERIFY", "1" );
   run();
   acsd->verifyData()->runChecks();
   EXPECT_EQ( helper->calls(), Calls{ "verify" } );
   stpSm->doCleanup();
   helper->calls();
   acsd->verifyData()->runChecks();
   stp.port( "mst0", "Ethernet1", forwarding );
   stp.vlan( 11, "mst0" );
   stp.topo( "mst1", 8 );
   lags.leave( "Ethernet3" );
   EXPECT_EQ( helper->calls(), Calls{} );
}

} // namespace
