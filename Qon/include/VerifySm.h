#pragma once
// The verification state machine: runs the checks once per burst of requests.
//
//    VerifyData.verifyRequired changes -> handleVerifyRequest: clock := now
//    clock fires -> handleTimeout -> runVerification -> checks -> verifyResult, verifyDone
//
// Ownership: owned by the shared agent data, to which it points back without counting it.

#include "Qon/include/VerifyData.h"
#include "platform/Kiv/Clock.h"

namespace Qon {

class QonCommonSmData;

class VerifySm : public QonBaseSm {
 public:
   explicit VerifySm( QonCommonSmData * acsd );

   void handleInitialized() override;
   /** A request arrived: one run, after the handlers of the present burst. */
   void handleVerifyRequest();
   /** The clock fired: the run. */
   void handleTimeout();
   /** A run whose findings go to `socket`, all of it before this returns. */
   void handleCliVerificationRequest( U32 socket );
   void runVerification();

 private:
   VerifyData * data() const;

   QonCommonSmData * acsd_; // owns this
   Kiv::ClockReactor< VerifySm, &VerifySm::handleTimeout > clock_;
   Kiv::Watch< VerifyRequired::verifyRequiredAttr, VerifySm, &VerifySm::handleVerifyRequest >
         requestWatch_;
};

Velto::Ptr< VerifySm > VerifySmIs( QonCommonSmData * acsd );

} // namespace Qon
