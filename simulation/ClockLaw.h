#pragma once
// When a clock that something arms once, a fixed time ahead, must fire: looked at after every step.
//
//    step, step ... -> check( time it is, time that the clock is set for, interval )
//
// Whatever armed it did so since the last look; so it is set for a moment between an interval after
// that look and an interval after this one. Once set it is never put off, unless it may have been
// stopped and armed again meanwhile; whether it must be set, its owner knows.

#include "platform/Kiv/Clock.h"

namespace Sim {

using Velto::String;

class ClockLaw {
 public:
   /** Begins anew with what it finds. */
   void lookAt( Kiv::Seconds now, Kiv::Seconds time ) {
      before_ = now;
      last_ = time;
   }
   /** What is wrong, or nothing. */
   String check( Kiv::Seconds now, Kiv::Seconds time, Kiv::Seconds interval,
                 bool mayStop = false ) {
      const Kiv::Seconds before = before_, last = last_;
      lookAt( now, time );
      if ( time == Kiv::never || time == last ) {
         return {};
      }
      if ( last > now && last < time && !mayStop ) {
         return "put off from " + std::to_string( last ) + " to " + std::to_string( time );
      }
      if ( time < before + interval || time > now + interval ) {
         return "armed at " + std::to_string( now ) + " for " + std::to_string( time ) + ", not " +
                std::to_string( interval ) + " s ahead";
      }
      return {};
   }

 private:
   Kiv::Seconds before_ = 0;
   Kiv::Seconds last_ = Kiv::never;
};

} // namespace Sim
