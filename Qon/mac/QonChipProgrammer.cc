#include "Qon/include/mac/QonChipProgrammer.h"

#include <algorithm>

#include "Qon/include/framework/HookTap.h"
#include "Qon/include/framework/QonLog.h"
#include "Qon/include/framework/QonTraceHandles.h"
#include "platform/Kiv/Describe.h"
#include "platform/Velto/Scope.h"

KIV_DEFINE( Qon::QonMacProgrammer )

namespace Qon {

namespace {

Flintlog::Facility facility( "QonChipProgrammer" );
QonLogHandle bankFull( "QonChipProgrammer", QonLog::ETH_MACADDRBANKFULL );

constexpr auto newStatus = MacProgramStatus::macProgramInProgress;
constexpr Kiv::Seconds overflowDelayStep = 1.0;

/** All that the chip may read of the command. */
String
hookText( const IndirectAccessMacCmd & cmd ) {
   return cmd.stringValue() + " " + Kiv::toText( cmd.entryType() ) + " arg " +
          Kiv::toText( cmd.opArg() );
}

} // namespace

Velto::Ptr< QonMacProgrammer >
QonMacProgrammerIs( Kiv::TimerWheel * timerWheel ) {
   return smIs< QonMacProgrammer >( timerWheel );
}

/** Commands outlive the programmer with their owners, who may hand them to a successor. */
QonMacProgrammer::~QonMacProgrammer() {
   Velto::FirstError ignored; // there is nobody to pass it to
   auto drop = [&]( const MacCmdPtr & cmd ) { ignored.run( [&] { letGo( *cmd ); } ); };
   for ( const MacCmdPtr & cmd : pendingMacOp_ ) {
      drop( cmd );
   }
   for ( auto walk = inProgMacOp_.begin(); walk; ++walk ) {
      drop( walk.value() );
   }
   for ( auto && [key, cmd] : overflowAddrOp_ ) {
      drop( cmd );
   }
}

/** The command is none of this programmer's any more, and no answer to it is: a further attempt is
    another transaction. */
void
QonMacProgrammer::letGo( IndirectAccessMacCmd & cmd ) {
   cmd.stage_ = Stage::none;
   cmd.transactionIdIs( 0 );
}

void
QonMacProgrammer::handleInitialized() {
   if ( updatePendingAddressClock_ ) {
      resumeRuns();
      return;
   }
   auto idleClock = [this] {
      return timerWheel_ ? Velto::make< Kiv::Clock >( timerWheel_ ) : Velto::Ptr< Kiv::Clock >();
   };
   updatePendingAddressClock_.attach( this, idleClock() );
   pollReqClock_.attach( this, idleClock() );
   updateOverflowAddressClock_.attach( this, idleClock() );
   VELTO_ASSERT( updatePendingAddressClock_ );  // fixed text
   VELTO_ASSERT( pollReqClock_ );               // fixed text
   VELTO_ASSERT( updateOverflowAddressClock_ ); // fixed text
   if ( !pendingMacOp_.empty() ) {
      wakeIfIdle();
   }
   initializedIs( true );
}

/** Arms the clocks that work waits for: their firings were lost while nothing was heard. */
void
QonMacProgrammer::resumeRuns() {
   if ( !initialized() ) {
      return;
   }
   if ( !pendingMacOp_.empty() ) {
      wakeIfIdle();
   }
   if ( !inProgMacOp_.empty() ) {
      wakeUp( pollReqClock(), Kiv::now() );
   }
   if ( !overflowAddrOp_.empty() ) {
      wakeUp( updateOverflowAddressClock(), Kiv::now() + updateOverflowAddressDelay() );
   }
}

MacProgramStatus
QonMacProgrammer::writeToHw( const MacCmdPtr & ) {
   qonAssert( unimplementedFunction( "writeToHw" ) ); // fixed text
   return MacProgramStatus::macProgramSuccess;
}

MacProgramStatus
QonMacProgrammer::writeToHwShadow( const MacCmdPtr & ) {
   qonAssert( unimplementedFunction( "writeToHwShadow" ) ); // fixed text
   return MacProgramStatus::macProgramSuccess;
}

// --- Acceptance ----------------------------------------------------------------------------------

void
QonMacProgrammer::handleAddrOp( const MacCmdPtr & cmd ) {
   VELTO_ASSERT( cmd->addrOp() ); // fixed text
   bool underWay = cmd->stage_ == Stage::pending || cmd->stage_ == Stage::inFlight;
   if ( cmd->invalid() || underWay ) {
      return;
   }
   const Velto::Hold alive( this );
   if ( !overflowAddrOp_.empty() ) {
      removeFromOverflow( cmd->key() );
   }
   auto [slot, fresh] = addrOp_.emplace( packed( cmd->key() ), cmd.ptr() );
   const MacCmdPtr old = fresh ? nullptr : std::exchange( *slot, cmd.ptr() );
   Velto::FirstError error;
   if ( old ) {
      error.run( [&] { supersede( *old ); } );
   }
   error.run( [&] { enqueue( cmd ); } );
   wakeIfIdle();
   error.pass();
}

void
QonMacProgrammer::removeFromOverflow( const MacEntryKey & key ) {
   if ( auto old = overflowAddrOp_.take( key ) ) {
      // fixed text
      QON_TRACE( facility, 5, "handleAddrOp:", " Found an entry ", **old,
                 " with same key in overflow queue, remove it" );
      ( *old )->stage_ = Stage::none;
   }
}

/** A newer command takes the place of `old` in addrOp_. */
void
QonMacProgrammer::supersede( IndirectAccessMacCmd & old ) {
   if ( old.stage_ == Stage::inFlight ) {
      // fixed text
      QON_TRACE( facility, 5, "handleAddrOp:", " Found an entry ", old,
                 " with same key in in-progress queue, mark it out-of-date" );
   } else {
      --pendingAddrOps_;
   }
   old.stage_ = Stage::none;
   old.validIs( false );
}

/** Puts a command at the end of what waits to be written; an address command is in addrOp_. */
void
QonMacProgrammer::enqueue( const MacCmdPtr & cmd ) {
   cmd->stage_ = Stage::pending;
   if ( cmd->addrOp() ) {
      ++pendingAddrOps_;
   } else {
      pendingFlushOp_.emplace( nextFlush_++, cmd );
   }
   pendingMacOp_.enq( cmd );
   cmd->statusIs( newStatus );
}

void
QonMacProgrammer::handleFlushOp( const MacCmdPtr & cmd ) {
   VELTO_ASSERT( !( cmd->addrOp() ) ); // fixed text
   if ( cmd->invalid() || cmd->stage_ != Stage::none ) {
      return;
   }
   const Velto::Hold alive( this );
   Velto::FirstError error;
   error.run( [&] { enqueue( cmd ); } );
   wakeIfIdle();
   error.pass();
}

void
QonMacProgrammer::wakeIfIdle() {
   if ( updatePendingAddressClock_ && updatePendingAddressClock_->idle() ) {
      updatePendingAddressClock_->timeIs( Kiv::now() );
   }
}

/** Has what is pending drained: now, or after a while if the drain is suspended anyway. */
void
QonMacProgrammer::wakePending( Kiv::Seconds now ) {
   wakeUp( updatePendingAddressClock(), suspendPending() ? now + updateDelay() : now );
}

// --- The drain -----------------------------------------------------------------------------------

void
QonMacProgrammer::updatePendingAddresses() {
   const Velto::Hold alive( this );
   Velto::FirstError error;
   TimeSlice slice( updateQuantumofTimes(), updateQuantum() );
   while ( !pendingMacOp_.empty() && !suspendPending() ) {
      MacCmdPtr cmd = pendingMacOp_.front();
      pendingMacOp_.deq();
      if ( cmd->valid() ) {
         error.run( [&] { write( cmd, slice.now() ); } );
      } else {
         drop( *cmd );
      }
      if ( slice.usedUp() ) {
         break;
      }
   }
   if ( !pendingMacOp_.empty() ) {
      QON_TRACE( facility, 7, "Schedule review for pending items" ); // fixed text
      wakeUp( updatePendingAddressClock(), slice.now() + updateDelay() );
   } else {
      QON_TRACE( facility, 7, "Nothing is pending. Stop" ); // fixed text
      noteEndOfOverflow();                                  // what was called off may be the last
   }
   if ( !inProgMacOp_.empty() ) {
      QON_TRACE( facility, 7, "In-progress cmd exists. Schedule review." ); // fixed text
      wakeUp( pollReqClock(), slice.now() );
   }
   error.pass();
}

void
QonMacProgrammer::write( const MacCmdPtr & cmd, Kiv::Seconds now ) {
   Velto::FirstError error;
   error.run( [&] { enterInFlight( cmd, now ); } );
   const bool written = error.run( [&] {
      MacProgramStatus result;
      if ( cmd->shadow() ) {
         QON_TELL_HOOK( QonMacProgrammer, writeToHwShadow, hookText( *cmd ) );
         result = writeToHwShadow( cmd );
      } else {
         QON_TELL_HOOK( QonMacProgrammer, writeToHw, hookText( *cmd ) );
         result = writeToHw( cmd );
      }
      // fixed text
      QON_TRACE( facility, 7, *cmd, " write to hardware result : ", Kiv::toText( result ) );
   } );
   if ( !written && cmd->status() == newStatus ) { // who raised is asked once more
      error.run( [&] { cmd->statusIs( MacProgramStatus::macProgramBusy ); } );
   }
   error.pass();
}

/** Brings the books to the state after the write. */
void
QonMacProgrammer::enterInFlight( const MacCmdPtr & cmd, Kiv::Seconds now ) {
   if ( cmd->addrOp() ) {
      // Named for the assertion's text; the command's own stage says what a look-up of its key would.
      auto pendingAddrOpHas = [&]( const MacEntryKey & ) { return cmd->stage_ == Stage::pending; };
      VELTO_ASSERT( pendingAddrOpHas( cmd->key() ) ); // fixed text
      --pendingAddrOps_;
   } else {
      flushLeavesQueue();
   }
   cmd->stage_ = Stage::inFlight;
   U64 id = cmd->transactionId();
   while ( id == 0 || !inProgMacOp_.emplace( id, cmd ) ) {
      id = nextTransactionId_++;
   }
   Velto::FirstError error;
   error.run( [&] { cmd->transactionIdIs( id ); } );
   error.run( [&] { cmd->statusIs( newStatus ); } );
   error.run( [&] { cmd->execStartTimeIs( now ); } );
   error.pass();
}

/** Flushes leave the queue in the order in which they entered it. */
void
QonMacProgrammer::flushLeavesQueue() {
   pendingFlushOp_.erase( pendingFlushOp_.front().key );
}

/** A command that is not valid has left the queue. */
void
QonMacProgrammer::drop( IndirectAccessMacCmd & cmd ) {
   QON_TRACE( facility, 7, cmd, " is out-of-date, skip it" ); // fixed text
   if ( !cmd.addrOp() ) {
      flushLeavesQueue();
   } else if ( cmd.stage_ == Stage::pending ) {
      // Nobody superseded it: it was called off.
      addrOp_.erase( packed( cmd.key() ) );
      --pendingAddrOps_;
   }
   cmd.stage_ = Stage::none;
}

// --- The poll ------------------------------------------------------------------------------------

void
QonMacProgrammer::handleCmdResponse( U64 transactionId, U32 tblIndex, MacProgramStatus status ) {
   auto found = inProgMacOp_.find( transactionId );
   if ( !found ) {
      // fixed text
      QON_TRACE( facility, 0, "QonMacProgrammer::", __func__,
                 ": Can't find in progress command for transaction id: ", transactionId );
      return;
   }
   MacCmdPtr cmd = *found;
   Velto::FirstError error;
   error.run( [&] { cmd->tblIndexIs( tblIndex ); } );
   error.run( [&] { cmd->statusIs( status ); } );
   error.pass();
}

void
QonMacProgrammer::pollInProgressCmds() {
   const Velto::Hold alive( this );
   Velto::FirstError error;
   TimeSlice slice( pollReqQuantumofTimes(), pollReqQuantum() );
   if ( suspendInProgress() ) {
      if ( !inProgMacOp_.empty() ) {
         wakeUp( pollReqClock(), slice.now() + pollReqFreq() );
      }
      return;
   }
   auto walk = resume( inProgMacOp_, inProgMacOpBookmark() );
   while ( walk ) {
      IndirectAccessMacCmd & cmd = *walk.value();
      ++walk;
      error.run( [&] { act( cmd, slice.now() ); } );
      if ( slice.usedUp() ) {
         break;
      }
   }
   inProgMacOpBookmarkIs( bookmarkAt( walk ) );
   if ( walk ) {
      QON_TRACE( facility, 7, " poll .. Time out" ); // fixed text
      wakeUp( pollReqClock(), slice.now() );
      error.pass();
      return;
   }
   noteEndOfOverflow();
   scheduleAfterPoll( slice.now() );
   error.pass();
}

void
QonMacProgrammer::scheduleAfterPoll( Kiv::Seconds now ) {
   if ( !inProgMacOp_.empty() ) {
      QON_TRACE( facility, 7, "In-progress cmd exists, schedule polling with delay" ); // fixed text
      wakeUp( pollReqClock(), now + pollReqFreq() );
   }
   if ( !pendingMacOp_.empty() ) {
      QON_TRACE( facility, 7, "Pending cmd exists, schedule review" ); // fixed text
      wakePending( now );
   }
   if ( !overflowAddrOp_.empty() ) {
      // fixed text
      QON_TRACE( facility, 7, "Overflow address exists, schedule review with delay: ",
                 updateOverflowAddressDelay() );
      wakeUp( updateOverflowAddressClock(), now + updateOverflowAddressDelay() );
   }
}

/** Does what the status of a command in flight asks for. */
void
QonMacProgrammer::act( IndirectAccessMacCmd & cmd, Kiv::Seconds now ) {
   using enum MacProgramStatus;
   switch ( cmd.status() ) {
   case macProgramSuccess:
   case macProgramFailed:
      finish( cmd );
      break;
   case macProgramBusy:
   case macProgramParityError:
      writeAgain( &cmd );
      break;
   case macProgramFull:
      overflow( &cmd );
      break;
   case macProgramInProgress:
      if ( now > cmd.execStartTime() + maxExecTime() ) {
         QON_TRACE( facility, 3, " cmd ", cmd.transactionId(), " had stalled" ); // fixed text
      }
      break;
   default:
      qonAssert( "unexpected mac program status" ); // fixed text
   }
}

/** A valid address command in flight owns its key. */
void
QonMacProgrammer::assertInFlight( const IndirectAccessMacCmd & cmd ) const {
   // Named for the assertion's text; the command's own stage says what a look-up of its key would.
   auto inProgAddrOpHas = [&]( const MacEntryKey & ) { return cmd.stage_ == Stage::inFlight; };
   const MacEntryKey & key = cmd.key();
   VELTO_ASSERT( inProgAddrOpHas( key ) ); // fixed text
}

/** The same for one that goes back or into overflow: no newer command may wait. */
void
QonMacProgrammer::assertNotSuperseded( const IndirectAccessMacCmd & cmd ) const {
   // Named for the assertion's text; a command in flight cannot have a pending one of its key.
   auto pendingAddrOpHas = [&]( const MacEntryKey & key ) {
      return cmd.stage_ != Stage::inFlight && addrOpAt( key, Stage::pending );
   };
   const MacEntryKey & key = cmd.key();
   VELTO_ASSERT( !pendingAddrOpHas( key ) ); // fixed text
   assertInFlight( cmd );
}

/** Takes a command out of the books of what is in flight. May be its last reference. */
void
QonMacProgrammer::finish( IndirectAccessMacCmd & cmd ) {
   if ( cmd.addrOp() ) {
      if ( cmd.valid() ) {
         assertInFlight( cmd );
      }
      if ( cmd.stage_ == Stage::inFlight ) {
         addrOp_.erase( packed( cmd.key() ) );
      }
   }
   const MacCmdPtr keep( &cmd );
   inProgMacOp_.erase( cmd.transactionId() );
   letGo( cmd );
}

/** The chip could not do it now: back to pending, unless it is out-of-date. */
void
QonMacProgrammer::writeAgain( MacCmdPtr cmd ) {
   if ( cmd->invalid() ) {
      finish( *cmd );
      return;
   }
   if ( cmd->addrOp() ) {
      assertNotSuperseded( *cmd );
   }
   inProgMacOp_.erase( cmd->transactionId() );
   enqueueAnew( cmd );
}

/** Another attempt, which has no transaction yet. */
void
QonMacProgrammer::enqueueAnew( const MacCmdPtr & cmd ) {
   Velto::FirstError error;
   error.run( [&] { cmd->transactionIdIs( 0 ); } );
   error.run( [&] { enqueue( cmd ); } );
   error.pass();
}

/** The table is full: an address command waits for room, unless it is out-of-date. */
void
QonMacProgrammer::overflow( MacCmdPtr cmd ) {
   if ( cmd->invalid() || !cmd->addrOp() ) {
      finish( *cmd );
      return;
   }
   const MacEntryKey & key = cmd->key();
   assertNotSuperseded( *cmd );
   VELTO_ASSERT( !overflowAddrOpHas( key ) ); // fixed text
   Velto::FirstError error;
   error.run( [&] { finish( *cmd ); } );
   // Unless a watcher has handed it in again, or a newer one.
   if ( cmd->valid() && !addrOp_.has( packed( key ) ) ) {
      overflowAddrOp_.emplace( key, cmd );
      cmd->stage_ = Stage::overflowed;
      error.run( [&] { reportOverflow( *cmd ); } );
   }
   error.pass();
}

/** Once an episode. */
void
QonMacProgrammer::reportOverflow( const IndirectAccessMacCmd & cmd ) {
   if ( overflowLogged() || !bankFull.okToLog() ) {
      return; // what comes too soon after another episode's is reported by a later attempt
   }
   overflowLoggedIs( true );
   const Bridging::MacVlanPair entry = cmd.key().key();
   Kiv::log( bankFull, Kiv::toText( cmd.entryType() ), entry.mac(), entry.vlan() );
}

void
QonMacProgrammer::noteEndOfOverflow() {
   if ( overflowAddrOp_.empty() && addrOp_.empty() ) {
      overflowLoggedIs( false );
   }
}

// --- The retry of what did not fit ---------------------------------------------------------------

void
QonMacProgrammer::updateOverflowAddresses() {
   const Velto::Hold alive( this );
   Velto::FirstError error;
   updateOverflowAddressDelayIs(
         pendingMacOp_.empty()
               ? std::max( updateOverflowAddressDelay() - overflowDelayStep,
                           updateOverflowAddressMinDelay() )
               : std::min( 2 * updateOverflowAddressDelay(), updateOverflowAddressMaxDelay() ) );
   TimeSlice slice( updateQuantumofTimes(), updateQuantum() );
   auto walk = resume( overflowAddrOp_, overflowAddrOpBookmark() );
   while ( walk ) {
      MacCmdPtr cmd = walk.value();
      ++walk;
      error.run( [&] { retry( cmd ); } );
      if ( slice.usedUp() ) {
         break;
      }
   }
   overflowAddrOpBookmarkIs( bookmarkAt( walk ) );
   noteEndOfOverflow();
   if ( !overflowAddrOp_.empty() ) {
      QON_TRACE( facility, 7, "Overflow cmd exists, schedule Pending." ); // fixed text
      wakeUp( updateOverflowAddressClock(), slice.now() + updateOverflowAddressDelay() );
   }
   if ( !pendingMacOp_.empty() ) {
      QON_TRACE( facility, 7, "Pending cmd exists, schedule Pending" ); // fixed text
      wakePending( slice.now() );
   }
   error.pass();
}

/** Takes a command out of overflow and makes it pending, unless there is a newer wish. */
void
QonMacProgrammer::retry( const MacCmdPtr & cmd ) {
   overflowAddrOp_.erase( cmd->key() );
   cmd->stage_ = Stage::none;
   if ( cmd->invalid() ) {
      QON_TRACE( facility, 7, *cmd, " is out-of-date, skip it" ); // fixed text
   } else if ( !addrOp_.emplace( packed( cmd->key() ), cmd.ptr() ).second ) {
      QON_TRACE( facility, 7, "a command with the same key is in pending" ); // fixed text
   } else {
      ++retries_;
      enqueueAnew( cmd );
   }
}

} // namespace Qon
