#pragma once
// The trace facility and levels of the module QonVerifySm, whose sources are several.

#include "Qon/include/framework/QonTraceHandles.h"

namespace Qon {

extern Flintlog::Facility verifyFacility;
constexpr int startLevel = 1;

} // namespace Qon
