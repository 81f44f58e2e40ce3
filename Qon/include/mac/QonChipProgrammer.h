#pragma once
// The MAC programmer: turns a stream of MAC table changes into commands to a chip that works on
// them in the background.
//
//    handleAddrOp, handleFlushOp --> pending --updatePendingAddresses--> in flight -> writeToHw
//                                     ^   ^                                 |
//                                     |   `----- busy, parity error --------|
//                                     |                                     |  pollInProgressCmds
//    updateOverflowAddresses ---------'                                     |
//          ^                                                                |
//          `-- overflow <----------------- table full ----------------------+-> finished
//    chip: handleCmdResponse( transactionId, tblIndex, status ) marks the command in flight
//
// Invariants
// 1. A key has at most one live command, which is pending, in flight or in overflow. The newest
//    wish for a key wins: the older command, wherever it is, becomes not valid and is dropped when
//    it is touched next; it is never written after the newer one.
// 2. Commands are written in the order of their arrival; flushes keep their place among the
//    address commands and are never collapsed.
// 3. What is in flight has a transaction id of its own, above zero. A command that goes back to
//    pending loses it: a late answer for the former attempt is an unknown one.
// 4. A run of any of the three clocks stops at its budget and goes on in a later firing. A clock's
//    firing time only ever moves earlier. At rest (nothing pending, in flight or in overflow) all
//    clocks are idle.
// 5. Before a hook is called the books are right for the command to be in flight: the hook may
//    answer at once or hand in newer commands.
//
// Ownership: counts references to the commands it holds; a finished command is released, and may be
// handed in again, here or to another programmer, as may those that it held when it ended. The timer
// wheel outlives the programmer. Reads and writes no shared attributes.

#include "Qon/include/framework/QonBaseSm.h"
#include "Qon/include/framework/SequenceMap.h"
#include "Qon/include/framework/TimeSlice.h"
#include "Qon/include/mac/IndirectAccessMacCmd.h"

namespace Qon {

class QonMacProgrammer : public QonBaseSm, public Checked {
   KIV_BODY( QonMacProgrammer, QonBaseSm )

   using AddrOpMap = Kiv::DenseMap< U64, IndirectAccessMacCmd * >;
   using Stage = IndirectAccessMacCmd::Stage;

   // The drain of pending commands: budget in seconds, commands between two looks at the clock,
   // seconds until a run that was put off.
   KIV_ATTR( double, updateQuantumofTimes, 0.01 )
   KIV_ATTR( U32, updateQuantum, 128 )
   KIV_ATTR( double, updateDelay, 0.2 )

   // The poll of commands in flight: where an interrupted run goes on, budget as above, seconds
   // between two polls, seconds after which a command counts as stalled (which is only traced).
   KIV_ATTR( Bookmark< U64 >, inProgMacOpBookmark )
   KIV_ATTR( double, pollReqQuantumofTimes, 0.01 )
   KIV_ATTR( U32, pollReqQuantum, 128 )
   KIV_ATTR( double, pollReqFreq, 0.1 )
   KIV_ATTR( double, maxExecTime, 1.0 )

   // The retry of what did not fit: seconds between two runs, which double while there is other
   // work and fall by one a run when there is none, and their bounds.
   KIV_ATTR( Bookmark< MacEntryKey >, overflowAddrOpBookmark )
   KIV_ATTR( double, updateOverflowAddressMinDelay, 5.0 )
   KIV_ATTR( double, updateOverflowAddressDelay, 5.0 )
   KIV_ATTR( double, updateOverflowAddressMaxDelay, 30.0 )

   // Whether this episode of overflow has been reported. It ends when nothing is in overflow and
   // no address command is on its way.
   KIV_ATTR( bool, overflowLogged, false )
   // Hold the drain and the poll; for whoever resets or checks the chip.
   KIV_ATTR( bool, suspendPending, false )
   KIV_ATTR( bool, suspendInProgress, false )

 public:
   /** The clocks run on `timerWheel`. */
   explicit QonMacProgrammer( Kiv::TimerWheel * timerWheel ) : timerWheel_( timerWheel ) {}
   ~QonMacProgrammer() override;

   /** Creates the clocks, once. What was handed in before waits for this. */
   void handleInitialized() override;

   /** Accepts an address command as the newest wish for its key. A command that is pending or in
       flight already, or is not valid, is left alone. */
   virtual void handleAddrOp( const MacCmdPtr & cmd );
   /** Accepts a flush command; it is written after what was accepted before it. */
   virtual void handleFlushOp( const MacCmdPtr & cmd );

