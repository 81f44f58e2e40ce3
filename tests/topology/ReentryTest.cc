// Hooks and watchers that change what they are called about, raise, or end the state machine; starts
// that are interrupted; the tap-aggregation topology in all its company.

#include "platform/Kiv/Listener.h"
#include "platform/Kiv/TypeData.h"
#include "tests/topology/ReentryWorld.h"

namespace {

using namespace Tests;
using Qon::HwOperationalMode;

// --- Port states ---------------------------------------------------------------------------------

TEST_F( ReentryTest, AStateRequestedInsideAFanOutReplacesIt ) {
   for ( bool completesInside : { false, true } ) {
      SCOPED_TRACE( completesInside );
      stpSm = nullptr;
      stp.topoDel( "mst0" );
      helper->completesInside = false;
      run();
      helper->completesInside = completesInside;
      at( "set 7 mst0 Ethernet2 3", [&] { stp.port( "mst0", "Port-Channel1", learning ); } );
      stp.port( "mst0", "Port-Channel1", forwarding );
      EXPECT_EQ( held( "Ethernet2" ), learning );
      EXPECT_EQ( held( "Ethernet3" ), learning );
      EXPECT_EQ( stp.acked( "mst0", "Port-Channel1" ),
                 int( completesInside ? learning : blocked ) );
   }
}

TEST_F( ReentryTest, WhatIsHandedOverAfterAReportIsNotDoneByIt ) {
   run();
   // Done is reported for the first member; then, inside, another port and the second member.
   at( "set 7 mst0 Ethernet2 3", [&] {
      helper->setStpStateDoneTopoId( 7 );
      stp.port( "mst0", "Ethernet1", forwarding );
      lags.leave( "Ethernet3" );
   } );
   stp.port( "mst0", "Port-Channel1", forwarding );
   EXPECT_EQ( stp.acked( "mst0", "Ethernet1" ), int( blocked ) );
   helper->setStpStateDoneTopoId( 7 );
   EXPECT_EQ( stp.acked( "mst0", "Ethernet1" ), int( forwarding ) );
   EXPECT_EQ( stp.acked( "mst0", "Port-Channel1" ), int( forwarding ) );
}

TEST_F( ReentryTest, AMemberThatLeavesInsideAFanOutKeepsItsOwnState ) {
   run();
   stp.port( "mst0", "Ethernet3", learning );
   at( "set 7 mst0 Ethernet2 3", [&] { lags.leave( "Ethernet3" ); } );
   stp.port( "mst0", "Port-Channel1", forwarding );
   EXPECT_EQ( held( "Ethernet3" ), learning );
   EXPECT_EQ( held( "Ethernet2" ), forwarding );
}

TEST_F( ReentryTest, AHookThatRaisesLosesNothingButItsOwn ) {
   run();
   stp.port( "mst0", "Ethernet1", learning );
   at( "set 7 mst0 Ethernet2 3", [] { throw std::runtime_error( "chip" ); } );
   EXPECT_THROW( stp.port( "mst0", "Port-Channel1", forwarding ), std::runtime_error );
   helper->setStpStateDoneTopoId( 7 );
   EXPECT_EQ( stp.acked( "mst0", "Ethernet1" ), int( learning ) );
   EXPECT_EQ( stp.acked( "mst0", "Port-Channel1" ), int( blocked ) ); // was never handed over
   stp.port( "mst0", "Port-Channel1", learning );
   helper->setStpStateDoneTopoId( 7 );
   EXPECT_EQ( stp.acked( "mst0", "Port-Channel1" ), int( learning ) );
}

TEST_F( ReentryTest, AHookThatRaisesTakesNothingFromWhatWasRequestedInside ) {
   run();
   at( "set 7 mst0 Ethernet1 2", [&] {
      stp.port( "mst0", "Ethernet1", forwarding );
      throw std::runtime_error( "chip" );
   } );
   EXPECT_THROW( stp.port( "mst0", "Ethernet1", learning ), std::runtime_error );
   EXPECT_EQ( held( "Ethernet1" ), forwarding );
   helper->setStpStateDoneTopoId( 7 );
   EXPECT_EQ( stp.acked( "mst0", "Ethernet1" ), int( forwarding ) );
}

TEST_F( ReentryTest, WhoAddsAPortHearsThatTheChipRaised ) {
   run();
   at( "set 7 mst0 Ethernet4 3", [] { throw std::runtime_error( "chip" ); } );
   EXPECT_THROW( stp.port( "mst0", "Ethernet4", forwarding ), std::runtime_error );
   stp.portConfig( "mst0", "Ethernet4" )->stateIs( learning ); // it is there nevertheless
   helper->setStpStateDoneTopoId( 7 );
   EXPECT_EQ( stp.acked( "mst0", "Ethernet4" ), int( learning ) );
}

TEST_F( ReentryTest, AWatcherThatRaisesKeepsNoOtherPortWaiting ) {
   run();
   stp.port( "mst0", "Ethernet1", forwarding );
   stp.port( "mst0", "Port-Channel1", forwarding );
   Kiv::Listener< Bridging::Topology::TopoPortStatus::stateAttr > watcher(
         stp.portStatus( "mst0", "Ethernet1" ), [] { throw std::runtime_error( "watcher" ); } );
   EXPECT_THROW( helper->setStpStateDoneTopoId( 7 ), std::runtime_error );
   EXPECT_EQ( stp.acked( "mst0", "Ethernet1" ), int( forwarding ) );
   EXPECT_EQ( stp.acked( "mst0", "Port-Channel1" ), int( forwarding ) );
}

TEST_F( ReentryTest, ACleanUpThatRaisesIsWholeNevertheless ) {
   auto fails = [] { throw std::runtime_error( "chip" ); };
   run();
   at( "set 7 mst0", fails );
   EXPECT_THROW( stp.config->topoConfigDel( "mst0" ), std::runtime_error );
   auto calls = helper->calls();
   EXPECT_EQ( count( calls, "set 7 mst0" ), 3u ); // the one that raised, and the others
   EXPECT_EQ( calls.back(), "free mst0" );
   helper->setStpStateDoneTopoId( 7 ); // nobody's now
   stp.topo( "mst0", 7 );
   stp.topo( "mst1", 8 );
   EXPECT_EQ( count( helper->calls(), "alloc" ), 2u );
   mode( HwOperationalMode::tapAgg );
   helper->calls();
   at( "del tapAgg", fails );
   EXPECT_THROW( stpSm->doCleanup(), std::runtime_error );
   calls = helper->calls();
   EXPECT_EQ( count( calls, "free" ), 3u );
   EXPECT_EQ( count( calls, "del tapAgg" ), 4093u );
   EXPECT_FALSE( stpSm->initialized() );
   EXPECT_EQ( stpSm->topoSms() + stpSm->vlanToTopoSmMaps() + stpSm->topoToVlanMaps(), 0u );
   mode( HwOperationalMode::switching );
   at( "alloc mst0", fails ); // a start goes on with the others
   EXPECT_THROW( stpSm->initializedIs( true ), std::runtime_error );
   EXPECT_EQ( count( helper->calls(), "alloc mst1" ), 1u );
}

TEST_F( ReentryTest, AFlushAskedForInsideAFlushIsReportedLast ) {
   run();
   auto config = stp.portConfig( "mst0", "Ethernet1" );
   at( "flush", [&] { config->fdbFlushIs( 6 ); } );
   config->fdbFlushIs( 5 );
   EXPECT_EQ( stp.portStatus( "mst0", "Ethernet1" )->fdbFlushReport(), 6u );
   EXPECT_EQ( helper->calls(), ( Calls{ "flush 7 Ethernet1", "flush 7 Ethernet1" } ) );
}

TEST_F( ReentryTest, AReportForWhatHasJustGoneIsNobodys ) {
   run();
   stp.topo( "mst1", 8 );
   stp.port( "mst1", "Ethernet1", forwarding );
   auto status = Velto::Ptr( stp.portStatus( "mst1", "Ethernet1" ) );
   // The whole configuration goes at once; the chip has room for "mst1" when "mst0" is freed.
   at( "free mst0", [&] { helper->setStpStateDoneTopoId( 8 ); } );
   stp.config->topoConfigDelAll();
   EXPECT_EQ( status->state(), PortState::disabled );
}

// --- Groups --------------------------------------------------------------------------------------

TEST_F( ReentryTest, EachMapOfTheGroupsDecidesAlone ) {
   run();
   acsd->portToLagIs( intf( "Ethernet1" ), intf( "Port-Channel1" ) ); // not in the list
   EXPECT_EQ( helper->calls(), Calls{ "set 7 mst0 Ethernet1 1" } );
   stp.port( "mst0", "Ethernet1", learning );
   EXPECT_EQ( stp.acked( "mst0", "Ethernet1" ), int( learning ) );
   stp.port( "mst0", "Port-Channel1", forwarding );
   EXPECT_EQ( helper->calls(), ( Calls{ "set 7 mst0 Ethernet2 3", "set 7 mst0 Ethernet3 3" } ) );
   // Whichever comes last makes it right.
   auto list = acsd->lagToPort( intf( "Port-Channel1" ) );
   list.portIs( intf( "Ethernet1" ), Qon::QonLagPort( true, true ) );
   acsd->lagToPortIs( intf( "Port-Channel1" ), list );
   EXPECT_EQ( helper->calls(), Calls{ "set 7 mst0 Ethernet1 3" } );
   acsd->portToLagDel( intf( "Ethernet1" ) );
   stp.port( "mst0", "Port-Channel1", blocked );
   EXPECT_EQ( held( "Ethernet1" ), blocked ); // the list alone
   list.portDel( intf( "Ethernet1" ) );
   acsd->lagToPortIs( intf( "Port-Channel1" ), list );
   EXPECT_EQ( held( "Ethernet1" ), learning );
}

TEST_F( ReentryTest, AnAggregateThatLosesItsLastMemberIsNotToldOfIt ) {
   run();
   stp.config->topoConfig( "mst0" )->topoPortConfigDel( intf( "Ethernet2" ) );
   lags.leave( "Ethernet2" );
   lags.leave( "Ethernet3" );
   EXPECT_EQ( helper->calls(), Calls{} );
}

// --- Pauses --------------------------------------------------------------------------------------

TEST_F( ReentryTest, APauseIsMadeGood ) {
   run();
   stp.topo( "mst1", 8 );
   stp.topo( "mst2", 9 );
   stp.vlan( 12, "mst0" );
   stp.port( "mst0", "Ethernet1", learning );
   helper->calls();
   stpSm->initializedIs( false );
   stp.vlan( 10, "mst1" );
   stp.vlan( 11, "mst0" );
   lags.join( "Ethernet4", "Port-Channel1" );
   lags.leave( "Ethernet2" );
   stp.port( "mst0", "Ethernet5", forwarding );
   stp.config->topoConfig( "mst0" )->topoPortConfigDel( intf( "Ethernet1" ) );
   stp.topoDel( "mst2" );
   stp.config->vidToTopoMapDel( VlanId( 12 ) );
   helper->setStpStateDoneTopoId( 7 );
   EXPECT_EQ( helper->calls(), Calls{} );
   EXPECT_EQ( stp.acked( "mst0", "Ethernet1" ), int( blocked ) );
   stpSm->initializedIs( true );
   auto calls = helper->calls();
   EXPECT_EQ( count( calls, "init" ) + count( calls, "alloc" ), 0u );
   EXPECT_EQ( count( calls, "free mst2" ) + count( calls, "del mst0 12" ), 2u );
   EXPECT_EQ( count( calls, "add mst1 10" ) + count( calls, "del mst0 10" ), 2u );
   EXPECT_EQ( count( calls, "add mst0 11" ), 1u );
   EXPECT_EQ( held( "Ethernet4" ), blocked );
   EXPECT_EQ( count( calls, "set 7 mst0 Ethernet2 1" ), 1u ); // its own again
   EXPECT_EQ( held( "Ethernet5" ), forwarding );
   EXPECT_EQ( stp.acked( "mst0", "Ethernet1" ), -1 );
   helper->setStpStateDoneTopoId( 7 );
   EXPECT_EQ( stp.acked( "mst0", "Ethernet5" ), int( forwarding ) );
}

// --- Tap aggregation -----------------------------------------------------------------------------

TEST_F( ReentryTest, AModeThatChangesBackInsideAHookIsFollowed ) {
   run();
   stp.config->bpduTrapEnabledIs( true );
   for ( String call : { "alloc tapAgg", "add tapAgg 700", "set 100 tapAgg Ethernet1" } ) {
      SCOPED_TRACE( call );
      tapAgg->tapIntfIs( intf( "Ethernet1" ) );
      at( call, [&] { mode( HwOperationalMode::switching ); } );
      mode( HwOperationalMode::tapAgg );
      EXPECT_EQ( stpSm->currentHwOperationalMode(), HwOperationalMode::switching );
      EXPECT_EQ( stpSm->vlanToTopoSmMaps(), 1u );
      EXPECT_EQ( stpSm->bpduTrapping, std::pair( true, false ) );
      EXPECT_EQ( stpSm->tapAggIntf()->intfInfos(), 0u );
      auto calls = helper->calls();
      EXPECT_EQ( count( calls, "alloc tapAgg" ), count( calls, "free tapAgg" ) );
      EXPECT_EQ( count( calls, "add tapAgg" ), count( calls, "del tapAgg" ) );
   }
   mode( HwOperationalMode::tapAgg );
   helper->calls();
   for ( String call : { "del tapAgg 9", "set 7 mst0 Ethernet1", "free tapAgg" } ) {
      SCOPED_TRACE( call );
      at( call, [&] { mode( HwOperationalMode::tapAgg ); } );
      mode( HwOperationalMode::switching );
      EXPECT_EQ( stpSm->currentHwOperationalMode(), HwOperationalMode::tapAgg );
      EXPECT_EQ( stpSm->topoToVlanMap( "tapAgg" )->vlans(), 4093u );
      EXPECT_EQ( stp.acked( "mst0", "Ethernet1" ), int( forwarding ) );
      EXPECT_EQ( stpSm->checkInvariants(), "" );
   }
}

TEST_F( ReentryTest, AModeChangeThatRaisesIsMadeUpFor ) {
   run();
   tapAgg->tapIntfIs( intf( "Ethernet1" ) );
   at( "add tapAgg 700", [] { throw std::runtime_error( "chip" ); } );
   EXPECT_THROW( mode( HwOperationalMode::tapAgg ), std::runtime_error );
   mode( HwOperationalMode::switching );
   EXPECT_EQ( stpSm->vlanToTopoSmMaps(), 1u );
   auto calls = helper->calls();
   EXPECT_EQ( count( calls, "alloc tapAgg" ) + count( calls, "free tapAgg" ), 2u );
   mode( HwOperationalMode::tapAgg );
   EXPECT_EQ( held( "Ethernet1", "tapAgg" ), forwarding );
}

TEST_F( ReentryTest, AVlanThatIsMovedWhileTheModeIsLeftStaysMoved ) {
   run();
   mode( HwOperationalMode::tapAgg );
   at( "del tapAgg 5", [&] { stp.vlan( 4000, "mst0" ); } );
   mode( HwOperationalMode::switching );
   EXPECT_EQ( stpSm->vlanToTopoSmMap( 4000 ), "mst0" );
   auto calls = helper->calls();
   EXPECT_EQ( count( calls, "add mst0 4000" ) + count( calls, "del mst0 4000" ), 1u );
   EXPECT_EQ( count( calls, "del tapAgg 4000" ), 1u );
}

TEST_F( ReentryTest, AStartInTapAggregationHandsNothingOverForTapPorts ) {
   build();
   tapAgg->tapIntfIs( intf( "Ethernet1" ) );
   tapAgg->toolIntfIs( intf( "Port-Channel1" ) );
   stp.portConfig( "mst0", "Ethernet1" )->fdbFlushIs( 3 );
   mode( HwOperationalMode::tapAgg );
   start( helper );
   auto calls = helper->calls();
   EXPECT_EQ( count( calls, "set 7" ) + count( calls, "flush" ), 0u );
   EXPECT_EQ( count( calls, "set 100 tapAgg" ), 3u );
   EXPECT_EQ( stp.acked( "mst0", "Port-Channel1" ), int( forwarding ) );
   EXPECT_EQ( stp.portStatus( "mst0", "Ethernet1" )->fdbFlushReport(), 0u );
}

TEST_F( ReentryTest, AnotherTapAggregationTopologyTouchesNoOther ) {
   run();
   tapAgg->tapIntfIs( intf( "Ethernet1" ) );
   mode( HwOperationalMode::tapAgg );
   helper->calls();
   tapAgg->tapAggTopoIdIs( 101 );
   EXPECT_EQ( helper->calls(), Calls{ "set 101 tapAgg Ethernet1 3" } );
   tapAgg->tapAggTopoNameIs( "" ); // incomplete: the one that is in use stays
   EXPECT_EQ( helper->calls(), Calls{} );
   tapAgg->tapAggTopoNameIs( "other" );
   auto calls = helper->calls();
   EXPECT_EQ( count( calls, "set 7" ), 0u );
   EXPECT_EQ( count( calls, "del tapAgg" ) + count( calls, "add other" ), 2 * 4093u );
   EXPECT_EQ( count( calls, "alloc other" ) + count( calls, "free tapAgg" ), 2u );
   EXPECT_EQ( held( "Ethernet1", "other" ), forwarding );
   EXPECT_EQ( stp.acked( "mst0", "Ethernet1" ), int( forwarding ) );
   // Other settings altogether: the tap port is none any more.
   tapAgg = Velto::make< TapAgg::HwConfig >( "again" );
   tapAggTopo( "other", 101 );
   EXPECT_EQ( helper->calls(), ( Calls{ "set 7 mst0 Ethernet1 1", "set 101 other Ethernet1 1" } ) );
   tapAgg->toolIntfIs( intf( "Ethernet4" ) );
   helper->calls();
   tapAgg->tapAggTopoIdIs( 102 ); // of the new ones
   EXPECT_EQ( helper->calls(), Calls{ "set 102 other Ethernet4 3" } );
}

TEST_F( ReentryTest, OtherSettingsThatComeWhileTheModeIsEnteredAreFollowed ) {
   run();
   tapAgg->tapIntfIs( intf( "Ethernet1" ) );
   at( "set 100 tapAgg Ethernet1 3", [&] {
      tapAgg = Velto::make< TapAgg::HwConfig >( "again" );
      tapAgg->toolIntfIs( intf( "Ethernet4" ) );
      tapAggTopo( "tapAgg", 100 );
   } );
   mode( HwOperationalMode::tapAgg );
   EXPECT_EQ( held( "Ethernet1", "tapAgg" ), blocked );
   EXPECT_EQ( held( "Ethernet4", "tapAgg" ), forwarding );
   tapAgg->toolIntfDel( intf( "Ethernet4" ) );
   EXPECT_EQ( held( "Ethernet4", "tapAgg" ), blocked );
}

TEST_F( ReentryTest, TheTapAggregationTopologyMayBeAConfiguredOne ) {
   run();
   stp.vlan( 20, "tapAgg" );
   mode( HwOperationalMode::tapAgg );
   auto calls = helper->calls();
   EXPECT_EQ( count( calls, "alloc tapAgg" ), 1u );
   EXPECT_EQ( count( calls, "add tapAgg" ), 4093u );
   EXPECT_EQ( std::count( calls.begin(), calls.end(), "add tapAgg 20" ), 1 );
   stp.topo( "tapAgg", 100 );
   stp.port( "tapAgg", "Ethernet1", learning );
   calls = helper->calls();
   EXPECT_EQ( count( calls, "alloc tapAgg" ) + count( calls, "add tapAgg" ), 0u );
   stp.topoDel( "tapAgg" );
   stp.topo( "tapAgg", 100 );
   mode( HwOperationalMode::switching );
   calls = helper->calls();
   EXPECT_EQ( count( calls, "alloc" ) + count( calls, "free" ) + count( calls, "add" ), 0u );
   EXPECT_EQ( count( calls, "del tapAgg" ), 4092u );
   mode( HwOperationalMode::tapAgg );
   stp.topoDel( "tapAgg" );
   mode( HwOperationalMode::switching );
   calls = helper->calls();
   EXPECT_EQ( count( calls, "alloc" ), 0u );
   EXPECT_EQ( count( calls, "add tapAgg" ), 4092u );
   EXPECT_EQ( calls.back(), "free tapAgg" );
}

TEST_F( ReentryTest, TheModeNeedsANamedTopology ) {
   run();
   tapAgg->tapAggTopoNameIs( "" );
   EXPECT_DEATH( mode( HwOperationalMode::tapAgg ), "tapAggTopoName\\(\\).empty\\(\\)" );
}

TEST_F( ReentryTest, ToolGroupsForwardThroughWhomTheyLeadTo ) {
   run();
   tapAgg->toolIntfIs( intf( "Port-Channel1" ) );
   mode( HwOperationalMode::tapAgg );
   helper->calls();
   lags.join( "Ethernet4", "Port-Channel1" );
   EXPECT_EQ( held( "Ethernet4", "tapAgg" ), forwarding );
   lags.leave( "Ethernet2" );
   EXPECT_EQ( held( "Ethernet2", "tapAgg" ), blocked );
   lags.leave( "Ethernet3" );
   lags.leave( "Ethernet4" );
   EXPECT_EQ( count( helper->calls(), "set 100 tapAgg Port-Channel1" ), 0u );
   lags.join( "Ethernet4", "Port-Channel1" );
   at( "set 100 tapAgg Ethernet4 1", [&] { tapAgg->tapIntfIs( intf( "Ethernet4" ) ); } );
   lags.leave( "Ethernet4" );
   EXPECT_EQ( held( "Ethernet4", "tapAgg" ), forwarding );

   // One that never had members carries it itself, until it has one: that is not taken back then.
   tapAgg->toolIntfIs( intf( "Port-Channel9" ) );
   EXPECT_EQ( helper->calls().back(), "set 100 tapAgg Port-Channel9 3" );
   for ( int n = 0; n < 2; ++n ) {
      lags.join( "Ethernet9", "Port-Channel9" );
      lags.leave( "Ethernet9" );
   }
   EXPECT_EQ( count( helper->calls(), "set 100 tapAgg Port-Channel9" ), 0u );
   mode( HwOperationalMode::switching );
   mode( HwOperationalMode::tapAgg ); // what was before is of no account
   EXPECT_EQ( count( helper->calls(), "set 100 tapAgg Port-Channel9 3" ), 1u );
}

// --- Ends ----------------------------------------------------------------------------------------

/** Everything that a state machine does, while whoever hears of it may end it. */
class EndTest : public ReentryTest {
 protected:
   U32 flushes_ = 0;
   class Counter : public Velto::Node {
    public:
      explicit Counter( EndTest & test ) : test_( test ) { hasNotificationActiveIs( true ); }
      void handleState() { test_.heard(); }
      Kiv::Watch< Bridging::Topology::TopoPortStatus::stateAttr, Counter, &Counter::handleState >
            watch;

