#include "agent/SoftChips.h"

#include "agent/softchip/Chip.h"

namespace QonAgent {

Chips
softChips() {
   Chips chips;
   for ( auto kind : { SoftChip::ChipKind::topology, SoftChip::ChipKind::vlan } ) {
      SoftChip::Shape shape;
      shape.kind = kind;
      chips.push_back( { Kiv::toText( kind ), SoftChip::makeChip( shape ) } );
   }
   return chips;
}

} // namespace QonAgent
