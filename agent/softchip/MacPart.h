#pragma once
// MAC addresses in the chip in software: the host table, and the programmer that feeds it.

#include "agent/softchip/Part.h"
#include "agent/softchip/SoftMacProgrammer.h"
#include "chip/MacPart.h"

namespace SoftChip {

class MacPart : public QonChip::MacPart {
 public:
   using Seam = QonChip::MacPart;
   explicit MacPart( const Board & board );

   Velto::Ptr< Qon::QonMacProgrammer > makeProgrammer() override;
   std::optional< QonChip::HeldHosts > hosts() const override;
   std::unique_ptr< QonChip::HostReading > readHosts() const override;
   U32 hostsToFill() const override { return 4 * table_->shape().buckets * table_->shape().width; }

   HostTable & table() { return *table_; }
   const HostTable & table() const { return *table_; }
   /** How long a command takes is the table's shape. */
   void latencyIs( Kiv::Seconds ) {}

 private:
   Kiv::TimerWheel * const wheel_;
   const Velto::Ptr< HostTable > table_;
};

} // namespace SoftChip
