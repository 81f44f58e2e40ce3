#pragma once
// Tap aggregation in the chip in software.

#include "agent/softchip/Part.h"
#include "agent/softchip/SoftTapAggHelper.h"

namespace SoftChip {

class TapAggPart : public QonChip::TapAggPart {
 public:
   using Seam = QonChip::TapAggPart;
   explicit TapAggPart( const Board & board ) : table_( board.shape.tapAgg, board.faults ) {}

   Velto::Ptr< Qon::TapAggHelper > makeTapAggHelper() override {
      return Velto::make< SoftTapAggHelper >( table_ );
   }
   std::optional< QonChip::HeldTapAgg > tapAgg() const override { return table_.held(); }

   TapAggTable & table() { return table_; }
   const TapAggTable & table() const { return table_; }
   void latencyIs( Kiv::Seconds ) {} // everything is done at once

 private:
   TapAggTable table_;
};

} // namespace SoftChip
