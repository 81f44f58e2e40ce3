// Texts of link aggregation that operators and tools search for: failed assertions, reports, traces.

#include "Qon/include/lag/QonEthPhyLagConfigAggregatorSm.h"
#include "Qon/include/lag/QonLagConfigMapCreatorSm.h"
#include "Qon/include/lag/QonLagCreatorSm.h"
#include "Qon/include/lag/QonLagStateAggregatorSm.h"
#include "tests/lag/LagWorld.h"
#include "tests/texts/Traced.h"

namespace {

using namespace LagTests;

class LagTexts : public ::testing::Test, public LagWorld {};

TEST_F( LagTexts, TheIndexIsTheNumberOfPlainPortChannels ) {
   auto index = []( const char * name ) { return Qon::getLagIndex( intf( name ) ); };
   EXPECT_EQ( index( "Port-Channel17" ), 17u );
   EXPECT_DEATH( index( "Ethernet1" ),
                 "'Ulnet::PortChannelIntfId::isPortChannelIntfId\\( lagName \\)'" );
   EXPECT_DEATH( index( "Recirc-Channel1" ),
                 "'!Ulnet::PortChannelIntfId::isRecirc\\( lagName \\)'" );
   EXPECT_DEATH( index( "Port-Channel1/2" ), "'1 == Ulnet::GenericIntfId::parts\\( lagName \\)'" );
}

TEST_F( LagTexts, AnInvalidFallbackTypeIsFatalUnlessThereIsNoHardware ) {
   start();
   EXPECT_DEATH( lag( 1 )->lacpFallbackEnabledIs( 3 ), "Invalid LACP fallback type: 3\n" );
   Tests::Env noop( "QON_NOOP_AGENT", "" );
   lag( 1 )->lacpFallbackEnabledIs( 3 );
   EXPECT_EQ( acsd->lagInLacpFallbackIndividualModes(), 0u );
}

TEST_F( LagTexts, AMemberThatSomebodyMovedInOneMapIsFatal ) {
   guard.reset();
   join( 1, 1 );
   start();
   auto spoil = [&] {
      acsd->portToLagIs( eth( 1 ), po( 7 ) );
      dir->intfStatusDel( po( 1 ) );
   };
   EXPECT_DEATH( spoil(), "Assertion 'portToLag\\( member \\) == lag' failed" );
}

TEST_F( LagTexts, TracesOfMembership ) {
   auto flow = [&] {
      deviceNames->intfDeviceNameIs( po( 9 ), "old" );
      lag( 1 )->deviceNameIs( "po1" );
      join( 1, 1 );
      join( 3, 3 );
      start();
      join( 2, 1 );
      leave( 2, 1 );
      lagSm->sharePeerLinkWithLagIs( po( 1 ), true );
      mlagUp( po( 3 ) );
      join( 3, 4 );
      mlag->mlagStateIs( Mlag::MlagState::disabled );
      dir->intfStatusDel( po( 1 ) );
      Kiv::agentRestartingIs( true );
      dir->intfStatusDel( po( 2 ) );
      Kiv::agentRestartingIs( false );
   };
   Tests::expectTraced(
         flow, {
                     " clearing stale lagInputIntfDeviceNameDir entry for Port-Channel9",
                     "Added deviceName po1 input for Port-Channel1",
                     "Port-Channel1 adding Ethernet1",
                     "Ethernet1 duplicate lag found Port-Channel1",
                     "Port-Channel2 deleting Ethernet1",
                     "Port-Channel1 ignore since MLAG state is invalid.",
                     " fastMacRedirection True",
                     "Check if we need to update the peer-link members for lag Port-Channel1",
                     "Port-Channel1 updating LAG membership to add Port-Channel3 members.",
                     "Port-Channel1 already shares Port-Channel3 members.",
                     "Stop sharing members of peer-link Port-Channel3",
                     "Port-Channel1 doesn't share Port-Channel3 anymore. since MLAG status is "
                     "disabled",
                     "Removing deviceName input for Port-Channel1",
                     "Disabling Qon cleanup in case of restart",
               } );
   guard.reset(); // of what the restart leaves
}

/** What goes on as it is says nothing. */
TEST_F( LagTexts, NoTraceWithoutAChange ) {
   join( 1, 1 );
   start();
   mlagUp( eth( 9 ) );
   Tests::expectNoTrace(
         [&] {
            lagSm->sharePeerLinkWithLagIs( po( 1 ), true );
            acsd->intfIs( eth( 8 ), true );
            acsd->intfDel( eth( 8 ) );
         },
         { "invalid", "deviceName", "shares  members" } );
}

class LagCreatorTexts : public LagTexts {
 protected:
   struct Driver : Qon::LagPacketDriver {
      Driver() : LagPacketDriver( "driver" ) {}
      int getLagInfo( U32, char *, U32 ) override { return ret; }
      int ret = 0;
   };
   void create( Ptr< Qon::LagPacketDriver > driver ) {
      creator = Qon::QonLagCreatorSmIs( { acsd, phy, fapIdPorts, driver }, config );
      creator->initializedIs( true );
   }
   void joined( U32 lag, U32 port ) {
      Qon::QonLagPortList list;
      list.portIs( eth( port ), Qon::QonLagPort( true, true ) );
      acsd->lagToPortIs( po( lag ), list );
      acsd->portToLagIs( eth( port ), po( lag ) );
      phy->intfStatusIs( eth( port ) );
   }
   Ptr< Interface::EthPhyIntfStatusDir > phy =
         Velto::make< Interface::EthPhyIntfStatusDir >( "phy" );
   Ptr< Driver > driver = Velto::make< Driver >();
   Ptr< Qon::QonLagCreatorSm > creator;
};

TEST_F( LagCreatorTexts, APacketDriverThatIsMissingOrFailsIsFatal ) {
   create( Velto::make< Qon::LagPacketDriver >( "missing" ) );
   joined( 1, 1 );
   EXPECT_DEATH( hardwarePorts( 1, 1 ),
                 "Call to unimplemented function LagPacketDriver::getLagInfo\n" );
   Tests::Env noop( "QON_NOOP_AGENT", "" );
   hardwarePorts( 1, 1 );
   EXPECT_EQ( hardware( 1 ), Ports{ eth( 1 ) } );
   create( driver );
   driver->ret = 1;
   EXPECT_DEATH( fapIdPorts->fapIdPortIs( eth( 1 ), Qon::FapIdPort( 9, 9 ) ), "'ret == 0'" );
}

TEST_F( LagCreatorTexts, TracesOfTheCreators ) {
   auto lists = Velto::make< Hardware::Lag::AggregatedLagConfigDir >( "lists" );
   auto flags = Velto::make< Hardware::Lag::MemberStatusDir >( "flags" );
   auto other = Velto::make< Hardware::Lag::Config >( "other" );
   auto flow = [&] {
      config->lagIs( po( 9 ), 9 )->memberIs( eth( 9 ), Hardware::Lag::Member() );
      create( driver );
      joined( 1, 1 );
      hardwarePorts( 1, 2 );
      phy->intfStatusDel( eth( 1 ) );
      creator = nullptr;
      auto mapCreator =
            Qon::LagConfigMapCreatorSmIs( { acsd, lists, flags, phy, fapIdPorts }, other );
      mapCreator->initializedIs( true );
      joined( 2, 2 );
      lists->lagToPortIs( po( 2 ) )->memberIs( eth( 2 ), Interface::LagMode::on );
      flags->memberStatusIs( eth( 2 ), Interface::LagMember( true, true ) );
      flags->memberStatusDel( eth( 2 ) );
      lists->lagToPortDel( po( 2 ) );
   };
   Tests::expectTraced( flow, {
                                    " Cleaning up lag: Port-Channel9",
                                    " Adding lag: Port-Channel1 member: Ethernet1",
                                    " Removing lag: Port-Channel1 member: Ethernet1",
                                    "Port-Channel2 Ethernet2 memberStatus: True fapPort: True "
                                    "interfaceStatusExists: True lagExists: True resync: False",
                                    " Adding lag: Port-Channel2 member: Ethernet2",
                                    " Removing lag: Port-Channel2 member: Ethernet2",
                                    " Removing lag: Port-Channel2",
                              } );
}

TEST_F( LagTexts, TracesOfTheAggregators ) {
   auto input = Velto::make< Interface::EthLagIntfConfigDir >( "input" );
   auto output = Velto::make< Hardware::Lag::AggregatedLagConfigDir >( "output" );
   auto merged = Velto::make< Hardware::Lag::Status >( "merged" );
   auto flow = [&] {
      input->intfConfigIs( eth( 1 ) )->lagIs( po( 1 ) );
      auto configs = Qon::LagConfigAggregatorSmIs( input, output, &scheduler );
      configs->initializedIs( true );
      scheduler.settle();
      auto states = Qon::LagStateAggregatorSmIs( { status }, merged );
      states->initializedIs( true );
      status->lagIs( po( 4 ) )->memberIs( eth( 4 ), Hardware::Lag::MemberStatus() );
      status->lag( po( 4 ) )->memberDel( eth( 4 ) );
      status->lagDel( po( 4 ) );
   };
   Tests::expectTraced( flow, {
                                    "Ethernet1 into( aggregatedLagConfigDir.lagToPort[ lagId ]."
                                    "member[ phyIntf ] ) of Port-Channel1",
                                    "Initial scan done for child SMs. Now scanning with events "
                                    "triggered.",
                                    " Adding lag: Port-Channel4",
                                    "Port-Channel4 Cleaning up member: Ethernet4",
                                    " Cleaning up lag: Port-Channel4",
                              } );
}

} // namespace
