#pragma once
// What only the chip in software has: trouble and slowness from an event stream, and the road of a
// frame. With another chip there is nothing of it.
//
//    {"event": "fault", "hook": "writeToHw", "trouble": "busy", "times": 3, "call": 10}
//    {"event": "fault", "hook": "writeToHw", "trouble": "parity", "times": 0, "inThousand": 50}
//    {"event": "fault", "table": "hostTable", "limit": 100}
//    {"event": "fault", "unit": "Linecard1", "lost": true}
//    {"event": "fault", "seed": 7}         {"event": "fault", "clear": true}
//    {"event": "chipLatency", "seconds": 0.2}     of port states, VLANs and groups

#include "agent/AgentFeature.h"
#include "agent/softchip/Chip.h"

namespace QonAgent {

class FaultFeature : public AgentFeature {
 public:
   explicit FaultFeature( Agent & agent );
   std::vector< EventKind > eventKinds() override;
   std::vector< ShowCommand > showCommands() override;

 private:
   std::function< void() > parseFault( const Json & line ) const;
   std::function< void() > parseLatency( const Json & line ) const;

   String shownCopy( const SoftChip::Copy & copy ) const;
   Rows road( Arguments arguments ) const;

   Agent & agent_;
   SoftChip::Chip * const chip_; ///< null: it is another one
};

} // namespace QonAgent
