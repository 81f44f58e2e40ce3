// What can be simulated, in the order in which the agent creates it.

#include "simulation/SimDamage.h"
#include "simulation/SimHostTable.h"
#include "simulation/SimLag.h"
#include "simulation/SimMac.h"
#include "simulation/SimMode.h"
#include "simulation/SimTopology.h"
#include "simulation/SimVerify.h"
#include "simulation/SimVlan.h"
#include "simulation/World.h"

namespace Sim {

std::span< const FeatureKind >
featureKinds() {
   static const FeatureKind kinds[] = {
         { "world", World::operations(), nullptr },
         { "verify", SimVerify::operations(), makeFeature< SimVerify > },
         { "lag", SimLag::operations(), makeFeature< SimLag > },
         { "mlag", SimMlag::operations(), makeFeature< SimMlag > },
         { "mac", SimMac::operations(), makeFeature< SimMac > },
         { "hosts", SimHostTable::operations(), makeFeature< SimHostTable > },
         { "vlan", SimVlan::operations(), makeFeature< SimVlan > },
         { "mode", SimMode::operations(), makeFeature< SimMode > },
         { "topology", SimTopology::operations(), makeFeature< SimTopology > },
         { "damage", SimDamage::operations(), makeFeature< SimDamage > },
   };
   return kinds;
}

} // namespace Sim