   /** @name Hooks
       Write one command to the chip, or (shadow() is set) to the software's shadow of its table.
       Called once for each attempt, when the command is in flight, with its transaction id set.
       Done when the chip's answer is handed to handleCmdResponse(), be it before the hook returns;
       the returned status is only traced. An answer of busy or parity error brings a later call for
       the same command with a new transaction id; full brings one when the overflow is retried. An
       exception counts as an answer of busy, unless there was one. */
   /** @{ */
   virtual MacProgramStatus writeToHw( const MacCmdPtr & cmd );
   virtual MacProgramStatus writeToHwShadow( const MacCmdPtr & cmd );
   /** @} */

   /** The chip's answer to the command in flight under `transactionId`, which the next poll acts
       on; the last answer before it counts. An unknown id is traced and ignored. */
   void handleCmdResponse( U64 transactionId, U32 tblIndex, MacProgramStatus status );

   QON_ASSERT_FAMILY( QonMacProgrammer, "QonChipProgrammer", Silence::simulation )

   /** @name Runs
       What the clocks fire; may be called directly. */
   /** @{ */
   void updatePendingAddresses();
   void pollInProgressCmds();
   void updateOverflowAddresses();
   /** @} */

   Kiv::TimerWheel * timerWheel() const { return timerWheel_; }
   /** Null until the programmer is initialized. */
   Kiv::Clock * updatePendingAddressClock() const { return updatePendingAddressClock_.clock(); }
   Kiv::Clock * pollReqClock() const { return pollReqClock_.clock(); }
   Kiv::Clock * updateOverflowAddressClock() const { return updateOverflowAddressClock_.clock(); }

   /** @name Commands waiting to be written, in order; superseded ones included */
   /** @{ */
   const Kiv::Fifo< MacCmdPtr > & pendingMacOp() const { return pendingMacOp_; }
   const MacCmdPtr & pendingMacOpFront() const { return pendingMacOp_.front(); }
   U32 pendingMacOps() const { return pendingMacOp_.size(); }
   /** @} */

   /** The address commands of one stage, in no particular order, but always the same. */
   class StageIterator {
    public:
      explicit operator bool() const { return bool( walk_ ); }
      StageIterator & operator++() {
         ++walk_;
         settle();
         return *this;
      }
      MacEntryKey key() const { return ptr()->key(); }
      IndirectAccessMacCmd * ptr() const { return walk_.value(); }

    private:
      friend class QonMacProgrammer;
      StageIterator( const AddrOpMap & map, Stage stage ) : walk_( map ), stage_( stage ) {
         settle();
      }
      void settle() {
         while ( walk_ && walk_.value()->stage_ != stage_ ) {
            ++walk_;
         }
      }
      AddrOpMap::ConstWalk walk_;
      Stage stage_;
   };

   /** @name The pending address command of each key (null if there is none) */
   /** @{ */
   IndirectAccessMacCmd * pendingAddrOp( const MacEntryKey & key ) const {
      return addrOpAt( key, Stage::pending );
   }
   bool pendingAddrOpHas( const MacEntryKey & key ) const { return pendingAddrOp( key ); }
   U32 pendingAddrOps() const { return pendingAddrOps_; }
   StageIterator pendingAddrOpIteratorConst() const { return { addrOp_, Stage::pending }; }
   /** @} */

   /** Pending flush commands, by a running number of their own. */
   const Kiv::DenseMap< U64, MacCmdPtr > & pendingFlushOp() const { return pendingFlushOp_; }
   U32 pendingFlushOps() const { return pendingFlushOp_.size(); }

   /** @name Commands written to hardware, in transaction-id order; superseded ones included */
   /** @{ */
   IndirectAccessMacCmd * inProgMacOp( U64 transactionId ) const {
      auto cmd = inProgMacOp_.find( transactionId );
      return cmd ? cmd->ptr() : nullptr;
   }
   bool inProgMacOpHas( U64 transactionId ) const { return inProgMacOp_.has( transactionId ); }
   U32 inProgMacOps() const { return inProgMacOp_.size(); }
   SequenceMap< MacCmdPtr >::Walk inProgMacOpIteratorConst() const { return inProgMacOp_.begin(); }
   /** @} */

