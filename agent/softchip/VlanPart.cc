#include "agent/softchip/VlanPart.h"

#include "agent/softchip/Chip.h"

namespace SoftChip {

Velto::Ptr< Qon::VlanHelper >
VlanPart::makeVlanHelper( const Velto::Ptr< Qon::QonCommonSmData > & acsd ) {
   auto helper = Velto::make< SoftVlanHelper >( "vlanHelper", acsd.ptr(), table_ );
   helper->verifyDataIs( acsd->verifyData() );
   return helper;
}

std::optional< QonChip::HeldVlans >
VlanPart::vlans() const {
   QonChip::HeldVlans held;
   for ( VlanId vlan : table_.vlans() ) {
      for ( auto & port : table_.ports( vlan ) ) {
         held[vlan][port.intf] = port.how;
      }
   }
   return held;
}

void
addVlanPart( Chip & chip ) {
   chip.addPart< VlanPart >();
}

} // namespace SoftChip
