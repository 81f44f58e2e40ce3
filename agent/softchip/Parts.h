#pragma once
// The parts of the chip in software: a line a feature.

#include "agent/softchip/LagPart.h"
#include "agent/softchip/MacPart.h"
#include "agent/softchip/MirrorPart.h"
#include "agent/softchip/TopologyPart.h"
#include "agent/softchip/VlanPart.h"

namespace SoftChip {

template< class... Part >
struct PartList {};

using Parts = PartList< //
      MacPart,          //
      VlanPart,         //
      TopologyPart,     //
      LagPart,          //
      MirrorPart >;

} // namespace SoftChip
