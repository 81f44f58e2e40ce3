#pragma once
// The trace facility of the access list state machines.

#include "Qon/include/framework/QonTraceHandles.h"

namespace Qon {

extern Flintlog::Facility aclFacility;

} // namespace Qon
