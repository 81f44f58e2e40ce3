#include "agent/softchip/VlanTable.h"

namespace SoftChip {

void
VlanTable::update( VlanId vlan, VlanPorts ports ) {
   const auto trouble = plan_.next( "doUpdateVlan" );
   if ( trouble == Trouble::lose ) {
      return;
   }
   completions_.add(
         [this, vlan, ports = std::move( ports ), fails = bool( trouble ), ticket = hook.ticket()] {
            auto entry = table_.find( vlan );
            if ( entry && !fails ) {
               *entry = ports;
               ++writes_;
            }
            if ( auto hearer = hook.of( ticket ) ) {
               hearer->updated( vlan, fails );
            }
         } );
}

void
VlanTable::reset() {
   completions_.finishAll();
   table_.clear();
}

std::vector< VlanId >
VlanTable::vlans() const {
   std::vector< VlanId > all;
   for ( auto && [vlan, ports] : table_ ) {
      all.push_back( vlan );
   }
   return all;
}

const VlanPorts &
VlanTable::ports( VlanId vlan ) const {
   static const VlanPorts none;
   auto entry = table_.find( vlan );
   return entry ? *entry : none;
}

Qon::VlanMembership
VlanTable::membership( VlanId vlan, IntfId intf ) const {
   for ( auto & port : ports( vlan ) ) {
      if ( port.intf == intf ) {
         return port.how;
      }
   }
   return {};
}

} // namespace SoftChip
