#pragma once
// VRFs as the forwarding tables number them.

#include "platform/types/Number.h"

namespace Qon {

/** Numbers a VRF; 0 is the default one. */
using VrfId = Kiv::Number< struct VrfIdTag, U32 >;

} // namespace Qon
