// What must hold of the MAC programmer's books between any two calls into it.

#include "Qon/include/mac/QonChipProgrammer.h"

namespace Qon {

using Velto::String;

String
QonMacProgrammer::checkInvariants() const {
   for ( auto check : { &QonMacProgrammer::checkPending, &QonMacProgrammer::checkInFlight,
                        &QonMacProgrammer::checkOverflow, &QonMacProgrammer::checkClocks } ) {
      if ( String wrong = ( this->*check )(); !wrong.empty() ) {
         return wrong;
      }
   }
   return "";
}

String
QonMacProgrammer::checkPending() const {
   U32 address = 0, flush = 0;
   for ( const MacCmdPtr & cmd : pendingMacOp_ ) {
      flush += !cmd->addrOp();
      if ( cmd->addrOp() && cmd->stage_ == Stage::pending ) {
         ++address;
         if ( pendingAddrOp( cmd->key() ) != cmd.ptr() ) {
            return "pending, but not its key's command: " + cmd->stringValue();
         }
      } else if ( cmd->addrOp() && cmd->valid() ) {
         return "in the queue, valid, but not pending: " + cmd->stringValue();
      }
   }
   if ( address != pendingAddrOps_ || flush != pendingFlushOp_.size() ) {
      return "the queue and the pending commands differ in number";
   }
   return "";
}

String
QonMacProgrammer::checkInFlight() const {
   U32 owners = 0;
   for ( auto walk = inProgMacOp_.begin(); walk; ++walk ) {
      const IndirectAccessMacCmd & cmd = *walk.value();
      if ( cmd.transactionId() != walk.key() ) {
         return "in flight under another id than its own: " + cmd.stringValue();
      }
      bool owner = cmd.addrOp() && cmd.stage_ == Stage::inFlight;
      owners += owner;
      if ( owner && inProgAddrOp( cmd.key() ) != &cmd ) {
         return "in flight, but not its key's command: " + cmd.stringValue();
      }
      if ( cmd.addrOp() && cmd.valid() && !owner ) {
         return "in flight and superseded, but valid: " + cmd.stringValue();
      }
   }
   return owners == inProgAddrOps() ? "" : "a key has a command in flight that is not in flight";
}

String
QonMacProgrammer::checkOverflow() const {
   for ( auto && [key, cmd] : overflowAddrOp_ ) {
      if ( cmd->stage_ != Stage::overflowed || cmd->key() != key || addrOp_.has( packed( key ) ) ) {
         return "in overflow, and elsewhere: " + cmd->stringValue();
      }
   }
   const bool atRest = overflowAddrOp_.empty() && pendingMacOp_.empty() && inProgMacOp_.empty();
   return overflowLogged() && atRest ? "an episode of overflow counts as reported, and is over"
                                     : "";
}

/** Whatever waits has a clock that will come to it. */
String
QonMacProgrammer::checkClocks() const {
   if ( !updatePendingAddressClock_ ) {
      return "";
   }
   bool drains = !updatePendingAddressClock_->idle(), polls = !pollReqClock_->idle();
   if ( !pendingMacOp_.empty() && !drains && !polls ) {
      return "pending commands, and no clock for them";
   }
   if ( !inProgMacOp_.empty() && !polls ) {
      return "commands in flight, and no clock for them";
   }
   if ( !overflowAddrOp_.empty() && !polls && updateOverflowAddressClock_->idle() ) {
      return "overflow, and no clock for it";
   }
   return "";
}

} // namespace Qon
