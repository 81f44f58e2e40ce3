// The parts of the chip in software: a line a feature.

// clang-format off
#define PARTS( one )     \
   one( addMacPart )      \
   one( addVlanPart )     \
   one( addTopologyPart ) \
   one( addVlanMappingPart ) \
   one( addLagPart )      \
   one( addStormControlPart ) \
   one( addMirrorPart ) \
   one( addMulticastPart ) \
   one( addTapAggPart ) \
   one( addAclPart ) \
   one( addAdjacencyPart )
// clang-format on

#include "agent/softchip/Chip.h"

namespace SoftChip {

#define DECLARE( name ) void name( Chip & chip );
#define CALL( name ) name( *this );

PARTS( DECLARE )

void
Chip::addParts() {
   PARTS( CALL )
}

} // namespace SoftChip
