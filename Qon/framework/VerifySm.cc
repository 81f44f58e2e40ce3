#include "Qon/include/framework/VerifySm.h"

#include "Qon/framework/VerifyTrace.h"
#include "Qon/include/framework/QonCommonSmData.h"
#include "Qon/include/framework/QonLog.h"

namespace Qon {

Flintlog::Facility verifyFacility( "QonVerifySm" );

namespace {

constexpr int startLevel = 1;
constexpr int runLevel = 5;

constexpr Kiv::Seconds repetitionDelay = 1.0;
constexpr U32 maxRepetitions = 3;

QonLogHandle retryNeeded( "QonVerifySm", QonLog::HARDWARE_VERIFY_AGENT_RETRY_NEEDED );
QonLogHandle failed( "QonVerifySm", QonLog::HARDWARE_VERIFY_AGENT_FAILED );

// Raised by the hardware side of verification, by name.
QonLogHandle byName[] = {
      { "QonVerifySm", QonLog::HARDWARE_EXCESSIVE_MULTIPLE_BIT_ERRORS },
      { "QonVerifySm", QonLog::HARDWARE_PARITY_ERROR_CORRECTED_WITH_RESET },
      { "QonVerifySm", QonLog::HARDWARE_PERR_CORRECTED },
      { "QonVerifySm", QonLog::HARDWARE_PERR_CORRECTABLE },
      { "QonVerifySm", QonLog::HARDWARE_PERR_FATAL },
      { "QonVerifySm", QonLog::HARDWARE_DISRUPTIVE_RESTART },
};

/** The last finding as a message shows it. */
String
lastFinding( const VerifyData & data ) {
   String text = data.verifyOutput().description();
   if ( !text.empty() && text.back() == '\n' ) {
      text.pop_back();
   }
   return text;
}

void
raise( QonLogHandle & handle, const VerifyData & data ) {
   if ( handle.okToLog() ) {
      Kiv::log( handle, lastFinding( data ) );
   }
}

} // namespace

VerifySm::VerifySm( QonCommonSmData * acsd ) : data_( acsd->verifyData() ) {}

void
VerifySm::handleInitialized() {
   if ( clock_ ) {
      return; // the set-up is made once
   }
   if ( envSet( "ENABLE_VERIFY" ) && !envSet( "USE_BCMSIM" ) ) {
      data_->verifyIs( true );
      QON_TRACE( verifyFacility, startLevel, "Verify enabled" ); // fixed text
   }
   clock_.attach( this, Velto::make< Kiv::Clock >() );
   requestWatch_.attach( this, data_->verifyRequired() );
   QON_TRACE( verifyFacility, startLevel, "Verify SM initialized" ); // fixed text
   initializedIs( true );
}

void
VerifySm::handleVerifyRequest() {
   requested_ = true;
   data_->verifyDoneIs( false );
   clock_->timeMin( Kiv::now() );
}

void
VerifySm::handleTimeout() {
   if ( !initialized() ) {
      return;
   }
   data_->verifyDoneIs( false ); // a client's run may have finished since the request
   data_->cliVerifyOutputDelAll();
   bool repetition = data_->retryVerify();
   if ( repetition ) {
      data_->dropTentativeFindings();
      data_->retryVerifyIs( false );
      data_->reverifyIs( data_->reverify() + 1 );
   } else {
      startRun();
   }
   if ( repetition && requested_ ) {
      data_->retryVerifyIs( false ); // the run that follows looks at everything
      clock_->timeMin( Kiv::now() );
   } else if ( !repeatRun() ) {
      finishRun();
   }
}

void
VerifySm::startRun() {
   requested_ = false;
   repetitions_ = 0;
   data_->verifyIncIs( 0 );
   QON_TRACE( verifyFacility, runLevel, "Starting Qon verification" ); // fixed text
   runVerification();
   QON_TRACE( verifyFacility, runLevel, "Qon verification done" ); // fixed text
}

bool
VerifySm::repeatRun() {
   if ( !data_->retryVerify() ) {
      return false;
   }
   if ( repetitions_ == maxRepetitions ) {
      data_->retryVerifyIs( false );
      return false;
   }
   if ( repetitions_++ == 0 ) {
      raise( retryNeeded, *data_ );
   }
   clock_->timeMin( Kiv::now() + repetitionDelay );
   data_->verifyResultIs( VerifyResult::retry );
   return true;
}

void
VerifySm::finishRun() {
   if ( data_->verifyInc() && !underSimulation() ) {
      raise( failed, *data_ );
   }
   data_->verifyResultIs( VerifyResult::done );
   data_->verifyDoneIs( true );
}

void
VerifySm::handleCliVerificationRequest( U32 socket ) {
   if ( !initialized() ) {
      return;
   }
   bool retryWanted = data_->retryVerify();
   data_->initVerifyData( socket );
   runVerification();
   data_->retryVerifyIs( retryWanted );
   data_->verifyDoneIs( true );
}

void
VerifySm::runVerification() {
   data_->runChecks();
}

Velto::Ptr< VerifySm >
VerifySmIs( QonCommonSmData * acsd ) {
   return smIs< VerifySm >( acsd );
}

} // namespace Qon
