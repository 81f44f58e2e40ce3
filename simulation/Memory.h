#pragma once
// How much memory is held: allocations of operator new that were not given back. The programs of
// this folder replace operator new to count.

#include "platform/Velto/Types.h"

namespace Sim {

/** Allocations that live now. */
S64 liveAllocations();

} // namespace Sim
