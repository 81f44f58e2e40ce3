#include "Qon/include/framework/VerifyAgentSm.h"

#include "Qon/framework/VerifyTrace.h"
#include "Qon/include/framework/QonCommonSmData.h"

namespace Qon {

namespace {

const char * const commandMark = "VTS#";

} // namespace

bool
VerifyAgentSmCliCallback::accepts( const String & command ) const {
   return command.starts_with( commandMark + name() + "#" );
}

void
VerifyAgentSmCliCallback::handleCommand( U32 socket, const String & command ) {
   const Velto::Hold alive( this );
   Velto::Ptr< VerifySm > verifySm = sm_ ? sm_->acsd()->verifySm() : nullptr;
   Velto::Ptr< VerifyData > data = sm_ ? sm_->acsd()->verifyData() : nullptr;
   const Kiv::Seconds patience = data ? data->clientPatience() : 1.0;
   Velto::FirstError error;
   bool listens = writeToClient( socket, "{ \"" + name() + "\" : [ ", patience );
   if ( listens && verifySm && verifySm->initialized() && accepts( command ) ) {
      error.run( [&] { verifySm->handleCliVerificationRequest( socket ); } );
      listens = data->socket() == socket; // else it went, or was too slow
   }
   if ( listens ) {
      writeToClient( socket, " { \"" + name() + "\": \"END_OF_VERIFICATION\" } ] }", patience );
   }
   if ( data ) {
      error.run( [&] { data->resetVerifyData(); } );
   }
   error.pass();
}

CliRequestDirSm::CliRequestDirSm( Velto::Ptr< VerifyAgent::RequestDir > requestDir,
                                  Velto::Ptr< CliCallback > callback )
    : requestDir_( std::move( requestDir ) ), callback_( std::move( callback ) ) {}

void
CliRequestDirSm::handleInitialized() {
   if ( !initialized() ) {
      return;
   }
   requestWatch_.attach( this, requestDir_.ptr() );
   Velto::FirstError error;
   for ( auto i = requestDir_->requestIteratorConst(); i; ++i ) {
      error.run( [&] { handleRequest( String( i.key() ) ); } );
   }
   error.pass();
}

void
CliRequestDirSm::handleRequest( const String & id ) {
   Velto::Ptr< VerifyAgent::Request > request = requestDir_->request( id );
   if ( !initialized() || !request || request->done() ) {
      return;
   }
   Velto::FirstError error;
   if ( request->socket() ) {
      error.run( [&] { callback_->handleCommand( request->socket(), request->command() ); } );
   }
   error.run( [&] { request->doneIs( true ); } );
   error.pass();
}

Velto::Ptr< CliRequestDirSm >
CliRequestDirSmIs( Velto::Ptr< VerifyAgent::RequestDir > requestDir,
                   Velto::Ptr< CliCallback > callback ) {
   return smIs< CliRequestDirSm >( std::move( requestDir ), std::move( callback ) );
}

VerifyAgentSm::VerifyAgentSm( Velto::Ptr< QonCommonSmData > acsd,
                              Velto::Ptr< const VerifyAgent::Config > verifyAgentConfig,
                              Velto::Ptr< VerifyAgent::Status > verifyAgentStatus,
                              Velto::Ptr< VerifyAgent::RequestDir > requestDir,
                              const String & agentName )
    : acsd_( std::move( acsd ) ), config_( std::move( verifyAgentConfig ) ),
      status_( std::move( verifyAgentStatus ) ), requestDir_( std::move( requestDir ) ),
      agentName_( agentName ), cookie_( status_->cookie() ) {}

VerifyAgentSm::~VerifyAgentSm() {
   if ( cliCallback_ ) {
      cliCallback_->smDel();
   }
}

void
VerifyAgentSm::handleInitialized() {
   if ( !initialized() ) {
      if ( requestDirSm_ ) {
         requestDirSm_->initializedIs( false );
      }
      return;
   }
   if ( !cliCallback_ ) {
      cliCallback_ = Velto::make< VerifyAgentSmCliCallback >( "qonVerify::" + agentName_,
                                                              "VerifyAgentCli", this );
      if ( requestDir_ ) {
         requestDirSm_ = CliRequestDirSmIs( requestDir_, cliCallback_ );
      }
      // fixed text
      QON_TRACE( verifyFacility, startLevel, "Qon CliCommand callback has been initialized" );
   }
   cookieWatch_.attach( this, config_.ptr() );
   dataWatch_.attach( this, acsd_.ptr() );
   doneWatch_.attach( this, acsd_->verifyData() );
   QON_TRACE( verifyFacility, startLevel, "VerifyAgentSm initialized" ); // fixed text
   Velto::FirstError error;
   if ( requestDirSm_ ) {
      error.run( [&] { requestDirSm_->initializedIs( true ); } );
   }
   error.run( [&] { handleVerifyStatus(); } );
   error.run( [&] { handleVerifyAgent(); } );
   error.pass();
}

void
VerifyAgentSm::handleVerifyData() {
   doneWatch_.attach( this, acsd_->verifyData() );
   handleVerifyAgent();
}

void
VerifyAgentSm::handleVerifyAgent() {
   auto data = acsd_->verifyData();
   auto required = data ? data->verifyRequired() : nullptr;
   U32 cookie = config_->cookie();
   if ( !initialized() || !acsd_->initialized() || !required || cookie == cookie_ ) {
      return;
   }
   const Velto::Hold alive( this ), dataAlive( data ), requiredAlive( required );
   Velto::FirstError error;
   cookie_ = cookie;
   wanted_ = true;
   error.run( [&] { status_->doneIs( false ); } );
   error.run( [&] { status_->resultIs( VerifyResult::inProgress ); } );
   if ( !data->socket() ) { // else a client's run is under way, which resets when it ends
      error.run( [&] { data->resetVerifyData(); } );
   }
   error.run( [&] { required->verifyRequiredIs( required->verifyRequired() + 1 ); } );
   error.pass();
}

void
VerifyAgentSm::handleVerifyStatus() {
   auto data = acsd_->verifyData();
   auto verifySm = acsd_->verifySm();
   bool finished = data && data->verifyDone() && verifySm && !verifySm->runPending();
   if ( !initialized() || !finished || !wanted_ ) {
      return;
   }
   const Velto::Hold alive( this );
   const VerifyResult result = data->verifyResult();
   const U32 findings = data->verifyInc(), cookie = cookie_;
   Velto::FirstError error;
   wanted_ = false;
   error.run( [&] { status_->resultIs( result ); } );
   error.run( [&] { status_->findingsIs( findings ); } );
   error.run( [&] { status_->cookieIs( cookie ); } );
   error.run( [&] { status_->doneIs( !wanted_ ); } );
   error.pass();
}

Velto::Ptr< VerifyAgentSm >
VerifyAgentSmIs( Velto::Ptr< QonCommonSmData > acsd,
                 Velto::Ptr< const VerifyAgent::Config > verifyAgentConfig,
                 Velto::Ptr< VerifyAgent::Status > verifyAgentStatus,
                 Velto::Ptr< VerifyAgent::RequestDir > requestDir, const String & agentName ) {
   return smIs< VerifyAgentSm >( std::move( acsd ), std::move( verifyAgentConfig ),
                                 std::move( verifyAgentStatus ), std::move( requestDir ),
                                 agentName );
}

} // namespace Qon
