#include "agent/softchip/MulticastPart.h"

#include "agent/softchip/Chip.h"
#include "agent/softchip/MacPart.h"

namespace SoftChip {

void
addMulticastPart( Chip & chip ) {
   chip.addPart< MulticastPart >();
   chip.of< MulticastPart >().table().hostsAre( chip.of< MacPart >().table() );
}

} // namespace SoftChip
