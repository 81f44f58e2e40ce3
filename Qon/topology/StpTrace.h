#pragma once
// The trace facility of the module QonStpSm, whose sources are several.

#include "Qon/include/framework/QonTraceHandles.h"

namespace Qon {

extern Flintlog::Facility stpFacility;

} // namespace Qon

// fixed text, whatever is traced with it
#define STP_TRACE( ... ) QON_TRACE( ::Qon::stpFacility, 5, __VA_ARGS__ )
