#pragma once
// The trace facility of the topology module.

#include "Qon/include/framework/QonTraceHandles.h"

namespace Qon {

extern Flintlog::Facility stpFacility;

} // namespace Qon

#define STP_TRACE( ... ) QON_TRACE( ::Qon::stpFacility, 5, __VA_ARGS__ )
