#include "Qon/include/VerifySm.h"

#include "Qon/include/QonCommonSmData.h"

namespace Qon {

VerifySm::VerifySm( QonCommonSmData * acsd ) : acsd_( acsd ) {}

VerifyData *
VerifySm::data() const {
   return acsd_->verifyData();
}

void
VerifySm::handleInitialized() {
   if ( clock_ ) {
      return; // the set-up is made once
   }
   if ( envSet( "ENABLE_VERIFY" ) && !envSet( "USE_BCMSIM" ) ) {
      data()->verifyIs( true );
   }
   clock_.attach( this, Velto::make< Kiv::Clock >() );
   requestWatch_.attach( this, data()->verifyRequired() );
   initializedIs( true );
}

void
VerifySm::handleVerifyRequest() {
   data()->verifyDoneIs( false );
   clock_->timeMin( Kiv::now() );
}

void
VerifySm::handleTimeout() {
   runVerification();
   data()->verifyResultIs( VerifyResult::done );
   data()->verifyDoneIs( true );
}

void
VerifySm::handleCliVerificationRequest( U32 socket ) {
   data()->initVerifyData( socket );
   runVerification();
   data()->verifyDoneIs( true );
}

void
VerifySm::runVerification() {
   data()->runChecks();
}

Velto::Ptr< VerifySm >
VerifySmIs( QonCommonSmData * acsd ) {
   return smIs< VerifySm >( acsd );
}

} // namespace Qon
