#pragma once
// What breaks on purpose, to see that it is noticed. Takes part only where it is asked for by name.

#include "simulation/Alarm.h"
#include "simulation/SimFeature.h"

namespace Sim {

class SimDamage : public SimFeature {
 public:
   using SimFeature::SimFeature;

   static std::span< const Operation > operations();
   void apply( const Event & event ) override;

 private:
   Velto::Ptr< Alarm > alarm_;
};

} // namespace Sim
