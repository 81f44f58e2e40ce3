#include "Qon/include/framework/VlanHelperBase.h"

#include "Qon/include/framework/HookTap.h"

namespace Qon {

U64
VlanHelperBase::requestPortVlanMembershipChange( PortVlanMembershipChangeKind kind,
                                                 Ulnet::IntfId port, Bridging::VlanId vlan,
                                                 bool tagged, bool ingress, bool egress ) {
   if ( kind != PortVlanMembershipChangeKind::setOverride ) {
      // fixed text
      qonAssert( "Call to non-overriden function VlanHelper::requestPortVlanMembershipChange "
                 "whose base implementation only supports "
                 "PortVlanMembershipChangeKind::setOverride_" );
   }
   if ( ingress || egress ) {
      QON_HOOK( VlanHelper, this, doAddPortToVlan, port, vlan, tagged, ingress, egress );
   } else {
      QON_HOOK( VlanHelper, this, doRemovePortFromVlan, port, vlan );
   }
   return 0;
}

} // namespace Qon
