#pragma once
// The trace facility of module QonLagSm, whose sources are several.

#include "platform/Flintlog/Trace.h"

namespace Qon {

extern Flintlog::Facility lagSmTrace;

} // namespace Qon
