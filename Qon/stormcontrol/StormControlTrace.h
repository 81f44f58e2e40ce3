#pragma once
// The trace facilities of the modules of storm control.

#include "Qon/include/framework/QonTraceHandles.h"

namespace Qon {

extern Flintlog::Facility stormControlFacility;

} // namespace Qon
