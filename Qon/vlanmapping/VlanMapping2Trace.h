#pragma once
// The trace facility and the messages of the module QonVlanMappingSm2, whose sources are several.

#include "Qon/include/framework/QonTraceHandles.h"
#include "Qon/vlanmapping/VlanMappingLog.h"
#include "platform/Flintlog/Trace.h"

namespace Qon::VlanMapping {

extern Flintlog::Facility facility;
extern VlanMappingLog messages;

} // namespace Qon::VlanMapping
