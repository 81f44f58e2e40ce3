#include "agent/softchip/VlanPart.h"

#include "agent/softchip/Chip.h"

namespace SoftChip {

Velto::Ptr< Qon::VlanHelper >
VlanPart::makeVlanHelper( const Velto::Ptr< Qon::QonCommonSmData > & acsd ) {
   auto helper = Velto::make< SoftVlanHelper >( "vlanHelper", acsd.ptr(), table_ );
   helper->verifyDataIs( acsd->verifyData() );
   return helper;
}

namespace {

constexpr U16 lastVlan = 4094;

/** By number. */
class VlanTableReader : public QonChip::VlanReading {
 public:
   explicit VlanTableReader( const VlanTable & table ) : table_( table ) {}
   bool next( U16 & vlan, QonChip::HeldVlan & held ) override {
      for ( held.clear(); held.empty() && last_ < lastVlan; ) {
         held = at( ++last_ );
      }
      vlan = last_;
      return !held.empty();
   }
   QonChip::HeldVlan at( const U16 & vlan ) const override {
      QonChip::HeldVlan held;
      for ( auto & port : table_.ports( VlanId( vlan ) ) ) {
         held[port.intf] = port.how;
      }
      return held;
   }

 private:
   const VlanTable & table_;
   U16 last_ = 0;
};

} // namespace

std::unique_ptr< QonChip::VlanReading >
VlanPart::readVlans() const {
   return std::make_unique< VlanTableReader >( table_ );
}

std::optional< QonChip::HeldVlans >
VlanPart::vlans() const {
   QonChip::HeldVlans held;
   U16 vlan;
   QonChip::HeldVlan ports;
   for ( VlanTableReader reader( table_ ); reader.next( vlan, ports ); ) {
      held[vlan] = ports;
   }
   return held;
}

void
addVlanPart( Chip & chip ) {
   chip.addPart< VlanPart >();
}

} // namespace SoftChip
