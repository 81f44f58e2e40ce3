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
   if ( travel.vlan.isNone() ) {
      travel.vlan = untaggedVlan( tableOf( chip ), port );
      return travel.vlan.isNone()
                   ? Verdict{ false, "no VLAN for frames without a tag: dropped" }
                   : Verdict{ true, travel.vlan.stringValue() + ", for frames without a tag" };
   }
   const VlanId vlan( travel.vlan.value() );
   const bool in = tableOf( chip ).membership( vlan, port ).ingress;
   return { in,
            vlan.stringValue() + ( in ? "" : ", without " + port.stringValue() + ": dropped" ) };
}

Verdict
passVlanOut( const Chip & chip, const Travel & travel, Way & way ) {
   const VlanId vlan( travel.vlan.value() );
   const auto how = tableOf( chip ).membership( vlan, way.copy.port );
   if ( !how.egress ) {
      return { false, way.copy.port.stringValue() + " is not in VLAN " + vlan.stringValue() +
                            ": dropped" };
   }
   if ( how.tagged ) {
      way.copy.tag = vlan;
   }
   return { true, how.tagged ? "tag " + vlan.stringValue() : String( "without a tag" ) };
}

} // namespace SoftChip
