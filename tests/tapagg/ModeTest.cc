// The mode: entering and leaving it, the hardware's clean-up, the end and starts over what there is.

#include "tests/tapagg/TapAggWorld.h"

namespace {

using namespace TapAggTests;

void
configure( TapAggWorld & w ) {
   w.tap( eth( 1 ), "a" );
   w.tool( eth( 11 ), "a" );
   w.pmapGroups->groupIs( "p" );
   w.classMap( "map", "class", "c,a" );
}

TEST( TapAggMode, FiveSecondsAfterItIsLeftNothingIsLeft ) {
   TapAggWorld w;
   configure( w );
   w.startInMode();
   EXPECT_EQ( w.pmapStatus->groupNameToIds(), 1u );
   w.log.take();
   w.otherMode();
   EXPECT_EQ( w.pmapStatus->groupNameToIds(), 0u );
   EXPECT_TRUE( w.table.held().taps.empty() && w.table.held().tools.empty() );
   EXPECT_EQ( w.sm->hwCleanupTime(), Kiv::now() + 5.0 );
   w.wait( 1.1 );
   EXPECT_TRUE( w.table.held().groups.empty() );
   w.mode( HwOperationalMode::mixed ); // no change for this one
   w.log.take();
   w.wait( 3.8 );
   EXPECT_EQ( w.log.take(), Calls() );
   w.wait( 0.2 );
   EXPECT_EQ( w.log.take(), Calls{ "hwCleanup" } );
   EXPECT_TRUE( w.empty() );
   EXPECT_EQ( w.sm->hwCleanupTime(), Kiv::never );
   EXPECT_EQ( w.sm->groupCleanupTime(), Kiv::never );
}

TEST( TapAggMode, BackInTimeTheChipIsNotSetUpAgain ) {
   TapAggWorld w;
   configure( w );
   w.startInMode();
   const U32 a = w.id( "a" );
   w.otherMode();
   w.wait( 0.9 );
   w.mode();
   EXPECT_EQ( w.id( "a" ), a );
   EXPECT_EQ( w.reached( eth( 1 ) ), "Ethernet11" );
   EXPECT_EQ( w.log.count( "hwInit" ), 0u );
   EXPECT_EQ( w.sm->hwCleanupTime(), Kiv::never );
   w.otherMode();
   w.wait( 4.9 );
   w.mode();
   w.wait( 10 );
   EXPECT_EQ( w.log.count( "hwInit" ) + w.log.count( "hwCleanup" ), 0u );
   w.otherMode();
   w.wait( 5.1 );
   w.mode();
   EXPECT_EQ( w.log.count( "hwInit" ), 1u );
   EXPECT_EQ( w.reached( eth( 1 ) ), "Ethernet11" );
   EXPECT_EQ( w.broken(), "" );
}

TEST( TapAggMode, AChipThatIsSetUpInVainIsCleanedUp ) {
   TapAggWorld w;
   configure( w );
   w.start();
   w.log.during = []( const String & call ) {
      if ( call == "getMaxExternalFrameSizeTapAgg" ) {
         throw Velto::RangeError( "hook" );
      }
   };
   EXPECT_THROW( w.mode(), Velto::RangeError );
   EXPECT_FALSE( w.sm->active() );
   EXPECT_EQ( w.broken(), "" );
   w.wait( 5.1 );
   EXPECT_TRUE( w.empty() );
   w.log.during = nullptr;
   w.otherMode();
   w.mode();
   EXPECT_EQ( w.reached( eth( 1 ) ), "Ethernet11" );
}

/** Agents may have more to wait for. */
class BusySm : public Qon::TapAggSm {
 public:
   using TapAggSm::TapAggSm;
   bool readyForHwCleanup() override { return !busy && TapAggSm::readyForHwCleanup(); }
   bool busy = true;
};

TEST( TapAggMode, TheHardwaresCleanUpWaitsForThePorts ) {
   TapAggWorld w;
   configure( w );
   w.mode();
   w.start< BusySm >();
   w.otherMode();
   EXPECT_EQ( w.sm->hwCleanupTime(), Kiv::never );
   w.wait( 20 );
   EXPECT_EQ( w.log.count( "hwCleanup" ), 0u );
   static_cast< BusySm & >( *w.sm ).busy = false;
   w.sm->doMaybeScheduleHwCleanup();
   EXPECT_EQ( w.sm->hwCleanupTime(), Kiv::now() + 5.0 );
   w.sm->initedToolPortCountInc( 1 );
   EXPECT_DEATH( w.sm->handleHwCleanupTime(), "Assertion 'initedToolPortCount\\(\\) == 0' failed" );
   w.sm->initedTapPortCountInc( 1 );
   EXPECT_DEATH( w.sm->handleHwCleanupTime(), "Assertion 'initedTapPortCount\\(\\) == 0' failed" );
   w.sm->doMaybeScheduleHwCleanup();
   EXPECT_EQ( w.sm->hwCleanupTime(), Kiv::never );
   w.sm->initedTapPortCountInc( -1 );
   w.sm->initedToolPortCountInc( -1 );
   EXPECT_DEATH( w.sm->initedTapPortCountInc( -1 ),
                 "Assertion 'initedTapPortCount\\(\\) > 0' failed" );
   w.sm->doMaybeScheduleHwCleanup();
   w.wait( 5.1 );
   EXPECT_TRUE( w.empty() );
}

TEST( TapAggMode, AStartInAnotherModeTouchesNothing ) {
   TapAggWorld w;
   configure( w );
   w.start();
   w.wait( 10 );
   EXPECT_EQ( w.log.take(), Calls() );
   EXPECT_EQ( w.sm->tapSm( eth( 1 ) )->reason(), Qon::TapAggReason::mode );
   EXPECT_FALSE( w.sm->groupInUse( "a" ) );
}

/** What an earlier life published and left in the chip. */
TEST( TapAggMode, AStartOverWhatThereIs ) {
   TapAggWorld w;
   configure( w );
   w.startInMode();
   w.sm = nullptr; // calls nothing
   EXPECT_EQ( w.log.take(), Calls() );
   w.pmapStatus->groupNameToIdIs( "p", 77 );
   w.pmapStatus->groupNameToIdIs( "stale", 5 );
   w.config->tapPortDel( eth( 1 ) );
   w.tap( eth( 2 ), "a" );
   Bridging::HostFlush::FlushKey key;
   key.intfIs( po( 1 ) );
   w.requests->requestIs( key );
   w.start();
   EXPECT_EQ( w.pmapStatus->groupNameToId( "p" ), w.id( "p" ) );
   EXPECT_EQ( w.pmapStatus->groupNameToIds(), 1u );
   EXPECT_EQ( w.table.held().taps.size(), 1u );
   EXPECT_EQ( w.reached( eth( 2 ) ), "Ethernet11" );
   EXPECT_EQ( w.requests->requests(), 1u );
   w.sm = nullptr;
   w.otherMode();
   w.start();
   EXPECT_EQ( w.pmapStatus->groupNameToIds() + w.requests->requests(), 0u );
}

TEST( TapAggMode, TheCleanUpTakesEverythingOutAtOnce ) {
   TapAggWorld w( 3 );
   configure( w );
   w.tool( po( 1 ), "a" );
   w.join( 1, 5 );
   w.startInMode();
   w.tap( eth( 2 ), "too many" );
   w.log.take();
   w.sm->doCleanup();
   EXPECT_TRUE( w.empty() );
   EXPECT_EQ( w.log.count( "hwCleanup" ), 1u );
   EXPECT_EQ( w.log.count( "deallocateAggGroup" ), 3u );
   EXPECT_EQ( w.sm->groupCleanupTime(), Kiv::never );
   EXPECT_EQ( w.sm->hwCleanupTime(), Kiv::never );
   EXPECT_FALSE( w.sm->initialized() );
   w.sm->initializedIs( true );
   EXPECT_EQ( w.reached( eth( 1 ) ), "Ethernet11 Port-Channel1(Ethernet5)" );
   // Paused, where a name that was pending goes; and between mode and clean-up.
   w.pmapGroups->groupIs( "waits" );
   w.sm->initializedIs( false );
   w.pmapGroups->groupDel( "waits" );
   w.sm->doCleanup();
   EXPECT_TRUE( w.empty() );
   w.sm->initializedIs( true );
   w.otherMode();
   w.sm->doCleanup();
   EXPECT_TRUE( w.empty() );
   w.log.take();
   w.sm->doCleanup();
   EXPECT_EQ( w.log.take(), Calls() );
}

TEST( TapAggMode, WhatChangedInAPauseIsMadeGood ) {
   TapAggWorld w;
   w.tap( eth( 1 ), "a" );
   w.tool( eth( 11 ), "a" );
   w.tool( eth( 12 ), "b" );
   w.startInMode();
   const String a = std::to_string( w.id( "a" ) ), b = std::to_string( w.id( "b" ) );
   w.log.take();
   w.sm->initializedIs( false );
   w.config->toolPort( eth( 11 ) )->groupDel( "a" );
   w.config->toolPort( eth( 11 ) )->groupIs( "b" );
   w.sm->initializedIs( true );
   EXPECT_EQ( w.log.take(),
              Calls( { "addToolPortAssociation Ethernet11, " + b, // frames go on coming
                       "removeToolPortAssociation Ethernet11, " + a } ) );
   w.config->tapPortDel( eth( 1 ) );
   w.sm->initializedIs( false );
   w.wait( 2 ); // the clock fires, and nobody hears it
   EXPECT_EQ( w.log.count( "deallocateAggGroup" ), 0u );
   w.sm->initializedIs( true );
   w.wait( 2 );
   EXPECT_EQ( w.log.count( "deallocateAggGroup" ), 1u );
   EXPECT_EQ( w.id( "a" ), 0u );
   EXPECT_EQ( w.broken(), "" );
}

TEST( TapAggMode, FlushesOfMembers ) {
   TapAggWorld w;
   w.tool( po( 1 ), "a" );
   w.join( 1, 5 );
   w.join( 2, 6 );
   w.startInMode();
   w.requests->requestDelAll();
   auto key = [&]( U32 lag ) {
      Bridging::HostFlush::FlushKey k;
      k.intfIs( po( lag ) );
      return k;
   };
   w.join( 1, 7 );
   w.leave( 1, 7 );
   w.leave( 2, 6 ); // nothing of tap aggregation
   EXPECT_EQ( w.requests->requests(), 1u );
   EXPECT_TRUE( w.requests->requestHas( key( 1 ) ) );
   w.replies->replyIs( key( 2 ) );
   w.replies->replyDel( key( 2 ) );
   EXPECT_EQ( w.requests->requests(), 1u );
   w.replies->replyIs( key( 1 ) );
   EXPECT_EQ( w.requests->requests(), 0u );
   w.tap( po( 2 ), "a" );
   w.acsd->portToLagIs( eth( 5 ), po( 2 ) ); // moves
   EXPECT_EQ( w.requests->requests(), 2u );
   w.otherMode();
   EXPECT_EQ( w.requests->requests(), 0u );
   w.leave( 1, 5 );
   EXPECT_EQ( w.requests->requests(), 0u );
   w.join( 1, 5 );
   const char * const notOnMembers = "Must be called on the LAG interface, not the members.";
   EXPECT_DEATH( w.sm->addOrRemoveLagPort( eth( 5 ), eth( 7 ), true ), notOnMembers );
   EXPECT_DEATH( w.sm->flushLag( eth( 5 ) ), notOnMembers );
}

TEST( TapAggMode, VerificationFindsWhatTheChipLost ) {
   TapAggWorld w;
   configure( w );
   w.tap( eth( 2 ), "a" )->identityIs( Bridging::IdentityTuple( 1, 2 ) );
   w.tool( eth( 12 ), "a" )->vnStripIs( true );
   w.join( 1, 5 );
   w.tap( eth( 5 ), "a" );
   w.startInMode();
   auto findings = [&] {
      w.acsd->verifyData()->resetVerifyData();
      w.sm->handleVerify();
      return w.acsd->verifyData()->verifyInc();
   };
   EXPECT_EQ( findings(), 0u );
   w.table.tap( eth( 2 ), "" )->identity = {};
   w.table.tap( eth( 1 ), "" )->group = 0;
   w.table.tool( eth( 12 ), "" )->vnStrip = false;
   w.table.tool( eth( 11 ), "" )->groups.clear();
   w.table.tapIs( eth( 5 ), true );
   EXPECT_EQ( findings(), 6u ); // the tool port was in two groups
   w.table.init();
   w.table.cleanup();
   EXPECT_EQ( findings(), 1u + 3 + 2 * 4 + 2 * 8 );
   w.otherMode();
   w.table.takeRefused();
   w.table.init();
   w.table.tapIs( eth( 1 ), true );
   w.table.toolIs( eth( 11 ), true );
   EXPECT_EQ( findings(), 5u ); // three groups until the clean-up
   w.sm->portToLagDel( eth( 5 ) );
   EXPECT_DEATH( w.sm->handleVerify(), "portToLags\\(\\) doesn't equal acsd->portToLags\\(\\)" );
   w.table.takeRefused();
   w.sm = nullptr;
}

} // namespace
