#pragma once
// The operational mode, and what goes with it: ports in tap or tool mode, the tap-aggregation
// topology, BPDU trapping. What follows from it is checked by SimTopology.

#include "platform/types/TapAgg.h"
#include "simulation/SimFeature.h"

namespace Sim {

class SimMode : public SimFeature {
 public:
   explicit SimMode( World & world );

   static std::span< const Operation > operations();

   void apply( const Event & event ) override;
   void tearDown() override;

   const TapAgg::HwConfig & tapAggHwConfig() const { return *tapAgg_; }

 private:
   Velto::Ptr< TapAgg::HwConfig > tapAgg_;
};

} // namespace Sim
