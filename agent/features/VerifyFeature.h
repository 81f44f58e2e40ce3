#pragma once
// Verification on request: by a client's command, or by a cookie in the state database.

#include "Qon/include/framework/VerifyAgentSm.h"
#include "agent/AgentFeature.h"

namespace QonAgent {

class VerifyFeature : public AgentFeature {
 public:
   const char * name() const override { return "verify"; }
   void create( Agent & agent ) override;
   void destroy() override;

 private:
   Agent * agent_ = nullptr;
   Velto::Ptr< Qon::VerifyAgentSm > sm_;
};

} // namespace QonAgent
