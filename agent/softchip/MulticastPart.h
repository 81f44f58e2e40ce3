#pragma once
// Layer-2 multicast in the chip in software.

#include "agent/softchip/Part.h"
#include "agent/softchip/SoftMulticast.h"
#include "chip/MulticastPart.h"

namespace SoftChip {

class MulticastPart : public QonChip::MulticastPart {
 public:
   using Seam = QonChip::MulticastPart;
   explicit MulticastPart( const Board & board ) : table_( board.shape.multicast, board.faults ) {}

   Velto::Ptr< Qon::MulticastDataFactory > makeMulticastDataFactory() override {
      return Velto::make< SoftMulticastFactory >( table_ );
   }
   Velto::Ptr< Qon::MulticastCopyUpdater > makeMulticastCopyUpdater(
         const Velto::Ptr< const Bridging::Multicast::CopyRequestConfig > & config ) override {
      return Qon::smIs< SoftMulticastCopyUpdater >( table_, config );
   }
   std::optional< QonChip::HeldMulticast > multicast() const override {
      return QonChip::HeldMulticast{ table_.groups(), table_.macEntries(), table_.linkLocalCopied,
                                     table_.igmpTaken };
   }
   std::unique_ptr< QonChip::MulticastReading > readMulticast() const override;
   U32 multicastGroupsToFill() const override { return table_.groupsAtMost(); }

   MulticastTable & table() { return table_; }
   const MulticastTable & table() const { return table_; }
   /** Groups are written at once. */
   void latencyIs( Kiv::Seconds ) {}

 private:
   MulticastTable table_;
};

} // namespace SoftChip
