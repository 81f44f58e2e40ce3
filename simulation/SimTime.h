#pragma once
// What happens to any world: turns of the scheduler, time, how much a turn may do, rest, the end.

#include "simulation/SimFeature.h"

namespace Sim {

class SimTime : public SimFeature {
 public:
   using SimFeature::SimFeature;

   /** The last one ends the world. */
   static std::span< const Operation > operations();

 private:
   void turn( const Event & event );
   void next( const Event & event );
   void run( const Event & event );
   void costIs( const Event & event );
   void budgetIs( const Event & event );
   void rest( const Event & event );
   void restart( const Event & event );
   void end( const Event & event );
};

} // namespace Sim
