#include "agent/softchip/AclPart.h"

#include "agent/softchip/Chip.h"

namespace SoftChip {

void
addAclPart( Chip & chip ) {
   chip.addPart< AclPart >();
}

} // namespace SoftChip
