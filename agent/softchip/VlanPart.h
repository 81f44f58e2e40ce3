#pragma once
// VLANs in the chip in software.

#include "agent/softchip/Part.h"
#include "agent/softchip/SoftVlanHelper.h"
#include "chip/VlanPart.h"

namespace SoftChip {

class VlanPart : public QonChip::VlanPart {
 public:
   using Seam = QonChip::VlanPart;
   explicit VlanPart( const Board & board ) : table_( board.faults ) {}

   Velto::Ptr< Qon::VlanHelper >
   makeVlanHelper( const Velto::Ptr< Qon::QonCommonSmData > & acsd ) override;
   std::optional< QonChip::HeldVlans > vlans() const override;
   std::unique_ptr< QonChip::VlanReading > readVlans() const override;

   VlanTable & table() { return table_; }
   const VlanTable & table() const { return table_; }
   void latencyIs( Kiv::Seconds latency ) { table_.completions().latencyIs( latency ); }

 private:
   VlanTable table_;
};

} // namespace SoftChip
