// What can be simulated, in the order in which the agent creates it.

#include "tests/simulation/SimDamage.h"
#include "tests/simulation/SimHostTable.h"
#include "tests/simulation/SimLag.h"
#include "tests/simulation/SimMac.h"
#include "tests/simulation/SimMode.h"
#include "tests/simulation/SimTopology.h"
#include "tests/simulation/SimVerify.h"
#include "tests/simulation/SimVlan.h"
#include "tests/simulation/World.h"

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
