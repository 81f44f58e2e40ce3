#pragma once
// Topologies in the chip in software; without tables if the chip keeps forwarding per VLAN.

#include "agent/softchip/Part.h"
#include "agent/softchip/SoftTopoHelper.h"
#include "chip/TopologyPart.h"

namespace SoftChip {

class TopologyPart : public QonChip::TopologyPart {
 public:
   using Seam = QonChip::TopologyPart;
   explicit TopologyPart( const Board & board )
       : tables_( board.shape.kind == ChipKind::topology ),
         table_( board.shape.topologies, board.faults ) {}

   Velto::Ptr< Qon::TopoHelper > makeTopoHelper() override;
   std::optional< QonChip::HeldTopologies > topologies() const override;

   /** Whether the chip has topology tables. */
   bool tables() const { return tables_; }
   TopoTable & table() { return table_; }
   const TopoTable & table() const { return table_; }
   void latencyIs( Kiv::Seconds latency ) { table_.completions().latencyIs( latency ); }

 private:
   const bool tables_;
   TopoTable table_;
};

} // namespace SoftChip
