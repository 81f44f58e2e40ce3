// What can be simulated, in the order in which it is created: a line each.

// clang-format off
#define FEATURES( one ) \
   one( simTime )       \
   one( simVerify )     \
   one( simLag )        \
   one( simMlag )       \
   one( simMac )        \
   one( simHostTable )  \
   one( simVlan )       \
   one( simMode )       \
   one( simTopology )   \
   one( simStorm )      \
   one( simVlanMapping ) \
   one( simMirror )     \
   one( simMulticast )  \
   one( simTapAgg )     \
   one( simAcl )        \
   one( simFib )        \
   one( simFrames )     \
   one( simDamage )
// clang-format on

#include "simulation/Event.h"

namespace Sim {

#define DECLARE( name ) FeatureKind name();
#define ENTRY( name ) name(),

FEATURES( DECLARE )

std::span< const FeatureKind >
featureKinds() {
   static const FeatureKind kinds[] = { FEATURES( ENTRY ) };
   return kinds;
}

} // namespace Sim
