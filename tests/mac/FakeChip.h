#pragma once
// A programmer whose chip only writes down what it is told; the test answers.

#include <functional>
#include <vector>

#include "Qon/include/mac/QonChipProgrammer.h"
#include "tests/harness/World.h"

namespace Tests {

using Qon::MacCmdPtr;
using Qon::MacEntryKey;
using CmdType = Qon::IndirectAccessMacCmdType;
using Status = Qon::MacProgramStatus;

inline MacEntryKey
macKey( U64 mac, U32 vlan = 10, Qon::MacHwType hwType = Qon::MacHwType::macHwKeyBridge ) {
   return { { Ulnet::EthAddr( 0x021122000000ull + mac ), Bridging::VlanIdOrNone( vlan ) }, hwType };
}

inline MacCmdPtr
macCmd( CmdType type, const MacEntryKey & key, U64 transactionId = 0 ) {
   return Qon::indirectAccessMacCmdFactory( type, key, Ulnet::IntfId( "Ethernet1" ),
                                            Bridging::EntryType::learnedDynamic, 0, transactionId );
}
inline MacCmdPtr
addHost( U64 mac ) {
   return macCmd( CmdType::addHost, macKey( mac ) );
}
inline MacCmdPtr
flushAll() {
   return macCmd( CmdType::flushAll, MacEntryKey() );
}

class FakeChip : public Qon::QonMacProgrammer {
 public:
   using QonMacProgrammer::QonMacProgrammer;

   Status writeToHw( const MacCmdPtr & cmd ) override {
      written.push_back( cmd );
      if ( onWrite ) {
         onWrite( cmd );
      }
      return Status::macProgramSuccess;
   }
   Status writeToHwShadow( const MacCmdPtr & cmd ) override {
      shadowed.push_back( cmd );
      return Status::macProgramSuccess;
   }
   void answer( const MacCmdPtr & cmd, Status status ) {
      handleCmdResponse( cmd->transactionId(), 0, status );
   }
   bool atRest() const {
      return !pendingMacOps() && !inProgMacOps() && !overflowAddrOps() &&
             updatePendingAddressClock()->idle() && pollReqClock()->idle() &&
             updateOverflowAddressClock()->idle();
   }

   std::vector< MacCmdPtr > written, shadowed;
   std::function< void( const MacCmdPtr & ) > onWrite;
};

class MacWorld : public World {
 public:
   MacWorld() { chip->initializedIs( true ); }
   /** Accepts `n` commands for different keys. */
   void acceptMany( U32 n ) {
      for ( U32 i = 0; i < n; ++i ) {
         chip->handleAddrOp( addHost( i ) );
      }
   }
   /** Writes what is accepted and answers all of it, without another run in between. */
   void writeAndAnswer( Status status ) {
      chip->updatePendingAddresses();
      for ( auto & cmd : std::exchange( chip->written, {} ) ) {
         chip->answer( cmd, status );
      }
   }

   Velto::Ptr< FakeChip > chip = Qon::smIs< FakeChip >( scheduler.timerWheel() );
};

} // namespace Tests
