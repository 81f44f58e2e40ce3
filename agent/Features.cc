// The list of features: a line each. Any order comes to the same end.

#include "agent/AgentFeature.h"
#include "agent/features/FaultFeature.h"
#include "agent/features/LagFeature.h"
#include "agent/features/MacFeature.h"
#include "agent/features/PortsFeature.h"
#include "agent/features/TopologyFeature.h"
#include "agent/features/VerifyFeature.h"
#include "agent/features/VlanFeature.h"

namespace QonAgent {

Features
agentFeatures() {
   return {
         feature< FaultFeature >( "faults" ),
         feature< PortsFeature >( "ports" ),
         feature< LagFeature >( "lag", LagFeature::options() ),
         feature< VlanFeature >( "vlan" ),
         feature< TopologyFeature >( "topology" ),
         feature< MacFeature >( "mac" ),
         feature< VerifyFeature >( "verify" ),
   };
}

} // namespace QonAgent
