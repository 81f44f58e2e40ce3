// The list of features: a line each. Any order comes to the same end.

// clang-format off
#define FEATURES( one )    \
   one( faultFeature )     \
   one( portsFeature )     \
   one( lagFeature )       \
   one( vlanFeature )      \
   one( topologyFeature )  \
   one( macFeature )       \
   one( stormControlFeature ) \
   one( vlanMappingFeature ) \
   one( mirrorFeature )    \
   one( multicastFeature ) \
   one( tapAggFeature )    \
   one( aclFeature )       \
   one( fibFeature )       \
   one( verifyFeature )
// clang-format on

#include "agent/AgentFeature.h"

namespace QonAgent {

#define DECLARE( name ) FeatureKind name();
#define ENTRY( name ) name(),

FEATURES( DECLARE )

Features
agentFeatures() {
   return { FEATURES( ENTRY ) };
}

} // namespace QonAgent
