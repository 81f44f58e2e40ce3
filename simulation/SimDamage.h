#pragma once
// What breaks on purpose, to see that it is noticed. Takes part only where it is asked for by name.

#include "platform/Kiv/Alarm.h"
#include "simulation/SimFeature.h"

namespace Sim {

class SimDamage : public SimFeature {
 public:
   using SimFeature::SimFeature;

   static std::span< const Operation > operations();

 private:
   void report( const Event & event );
   void assertFalse( const Event & event );
   void raise( const Event & event );
   void leak( const Event & event );
   void endless( const Event & event );

   Kiv::Alarm alarm_{ [this] { alarm_.in( 0 ); } };
};

} // namespace Sim
