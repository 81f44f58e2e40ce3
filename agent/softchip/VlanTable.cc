#include "agent/softchip/VlanTable.h"

#include "Qon/include/framework/VerifyData.h"

namespace SoftChip {

std::vector< VlanPort >
SoftVlanHelper::wanted( VlanId vlan ) const {
   std::vector< VlanPort > ports;
   forEachHwPort( vlan, [&]( IntfId intf, Qon::VlanMembership how ) {
      ports.push_back( { intf, how } );
   } );
   return ports;
}

void
SoftVlanHelper::doUpdateVlan( VlanId vlan ) {
   *underWay_.emplace( vlan ).first = wanted( vlan );
   const auto trouble = plan_.next( "doUpdateVlan" );
   if ( trouble != Trouble::lose ) {
      completions_.add( [this, vlan, fails = bool( trouble )] { done( vlan, fails ); } );
   }
}

void
SoftVlanHelper::done( VlanId vlan, bool fails ) {
   auto taken = underWay_.take( vlan );
   auto entry = table_.find( vlan );
   if ( entry && taken && !fails ) {
      *entry = std::move( *taken );
      ++writes_;
   }
   updateVlanDone( vlan, fails ? Qon::VlanProgrammingStatus::failed
                               : Qon::VlanProgrammingStatus::success );
}

void
SoftVlanHelper::verify() {
   auto same = []( const VlanPort & a, const VlanPort & b ) {
      return a.intf == b.intf && a.how == b.how;
   };
   for ( auto && [vlan, held] : table_ ) {
      const auto state = updateState( vlan );
      const auto ports = wanted( vlan );
      if ( state.requested == state.completed && verifyData_ &&
           !std::equal( held.begin(), held.end(), ports.begin(), ports.end(), same ) ) {
         QON_FINDING( verifyData_, "VLAN " + vlan.stringValue() + " differs in the chip" );
      }
   }
}

std::vector< VlanId >
SoftVlanHelper::vlans() const {
   std::vector< VlanId > all;
   for ( auto && [vlan, ports] : table_ ) {
      all.push_back( vlan );
   }
   return all;
}

const std::vector< VlanPort > &
SoftVlanHelper::ports( VlanId vlan ) const {
   static const std::vector< VlanPort > none;
   auto entry = table_.find( vlan );
   return entry ? *entry : none;
}

bool
SoftVlanHelper::has( VlanId vlan, IntfId intf ) const {
   for ( auto & port : ports( vlan ) ) {
      if ( port.intf == intf ) {
         return true;
      }
   }
   return false;
}

} // namespace SoftChip
