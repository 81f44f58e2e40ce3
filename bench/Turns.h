#pragma once
// Watches the turns of a scheduler.

#include <algorithm>

#include "bench/Machine.h"
#include "platform/Kiv/TaskScheduler.h"

namespace Bench {

/** How long the longest turn was, by the processor's time, in nanoseconds. */
class Turns : public Kiv::TurnWatch {
 public:
   double longest = 0;

 private:
   void turnBegins() override { began_ = threadTime(); }
   void turnEnds( bool ) override { longest = std::max( longest, threadTime() - began_ ); }
   double began_ = 0;
};

} // namespace Bench