    private:
      EndTest & test_;
   };
   void heard() {
      if ( ++heard_ == last_ ) {
         helper->onCall = nullptr;
         clean_ ? stpSm->doCleanup() : void( stpSm = nullptr );
      }
   }
   void done() {
      if ( helper->stpSm() ) {
         helper->setStpStateDoneTopoId( 7 );
      }
   }
   /** The number of hooks and status writes that were heard. */
   U32 history( U32 last, bool clean ) {
      last_ = last;
      clean_ = clean;
      heard_ = 0;
      helper->onCall = [this]( const String & call ) {
         const bool vlan = call.starts_with( "add" ) || call.starts_with( "del" );
         if ( !vlan || call.find( "mst" ) != String::npos || call.ends_with( " 1000" ) ) {
            heard(); // of the 4093 VLANs of tap aggregation one is enough
         }
      };
      build();
      start( helper );
      auto counter = Velto::make< Counter >( *this );
      for ( String port : { "Ethernet1", "Port-Channel1" } ) {
         counter->watch.attach( counter.ptr(), stp.portStatus( "mst0", port ) );
         stp.port( "mst0", port, forwarding );
         done();
         stp.portConfig( "mst0", port )->fdbFlushIs( ++flushes_ );
      }
      lags.leave( "Ethernet3" );
      lags.join( "Ethernet1", "Port-Channel1" );
      stp.vlan( 10, "mst1" );
      stp.topo( "mst1", 7 );
      done();
      tapAgg->tapIntfIs( intf( "Ethernet4" ) );
      mode( HwOperationalMode::tapAgg );
      tapAgg->tapAggTopoNameIs( "other" );
      mode( HwOperationalMode::switching );
      stp.topoDel( "mst0" );
      helper->onCall = nullptr;
      return heard_;
   }
   void reset() {
      stpSm = nullptr;
      stp.topoDel( "mst0" );
      stp.topoDel( "mst1" );
      stp.config->vidToTopoMapDelAll();
      for ( String port : { "Ethernet1", "Ethernet2", "Ethernet3" } ) {
         lags.leave( port );
      }
      tapAgg->tapIntfDel( intf( "Ethernet4" ) );
      mode( HwOperationalMode::switching );
   }

