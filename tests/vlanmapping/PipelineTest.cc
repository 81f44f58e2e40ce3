// The second generation: from the wishes of three sources to what each port has, and back.

#include "tests/vlanmapping/PipelineWorld.h"

namespace {

using namespace VlanMappingTests;

class Pipeline : public testing::TestWithParam< Direction >, protected PipelineWorld {
 protected:
   const Direction d = GetParam();
   const String dir = Kiv::toText( d );
   String name( const char * intf, U32 vlan = 10 ) const {
      return intf + ( " " + dir + " " ) + Kiv::toText( vlan );
   }
   const std::vector< String > none;
};

INSTANTIATE_TEST_SUITE_P( Directions, Pipeline, testing::Values( in, out ) );

TEST_P( Pipeline, TheFirstActiveSourceKeepsAKey ) {
   startPipeline();
   native( eth( 1 ), d, 10 );
   wants( cli, eth( 1 ), d, 10, 110 );
   EXPECT_EQ( shown( merged ), ( Shown{ { name( "Ethernet1" ), "native VLAN 10" } } ) );
   const auto conflict = conflictLog( 10, 110, "Ethernet1", dir.c_str(), "CLI", "native VLAN" );
   EXPECT_EQ( takeLogs(), std::vector{ conflict } );
   wants( flow, eth( 1 ), d, 10, 210 ); // not active: no conflict
   EXPECT_EQ( takeLogs(), none );
   EXPECT_EQ( acsd->encapVlan( eth( 1 ) ).value(), d == out ? 10 : 0 );
   native( eth( 1 ), d, 0 );
   EXPECT_EQ( shown( platform ), ( Shown{ { name( "Ethernet1" ), "CLI 110" } } ) );
   EXPECT_EQ( takeLogs(),
              std::vector{ programmedLog( 10, 110, "Ethernet1", dir.c_str(), "CLI" ) } );
   EXPECT_FALSE( acsd->encapVlanHas( eth( 1 ) ) );
   native( eth( 1 ), d, 10 ); // whose turn it was first does not matter now
   EXPECT_EQ( takeLogs(), std::vector{ conflictLog( 10, 10, "Ethernet1", dir.c_str(), "native VLAN",
                                                    "CLI" ) } );
   wants( cli, eth( 1 ), d, 10, 111 );
   EXPECT_EQ( shown( platform ), ( Shown{ { name( "Ethernet1" ), "CLI 111" } } ) );
   native( eth( 1 ), d, 0 ); // a loser that goes takes nothing with it
   EXPECT_EQ( shown( platform ), ( Shown{ { name( "Ethernet1" ), "CLI 111" } } ) );
   EXPECT_EQ( takeLogs(), none );
   checkPipeline();
}

TEST_P( Pipeline, TheModeSaysWhoCounts ) {
   startPipeline();
   wants( cli, eth( 1 ), d, 10, 110 );
   wants( flow, eth( 1 ), d, 10, 210 );
   wants( flow, eth( 1 ), d, 20, 220 );
   wants( flow, eth( 2 ), d, 10, 210 ); // an interface that nobody configured
   EXPECT_EQ( shown( platform ), ( Shown{ { name( "Ethernet1" ), "CLI 110" } } ) );
   // A winner replaces the one before: nobody sees the key without one.
   bool gap = false;
   Kiv::Listener< Qon::PlatformIntfVlanMappingConfig::vlanMappingConfigAttr > watch(
         platform->intfVlanMappingConfig( eth( 1 ) ), [&]( const QonVlanMappingKey & k ) {
            auto held = platform->intfVlanMappingConfig( eth( 1 ) );
            gap |= k.vlanId() == 10 && !( held && held->vlanMappingConfigHas( k ) );
         } );
   mode( eth( 1 ), Mode::flow );
   EXPECT_EQ( shown( platform ), ( Shown{ { name( "Ethernet1" ), "Steerline 210" },
                                          { name( "Ethernet1", 20 ), "Steerline 220" } } ) );
   mode( eth( 1 ), Mode::trunk );
   EXPECT_EQ( shown( platform ), ( Shown{ { name( "Ethernet1" ), "CLI 110" } } ) );
   EXPECT_FALSE( gap );
   mode( eth( 1 ), Mode::routed );
   EXPECT_EQ( shown( platform ), Shown() );
   EXPECT_EQ( takeLogs(), none ); // silent moves
   config->switchIntfConfigDel( eth( 1 ) );
   EXPECT_EQ( shown( merged ), Shown() );
   checkPipeline();
}

TEST_P( Pipeline, NothingIsMergedBeforeAllSourcesAreReady ) {
   wants( cli, eth( 1 ), d, 10, 110 );
   native( eth( 1 ), d, 10 );
   wants( cli, eth( 2 ), d, 10, 110 );
   // What a former run left: an owner that still wants its key, one that does not, an interface that
   // is no more.
   using Data = Qon::MergedVlanMappingData;
   merged->intfVlanMappingConfigIs( eth( 1 ) )
         ->vlanMappingConfigIs( key( d, 10 ), Data( ConfigSource::nativeVlan, { 10, 0 } ) );
   merged->intfVlanMappingConfigIs( eth( 2 ) )
         ->vlanMappingConfigIs( key( d, 20 ), Data( ConfigSource::bridging, { 120, 0 } ) );
   merged->intfVlanMappingConfigIs( eth( 3 ) )
         ->vlanMappingConfigIs( key( d, 10 ), Data( ConfigSource::flow, { 210, 0 } ) );
   const Shown before = shown( merged );
   std::vector< String > changes;
   Kiv::Listener< Qon::MergedIntfVlanMappingConfig::vlanMappingConfigAttr > watch(
         merged->intfVlanMappingConfig( eth( 1 ) ),
         [&]( const QonVlanMappingKey & k ) { changes.push_back( k.stringValue() ); } );

   using namespace Qon::VlanMapping;
   auto merge = Qon::smIs< ConfigMergeSm >( ConfigMergeSm::Inputs{
         acsd, config, sources, { ready[0], ready[1], ready[2] }, merged, nullptr } );
   auto source = [&]( U32 n ) {
      return SourceOutput( Qon::vlanMappingConfigSources[n], sources, ready[n] );
   };
   auto bridging = Qon::smIs< BridgingConfigSm >( config, source( 0 ), nullptr );
   auto flowSm = Qon::smIs< QonFlowConfigSm >( flowConfig, source( 1 ), nullptr );
   auto nativeSm = Qon::smIs< NativeVlanConfigSm >( config, source( 2 ), nullptr );
   merge->initializedIs( true );
   flowSm->initializedIs( true );
   bridging->initializedIs( true );
   EXPECT_EQ( shown( merged ), before );
   EXPECT_FALSE( merge->synced() );
   nativeSm->initializedIs( true );
   EXPECT_TRUE( merge->synced() );
   EXPECT_EQ( shown( merged ), ( Shown{ { name( "Ethernet1" ), "native VLAN 10" },
                                        { name( "Ethernet2" ), "CLI 110" } } ) );
   EXPECT_EQ( changes, none ) << "the winner was disturbed";
   EXPECT_EQ( takeLogs(), std::vector{ conflictLog( 10, 110, "Ethernet1", dir.c_str(), "CLI",
                                                    "native VLAN" ) } );
   ready[1]->readyIs( false ); // once is enough
   wants( cli, eth( 2 ), d, 10, 0 );
   EXPECT_EQ( shown( merged ).size(), 1u );
   EXPECT_EQ( merge->checkInvariants(), "" );
}

TEST_P( Pipeline, AnInterfaceThatNobodyWantsIsMergedNoMore ) {
   startPipeline();
   wants( cli, eth( 1 ), d, 10, 110 );
   wants( flow, eth( 1 ), d, 20, 120 );
   config->switchIntfConfigDel( eth( 1 ) );
   EXPECT_TRUE( merged->intfVlanMappingConfigHas( eth( 1 ) ) );
   flowConfig->vlanXlateIntfConfigDel( eth( 1 ) );
   EXPECT_FALSE( merged->intfVlanMappingConfigHas( eth( 1 ) ) );
   checkPipeline();
}

TEST_P( Pipeline, MembersHaveWhatTheirPortChannelWants ) {
   startPipeline();
   wants( cli, po( 1 ), d, 10, 110 );
   wants( cli, eth( 1 ), d, 20, 120 );
   auto held = [&] { return interlock->portChannelHas( po( 1 ) ); };
   EXPECT_FALSE( held() ); // there is no such port-channel
   joins( 1, 1 );
   EXPECT_TRUE( held() );
   EXPECT_TRUE( interlock->portChannel( po( 1 ) )->featureHas( "vlanMapping" ) );
   EXPECT_EQ( shown( platform ), ( Shown{ { name( "Ethernet1" ), "CLI 110" } } ) );
   joins( 1, 2 );
   wants( cli, po( 1 ), d, 30, 130 );
   wants( cli, eth( 1 ), d, 20, 121 ); // rests
   EXPECT_EQ( shown( platform ).size(), 4u );
   wants( cli, po( 2 ), d, 10, 119 );
   portToLag->portToLagIs( eth( 2 ), po( 2 ) ); // moves
   EXPECT_EQ( shown( platform ), ( Shown{ { name( "Ethernet1" ), "CLI 110" },
                                          { name( "Ethernet1", 30 ), "CLI 130" },
                                          { name( "Ethernet2" ), "CLI 119" } } ) );
   leaves( 1, 1 );
   portToLag->portToLagDel( eth( 2 ) );
   EXPECT_EQ( shown( platform ), ( Shown{ { name( "Ethernet1", 20 ), "CLI 121" } } ) );
   config->switchIntfConfigDel( po( 1 ) );
   EXPECT_FALSE( held() );
   wants( cli, po( 1 ), d, 10, 110 );
   EXPECT_TRUE( held() );
   acsd->lagToPortDel( po( 1 ) );
   EXPECT_FALSE( held() );
   checkPipeline();
}

TEST_P( Pipeline, TheWorstOfThePortsIsToldAndAFullTableOnce ) {
   startPipeline();
   status->readyIs( true );
   wants( cli, po( 1 ), d, 10, 110 );
   joins( 1, 1 );
   joins( 1, 2 );
   const auto k = key( d, 10 );
   auto told = [&] { return result( ConfigSource::bridging, po( 1 ), k ); };
   EXPECT_EQ( told(), Status::handedOver );
   answers( eth( 1 ), k, Status::success );
   EXPECT_EQ( told(), Status::handedOver );
   answers( eth( 2 ), k, Status::failed );
   EXPECT_EQ( told(), Status::failed );
   answers( eth( 1 ), k, Status::notNow );
   EXPECT_EQ( told(), Status::notNow );
   answers( eth( 2 ), k, Status::full );
   answers( eth( 1 ), k, Status::full );
   EXPECT_EQ( told(), Status::full );
   const auto full = fullLog( 10, 110, "Port-Channel1", dir.c_str() );
   EXPECT_EQ( takeLogs(), std::vector{ full } );
   EXPECT_EQ( shown( platform ).size(), 2u ); // it stays
   answers( eth( 1 ), k, Status::success );
   answers( eth( 1 ), k, Status::full );
   EXPECT_EQ( takeLogs(), none );
   leaves( 1, 1 );
   answers( eth( 2 ), k, Status::success );
   EXPECT_EQ( told(), Status::success );
   answers( eth( 2 ), k, Status::full ); // afresh
   wants( cli, po( 1 ), d, 10, 111 );    // an old answer is none to a new wish
   EXPECT_EQ( told(), Status::handedOver );
   answers( eth( 2 ), k, Status::full );
   EXPECT_EQ( takeLogs(),
              ( std::vector{ full, fullLog( 10, 111, "Port-Channel1", dir.c_str() ) } ) );
   wants( cli, po( 1 ), d, 10, 0 );
   EXPECT_EQ( told(), std::nullopt );
   native( eth( 5 ), d, 7 );
   answers( eth( 5 ), key( d, 7 ), Status::full );
   EXPECT_EQ( takeLogs(), std::vector{ encapFullLog( dir.c_str(), "Ethernet5", 7 ) } );
   EXPECT_EQ( result( ConfigSource::nativeVlan, eth( 5 ), key( d, 7 ) ), Status::full );
   status->readyIs( false ); // what is said now is not believed yet
   answers( eth( 5 ), key( d, 7 ), Status::success );
   EXPECT_EQ( result( ConfigSource::nativeVlan, eth( 5 ), key( d, 7 ) ), Status::full );
   status->readyIs( true );
   EXPECT_EQ( result( ConfigSource::nativeVlan, eth( 5 ), key( d, 7 ) ), Status::success );
}

TEST_P( Pipeline, ARestartAndAPauseDisturbNothing ) {
   startPipeline( true );
   wants( cli, po( 1 ), d, 10, 110 );
   wants( cli, eth( 3 ), d, 10, 110 );
   wants( cli, eth( 3 ), d, 20, 120 );
   joins( 1, 1 );
   scheduler.settle();
   const Shown before = shown( platform );
   EXPECT_EQ( before.size(), 3u );
   U32 changes = 0;
   Kiv::Listener< Qon::PlatformIntfVlanMappingConfig::vlanMappingConfigAttr > watch(
         platform->intfVlanMappingConfig( eth( 3 ) ), [&]( auto & ) { ++changes; } );
   sm2 = nullptr;
   startPipeline( true );
   scheduler.settle();
   EXPECT_EQ( shown( platform ), before );
   EXPECT_EQ( changes, 0u );
   sm2->initializedIs( false );
   wants( cli, eth( 3 ), d, 10, 0 );
   wants( cli, eth( 3 ), d, 30, 130 );
   config->switchIntfConfigDel( po( 1 ) );
   EXPECT_EQ( shown( platform ), before );
   sm2->initializedIs( true );
   scheduler.settle();
   EXPECT_EQ( shown( platform ), ( Shown{ { name( "Ethernet3", 20 ), "CLI 120" },
                                          { name( "Ethernet3", 30 ), "CLI 130" } } ) );
   EXPECT_EQ( changes, 2u );
   checkPipeline();
}

TEST( PipelineTexts, AStatusThatIsReadyBeforeTheStartIsFatal ) {
   PipelineWorld w;
   w.status->readyIs( true );
   EXPECT_DEATH( w.startPipeline(), "!platformVlanMappingStatus\\(\\)->ready\\(\\)" );
   EXPECT_DEATH( Qon::vlanMappingConfigSourceActiveSwitchportMode( ConfigSource( 3 ) ), "'0'" );
   w.status->readyIs( false );
   w.startPipeline();
   EXPECT_THROW( w.wants( cli, eth( 1 ), in, 10, 4095 ), Velto::RangeError );
   EXPECT_EQ(
         w.sources->sourceVlanMappingConfig( ConfigSource::bridging )->intfVlanMappingConfigs(),
         0u );
}

TEST( PipelineTexts, AMergedKeyThatNobodyHoldsIsFatal ) {
   PipelineWorld w;
   w.startPipeline();
   w.wants( cli, eth( 1 ), in, 10, 110 );
   const auto all = w.merged->intfVlanMappingConfig( eth( 1 ) );
   const auto data = all->vlanMappingConfig( key( in, 10 ) );
   Kiv::Listener< Qon::MergedIntfVlanMappingConfig::vlanMappingConfigAttr > putsItBack(
         all, [&]( const QonVlanMappingKey & k ) { all->vlanMappingConfigIs( k, data ); } );
   EXPECT_DEATH( w.wants( cli, eth( 1 ), in, 10, 0 ),
                 "!mergedIntfConfig\\(\\)->vlanMappingConfigHas\\( key \\)" );
}

// --- Changes in the middle -----------------------------------------------------------------------

TEST_P( Pipeline, WhatEndsWhileAPortIsGivenItIsNotGiven ) {
   startPipeline();
   wants( cli, po( 1 ), d, 10, 110 );
   std::vector< U32 > given;
   Kiv::Listener< Qon::PlatformIntfVlanMappingConfig::vlanMappingConfigAttr > keys;
   Kiv::Listener< Qon::PlatformVlanMappingConfig::intfVlanMappingConfigAttr > ports(
         platform.ptr(), [&]( IntfId port ) {
            if ( auto fresh = platform->intfVlanMappingConfig( port ) ) {
               keys.attach( fresh, [&, fresh]( const QonVlanMappingKey & k ) {
                  given.push_back( fresh->vlanMappingConfig( k ).merged().mapping().vlanId() );
               } );
               config->switchIntfConfigDel( po( 1 ) );
            }
         } );
   portToLag->portToLagIs( eth( 1 ), po( 1 ) );
   EXPECT_EQ( given, std::vector< U32 >() );
   EXPECT_EQ( platform->intfVlanMappingConfigs(), 0u );
   checkPipeline();
}

TEST_P( Pipeline, APortChannelThatIsFreeAgainWhileItIsHeldIsNotHeld ) {
   startPipeline();
   wants( cli, po( 1 ), d, 10, 110 );
   Kiv::Listener< Qon::PortChannelInterlockDir::portChannelAttr > watch(
         interlock.ptr(), [&]( auto & ) { config->switchIntfConfigDel( po( 1 ) ); } );
   member( 1, 1 );
   EXPECT_FALSE( interlock->portChannelHas( po( 1 ) ) );
}

TEST_P( Pipeline, AnAnswerToAnotherMappingIsNoAnswer ) {
   startPipeline();
   status->readyIs( true );
   wants( cli, po( 1 ), d, 10, 110 );
   joins( 1, 1 );
   joins( 1, 2 );
   const auto k = key( d, 10 );
   answers( eth( 1 ), k, Status::success );
   answers( eth( 2 ), k, Status::success );
   Kiv::Listener< Qon::PlatformIntfVlanMappingConfig::vlanMappingConfigAttr > watch(
         platform->intfVlanMappingConfig( eth( 2 ) ),
         [&]( auto & ) { wants( cli, po( 1 ), d, 10, 111 ); } );
   portToLag->portToLagDel( eth( 2 ) ); // while its port goes, another mapping is wanted
   EXPECT_EQ( shown( platform ), ( Shown{ { name( "Ethernet1" ), "CLI 111" } } ) );
   EXPECT_EQ( result( ConfigSource::bridging, po( 1 ), k ), Status::handedOver );
}

TEST_P( Pipeline, AnInterfaceThatGoesInAPauseHasNoStateMachine ) {
   startPipeline();
   wants( cli, eth( 1 ), d, 10, 110 );
   wants( flow, eth( 1 ), d, 20, 220 );
   wants( flow, eth( 2 ), d, 20, 220 ); // not active, and not merged
   EXPECT_TRUE( sm2->configMergeSm()->intfConfigMergeSm( eth( 2 ) ) );
   sm2->initializedIs( false );
   flowConfig->vlanXlateIntfConfigDel( eth( 2 ) );
   sm2->initializedIs( true );
   EXPECT_TRUE( sm2->configMergeSm()->intfConfigMergeSm( eth( 1 ) ) );
   EXPECT_FALSE( sm2->configMergeSm()->intfConfigMergeSm( eth( 2 ) ) );
   checkPipeline();
}

TEST_P( Pipeline, WhoeverRaisesCostsNoOtherInterfaceItsStatus ) {
   using namespace Qon::VlanMapping;
   auto lag = Qon::smIs< LagResolutionSm >( merged, portToLag, platform );
   auto statusSm = Qon::smIs< PlatformStatusSm >( merged, lag, status, sourceStatus );
   statusSm->initializedIs( true );
   status->readyIs( true );
   const Qon::MergedVlanMappingData data( ConfigSource::bridging, { 110, 0 } );
   for ( U32 n : { 1, 2 } ) { // of the first port both, as while it moves
      const auto k = key( d, n );
      merged->intfVlanMappingConfigIs( eth( n ) )->vlanMappingConfigIs( k, data );
      platform->intfVlanMappingConfigIs( eth( n ) )
            ->vlanMappingConfigIs( k, { data, eth( n ), n } );
      platform->intfVlanMappingConfigIs( eth( 1 ) )
            ->vlanMappingConfigIs( k, { data, eth( n ), n } );
   }
   Kiv::Listener< Qon::SourceVlanMappingStatus::intfVlanMappingStatusAttr > raises(
         sourceStatus->sourceVlanMappingStatus( ConfigSource::bridging ), [&]( IntfId intf ) {
            if ( intf == eth( 1 ) ) {
               throw Velto::RangeError( "watcher" );
            }
         } );
   EXPECT_THROW( statusSm->handlePlatformIntf( eth( 1 ) ), Velto::RangeError );
   for ( U32 n : { 1, 2 } ) {
      EXPECT_EQ( result( ConfigSource::bridging, eth( n ), key( d, n ) ), Status::handedOver );
   }
}

} // namespace
