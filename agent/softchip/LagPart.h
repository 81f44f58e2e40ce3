#pragma once
// Link aggregation in the chip in software: the groups, and the programmer that follows what is
// configured.

#include "agent/softchip/Part.h"
#include "agent/softchip/SoftLagProgrammer.h"
#include "chip/LagPart.h"

namespace SoftChip {

class LagPart : public QonChip::LagPart {
 public:
   using Seam = QonChip::LagPart;
   explicit LagPart( const Board & board ) : table_( board.faults, board.shape.lags ) {}
   ~LagPart() override;

   Velto::Ptr< Velto::Node >
   makeProgrammer( const Velto::Ptr< const Hardware::Lag::Config > & config,
                   const Velto::Ptr< Hardware::Lag::Status > & status ) override;
   std::optional< QonChip::HeldGroups > groups() const override;

   LagTable & table() { return table_; }
   const LagTable & table() const { return table_; }
   /** The programmer that lives; null for none. */
   SoftLagProgrammer * programmer() const { return programmer_; }
   void latencyIs( Kiv::Seconds latency );

 private:
   class Programmer;

   LagTable table_;
   Kiv::Seconds latency_ = 0;
   SoftLagProgrammer * programmer_ = nullptr;
};

} // namespace SoftChip