   /** @name The address command of each key that is in flight and not superseded */
   /** @{ */
   IndirectAccessMacCmd * inProgAddrOp( const MacEntryKey & key ) const {
      return addrOpAt( key, Stage::inFlight );
   }
   bool inProgAddrOpHas( const MacEntryKey & key ) const { return inProgAddrOp( key ); }
   U32 inProgAddrOps() const { return addrOp_.size() - pendingAddrOps_; }
   StageIterator inProgAddrOpIteratorConst() const { return { addrOp_, Stage::inFlight }; }
   /** @} */

   /** @name Address commands that did not fit, in key order */
   /** @{ */
   const Kiv::OrderedMap< MacEntryKey, MacCmdPtr > & overflowAddrOp() const {
      return overflowAddrOp_;
   }
   bool overflowAddrOpHas( const MacEntryKey & key ) const { return overflowAddrOp_.has( key ); }
   /** How often a command was tried again. */
   U64 retries() const { return retries_; }
   U32 overflowAddrOps() const { return overflowAddrOp_.size(); }
   /** @} */

   /** Takes time by the number of commands. */
   Velto::String checkInvariants() const override;

 private:
   /** The whole key in one number: 48 bits of address, 12 of VLAN, 4 of table. */
   static U64 packed( const MacEntryKey & key ) {
      return key.key().mac().value() << 16 | U64( key.key().vlan() ) << 4 | U64( key.macHwType() );
   }
   IndirectAccessMacCmd * addrOpAt( const MacEntryKey & key, Stage stage ) const {
      auto cmd = addrOp_.find( packed( key ) );
      return cmd && ( *cmd )->stage_ == stage ? *cmd : nullptr;
   }
   void removeFromOverflow( const MacEntryKey & key );
   void supersede( IndirectAccessMacCmd & old );
   void enqueue( const MacCmdPtr & cmd );
   void enqueueAnew( const MacCmdPtr & cmd );
   void resumeRuns();
   static void letGo( IndirectAccessMacCmd & cmd );
   void wakeIfIdle();
   void wakePending( Kiv::Seconds now );

   void write( const MacCmdPtr & cmd, Kiv::Seconds now );
   void enterInFlight( const MacCmdPtr & cmd, Kiv::Seconds now );
   void flushLeavesQueue();
   void drop( IndirectAccessMacCmd & cmd );

   void act( IndirectAccessMacCmd & cmd, Kiv::Seconds now );
   void assertInFlight( const IndirectAccessMacCmd & cmd ) const;
   void assertNotSuperseded( const IndirectAccessMacCmd & cmd ) const;
   void finish( IndirectAccessMacCmd & cmd );
   void writeAgain( MacCmdPtr cmd );
   void overflow( MacCmdPtr cmd );
   void reportOverflow( const IndirectAccessMacCmd & cmd );
   void noteEndOfOverflow();
   void scheduleAfterPoll( Kiv::Seconds now );
   void retry( const MacCmdPtr & cmd );

   Velto::String checkPending() const;
   Velto::String checkInFlight() const;
   Velto::String checkOverflow() const;
   Velto::String checkClocks() const;

   Kiv::TimerWheel * timerWheel_;
   Kiv::Fifo< MacCmdPtr > pendingMacOp_;
   // The live command of each key (packed) that is pending or in flight: both maps in one, so that
   // a command changes from one to the other without a look-up. The queue or the map of what is in
   // flight counts the reference.
   AddrOpMap addrOp_;
   U32 pendingAddrOps_ = 0;
   Kiv::DenseMap< U64, MacCmdPtr > pendingFlushOp_;
   U64 nextFlush_ = 1;
   SequenceMap< MacCmdPtr > inProgMacOp_;
   U64 nextTransactionId_ = 1;
   Kiv::OrderedMap< MacEntryKey, MacCmdPtr > overflowAddrOp_;
   U64 retries_ = 0;

   Kiv::ClockReactor< QonMacProgrammer, &QonMacProgrammer::updatePendingAddresses >
         updatePendingAddressClock_;
   Kiv::ClockReactor< QonMacProgrammer, &QonMacProgrammer::pollInProgressCmds > pollReqClock_;
   Kiv::ClockReactor< QonMacProgrammer, &QonMacProgrammer::updateOverflowAddresses >
         updateOverflowAddressClock_;
};

Velto::Ptr< QonMacProgrammer > QonMacProgrammerIs( Kiv::TimerWheel * timerWheel );

} // namespace Qon
