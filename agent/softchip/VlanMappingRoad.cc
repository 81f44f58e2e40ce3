// VLAN translations on the road of a frame: into which VLAN it comes, and with which tag it leaves.

#include "agent/softchip/Chip.h"
#include "agent/softchip/Stages.h"
#include "agent/softchip/VlanMappingPart.h"

namespace SoftChip {

namespace {

using Direction = Bridging::VlanMappingDirection;
using Bridging::VlanIdOrNone;

/** What becomes of a tag, or of having none, at a port; none: nothing. */
VlanIdOrNone
translated( const Chip & chip, Direction d, IntfId port, VlanIdOrNone tag ) {
   auto & table = chip.of< VlanMappingPart >().table();
   if ( !tag.isNone() ) {
      const auto to = table.mapping( d, { port, tag.value(), 0 } );
      return VlanIdOrNone( to ? to->vlanId() : 0 );
   }
   for ( auto && [key, mapping] : table.entries( d ) ) {
      if ( key.portId() == port && Qon::isNative( key.key() ) ) {
         return VlanIdOrNone( mapping.vlanId() );
      }
   }
   return {};
}

String
said( VlanIdOrNone from, VlanIdOrNone to ) {
   return to.isNone()     ? ""
          : from.isNone() ? "none -> " + to.stringValue()
                          : from.stringValue() + " -> " + to.stringValue();
}

} // namespace

Verdict
passVlanMapping( const Chip & chip, Travel & travel ) {
   const VlanIdOrNone to = translated( chip, Direction::ingress, travel.frame.port, travel.vlan );
   const String what = said( travel.vlan, to );
   if ( !to.isNone() ) {
      travel.vlan = to;
   }
   return { true, what };
}

Verdict
passVlanMappingOut( const Chip & chip, const Travel &, Way & way ) {
   const VlanIdOrNone to = translated( chip, Direction::egress, way.copy.port, way.copy.tag );
   const String what = said( way.copy.tag, to );
   if ( !to.isNone() ) {
      way.copy.tag = to;
   }
   return { true, what };
}

} // namespace SoftChip
