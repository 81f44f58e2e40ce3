#include "Qon/include/framework/VerifySm.h"

#include "Qon/framework/VerifyTrace.h"
#include "Qon/include/framework/QonCommonSmData.h"
#include "Qon/include/framework/QonLog.h"

namespace Qon {

Flintlog::Facility verifyFacility( "QonVerifySm" );

namespace {

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
   const Velto::Hold alive( this );
   if ( clock_ ) { // the set-up is made once
      takeUp();
      return;
   }
   if ( envSet( "ENABLE_VERIFY" ) && !envSet( "USE_BCMSIM" ) ) {
      data_->verifyIs( true );
      QON_TRACE( verifyFacility, startLevel, "Verify enabled" ); // fixed text
   }
   clock_.attach( this, Velto::make< Kiv::Clock >() );
   heard_ = data_->verifyRequired()->verifyRequired();
   requestWatch_.attach( this, data_->verifyRequired() );
   QON_TRACE( verifyFacility, startLevel, "Verify SM initialized" ); // fixed text
   initializedIs( true );
}

/** What was asked for while nothing was heard. */
void
VerifySm::takeUp() {
   if ( !initialized() ) {
      return;
   }
   if ( heard_ != data_->verifyRequired()->verifyRequired() ) {
      handleVerifyRequest();
   } else if ( requested_ || data_->retryVerify() ) {
      clock_->timeMin( Kiv::now() );
   }
}

void
VerifySm::handleVerifyRequest() {
   const Velto::Hold alive( this );
   heard_ = data_->verifyRequired()->verifyRequired();
   requested_ = true;
   clock_->timeMin( Kiv::now() );
   data_->verifyDoneIs( false );
}

void
VerifySm::handleTimeout() {
   if ( !initialized() ) {
      return;
   }
   const Velto::Hold alive( this );
   Velto::FirstError error;
   const bool repetition = data_->retryVerify();
   error.run( [&] { data_->verifyDoneIs( false ); } ); // a client's run may have finished since
   error.run( [&] { data_->cliVerifyOutputDelAll(); } );
   error.run( [&] { repetition ? startRepetition() : startRun(); } );
   error.run( [&] { endRun( repetition ); } );
   error.pass();
}

void
VerifySm::startRepetition() {
   Velto::FirstError error;
   error.run( [&] { data_->dropTentativeFindings(); } );
   error.run( [&] { data_->retryVerifyIs( false ); } );
   error.run( [&] { data_->reverifyIs( data_->reverify() + 1 ); } );
   error.pass();
}

void
VerifySm::endRun( bool repetition ) {
   if ( repetition && requested_ ) {
      clock_->timeMin( Kiv::now() );
      data_->retryVerifyIs( false ); // the run that follows looks at everything
   } else if ( !repeatRun() ) {
      finishRun();
   }
}

void
VerifySm::startRun() {
   requested_ = false;
   repetitions_ = 0;
   Velto::FirstError error;
   error.run( [&] { data_->verifyIncIs( 0 ); } );
   error.run( [&] { data_->verifyOutputIs( VerifyOutput() ); } );
   QON_TRACE( verifyFacility, runLevel, "Starting Qon verification" ); // fixed text
   error.run( [&] { runVerification(); } );
   QON_TRACE( verifyFacility, runLevel, "Qon verification done" ); // fixed text
   error.pass();
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
   Velto::FirstError error;
   error.run( [&] { data_->verifyResultIs( VerifyResult::done ); } );
   error.run( [&] { data_->verifyDoneIs( true ); } );
   error.pass();
}

void
VerifySm::handleCliVerificationRequest( U32 socket ) {
   if ( !initialized() ) {
      return;
   }
   const Velto::Hold alive( this );
   const bool retryWanted = data_->retryVerify();
   Velto::FirstError error;
   error.run( [&] { data_->initVerifyData( socket ); } );
   error.run( [&] { runVerification(); } );
   error.run( [&] { data_->retryVerifyIs( retryWanted ); } );
   error.run( [&] { data_->verifyDoneIs( true ); } );
   error.pass();
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
