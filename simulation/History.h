#pragma once
// What happened in a run: the plan and the events. A text file:
//
//    qon-sim history 1
//    seed 17
//    features lag topology        without this line: all
//    fault <line of the soft chip's plan>
//    events
//    lag member 3 1
//
// The generator makes the events of a plan without running them: they follow from the plan alone.

#include "simulation/World.h"

namespace Sim {

struct History {
   Plan plan;
   std::vector< Event > events;

   /** Raises Velto::RangeError when the file cannot be written. */
   void write( const String & path ) const;
   /** Raises Velto::RangeError, with file and line, for a file that is none. */
   static History read( const String & path );
};

/** Draws the events of a world's plan. Every seed has its own mixture of operations. */
class Generator {
 public:
   explicit Generator( const World & world );
   Event next();

 private:
   struct Choice {
      U8 feature;
      U8 operation;
      U32 below; ///< the weights up to and with this one
   };
   U32 draw( Range range );

   const World & world_;
   Rng rng_;
   U32 habit_; ///< per cent of arguments that repeat the one before
   std::vector< Choice > choices_;
   std::array< U32, U32( Range::micros ) + 1 > last_{};
};

} // namespace Sim
