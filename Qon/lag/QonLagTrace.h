#pragma once
// The trace facility of the module QonLagSm, whose sources are several.

#include "platform/Flintlog/Trace.h"

namespace Qon {

extern Flintlog::Facility lagFacility;

} // namespace Qon
