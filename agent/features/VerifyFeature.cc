#include "agent/features/VerifyFeature.h"

#include "agent/Agent.h"
#include "agent/Json.h"
#include "platform/types/Paths.h"

namespace QonAgent {

namespace {

const char agentName[] = "qon-agent";

} // namespace

void
VerifyFeature::create( Agent & agent ) {
   agent_ = &agent;
   auto & entities = agent.entities();
   sm_ = Qon::VerifyAgentSmIs(
         agent.acsd(), entities.mount< VerifyAgent::Config >( Paths::verifyAgentConfig ),
         entities.mount< VerifyAgent::Status >( Paths::verifyAgentStatus ),
         entities.mount< VerifyAgent::RequestDir >( Paths::verifyAgentRequest ), agentName );
   sm_->initializedIs( true );
   agent.verificationIs( { sm_->cliCallback()->name(), [this]( int fd, const String & command ) {
                             sm_->cliCallback()->handleCommand( U32( fd ), command );
                          } } );
}

void
VerifyFeature::destroy() {
   agent_->verificationIs( {} );
   sm_ = nullptr;
}

} // namespace QonAgent
