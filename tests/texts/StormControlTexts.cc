// Texts of storm control that operators and tools search for: reports, failed assertions, traces.

#include "tests/stormcontrol/StormWorld.h"
#include "tests/texts/Traced.h"

// In their namespace: other files here have other ports called eth().
namespace StormTests {
namespace {

TEST( StormControlTexts, EveryMissingHookIsReported ) {
   Qon::StormControlSmHelper first( "helper" );
   Qon::QonStormControlSmHelperV2 second( "helper" );
   const Threshold t;
   const Bridging::StormControl::IntfStatus intfStatus( eth( 1 ) );
   const Bridging::StormControl::AggregateTcStatus tcStatus( 1 );
   const auto all = LevelType::levelTypeAll;
   const std::map< String, std::function< void() > > hooks = {
         { "installRules", [&] { first.installRules(); } },
         { "updateBcastSkipRule", [&] { first.updateBcastSkipRule( eth( 1 ), true ); } },
         { "programTcAggregateHwRate", [&] { first.programTcAggregateHwRate( 1, t ); } },
         { "setHwRate", [&] { first.setHwRate( all, eth( 1 ), po( 1 ), 1, t ); } },
         { "setCpuHwRate", [&] { first.setCpuHwRate( all, eth( 1 ), po( 1 ), 1, t ); } },
         { "verifyEnabled", [&] { first.verifyEnabled( eth( 1 ), true ); } },
         { "verifyPort", [&] { first.verifyPort( eth( 1 ), po( 1 ), 1, intfStatus ); } },
         { "verifyAggregateTc", [&] { first.verifyAggregateTc( 1, tcStatus ); } },
         { "hwInit", [&] { first.hwInit(); } },
         { "handleEthPhyIntfLagConfig", [&] { first.handleEthPhyIntfLagConfig( eth( 1 ) ); } },
         { "setBurstTime", [&] { first.setBurstTime( {} ); } },
         { "uucastLevelEnabled", [&] { first.uucastLevelEnabled(); } },
         { "burstEnabled", [&] { first.burstEnabled(); } },
         { "handleAggregateTcRulesHelper", [&] { second.handleAggregateTcRulesHelper( 1, t ); } },
         { "handlePortRulesHelper",
           [&] { second.handlePortRulesHelper( all, eth( 1 ), po( 1 ), 1, t ); } },
         { "resetPortConfig", [&] { second.resetPortConfig( eth( 1 ) ); } } };
   for ( auto & [name, call] : hooks ) {
      EXPECT_DEATH( call(), "Function " + name + "\\(\\) must be implemented by derived class" );
   }
   EXPECT_DEATH( second.updateBcastSkipRule( eth( 1 ), true ),
                 "Function updateBcastSkipRule\\(\\) must be implemented by derived class" );
   Tests::Env noop( "QON_NOOP_AGENT", "" );
   for ( auto & [name, call] : hooks ) {
      call();
   }
   EXPECT_FALSE( first.uucastLevelEnabled() || first.burstEnabled() );
}

TEST( StormControlTexts, HooksHaveTheirPlaces ) {
   // Two destructors, typeData and kivDoZombieReactors stand before them.
   using First = Qon::StormControlSmHelper;
   using Second = Qon::QonStormControlSmHelperV2;
   auto slot = []( auto member ) {
      std::ptrdiff_t place;
      std::memcpy( &place, &member, sizeof place );
      return ( place - 1 ) / std::ptrdiff_t( sizeof( void * ) );
   };
   EXPECT_EQ( slot( &First::installRules ), 4 );
   EXPECT_EQ( slot( &First::updateBcastSkipRule ), 5 );
   EXPECT_EQ( slot( &First::programTcAggregateHwRate ), 6 );
   EXPECT_EQ( slot( &First::setHwRate ), 7 );
   EXPECT_EQ( slot( &First::setCpuHwRate ), 8 );
   EXPECT_EQ( slot( &First::verifyEnabled ), 9 );
   EXPECT_EQ( slot( &First::verifyPort ), 10 );
   EXPECT_EQ( slot( &First::verifyAggregateTc ), 11 );
   EXPECT_EQ( slot( &First::hwInit ), 12 );
   EXPECT_EQ( slot( &First::handleEthPhyIntfLagConfig ), 13 );
   EXPECT_EQ( slot( &First::setBurstTime ), 14 );
   EXPECT_EQ( slot( &First::uucastLevelEnabled ), 15 );
   EXPECT_EQ( slot( &First::burstEnabled ), 16 );
   EXPECT_EQ( slot( &Second::handleAggregateTcRulesHelper ), 4 );
   EXPECT_EQ( slot( &Second::updateBcastSkipRule ), 5 );
   EXPECT_EQ( slot( &Second::handlePortRulesHelper ), 6 );
   EXPECT_EQ( slot( &Second::resetPortConfig ), 7 );
}

TEST( StormControlTexts, AStartWithoutInputsIsFatal ) {
   FirstWorld w;
   w.config = nullptr;
   EXPECT_DEATH( w.start(), "Assertion 'config\\(\\)' failed" );
   FirstWorld w2;
   w2.status = nullptr;
   EXPECT_DEATH( w2.start(), "Assertion 'status\\(\\)' failed" );
   FirstWorld w3;
   w3.phys = nullptr;
   EXPECT_DEATH( w3.start(), "Assertion 'ethPhyIntfStatusDir\\(\\)' failed" );
   FirstWorld w4;
   w4.helper = nullptr;
   EXPECT_DEATH( w4.start(), "Assertion 'helper\\(\\)' failed" );
}

TEST( StormControlTexts, AStatusOfAnotherVersionIsNeverWritten ) {
   SecondWorld w;
   w.start();
   w.broadcast( eth( 1 ), 100 );
   w.config->aggregateTcIs( 3 )->thresholdIs( kbps( 1 ) );
   auto platform = w.platformStatus->platformIntfStatusIs( eth( 1 ) );
   auto sm = Qon::smIs< Qon::PlatformIntfStatusSm >( w.sm.ptr(), platform );
   EXPECT_DEATH( sm->writeIntfStatus(),
                 "Assertion 'qonStormControlSmV2\\(\\) ->platformConfig\\(\\) "
                 "->platformIntfConfig\\( intf\\(\\) \\) ->versionId\\(\\) == "
                 "platformIntfStatus\\(\\)->versionId\\(\\)' failed" );
   auto tc = Qon::smIs< Qon::AggregateTcStatusSm >(
         w.sm.ptr(), w.platformStatus->platformAggregateTcStatusIs( 3 ) );
   EXPECT_DEATH( tc->writeAggregateTcStatus(),
                 "Assertion 'qonStormControlSmV2\\(\\) ->platformConfig\\(\\) "
                 "->platformAggregateTcConfig\\( trafficClass\\(\\) \\) ->versionId\\(\\) == "
                 "platformAggregateTcStatus\\(\\)->versionId\\(\\)' failed" );
}

TEST( StormControlTexts, TracesOfLevels ) {
   auto flow = [] {
      FirstWorld w;
      w.managed( 1, true );
      w.managed( 2, true );
      w.managed( 3, true );
      w.status->intfStatusIs( eth( 9 ) );
      w.broadcast( eth( 1 ), 100 );
      w.broadcast( eth( 8 ), 100 );
      w.broadcast( intf( "Ethernet8.1" ), 100 );
      w.phy( 2 )->forwardingModelIs( Interface::ForwardingModel::routed );
      w.broadcast( eth( 2 ), 100 );
      w.of( eth( 1 ) )->allCpuLevelIs( kbps( 0 ) );
      w.config->counterPeriodIs( 1 );
      w.start();
      w.member( 1, 1 );
      w.broadcast( eth( 1 ), 200 );
      w.broadcast( po( 1 ), 500 );
      w.member( 3, 1 );
      w.member( 3, 0 );
      w.phy( 1 )->activeIs( false );
      w.phy( 1 )->activeIs( true );
      w.acsd->lagToPortDel( po( 1 ) );
      w.status->intfStatusDel( eth( 1 ) );
      w.scheduler.runFor( 1 );
   };
   Tests::expectTraced(
         flow,
         { "Removing orphaned status for Ethernet9",
           "Ethernet8 Interface doesn't exists in platform, skip initializing the sm",
           "Ethernet8.1 Interface doesn't exists in platform, skip initializing the sm",
           "Ethernet2 Interface is non-bridged fwd mode, skip initializing the sm",
           "Ethernet1 levelTypeAll zero rate is not supported",
           "Removing config of Ethernet1 because it is part of a lag, and lag config takes "
           "precedence",
           "Ethernet1 is part of a LAG, ignore its own config",
           "Updating levels for lag Port-Channel1", "Port-Channel1 updated. Reapplying config",
           "Disabling storm control on Ethernet3 because it left a lag",
           "Ethernet1 Interface has become inactive, clear storm control",
           "Ethernet1 Interface has become active, reprogram storm control",
           "Port-Channel1 removed. Disabling reactor",
           "Ethernet1 returning as intfStatus is empty " } );
}

TEST( StormControlTexts, TracesOfDrops ) {
   auto flow = [] {
      FirstWorld w;
      w.of( eth( 1 ) )->dropLoggingIs( true );
      w.config->dropLoggingIntervalIs( 5 );
      w.slices->sliceIs( "A" )->intfStatusIs( eth( 1 ) );
      w.drops->allIntfStatusIs( eth( 9 ), Qon::StormControl::AllDrops() );
      auto sm = Qon::StormControlDropSmIs(
            { w.config, w.status, w.slices, w.drops, w.acsd, w.scheduler.timerWheel() } );
      sm->initializedIs( true );
      w.scheduler.runFor( 5 );
      w.slices->sliceDel( "A" );
      auto causes = Velto::make< Errdisable::CauseConfig >( "causes" );
      causes->enabledIs( "storm-control" );
      auto errdisable = Qon::StormControlErrdisableSmIs(
            { w.config, w.status, causes, Velto::make< Errdisable::CauseStatus >( "storm-control" ),
              w.acsd } );
      errdisable->initializedIs( true );
      auto status = w.status->intfStatusIs( eth( 1 ) );
      status->dropsComparableIs( true );
      status->allDropIs( 1 );
   };
   Tests::expectTraced( flow, { "Creating SM for Intf: Ethernet1",
                                "Checking for stale allIntfStatus entries",
                                "Clearing stale entry for intf: Ethernet9",
                                "Syslogging of drops is enabled for interface Ethernet1",
                                "Slice is going away: A", "A deleting interface: Ethernet1",
                                "Errdisabling Ethernet1 due to storm-control." } );
}

} // namespace
} // namespace StormTests
