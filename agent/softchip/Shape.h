#pragma once
// What kind of chip the chip in software is, and how large: the sizes of all its tables.

#include "agent/softchip/AclTable.h"
#include "agent/softchip/AdjacencyTable.h"
#include "agent/softchip/ChipKind.h"
#include "agent/softchip/HostTable.h"
#include "agent/softchip/LagTable.h"
#include "agent/softchip/MirrorTable.h"
#include "agent/softchip/MulticastTable.h"
#include "agent/softchip/StormTable.h"
#include "agent/softchip/TapAggTable.h"
#include "agent/softchip/VlanMappingTable.h"

namespace SoftChip {

struct Shape {
   ChipKind kind = ChipKind::topology;
   HostTableShape hosts = {};
   U32 topologies = 4096; ///< without any on a chip that keeps forwarding per VLAN
   LagLimits lags = {};
   StormShape storm = {};
   VlanMappingShape vlanMapping = {};
   MirrorLimits mirrors = {};
   MulticastLimits multicast = {};
   TapAggLimits tapAgg = {};
   AclLimits acls = {};
   AdjacencyLimits adjacencies = {};
   Kiv::Seconds latency = 0; ///< see Chip::latencyIs()
};

} // namespace SoftChip
