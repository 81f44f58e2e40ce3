// VLANs on the road of a frame: which one it is in, and whether it leaves with a tag.

#include "agent/softchip/Chip.h"
#include "agent/softchip/Stages.h"
#include "agent/softchip/VlanPart.h"

namespace SoftChip {

namespace {

const VlanTable &
tableOf( const Chip & chip ) {
   return chip.of< VlanPart >().table();
}

/** The VLAN of frames without a tag; none if the port takes no such frames. */
Bridging::VlanIdOrNone
untaggedVlan( const VlanTable & table, IntfId port ) {
   for ( VlanId vlan : table.vlans() ) {
      const auto how = table.membership( vlan, port );
      if ( how.ingress && !how.tagged ) {
         return vlan;
      }
   }
   return {};
}

} // namespace

Verdict
passVlan( const Chip & chip, Travel & travel ) {
   const IntfId port = travel.frame.port;
   if ( travel.vlan().isNone() ) {
      travel.tags.outer = untaggedVlan( tableOf( chip ), port );
      return travel.vlan().isNone()
                   ? Verdict{ false, "no VLAN for frames without a tag: dropped" }
                   : Verdict{ true, travel.vlan().stringValue() + ", for frames without a tag" };
   }
   const VlanId vlan( travel.vlan().value() );
   const bool in = tableOf( chip ).membership( vlan, port ).ingress;
   return { in,
            vlan.stringValue() + ( in ? "" : ", without " + port.stringValue() + ": dropped" ) };
}

Verdict
passVlanOut( const Chip & chip, const Travel & travel, Way & way ) {
   const VlanId vlan( travel.vlan().value() );
   const auto how = tableOf( chip ).membership( vlan, way.copy.port );
   way.copy.tags = { how.tagged ? travel.vlan() : Bridging::VlanIdOrNone(), travel.tags.inner };
   return { how.egress, how.egress ? ""
                                   : way.copy.port.stringValue() + " is not in VLAN " +
                                           vlan.stringValue() + ": dropped" };
}

Verdict
passTag( const Chip &, const Travel &, Way & way ) {
   way.copy.tags = way.copy.tags.onTheWire();
   return { true, shown( way.copy.tags ) };
}

} // namespace SoftChip
