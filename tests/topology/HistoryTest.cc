// Random histories: whatever happens in whatever order, the invariants hold after every step, and
// at rest the chip has what the configuration wants and everything is acknowledged.

#include "platform/Kiv/Rng.h"
#include "tests/topology/ChipWorld.h"

namespace {

using namespace Tests;
using Qon::HwOperationalMode;

class HistoryTest : public testing::TestWithParam< std::tuple< ChipKind, U32 > >, public ChipWorld {
 protected:
   static constexpr U32 vlanCount = 6, portCount = 5, steps = 400;

   HistoryTest()
       : ChipWorld( std::get< 0 >( GetParam() ) ), random_( std::get< 1 >( GetParam() ) ) {
      for ( U32 vlan = 1; vlan <= vlanCount; ++vlan ) {
         for ( U32 port = 1; port <= portCount; ++port ) {
            member( "Ethernet" + std::to_string( port ), vlan );
         }
         member( "Port-Channel1", vlan );
         member( "Port-Channel2", vlan );
      }
      Kiv::SliceBudget budget;
      budget.units = 1 + below( 3 );
      scheduler.budgetIs( budget );
      tapAggTopo( "tapAgg", 100 );
   }

   U32 below( U32 n ) { return U32( random_() % n ); }
   String anyPort() {
      const U32 n = below( portCount + 2 );
      return n < portCount ? "Ethernet" + std::to_string( n + 1 )
                           : "Port-Channel" + std::to_string( n - portCount + 1 );
   }
   String anyTopo() { return String( 1, char( 'a' + below( 3 ) ) ); }
   String anyMember() { return "Ethernet" + std::to_string( 1 + below( portCount ) ); }

   void portChange() {
      const String topo = anyTopo(), port = anyPort();
      auto config = stp.config->topoConfig( topo );
      if ( !config ) {
         return;
      }
      switch ( below( 8 ) ) {
      case 0:
         config->topoPortConfigDel( intf( port ) );
         break;
      case 1: // another entity within one burst
         config->topoPortConfigDel( intf( port ) );
         config->topoPortConfigIs( intf( port ), PortState( below( 5 ) ) );
         break;
      case 2: {
         auto portConfig = config->topoPortConfigIs( intf( port ) );
         portConfig->fdbFlushIs( portConfig->fdbFlush() + 1 );
         break;
      }
      default:
         stp.port( topo, port, PortState( below( 5 ) ) );
         break;
      }
   }
   void topoChange() {
      const String topo = anyTopo();
      switch ( below( 4 ) ) {
      case 0:
         stp.topoDel( topo );
         break;
      case 1:
         stp.config->topoConfigIs( topo, 1 )->topoIdIs( 1 + below( 3 ) );
         break;
      case 2:
         stp.status->topoStatusIs( topo, 1 )->topoIdIs( 1 + below( 3 ) );
         break;
      default:
         stp.topo( topo, 1 );
         stp.status->topoStatus( topo )->topoIdIs( stp.config->topoConfig( topo )->topoId() );
         break;
      }
   }
   void vlanChange() {
      const VlanId vlan( 1 + below( vlanCount ) );
      below( 4 ) ? stp.config->vidToTopoMapIs( vlan, anyTopo() )
                 : stp.config->vidToTopoMapDel( vlan );
   }
   void lagChange() {
      const String lag = "Port-Channel" + std::to_string( 1 + below( 2 ) );
      below( 3 ) ? lags.move( anyMember(), lag ) : lags.leave( anyMember() );
   }
   void tapChange() {
      const IntfId port = intf( anyPort() );
      switch ( below( 4 ) ) {
      case 0:
         mode( acsd->operationalMode() == HwOperationalMode::tapAgg ? HwOperationalMode::switching
                                                                    : HwOperationalMode::tapAgg );
         break;
      case 1:
         tapAgg->tapIntfIs( port );
         break;
      case 2:
         tapAgg->tapIntfDel( port );
         break;
      default:
         below( 2 ) ? tapAgg->toolIntfIs( port ) : tapAgg->toolIntfDel( port );
         break;
      }
   }
   void chipProgress() {
      static const Kiv::Seconds latencies[] = { 0, 0.01, Kiv::never };
      switch ( below( 4 ) ) {
      case 0:
         latencyIs( latencies[below( 3 )] );
         break;
      case 1:
         scheduler.settle( 1 + below( 6 ) );
         break;
      case 2:
         scheduler.runFor( 0.01 );
         break;
      default:
         if ( U32 n = completions().waiting() ) {
            completions().finish( below( n ) );
         }
         break;
      }
   }
   void step() {
      switch ( below( 16 ) ) {
      case 0:
         topoChange();
         break;
      case 1:
      case 2:
         vlanChange();
         break;
      case 3:
      case 4:
         lagChange();
         break;
      case 5:
         tapChange();
         break;
      case 6:
         member( anyPort(), 1 + below( vlanCount ) );
         break;
      case 7:
      case 8:
      case 9:
      case 10:
         chipProgress();
         break;
      default:
         portChange();
         break;
      }
   }

 private:
   Kiv::Rng random_;
};

TEST_P( HistoryTest, EndsWhereTheConfigurationWants ) {
   for ( String topo : { "a", "b", "c" } ) {
      stp.topo( topo, 1 );
   }
   helper->pvstIs( false );
   run();
   for ( U32 i = 1; i <= steps; ++i ) {
      if ( i % 100 == 1 ) { // for a while, one update of eight fails
         faults.add( { "doUpdateVlan", SoftChip::Trouble::fail, 0, 50, 125 } );
      }
      step();
      ASSERT_EQ( broken(), "" ) << "step " << i;
      if ( i % 40 == 0 ) {
         rest();
         ASSERT_EQ( notAtRest(), "" ) << "step " << i;
      }
   }
   stpSm->doCleanup();
}

/** A longer search is made by hand: TOPOLOGY_SEEDS=500. */
U32
lastSeed() {
   const char * seeds = std::getenv( "TOPOLOGY_SEEDS" );
   return seeds ? U32( std::atoi( seeds ) ) : 8;
}

INSTANTIATE_TEST_SUITE_P( Seeds, HistoryTest,
                          testing::Combine( bothKinds(), testing::Range( 1u, lastSeed() + 1 ) ) );

} // namespace