 private:
   U32 last_ = 0;
   U32 heard_ = 0;
   bool clean_ = false;
};

/** Every other call is made in a history in which one raises: those of its topology, of the others,
    and those that come later. */
TEST_F( EndTest, ACallThatRaisesKeepsNoOtherFromTheChip ) {
   auto calls = [&]( U32 raises ) {
      U32 count = 0;
      helper = Velto::make< RecordingTopoHelper >();
      helper->onCall = [&]( const String & ) {
         if ( ++count == raises ) {
            throw Velto::RangeError( "chip" );
         }
      };
      auto step = [&]( auto && act ) {
         try {
            act();
         } catch ( const Velto::RangeError & ) {
         }
      };
      stp.topo( "mst0", 7 );
      stp.topo( "mst1", 8 );
      for ( U32 vlan : { 10, 11, 12 } ) {
         stp.vlan( vlan, vlan == 12 ? "mst1" : "mst0" );
      }
      for ( String topo : { "mst0", "mst1" } ) {
         for ( String port : { "Ethernet1", "Ethernet2", "Port-Channel1" } ) {
            stp.port( topo, port, blocked );
            stp.portConfig( topo, port )->fdbFlushIs( ++flushes_ );
         }
      }
      stpSm = Qon::smIs< TestStpSm >( acsd, stp.config, stp.status, helper );
      step( [&] { stpSm->initializedIs( true ); } );
      step( [&] { lags.join( "Ethernet2", "Port-Channel1" ); } );
      step( [&] { lags.leave( "Ethernet2" ); } );
      step( [&] { stp.vlan( 10, "mst1" ); } );
      step( [&] { stp.config->topoConfigDel( "mst1" ); } );
      step( [&] { stp.config->topoConfigIs( "mst1", 8 ); } );
      step( [&] { stpSm->doCleanup(); } );
      stpSm = nullptr;
      helper->onCall = nullptr;
      reset();
      auto made = helper->calls();
      std::sort( made.begin(), made.end() );
      for ( String & call : made ) {
         call = call.starts_with( "flush" ) ? "flush" : call;
      }
      return made;
   };
   const Calls all = calls( 0 );
   EXPECT_GE( all.size(), 30u );
   for ( U32 raises = 2; raises <= all.size(); ++raises ) { // the first is the chip's own start
      Calls missing;
      const Calls made = calls( raises );
      std::set_difference( all.begin(), all.end(), made.begin(), made.end(),
                           std::back_inserter( missing ) );
      EXPECT_EQ( missing, Calls() ) << "call " << raises;
   }
}

TEST_F( EndTest, TheLastReferenceOrACleanUpInAnyHookAndWatcher ) {
   const U32 all = history( 0, false );
   EXPECT_GE( all, 30u );
   for ( bool clean : { false, true } ) {
      for ( U32 last = 1; last <= all; ++last ) {
         reset();
         history( last, clean );
         if ( clean && stpSm ) {
            EXPECT_EQ( stpSm->topoSms() + stpSm->vlanToTopoSmMaps() + stpSm->topoToVlanMaps(), 0u )
                  << last;
         }
      }
   }
   reset();
}

TEST_F( ReentryTest, AttributesCanBeReadByName ) {
   run();
   auto read = []( const Velto::Node & node, const String & name ) {
      auto attr = node.typeData() ? node.typeData()->find( name ) : nullptr;
      auto value = attr ? attr->at( node, nullptr ) : nullptr;
      return value && attr->value ? attr->value->toText( value ) : String( value ? "node" : "-" );
   };
   auto topo = stpSm->topoSm( "mst0" );
   EXPECT_EQ( read( *topo, "name" ), "mst0" );
   EXPECT_EQ( read( *topo, "topoId" ), "7" );
   EXPECT_EQ( read( *topo, "config" ), "node" );
   auto port = topo->topoPortSm( intf( "Port-Channel1" ) );
   EXPECT_EQ( read( *port, "intf" ), "Port-Channel1" );
   EXPECT_EQ( read( *port, "isLag" ), "True" );
   EXPECT_EQ( read( *port, "status" ), "node" );
}

} // namespace
