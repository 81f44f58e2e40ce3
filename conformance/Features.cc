// The features that the kit knows: a line each, its namespace, in which it defines `feature`.

// clang-format off
#define FEATURES( one ) \
   one( Hook )          \
   one( Mac )           \
   one( Vlan )          \
   one( Topology )      \
   one( Lag )
// clang-format on

#include "conformance/Feature.h"

namespace QonConformance {

#define DECLARE( name )                                                                            \
   namespace name {                                                                                \
   extern const Feature feature;                                                                   \
   }
#define ENTRY( name ) &name::feature,

FEATURES( DECLARE )

std::span< const Feature * const >
features() {
   static constexpr const Feature * all[] = { FEATURES( ENTRY ) };
   return all;
}

} // namespace QonConformance
