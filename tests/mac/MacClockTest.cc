// When the MAC programmer's clocks are armed, and for when.

#include "platform/Flintlog/TraceRecorder.h"
#include "tests/mac/FakeChip.h"

namespace {

using namespace Tests;
using enum Qon::MacProgramStatus;

class MacClocks : public ::testing::Test, public MacWorld {
 protected:
   /** Seconds from now until the clock fires. */
   double in( const Kiv::Clock * clock ) { return clock->time() - scheduler.time(); }
   /** Written, answered with "full", and in overflow. */
   void overflow( U32 commands ) {
      acceptMany( commands );
      writeAndAnswer( macProgramFull );
      chip->pollInProgressCmds();
      ASSERT_EQ( chip->overflowAddrOps(), commands );
   }
};

TEST_F( MacClocks, AnInterruptedRunGoesOnAtOnceAPutOffOneLater ) {
   acceptMany( 1000 );
   scheduler.readCostIs( 0.006 );
   chip->updatePendingAddresses();
   EXPECT_NEAR( in( chip->updatePendingAddressClock() ), 0, 0.02 ); // armed by acceptance
   EXPECT_NEAR( in( chip->pollReqClock() ), 0, 1e-9 );
   scheduler.readCostIs( 0 );
   chip->updatePendingAddresses();
   scheduler.settle();
   scheduler.runFor( 0.05 );
   scheduler.readCostIs( 0.006 );
   chip->pollReqClock()->timeIs( Kiv::never );
   chip->pollInProgressCmds();
   ASSERT_TRUE( chip->inProgMacOpBookmark() );
   EXPECT_NEAR( in( chip->pollReqClock() ), 0, 1e-9 );
   scheduler.readCostIs( 0 );
   chip->pollReqClock()->timeIs( Kiv::never );
   chip->pollInProgressCmds();
   EXPECT_NEAR( in( chip->pollReqClock() ), 0.1, 1e-9 );
}

TEST_F( MacClocks, ADrainThatWasPutOffIsNotPulledByAcceptance ) {
   chip->suspendPendingIs( true );
   chip->handleAddrOp( addHost( 1 ) );
   scheduler.settle();
   EXPECT_NEAR( in( chip->updatePendingAddressClock() ), 0.2, 1e-9 );
   scheduler.runFor( 0.05 );
   chip->handleAddrOp( addHost( 2 ) );
   chip->handleFlushOp( flushAll() );
   EXPECT_NEAR( in( chip->updatePendingAddressClock() ), 0.15, 1e-9 );
   chip->suspendPendingIs( false );
   scheduler.runFor( 0.151 );
   EXPECT_EQ( chip->written.size(), 3u );
   writeAndAnswer( macProgramSuccess );
   scheduler.runFor( 0.2 );
}

TEST_F( MacClocks, AHeldPollComesBackAfterItsPeriod ) {
   acceptMany( 1 );
   scheduler.settle();
   chip->suspendInProgressIs( true );
   chip->pollReqFreqIs( 0.07 );
   chip->pollReqClock()->timeIs( Kiv::never );
   chip->pollInProgressCmds();
   EXPECT_NEAR( in( chip->pollReqClock() ), 0.07, 1e-9 );
}

TEST_F( MacClocks, ACommandIsStalledAfterItsTimeOnly ) {
   Flintlog::TraceRecorder traces;
   auto stalled = [&] {
      U32 n = 0;
      for ( auto & record : traces.records() ) {
         n += record.text.ends_with( " had stalled" );
      }
      return n;
   };
   chip->maxExecTimeIs( 0.35 );
   acceptMany( 1 );
   scheduler.runFor( 0.33 );
   EXPECT_EQ( stalled(), 0u );
   scheduler.runFor( 0.1 );
   EXPECT_EQ( stalled(), 1u );
   chip->maxExecTimeIs( 100 );
   scheduler.runFor( 1 );
   EXPECT_EQ( stalled(), 1u );
}

TEST_F( MacClocks, TheRetryDelayFollowsWhatWasPendingBeforeTheRun ) {
   chip->updateOverflowAddressDelayIs( 20 );
   overflow( 1000 );
   EXPECT_NEAR( in( chip->updateOverflowAddressClock() ), 20, 1e-9 ); // not the least one
   // Nothing is pending but what the run itself makes so.
   chip->updateOverflowAddressClock()->timeIs( Kiv::never );
   scheduler.readCostIs( 0.006 );
   chip->updateOverflowAddresses();
   scheduler.readCostIs( 0 );
   EXPECT_EQ( chip->updateOverflowAddressDelay(), 19 );
   EXPECT_NEAR( in( chip->updateOverflowAddressClock() ), 19, 1e-9 ); // for what is left
   chip->updateOverflowAddresses();
   EXPECT_EQ( chip->updateOverflowAddressDelay(), 30 );
}

TEST_F( MacClocks, ARetryIsAnotherTransaction ) {
   overflow( 1 );
   chip->updateOverflowAddresses();
   auto cmd = chip->pendingMacOpFront();
   chip->updatePendingAddresses();
   EXPECT_EQ( cmd->transactionId(), 2u );
   chip->handleCmdResponse( 1, 0, macProgramSuccess ); // late
   EXPECT_EQ( cmd->status(), macProgramInProgress );
   EXPECT_EQ( cmd->execStartTime(), scheduler.time() );
}

TEST_F( MacClocks, APauseCostsNoAnswer ) {
   chip->initializedIs( false );
   chip->initializedIs( true );
   EXPECT_TRUE( chip->atRest() ); // nothing waits, and no clock is armed
   acceptMany( 1 );
   scheduler.settle();
   chip->initializedIs( false );
   scheduler.runFor( 100 ); // the poll's firing is lost
   chip->answer( chip->written[0], macProgramSuccess );
   chip->initializedIs( true );
   EXPECT_NEAR( in( chip->pollReqClock() ), 0, 1e-9 );
   EXPECT_TRUE( chip->updatePendingAddressClock()->idle() );
   scheduler.runFor( 1 );
   EXPECT_TRUE( chip->atRest() );
}

TEST_F( MacClocks, APauseCostsNoWrite ) {
   acceptMany( 1 );
   chip->initializedIs( false );
   scheduler.runFor( 100 ); // the drain's firing is lost
   chip->initializedIs( true );
   scheduler.settle();
   EXPECT_EQ( chip->written.size(), 1u );
}

TEST_F( MacClocks, APauseCostsNoRetry ) {
   overflow( 1 );
   chip->initializedIs( false );
   scheduler.runFor( 100 ); // its firing is lost
   chip->initializedIs( true );
   EXPECT_NEAR( in( chip->updateOverflowAddressClock() ), 5, 1e-9 );
}

} // namespace
