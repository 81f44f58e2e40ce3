#include "agent/features/VerifyFeature.h"

#include "agent/Agent.h"
#include "platform/types/Paths.h"

namespace QonAgent {

namespace {

const char agentName[] = "qon-agent";

} // namespace

VerifyFeature::VerifyFeature( Agent & agent )
    : agent_( agent ),
      sm_( Qon::VerifyAgentSmIs(
            agent.acsd(), agent.entities().mount< VerifyAgent::Config >( Paths::verifyAgentConfig ),
            agent.entities().mount< VerifyAgent::Status >( Paths::verifyAgentStatus ),
            agent.entities().mount< VerifyAgent::RequestDir >( Paths::verifyAgentRequest ),
            agentName ) ) {
   sm_->initializedIs( true );
   agent.verificationIs( { sm_->cliCallback()->name(), [this]( int fd, const String & command ) {
                             sm_->cliCallback()->handleCommand( U32( fd ), command );
                          } } );
}

VerifyFeature::~VerifyFeature() {
   agent_.verificationIs( {} );
}

FeatureKind
verifyFeature() {
   return feature< VerifyFeature >( "verify" );
}

} // namespace QonAgent
