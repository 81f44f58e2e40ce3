// The features that the kit knows.

#include "conformance/Feature.h"

namespace QonConformance {

namespace Hook {
extern const Feature feature;
}
namespace Mac {
extern const Feature feature;
}
namespace Vlan {
extern const Feature feature;
}
namespace Topology {
extern const Feature feature;
}
namespace Lag {
extern const Feature feature;
}

std::span< const Feature * const >
features() {
   static constexpr const Feature * all[] = {
         &Hook::feature, &Mac::feature, &Vlan::feature, &Topology::feature, &Lag::feature,
   };
   return all;
}

} // namespace QonConformance
