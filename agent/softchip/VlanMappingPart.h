#pragma once
// VLAN mapping in the chip in software.

#include "agent/softchip/Part.h"
#include "agent/softchip/SoftVlanMapping.h"

namespace SoftChip {

class VlanMappingPart : public QonChip::VlanMappingPart {
 public:
   using Seam = QonChip::VlanMappingPart;
   explicit VlanMappingPart( const Board & board )
       : table_( board.shape.vlanMapping, board.faults ) {}

   Velto::Ptr< Qon::VlanMappingSm > makeVlanMappingSm( Qon::VlanMappingSm::Inputs inputs,
                                                       const Statuses & statuses ) override;
   Velto::Ptr< Velto::Node >
   makePlatformFollower( const Velto::Ptr< const Qon::PlatformVlanMappingConfig > & config,
                         const Velto::Ptr< Qon::PlatformVlanMappingStatus > & status ) override;
   std::optional< QonChip::HeldTranslations > translations() const override;

   VlanMappingTable & table() { return table_; }
   const VlanMappingTable & table() const { return table_; }
   void latencyIs( Kiv::Seconds latency ) { table_.completions().latencyIs( latency ); }

 private:
   VlanMappingTable table_;
};

} // namespace SoftChip
