// The list of features. A feature stands behind those whose shared attributes it reads, though any
// order must come to the same end.

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
agentFeatures( SoftChip::ChipKind chip ) {
   Features all;
   all.push_back( std::make_unique< FaultFeature >() );
   all.push_back( std::make_unique< PortsFeature >() );
   all.push_back( std::make_unique< LagFeature >() );
   all.push_back( std::make_unique< VlanFeature >() );
   all.push_back( std::make_unique< TopologyFeature >( chip ) );
   all.push_back( std::make_unique< MacFeature >() );
   all.push_back( std::make_unique< VerifyFeature >() );
   return all;
}

} // namespace QonAgent
