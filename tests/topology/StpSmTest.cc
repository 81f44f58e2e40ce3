// Topologies, their ports and VLANs, and when a port state counts as done.

#include "platform/Kiv/Listener.h"
#include "tests/topology/TopologyWorld.h"

namespace {

using namespace Tests;
using Qon::HwOperationalMode;
using Calls = std::vector< String >;
using StateListener = Kiv::Listener< Bridging::Topology::TopoPortStatus::stateAttr >;

class StpSmTest : public testing::Test, public TopologyWorld {
 protected:
   void run() {
      start( helper );
      helper->calls();
   }
   /** One topology "mst0" with id 7, VLAN 10 and a port that is done. */
   void runWithPort( const String & name = "Ethernet1" ) {
      stp.topo( "mst0", 7 );
      stp.vlan( 10, "mst0" );
      stp.port( "mst0", name, blocked );
      start( helper );
      helper->setStpStateDoneTopoId( 7 );
      helper->calls();
   }
   ~StpSmTest() override {
      if ( stpSm ) {
         EXPECT_EQ( stpSm->checkInvariants(), "" );
      }
   }
   Velto::Ptr< RecordingTopoHelper > helper = Velto::make< RecordingTopoHelper >();
};

TEST_F( StpSmTest, StartsWithWhatIsThereAlready ) {
   stp.topo( "mst0", 7 );
   stp.vlan( 10, "mst0" );
   stp.vlan( 20, "late" );
   stp.vlan( 30, "" ); // in none
   stp.port( "mst0", "Ethernet1", forwarding );
   stp.config->pvstBpduTrapEnabledIs( true );
   start( helper );
   EXPECT_EQ( helper->calls(),
              ( Calls{ "init", "alloc mst0", "set 7 mst0 Ethernet1 3", "add mst0 10" } ) );
   EXPECT_EQ( stpSm->vlanToTopoSmMaps(), 2u );
   EXPECT_EQ( stpSm->bpduTrapping, std::pair( false, true ) );
   stp.config->bpduTrapEnabledIs( true );
   EXPECT_EQ( stpSm->bpduTrapping, std::pair( true, true ) );

   stp.topo( "late", 9 );
   EXPECT_EQ( helper->calls(), ( Calls{ "alloc late", "add late 20" } ) );
}

TEST_F( StpSmTest, ATopologyNeedsBothRecordsAndOneId ) {
   stp.vlan( 10, "mst0" );
   run();
   stp.config->topoConfigIs( "mst0", 7 );
   EXPECT_EQ( stpSm->topoSms(), 0u );
   auto status = stp.status->topoStatusIs( "mst0", 8 );
   EXPECT_EQ( stpSm->topoSms(), 0u );
   EXPECT_EQ( helper->calls(), Calls{} );
   status->topoIdIs( 7 );
   EXPECT_EQ( helper->calls(), ( Calls{ "alloc mst0", "add mst0 10" } ) );
   status->topoIdIs( 8 );
   EXPECT_EQ( helper->calls(), Calls{ "free mst0" } );
   stp.config->topoConfig( "mst0" )->topoIdIs( 8 );
   EXPECT_EQ( helper->calls(), ( Calls{ "alloc mst0", "add mst0 10" } ) );
   EXPECT_EQ( stpSm->topoSm( "mst0" )->topoId(), 8u );
}

TEST_F( StpSmTest, AnotherEntityUnderTheNameIsAnotherTopology ) {
   runWithPort();
   // The watch is silent while the entity is exchanged: only the pointer tells.
   stpSm->hasNotificationActiveIs( false );
   stp.config->topoConfigDel( "mst0" );
   stp.config->topoConfigIs( "mst0", 7 );
   stpSm->hasNotificationActiveIs( true );
   stpSm->handleTopoChange( "mst0" );
   EXPECT_EQ( helper->calls(),
              ( Calls{ "set 7 mst0 Ethernet1 1", "free mst0", "alloc mst0", "add mst0 10" } ) );
   EXPECT_EQ( stp.acked( "mst0", "Ethernet1" ), -1 );
}

TEST_F( StpSmTest, AStateIsAcknowledgedWhenTheHardwareHasIt ) {
   runWithPort();
   stp.port( "mst0", "Ethernet1", forwarding );
   EXPECT_EQ( helper->calls(), Calls{ "set 7 mst0 Ethernet1 3" } );
   EXPECT_EQ( stp.acked( "mst0", "Ethernet1" ), int( blocked ) );
   // The change information of the moment is echoed, without another call.
   stp.portConfig( "mst0", "Ethernet1" )->changeInfoIs( TopoPortChangeInfo( 77, 1.5 ) );
   helper->setStpStateDoneTopoName( "mst0" );
   EXPECT_EQ( stp.acked( "mst0", "Ethernet1" ), int( forwarding ) );
   EXPECT_EQ( stp.portStatus( "mst0", "Ethernet1" )->changeInfo(), TopoPortChangeInfo( 77, 1.5 ) );
   stp.portConfig( "mst0", "Ethernet1" )->changeInfoIs( TopoPortChangeInfo( 78, 2.5 ) );
   EXPECT_EQ( stp.portStatus( "mst0", "Ethernet1" )->changeInfo().changeCount(), 78u );
   EXPECT_EQ( helper->calls(), Calls{} );
}

TEST_F( StpSmTest, CompletionInsideTheHookAndForStrangers ) {
   runWithPort();
   helper->completesInside = true;
   stp.port( "mst0", "Ethernet1", learning );
   EXPECT_EQ( stp.acked( "mst0", "Ethernet1" ), int( learning ) );
   helper->completesInside = false;
   stp.port( "mst0", "Ethernet1", forwarding );
   helper->setStpStateDoneTopoId( 8 );
   helper->setStpStateDoneTopoName( "mst1" );
   EXPECT_EQ( stp.acked( "mst0", "Ethernet1" ), int( learning ) );

   // The topology comes back with another id: what is reported for the old one is nobody's.
   stp.topoDel( "mst0" );
   stp.topo( "mst0", 9 );
   stp.port( "mst0", "Ethernet1", forwarding );
   helper->setStpStateDoneTopoId( 7 );
   EXPECT_EQ( stp.acked( "mst0", "Ethernet1" ), int( PortState::disabled ) );
   helper->setStpStateDoneTopoId( 9 );
   EXPECT_EQ( stp.acked( "mst0", "Ethernet1" ), int( forwarding ) );
}

TEST_F( StpSmTest, WhatIsRequestedDuringTheAcknowledgementIsNotAcknowledgedByIt ) {
   for ( String again : { "Ethernet1", "Ethernet2" } ) {
      stpSm = nullptr;
      stp.topoDel( "mst0" );
      runWithPort();
      stp.port( "mst0", "Ethernet2", blocked );
      helper->setStpStateDoneTopoId( 7 );
      stp.port( "mst0", "Ethernet1", forwarding );
      stp.port( "mst0", "Ethernet2", forwarding );
      StateListener impatient;
      impatient.attach( stp.portStatus( "mst0", "Ethernet1" ), [&] {
         impatient.detach();
         stp.port( "mst0", again, learning );
      } );
      helper->setStpStateDoneTopoId( 7 );
      EXPECT_EQ( stp.acked( "mst0", "Ethernet1" ), int( forwarding ) );
      EXPECT_EQ( stp.acked( "mst0", "Ethernet2" ),
                 int( again == "Ethernet2" ? blocked : forwarding ) );
      helper->setStpStateDoneTopoId( 7 );
      EXPECT_EQ( stp.acked( "mst0", again ), int( learning ) );
   }
}

TEST_F( StpSmTest, ChangeInformationThatComesDuringTheAcknowledgementStays ) {
   runWithPort();
   StateListener annotator( stp.portStatus( "mst0", "Ethernet1" ), [&] {
      stp.portConfig( "mst0", "Ethernet1" )->changeInfoIs( TopoPortChangeInfo( 99, 0.5 ) );
   } );
   stp.port( "mst0", "Ethernet1", learning );
   helper->setStpStateDoneTopoId( 7 );
   EXPECT_EQ( stp.acked( "mst0", "Ethernet1" ), int( learning ) );
   EXPECT_EQ( stp.portStatus( "mst0", "Ethernet1" )->changeInfo().changeCount(), 99u );
}

TEST_F( StpSmTest, ChangeInformationIsNotEchoedWhileAStateIsPending ) {
   runWithPort();
   auto config = stp.portConfig( "mst0", "Ethernet1" );
   StateListener impatient( stp.portStatus( "mst0", "Ethernet1" ), [&] {
      config->stateIs( forwarding );
      config->changeInfoIs( TopoPortChangeInfo( 99, 0.5 ) );
   } );
   stp.port( "mst0", "Ethernet1", learning );
   const auto info = config->changeInfo();
   helper->setStpStateDoneTopoId( 7 );
   impatient.detach();
   EXPECT_EQ( stp.acked( "mst0", "Ethernet1" ), int( learning ) );
   EXPECT_EQ( stp.portStatus( "mst0", "Ethernet1" )->changeInfo(), info );
   helper->setStpStateDoneTopoId( 7 );
   EXPECT_EQ( stp.portStatus( "mst0", "Ethernet1" )->changeInfo().changeCount(), 99u );

   // The acknowledged state is wanted again, and asked of the hardware once more.
   config->stateIs( learning );
   config->stateIs( forwarding );
   config->changeInfoIs( TopoPortChangeInfo( 120, 0.5 ) );
   EXPECT_EQ( stp.portStatus( "mst0", "Ethernet1" )->changeInfo().changeCount(), 99u );
   helper->setStpStateDoneTopoId( 7 );
   EXPECT_EQ( stp.portStatus( "mst0", "Ethernet1" )->changeInfo().changeCount(), 120u );
}

TEST_F( StpSmTest, APortThatLeavesForgetsWhatItWaitsFor ) {
   runWithPort();
   stp.port( "mst0", "Ethernet1", forwarding );
   stp.config->topoConfig( "mst0" )->topoPortConfigDel( intf( "Ethernet1" ) );
   EXPECT_EQ( stp.acked( "mst0", "Ethernet1" ), -1 );
   helper->setStpStateDoneTopoId( 7 );
   EXPECT_EQ( stp.acked( "mst0", "Ethernet1" ), -1 );
   stp.port( "mst0", "Ethernet1", learning );
   EXPECT_EQ( helper->calls().back(), "set 7 mst0 Ethernet1 2" );
}

TEST_F( StpSmTest, AVlanIsAddedOnceAndLeavesBeforeItEnters ) {
   stp.topo( "mst0", 7 );
   run();
   stp.vlan( 10, "mst0" );
   stp.vlan( 10, "mst1" );
   stp.topo( "mst1", 8 );
   stpSm->handleVidToTopoMap();
   EXPECT_EQ( helper->calls(),
              ( Calls{ "add mst0 10", "del mst0 10", "alloc mst1", "add mst1 10" } ) );
   stp.topoDel( "mst1" );
   stp.config->vidToTopoMapDel( VlanId( 10 ) );
   EXPECT_EQ( helper->calls(), ( Calls{ "free mst1", "del mst1 10" } ) );
   EXPECT_EQ( stpSm->topoToVlanMaps(), 0u );
}

TEST_F( StpSmTest, MembersCarryTheStateOfTheirAggregate ) {
   stp.topo( "mst0", 7 );
   stp.port( "mst0", "Port-Channel1", forwarding );
   stp.port( "mst0", "Ethernet1", blocked );
   run();
   EXPECT_EQ( helper->hardware["mst0"][intf( "Port-Channel1" )], forwarding );
   helper->setStpStateDoneTopoId( 7 );

   stp.port( "mst0", "Ethernet1", learning ); // pending when it joins
   lags.join( "Ethernet1", "Port-Channel1" );
   lags.join( "Ethernet2", "Port-Channel1" );
   EXPECT_EQ( helper->calls(), ( Calls{ "set 7 mst0 Ethernet1 2", "set 7 mst0 Ethernet1 3",
                                        "set 7 mst0 Ethernet2 3" } ) );
   EXPECT_EQ( stp.acked( "mst0", "Ethernet1" ), int( learning ) );
   stp.port( "mst0", "Ethernet1", blocked );
   EXPECT_EQ( stp.acked( "mst0", "Ethernet1" ), int( blocked ) );
   EXPECT_EQ( helper->calls(), Calls{} );

   stp.port( "mst0", "Port-Channel1", learning );
   EXPECT_EQ( helper->calls(), ( Calls{ "set 7 mst0 Ethernet1 2", "set 7 mst0 Ethernet2 2" } ) );
   helper->setStpStateDoneTopoId( 7 );
   EXPECT_EQ( stp.acked( "mst0", "Port-Channel1" ), int( learning ) );

   lags.leave( "Ethernet1" );
   EXPECT_EQ( helper->calls(), Calls{ "set 7 mst0 Ethernet1 1" } );
   lags.join( "Ethernet1", "Port-Channel2" ); // not in this topology
   EXPECT_EQ( helper->calls(), Calls{} );
   lags.move( "Ethernet1", "Port-Channel1" );
   EXPECT_EQ( helper->calls().back(), "set 7 mst0 Ethernet1 2" );
}

TEST_F( StpSmTest, AnAggregateIsDoneWhenItsLastMemberIs ) {
   stp.topo( "mst0", 7 );
   stp.port( "mst0", "Port-Channel1", blocked );
   lags.join( "Ethernet1", "Port-Channel1" );
   lags.join( "Ethernet2", "Port-Channel1" );
   helper->completesInside = true;
   run();
   // The acknowledgement comes after both members were handed over.
   Calls seen;
   StateListener watcher( stp.portStatus( "mst0", "Port-Channel1" ),
                          [&] { seen = helper->calls(); } );
   stp.port( "mst0", "Port-Channel1", forwarding );
   EXPECT_EQ( seen, ( Calls{ "set 7 mst0 Ethernet1 3", "set 7 mst0 Ethernet2 3" } ) );
}

TEST_F( StpSmTest, FlushesAreReportedInBothForms ) {
   runWithPort();
   auto config = stp.portConfig( "mst0", "Ethernet1" );
   config->fdbFlushIs( 5 );
   EXPECT_EQ( helper->calls(), Calls{ "flush 7 Ethernet1" } );
   EXPECT_EQ( stp.portStatus( "mst0", "Ethernet1" )->fdbFlushReport(), 5u );
   helper->pvstIs( true );
   config->fdbFlushIs( 6 );
   EXPECT_EQ( helper->calls(), Calls{ "flush 1 vlans Ethernet1" } );
   stp.config->vidToTopoMapDelAll();
   helper->calls();
   config->fdbFlushIs( 7 );
   EXPECT_EQ( helper->calls(), Calls{} );
   EXPECT_EQ( stp.portStatus( "mst0", "Ethernet1" )->fdbFlushReport(), 7u );
}

TEST_F( StpSmTest, TapAggregationTakesTheVlansWithoutTopology ) {
   runWithPort();
   stp.config->bpduTrapEnabledIs( true );
   stp.port( "mst0", "Ethernet1", learning ); // pending
   tapAggTopo( "tapAgg", 100 );
   tapAgg->tapIntfIs( intf( "Ethernet1" ) );
   tapAgg->toolIntfIs( intf( "Port-Channel3" ) );
   lags.join( "Ethernet5", "Port-Channel3" );
   helper->calls();
   mode( HwOperationalMode::tapAgg );
   auto calls = helper->calls();
   EXPECT_EQ( calls.size(), 1u + 4093 + 2 );
   EXPECT_EQ( calls[0], "alloc tapAgg" );
   EXPECT_EQ( calls[10], "add tapAgg 11" );
   EXPECT_EQ( helper->hardware["tapAgg"],
              ( std::map< IntfId, PortState >{ { intf( "Ethernet1" ), forwarding },
                                               { intf( "Ethernet5" ), forwarding } } ) );
   EXPECT_EQ( stpSm->bpduTrapping, std::pair( false, false ) );
   EXPECT_EQ( stp.acked( "mst0", "Ethernet1" ), int( forwarding ) );
   EXPECT_EQ( stpSm->checkInvariants(), "" );

   // In the mode: states are not handed over, flushes wait, VLANs come and go.
   stp.port( "mst0", "Ethernet1", blocked );
   stp.portConfig( "mst0", "Ethernet1" )->fdbFlushIs( 3 );
   EXPECT_EQ( helper->calls(), Calls{} );
   EXPECT_EQ( stp.acked( "mst0", "Ethernet1" ), int( forwarding ) );
   stp.vlan( 20, "mst0" );
   stp.config->vidToTopoMapDel( VlanId( 10 ) );
   EXPECT_EQ( helper->calls(),
              ( Calls{ "del tapAgg 20", "add mst0 20", "del mst0 10", "add tapAgg 10" } ) );
   lags.leave( "Ethernet5" );
   EXPECT_EQ( helper->hardware["tapAgg"][intf( "Ethernet5" )], blocked );
   helper->calls();

   mode( HwOperationalMode::switching );
   calls = helper->calls();
   EXPECT_EQ( calls.size(), 4093u + 3 );
   EXPECT_EQ( Calls( calls.end() - 3, calls.end() ),
              ( Calls{ "set 7 mst0 Ethernet1 1", "flush 7 Ethernet1", "free tapAgg" } ) );
   EXPECT_EQ( stpSm->bpduTrapping, std::pair( true, false ) );
   EXPECT_EQ( stpSm->tapAggIntf()->intfInfos(), 0u );
}

TEST_F( StpSmTest, APortThatLeavesTapModeAsksForItsOwnState ) {
   runWithPort();
   tapAggTopo( "tapAgg", 100 );
   mode( HwOperationalMode::tapAgg );
   tapAgg->toolIntfIs( intf( "Ethernet1" ) );
   EXPECT_EQ( stp.acked( "mst0", "Ethernet1" ), int( forwarding ) );
   helper->calls();
   tapAgg->toolIntfDel( intf( "Ethernet1" ) );
   EXPECT_EQ( helper->calls(),
              ( Calls{ "set 7 mst0 Ethernet1 1", "set 100 tapAgg Ethernet1 1" } ) );
   tapAgg->tapAggTopoNameIs( "other" );
   EXPECT_EQ( stpSm->topoToVlanMap( "tapAgg" ), nullptr );
   EXPECT_EQ( stpSm->topoToVlanMap( "other" )->vlans(), 4093u );
}

TEST_F( StpSmTest, ATopologyThatGoesHandsNothingOverForTapAndToolPorts ) {
   runWithPort();
   for ( const char * name : { "Ethernet2", "Ethernet3" } ) {
      stp.port( "mst0", name, blocked );
   }
   tapAggTopo( "tapAgg", 100 );
   tapAgg->tapIntfIs( intf( "Ethernet2" ) );
   tapAgg->toolIntfIs( intf( "Ethernet3" ) );
   mode( HwOperationalMode::tapAgg );
   helper->calls();
   stp.topoDel( "mst0" );
   auto calls = helper->calls();
   std::erase_if( calls, []( const String & call ) { return !call.starts_with( "set 7" ); } );
   EXPECT_EQ( calls, ( Calls{ "set 7 mst0 Ethernet1 1" } ) );
}

TEST_F( StpSmTest, CleanUpGivesEverythingBackAndAStartAfterItIsAStart ) {
   runWithPort();
   tapAggTopo( "tapAgg", 100 );
   tapAgg->tapIntfIs( intf( "Ethernet2" ) );
   mode( HwOperationalMode::tapAgg );
   helper->calls();
   stpSm->doCleanup();
   auto calls = helper->calls();
   EXPECT_EQ( Calls( calls.end() - 3, calls.end() ),
              ( Calls{ "free tapAgg", "set 7 mst0 Ethernet1 1", "free mst0" } ) );
   stp.port( "mst0", "Ethernet1", forwarding );
   stp.vlan( 30, "mst0" );
   EXPECT_EQ( helper->calls(), Calls{} );
   EXPECT_EQ( stp.acked( "mst0", "Ethernet1" ), int( blocked ) );
   EXPECT_EQ( stpSm->currentHwOperationalMode(), HwOperationalMode::switching );
   stpSm->initializedIs( true ); // in the mode, as before
   EXPECT_EQ( helper->hardware["tapAgg"][intf( "Ethernet2" )], forwarding );
   EXPECT_EQ( stpSm->topoToVlanMap( "tapAgg" )->vlans(), 4092u );
   stpSm->doCleanup();
   mode( HwOperationalMode::switching );
   helper->calls();
   stpSm->initializedIs( true );
   EXPECT_EQ( helper->calls(), ( Calls{ "init", "alloc mst0", "set 7 mst0 Ethernet1 3",
                                        "add mst0 10", "add mst0 30" } ) );
   tapAgg->toolIntfIs( intf( "Ethernet1" ) ); // settings of a mode that is not in use
   acsd->tapAggHwConfigIs( nullptr );
   tapAggTopo( "tapAgg", 101 );
   EXPECT_EQ( helper->calls(), Calls{} );
   EXPECT_EQ( stpSm->tapAggIntf()->intfInfos(), 0u );
}

TEST_F( StpSmTest, DeathCallsNoHookAndEndsEverything ) {
   runWithPort();
   stpSm = nullptr;
   stp.port( "mst0", "Ethernet1", forwarding );
   stp.topoDel( "mst0" );
   EXPECT_EQ( helper->calls(), Calls{} );
   EXPECT_EQ( helper->stpSm(), nullptr );
}

TEST_F( StpSmTest, EachChangeAsksForVerification ) {
   Env enable( "ENABLE_VERIFY", "1" );
   runWithPort();
   acsd->verifyData()->verifyIs( true );
   const std::pair< const char *, std::function< void() > > changes[] = {
         { "a VLAN", [&] { stp.vlan( 11, "mst0" ); } },
         { "a topology without VLANs", [&] { stp.topo( "mst1", 8 ); } },
         { "its end", [&] { stp.topoDel( "mst1" ); } },
   };
   for ( auto && [what, change] : changes ) {
      scheduler.runFor( 3600 );
      helper->calls();
      change();
      scheduler.runFor( 3600 );
      auto calls = helper->calls();
      EXPECT_NE( std::count( calls.begin(), calls.end(), "verify" ), 0 ) << what;
   }
}

// --- Slots and texts -----------------------------------------------------------------------------

template< class F >
U32
slotOf( F f ) {
   std::ptrdiff_t raw;
   std::memcpy( &raw, &f, sizeof( raw ) );
   return U32( ( raw - 1 ) / std::ptrdiff_t( sizeof( void * ) ) );
}

TEST( TopologySlots, HooksStandInTheAgreedOrder ) {
   EXPECT_EQ( slotOf( &Qon::StpSm::handleInitialized ), 4u );
   EXPECT_EQ( slotOf( &Qon::StpSm::verify ), 5u );
   EXPECT_EQ( slotOf( &Qon::StpSm::configureBpduTrapping ), 6u );
   using H = Qon::TopoHelper;
   U32 slot = 4;
   EXPECT_EQ( slotOf( &H::maxTopo ), slot++ );
   EXPECT_EQ( slotOf( &H::allocTopo ), slot++ );
   EXPECT_EQ( slotOf( &H::freeTopo ), slot++ );
   EXPECT_EQ( slotOf( &H::setStpState ), slot++ );
   EXPECT_EQ( slotOf( &H::addVlanToTopo ), slot++ );
   EXPECT_EQ( slotOf( &H::delVlanFromTopo ), slot++ );
   EXPECT_EQ( slotOf( &H::flushTopoPort ), slot++ );
   EXPECT_EQ( slotOf( &H::flushTopoPortVlan ), slot++ );
   EXPECT_EQ( slotOf( &H::verify ), slot++ );
   EXPECT_EQ( slotOf( &H::hwInit ), slot++ );
   EXPECT_EQ( slotOf( &H::handleVlanUpdateCompletion ), slot++ );
}

} // namespace
