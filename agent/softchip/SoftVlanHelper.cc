#include "agent/softchip/SoftVlanHelper.h"

#include "Qon/include/framework/VerifyData.h"

namespace SoftChip {

SoftVlanHelper::SoftVlanHelper( const String & name, const Qon::QonCommonSmData * acsd,
                                VlanTable & table )
    : VlanHelper( name, acsd ), table_( table ) {
   table_.hook.is( this );
}

SoftVlanHelper::~SoftVlanHelper() {
   table_.hook.is( nullptr );
}

VlanPorts
SoftVlanHelper::wanted( VlanId vlan ) const {
   VlanPorts ports;
   forEachHwPort( vlan, [&]( IntfId intf, Qon::VlanMembership how ) {
      ports.push_back( { intf, how } );
   } );
   return ports;
}

void
SoftVlanHelper::updated( VlanId vlan, bool fails ) {
   updateVlanDone( vlan, fails ? Qon::VlanProgrammingStatus::failed
                               : Qon::VlanProgrammingStatus::success );
}

void
SoftVlanHelper::verify() {
   for ( VlanId vlan : table_.vlans() ) {
      const auto state = updateState( vlan );
      if ( state.requested == state.completed && verifyData_ &&
           table_.ports( vlan ) != wanted( vlan ) ) {
         QON_FINDING( verifyData_, "VLAN " + vlan.stringValue() + " differs in the chip" );
      }
   }
}

} // namespace SoftChip
