#include "Qon/include/framework/VerifyAgentSm.h"

#include "Qon/framework/VerifyTrace.h"
#include "Qon/include/framework/QonCommonSmData.h"

namespace Qon {

namespace {

constexpr int startLevel = 1;

const char * const commandMark = "VTS#";

} // namespace

bool
VerifyAgentSmCliCallback::accepts( const String & command ) const {
   return command.starts_with( commandMark + name() + "#" );
}

void
VerifyAgentSmCliCallback::handleCommand( U32 socket, const String & command ) {
   Velto::Ptr< VerifySm > verifySm = sm_ ? sm_->acsd()->verifySm() : nullptr;
   Velto::Ptr< VerifyData > data = sm_ ? sm_->acsd()->verifyData() : nullptr;
   bool listens = writeToClient( socket, "{ \"" + name() + "\" : [ " );
   if ( listens && verifySm && verifySm->initialized() && accepts( command ) ) {
      verifySm->handleCliVerificationRequest( socket );
      listens = data->socket() == socket; // else it went, or was too slow
   }
   if ( listens ) {
      writeToClient( socket, " { \"" + name() + "\": \"END_OF_VERIFICATION\" } ] }" );
   }
   if ( data ) {
      data->resetVerifyData();
   }
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
   for ( auto i = requestDir_->requestIteratorConst(); i; ++i ) {
      handleRequest( String( i.key() ) );
   }
}

void
CliRequestDirSm::handleRequest( const String & id ) {
   Velto::Ptr< VerifyAgent::Request > request = requestDir_->request( id );
   if ( !initialized() || !request || request->done() ) {
      return;
   }
   if ( request->socket() ) {
      callback_->handleCommand( request->socket(), request->command() );
   }
   request->doneIs( true );
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
   doneWatch_.attach( this, acsd_->verifyData() );
   QON_TRACE( verifyFacility, startLevel, "VerifyAgentSm initialized" ); // fixed text
   if ( requestDirSm_ ) {
      requestDirSm_->initializedIs( true );
   }
   handleVerifyStatus();
   handleVerifyAgent();
}

void
VerifyAgentSm::handleVerifyAgent() {
   auto data = acsd_->verifyData();
   auto required = data ? data->verifyRequired() : nullptr;
   U32 cookie = config_->cookie();
   if ( !initialized() || !required || cookie == cookie_ || cookie == status_->cookie() ) {
      return;
   }
   cookie_ = cookie;
   status_->doneIs( false );
   status_->resultIs( VerifyResult::inProgress );
   data->resetVerifyData();
   required->verifyRequiredIs( required->verifyRequired() + 1 );
}

void
VerifyAgentSm::handleVerifyStatus() {
   auto data = acsd_->verifyData();
   auto verifySm = acsd_->verifySm();
   bool finished = data && data->verifyDone() && verifySm && !verifySm->runPending();
   if ( !initialized() || !finished || cookie_ == status_->cookie() ) {
      return;
   }
   status_->resultIs( data->verifyResult() );
   status_->findingsIs( data->verifyInc() );
   status_->cookieIs( cookie_ );
   status_->doneIs( true );
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
