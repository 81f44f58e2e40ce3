// What can be simulated, in the order in which the agent creates it.

#include "simulation/SimDamage.h"
#include "simulation/SimHostTable.h"
#include "simulation/SimLag.h"
#include "simulation/SimMac.h"
#include "simulation/SimMirror.h"
#include "simulation/SimMlag.h"
#include "simulation/SimMode.h"
#include "simulation/SimTime.h"
#include "simulation/SimTopology.h"
#include "simulation/SimVerify.h"
#include "simulation/SimVlan.h"

namespace Sim {

namespace {

template< class Feature >
FeatureKind
kindOf( const char * name ) {
   FeatureKind kind{ name, Feature::operations(),
                     []( World & world ) -> std::unique_ptr< SimFeature > {
                        return std::make_unique< Feature >( world );
                     },
                     nullptr };
   if constexpr ( requires { &Feature::shape; } ) {
      kind.shape = &Feature::shape;
   }
   return kind;
}

} // namespace

std::span< const FeatureKind >
featureKinds() {
   static const FeatureKind kinds[] = {
         kindOf< SimTime >( "world" ),        kindOf< SimVerify >( "verify" ),
         kindOf< SimLag >( "lag" ),           kindOf< SimMlag >( "mlag" ),
         kindOf< SimMac >( "mac" ),           kindOf< SimHostTable >( "hosts" ),
         kindOf< SimVlan >( "vlan" ),         kindOf< SimMode >( "mode" ),
         kindOf< SimTopology >( "topology" ), kindOf< SimDamage >( "damage" ),
         kindOf< SimMirror >( "mirror" ),
   };
   return kinds;
}

} // namespace Sim
