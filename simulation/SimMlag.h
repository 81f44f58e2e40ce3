#pragma once
// What the MLAG agent publishes: state, peer link, redirection, and which aggregates share. What
// follows from it is checked by SimLag.

#include "simulation/SimFeature.h"

namespace Sim {

class SimLag;

class SimMlag : public SimFeature {
 public:
   using SimFeature::SimFeature;

   static std::span< const Operation > operations();

   bool ready() override;
   void tearDown() override;

 private:
   /** @name Operations */
   /** @{ */
   void stateIs( const Event & event );
   void peerLinkIs( const Event & event );
   void redirectIs( const Event & event );
   void shareIs( const Event & event );
   /** @} */

   SimLag * lag_ = nullptr; // while an operation is made
};

} // namespace Sim
