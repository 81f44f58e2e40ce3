#pragma once
// Topologies in the chip in software; without tables if the chip keeps forwarding per VLAN.

#include <memory>

#include "agent/softchip/Part.h"
#include "agent/softchip/SoftTopoHelper.h"
#include "chip/TopologyPart.h"

namespace SoftChip {

/** The frames of spanning tree that the processor takes. */
struct BpduTrapping {
   bool bpdu = false;
   bool perVlan = false; ///< those that speak of one VLAN
   bool operator==( const BpduTrapping & ) const = default;
};

class TopologyPart : public QonChip::TopologyPart {
 public:
   using Seam = QonChip::TopologyPart;
   explicit TopologyPart( const Board & board )
       : tables_( board.shape.kind == ChipKind::topology ), board_( board ) {
      reset();
   }

   Velto::Ptr< Qon::TopoHelper > makeTopoHelper() override;
   Velto::Ptr< Qon::StpSm >
   makeStpSm( const Velto::Ptr< Qon::QonCommonSmData > & acsd,
              const Velto::Ptr< const Bridging::Topology::Config > & config,
              const Velto::Ptr< Bridging::Topology::Inst::Status > & status,
              const Velto::Ptr< Qon::TopoHelper > & helper ) override;
   std::optional< bool > forwards( U16 vlan, IntfId intf ) const override {
      return tables_ ? std::optional( table_->forwards( vlan, intf ) ) : std::nullopt;
   }
   std::optional< QonChip::HeldTopologies > topologies() const override;
   std::unique_ptr< QonChip::TopologyReading > readTopologies() const override;

   /** Whether the chip has topology tables. */
   bool tables() const { return tables_; }
   TopoTable & table() { return *table_; }
   const TopoTable & table() const { return *table_; }
   const BpduTrapping & bpduTrapping() const { return bpduTrapping_; }
   void bpduTrappingIs( const BpduTrapping & trapping ) { bpduTrapping_ = trapping; }
   void latencyIs( Kiv::Seconds latency ) { table_->completions().latencyIs( latency ); }
   /** The tables as after a reset of the chip: empty, and nothing on its way. While no hook object
       lives. */
   void reset() {
      table_ = std::make_unique< TopoTable >( board_.shape.topologies, board_.faults );
   }

 private:
   const bool tables_;
   const Board & board_;
   BpduTrapping bpduTrapping_;
   std::unique_ptr< TopoTable > table_;
};

} // namespace SoftChip
