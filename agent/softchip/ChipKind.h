#pragma once
// The two kinds of chip that the software chip can be.

#include "platform/Kiv/Text.h"

namespace SoftChip {

/** Where the chip keeps the states of ports. */
enum class ChipKind : U8 {
   topology, ///< in topology tables: a VLAN points to a topology
   vlan,     ///< in each VLAN
};
KIV_ENUM( ChipKind, topology, vlan )

} // namespace SoftChip
