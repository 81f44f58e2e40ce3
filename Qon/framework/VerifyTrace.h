#pragma once
// The trace facility of the module QonVerifySm, whose sources are several.

#include "Qon/include/framework/QonTraceHandles.h"

namespace Qon {

extern Flintlog::Facility verifyFacility;

} // namespace Qon
