#pragma once
// Hardware operations that complete after the handler that started them: the base of the state
// machines that run them, and the helper through which the hardware side answers.
//
//    derived state machine -> QonAsyncBaseHelper: nextPriority(), getNextSequence( key )
//          -> chip ... later ... -> QonAsyncBaseHelper::asyncOperationResultIs( result )
//          -> derived state machine's watch -> handleAsyncOperationResult()
//    tcamRequestClock fires               -> processTcamRequestQueue()
//    pendingOperationTimeoutClock fires   -> handlePendingOperationTimeout()
//
// Invariants
// 1. Priorities and sequence numbers only fall and never wrap: of two operations the one that was
//    started earlier holds the larger priority. Running out is a fatal assertion.
// 2. Each clock has at most one reactor; a firing that is due when the clock is taken away, or
//    when the state machine is dead, is not delivered.
// 3. The base arms no clock and never moves asyncState: what an operation is, when it is late and
//    to which one a result belongs is the derived class's business.
//
// Ownership: the state machine counts the shared data and both clocks; it knows no helper.

#include "Qon/include/framework/QonAsyncTypes.h"
#include "Qon/include/framework/QonBaseSm.h"
#include "platform/Kiv/Clock.h"

namespace Qon {

class QonCommonSmData;

class QonAsyncBaseSm : public QonBaseSm {
   KIV_BODY( QonAsyncBaseSm, QonBaseSm )
   KIV_ATTR( String, reqKey, "" ) // key of the request in progress
   KIV_ATTR( AsyncOperationState, asyncState, AsyncOperationState::asyncNone )
   KIV_ATTR( Kiv::Seconds, pendingOperationTimeout, 60.0 )
 public:
   explicit QonAsyncBaseSm( Velto::Ptr< QonCommonSmData > acsd );
   ~QonAsyncBaseSm() override;

   QonCommonSmData * acsd() const { return acsd_.ptr(); }

   /** The hardware side reported on an operation. Called by the derived class's watch on its
       helper's asyncOperationResult; must be overridden. */
   virtual void handleAsyncOperationResult();
   /** The request clock fired: time to hand the chip the next request. */
   virtual void processTcamRequestQueue() {}
   /** The operation in flight is overdue. */
   virtual void handlePendingOperationTimeout() {}

   void kivDoZombieReactors() override;

 private:
   void handleTcamRequestClock();
   void handlePendingOperationTimeoutClock();

 public:
   /** Watches a clock for the state machine; not to be used without it. */
   class KivTcamRequestClock
       : public Kiv::ClockReactor< QonAsyncBaseSm, &QonAsyncBaseSm::handleTcamRequestClock > {};
   class KivPendingOperationTimeoutClock
       : public Kiv::ClockReactor< QonAsyncBaseSm,
                                   &QonAsyncBaseSm::handlePendingOperationTimeoutClock > {};

   // A clock that is set takes the place of the one before, and of its pending firing; null is
   // ...Del(). Setting the same clock does nothing.
   Kiv::Clock * tcamRequestClock() const { return tcamRequestClock_.clock(); }
   void tcamRequestClockIs( Velto::Ptr< Kiv::Clock > clock );
   void tcamRequestClockDel() { tcamRequestClockIs( nullptr ); }
   Kiv::Clock * pendingOperationTimeoutClock() const {
      return pendingOperationTimeoutClock_.clock();
   }
   void pendingOperationTimeoutClockIs( Velto::Ptr< Kiv::Clock > clock );
   void pendingOperationTimeoutClockDel() { pendingOperationTimeoutClockIs( nullptr ); }

 private:
   const Velto::Ptr< QonCommonSmData > acsd_;
   KivTcamRequestClock tcamRequestClock_;
   KivPendingOperationTimeoutClock pendingOperationTimeoutClock_;
};

/** The base itself, which fails when a result arrives; of use to tests only. */
Velto::Ptr< QonAsyncBaseSm > QonAsyncBaseSmIs( Velto::Ptr< QonCommonSmData > acsd );

/** Numbers the operations of one chip, and carries the last result that it reported. */
class QonAsyncBaseHelper : public Kiv::Entity {
   KIV_BODY( QonAsyncBaseHelper, Kiv::Entity )
   KIV_ATTR( AsyncOperationResult, asyncOperationResult )
   KIV_ATTR( bool, asyncTcamOperationsSupported, false )
   KIV_ATTR( U32, priority, ~U32( 0 ) ) // the last one handed out
   KIV_MAP( String, U16, sequence )     // the last number handed out per key
 public:
   QonAsyncBaseHelper() = default;

   /** A priority below all that were handed out before; at least 1. */
   U32 nextPriority();
   /** 65535 for a key that has no number yet, then one less each time, down to 1.
       sequenceDel( key ) starts it again. */
   U16 getNextSequence( const String & key );

   QON_ASSERT_FAMILY( QonAsyncBaseHelper, "QonAsyncBaseHelper", Silence::noopAgent )
};

Velto::Ptr< QonAsyncBaseHelper > qonAsyncBaseHelperFactory();

/** What is kept for asynchronous state machines that are created later. */
class AsyncSharedData : public Kiv::Entity {
   KIV_BODY( AsyncSharedData, Kiv::Entity )
   // The first event of each port. The writer looks with initialPortEventHas() first.
   KIV_MAP( Ulnet::IntfId, QonEvent, initialPortEvent )
 public:
   explicit AsyncSharedData( const String & name ) : Kiv::Entity( name ) {}
};

} // namespace Qon
