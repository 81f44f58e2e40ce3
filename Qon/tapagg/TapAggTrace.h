#pragma once
// What the sources of the module have in common.

#include "Qon/include/framework/HookTap.h"
#include "Qon/include/framework/QonLog.h"
#include "Qon/include/framework/QonTraceHandles.h"
#include "Qon/include/tapagg/QonTapaggSm.h"

namespace Qon {

extern Flintlog::Facility tapAggFacility;

} // namespace Qon
