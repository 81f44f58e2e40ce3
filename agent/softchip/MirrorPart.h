#pragma once
// Mirror sessions in the chip in software.

#include "agent/softchip/Part.h"
#include "agent/softchip/SoftMirroringHelper.h"
#include "chip/MirrorPart.h"

namespace SoftChip {

class MirrorPart : public QonChip::MirrorPart {
 public:
   using Seam = QonChip::MirrorPart;
   explicit MirrorPart( const Board & board ) : table_( board.shape.mirrors, board.faults ) {}

   Velto::Ptr< Qon::MirroringSmHelper >
   makeMirroringHelper( const Velto::Ptr< Mirroring::HwCapability > & capability,
                        const Velto::Ptr< Mirroring::HwStatus > & status ) override {
      return Velto::make< SoftMirroringHelper >( table_, capability, status );
   }
   std::optional< QonChip::HeldMirrors > mirrors() const override;

   MirrorTable & table() { return table_; }
   const MirrorTable & table() const { return table_; }
   void latencyIs( Kiv::Seconds latency ) { table_.completions().latencyIs( latency ); }

 private:
   MirrorTable table_;
};

} // namespace SoftChip
