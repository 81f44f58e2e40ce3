#include "agent/softchip/VlanMappingPart.h"

#include "agent/softchip/Chip.h"

namespace SoftChip {

Velto::Ptr< Qon::VlanMappingSm >
VlanMappingPart::makeVlanMappingSm( Qon::VlanMappingSm::Inputs inputs, const Statuses & statuses ) {
   return Qon::smIs< SoftVlanMappingSm >( std::move( inputs ), statuses, table_ );
}

Velto::Ptr< Velto::Node >
VlanMappingPart::makePlatformFollower(
      const Velto::Ptr< const Qon::PlatformVlanMappingConfig > & config,
      const Velto::Ptr< Qon::PlatformVlanMappingStatus > & status ) {
   auto follower = Velto::make< PlatformFollower >( config, status, table_ );
   follower->hasNotificationActiveIs( true );
   follower->begin();
   return follower;
}

std::optional< QonChip::HeldTranslations >
VlanMappingPart::translations() const {
   QonChip::HeldTranslations held;
   for ( auto d : Bridging::vlanMappingDirections ) {
      for ( auto && [key, mapping] : table_.entries( d ) ) {
         held[{ d, key }] = mapping;
      }
   }
   return held;
}

void
addVlanMappingPart( Chip & chip ) {
   chip.addPart< VlanMappingPart >();
}

} // namespace SoftChip
