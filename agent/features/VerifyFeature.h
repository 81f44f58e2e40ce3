#pragma once
// Verification on request: by a client's command, or by a cookie in the state database.

#include "Qon/include/framework/VerifyAgentSm.h"
#include "agent/AgentFeature.h"

namespace QonAgent {

class VerifyFeature : public AgentFeature {
 public:
   explicit VerifyFeature( Agent & agent );
   ~VerifyFeature() override;

 private:
   Agent & agent_;
   const Velto::Ptr< Qon::VerifyAgentSm > sm_;
};

} // namespace QonAgent
