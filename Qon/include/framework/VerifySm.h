#pragma once
// The verification state machine: runs the checks once per burst of requests.
//
//    VerifyData.verifyRequired changes -> handleVerifyRequest: clock := now
//    clock fires -> handleTimeout -> runVerification -> checks -> verifyResult, verifyDone
//                \-> a check wanted to look again: clock := now + 1 s, then `reverify` counts up
//
//    variable         set                                    unset
//    ENABLE_VERIFY    features may ask for runs, unless      only the operator's requests are run
//                     USE_BCMSIM is set too
//    SIMULATION_VMID  a failed run is not logged             it is
//
// Invariants
// 1. Requests arm the clock, and only its firing starts a run: a burst gives one run, a request
//    made during a run exactly one more.
// 2. A run is repeated at most three times in a row. Repetitions run no checks: who asked for one
//    watches `reverify`. A request that comes meanwhile gets a run of its own.
// 3. HARDWARE_VERIFY_AGENT_RETRY_NEEDED is raised by the first repetition of a run that the clock
//    started, HARDWARE_VERIFY_AGENT_FAILED by the end of one that had findings. The run of a
//    client raises neither and is never repeated.
// 4. While it is not initialized requests are only counted; they are run afterwards.
//
// Ownership: owned by the shared agent data; counts the verification data, its neighbour there.

#include "Qon/include/framework/VerifyData.h"
#include "platform/Kiv/Clock.h"

namespace Qon {

class QonCommonSmData;

class VerifySm : public QonBaseSm {
 public:
   explicit VerifySm( QonCommonSmData * acsd );

   void handleInitialized() override;
   /** A request arrived: one run, after the handlers of the present burst. */
   void handleVerifyRequest();
   /** The clock fired: a run, or the repetition of one. */
   void handleTimeout();
   /** A run whose findings go to `socket`, all of it before this returns. */
   void handleCliVerificationRequest( U32 socket );
   void runVerification();
   /** Whether a run or a repetition is to come. */
   bool runPending() const { return runTime() != Kiv::never; }
   /** When that is due; never: none is to come. */
   Kiv::Seconds runTime() const { return clock_ ? clock_->time() : Kiv::never; }

 private:
   void takeUp();
   void startRun();
   void startRepetition();
   void endRun( bool repetition );
   /** True if the run goes on with a repetition. */
   bool repeatRun();
   void finishRun();

   const Velto::Ptr< VerifyData > data_;
   bool requested_ = false; // since the last run began
   U32 repetitions_ = 0;    // of the present run
   U32 heard_ = 0;          // requests, by their counter
   Kiv::ClockReactor< VerifySm, &VerifySm::handleTimeout > clock_;
   Kiv::Watch< VerifyRequired::verifyRequiredAttr, VerifySm, &VerifySm::handleVerifyRequest >
         requestWatch_;
};

/** The shared data must have its verification data already. */
Velto::Ptr< VerifySm > VerifySmIs( QonCommonSmData * acsd );

} // namespace Qon
