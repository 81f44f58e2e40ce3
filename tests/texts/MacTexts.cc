// Texts of the MAC programmer that operators and tools search for: failed assertions, reports, traces.

#include "tests/mac/FakeChip.h"
#include "tests/texts/Traced.h"

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

TEST_F( MacTexts, CallersThatChangeAKeyAreFound ) {
   auto full = [&]( const MacCmdPtr & cmd ) {
      inFlight( cmd );
      cmd->keyIs( macKey( 1 ) );
      chip->answer( cmd, macProgramFull );
      chip->pollInProgressCmds();
   };
   auto first = addHost( 1 );
   full( first );
   EXPECT_DEATH( full( addHost( 2 ) ), "Assertion '!overflowAddrOpHas\\( key \\)' failed" );
   auto flow = [&] {
      first->keyIs( macKey( 3 ) );
      chip->handleAddrOp( addHost( 3 ) );
      chip->updateOverflowAddresses();
   };
   expectTraced( flow, { "a command with the same key is in pending" } );
   auto noClocks = Qon::smIs< FakeChip >( nullptr );
   EXPECT_DEATH( noClocks->initializedIs( true ), "Assertion 'updatePendingAddressClock_' failed" );
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

TEST_F( MacTexts, TracesOfACommandsLife ) {
   const String found = "handleAddrOp: Found an entry ";
   std::vector< String > texts; // of commands as they are then
   auto flow = [&] {
      auto waiting = addHost( 1 ), first = addHost( 1 ), second = addHost( 1 );
      chip->handleAddrOp( waiting );
      inFlight( first );
      texts = { "addHost 02:11:22:00:00:01 vlan 10 macHwKeyBridge intf Ethernet1 id 0 out-of-date "
                "is out-of-date, skip it",
                first->stringValue() + " write to hardware result : macProgramSuccess",
                found + first->stringValue() +
                      " with same key in in-progress queue, mark it out-of-date",
                " cmd " + Kiv::toText( first->transactionId() ) + " had stalled",
                "In-progress cmd exists, schedule polling with delay",
                "QonMacProgrammer::handleCmdResponse: Can't find in progress command for "
                "transaction id: 999" };
      chip->handleCmdResponse( 999, 0, macProgramSuccess );
      scheduler.runFor( 2 );
      inFlight( second );
      chip->answer( second, macProgramBusy );
      chip->pollInProgressCmds();
      texts.push_back( "Pending cmd exists, schedule review" );
      scheduler.settle();
      chip->answer( second, macProgramFull );
      chip->pollInProgressCmds();
      texts.push_back( found + second->stringValue() +
                       " with same key in overflow queue, remove it" );
      chip->handleAddrOp( addHost( 1 ) );
   };
   expectTraced( flow, texts );
}

TEST_F( MacTexts, TracesOfSlices ) {
   auto flow = [&] {
      chip->updateQuantumIs( 1 );
      chip->pollReqQuantumIs( 1 );
      chip->updateQuantumofTimesIs( 0 );
      chip->pollReqQuantumofTimesIs( 0 );
      acceptMany( 2 );
      chip->updatePendingAddresses();
      chip->updatePendingAddresses();
      for ( auto & cmd : chip->written ) {
         chip->answer( cmd, macProgramFull );
      }
      chip->pollInProgressCmds();
      chip->pollInProgressCmds();
      chip->updateOverflowAddresses();
   };
   expectTraced( flow, {
                             "Schedule review for pending items",
                             "Nothing is pending. Stop",
                             "In-progress cmd exists. Schedule review.",
                             " poll .. Time out",
                             "Overflow address exists, schedule review with delay: 5",
                             "Overflow cmd exists, schedule Pending.",
                             "Pending cmd exists, schedule Pending",
                       } );
}

} // namespace
