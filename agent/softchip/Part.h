#pragma once
// What all parts of the chip in software are made of.
//
//    Chip -> Board: scheduler, fault plan, shape -> each part of Parts.cc, with its tables
//
// A part is made over the board and stands in the chip under the seam's interface, Seam, and under
// its own class.

#include "agent/softchip/FaultPlan.h"
#include "agent/softchip/Shape.h"
#include "platform/Kiv/TaskScheduler.h"

namespace SoftChip {

/** What the parts of one chip share; outlives them. */
struct Board {
   Kiv::TaskScheduler & scheduler;
   FaultPlan & faults;
   Shape shape;
};

} // namespace SoftChip
