#pragma once
// The operational mode, and what goes with it: ports in tap or tool mode, the tap-aggregation
// topology, BPDU trapping. What follows from it is checked by SimTopology.

#include "Qon/include/framework/QonTypes.h"
#include "platform/types/TapAgg.h"
#include "simulation/SimFeature.h"

namespace Sim {

class SimMode : public SimFeature {
 public:
   explicit SimMode( World & world );

   static std::span< const Operation > operations();

   void tearDown() override;

   const TapAgg::HwConfig & tapAggHwConfig() const { return *tapAgg_; }
   void switchTo( Qon::HwOperationalMode mode );

 private:
   /** @name Operations */
   /** @{ */
   void modeIs( const Event & event );
   void tapIs( const Event & event );
   void toolIs( const Event & event );
   void rename( const Event & event );
   void bpduIs( const Event & event );
   void forget( const Event & event );
   /** @} */

   Velto::Ptr< TapAgg::HwConfig > tapAgg_;
};

} // namespace Sim
