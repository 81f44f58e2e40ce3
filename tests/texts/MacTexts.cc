// Texts of the MAC programmer that operators and tools search for: failed assertions and reports.

#include "tests/mac/FakeChip.h"

namespace {

using namespace Tests;
using enum Qon::MacProgramStatus;

class MacTexts : public ::testing::Test, public MacWorld {
 protected:
   /** Accepted, written, and out of the record of writes. */
   MacCmdPtr inFlight( const MacCmdPtr & cmd ) {
      chip->handleAddrOp( cmd );
      scheduler.settle();
      chip->written.clear();
      return cmd;
   }
};

TEST_F( MacTexts, BrokenBookkeepingIsFatal ) {
   EXPECT_DEATH( chip->handleAddrOp( flushAll() ), "Assertion 'cmd->addrOp\\(\\)' failed" );
   EXPECT_DEATH( chip->handleFlushOp( addHost( 1 ) ),
                 "Assertion '!\\( cmd->addrOp\\(\\) \\)' failed" );
   // Superseded commands that somebody calls valid again.
   auto pending = addHost( 1 );
   chip->handleAddrOp( pending );
   chip->handleAddrOp( addHost( 1 ) );
   EXPECT_DEATH( ( pending->validIs( true ), scheduler.settle() ),
                 "'pendingAddrOpHas\\( cmd->key\\(\\) \\)'" );
   scheduler.settle();
   auto flying = inFlight( addHost( 2 ) );
   chip->handleAddrOp( addHost( 2 ) );
   auto pollWith = [&]( Status status ) {
      flying->validIs( true );
      chip->answer( flying, status );
      chip->pollInProgressCmds();
   };
   EXPECT_DEATH( pollWith( macProgramFailed ), "'inProgAddrOpHas\\( key \\)'" );
   EXPECT_DEATH( pollWith( macProgramBusy ), "'!pendingAddrOpHas\\( key \\)'" );
   EXPECT_DEATH( pollWith( macProgramFull ), "'!pendingAddrOpHas\\( key \\)'" );
}

TEST_F( MacTexts, ReportsAreSilentUnderSimulationOnly ) {
   Env env( "QON_NOOP_AGENT", "1" );
   env.unset( "SIMULATION_VMID" );
   auto bare = Qon::QonMacProgrammerIs( scheduler.timerWheel() );
   auto cmd = inFlight( addHost( 1 ) );
   chip->answer( cmd, macProgramFlushInProgress );
   EXPECT_DEATH( bare->writeToHw( cmd ), "^Call to unimplemented function writeToHw\n" );
   EXPECT_DEATH( bare->writeToHwShadow( cmd ),
                 "^Call to unimplemented function writeToHwShadow\n" );
   EXPECT_DEATH( chip->pollInProgressCmds(), "^unexpected mac program status\n" );
   env.set( "SIMULATION_VMID", "" );
   EXPECT_EQ( bare->writeToHw( cmd ), macProgramSuccess );
   chip->pollInProgressCmds();
   EXPECT_EQ( chip->inProgAddrOp( macKey( 1 ) ), cmd );
}

} // namespace
