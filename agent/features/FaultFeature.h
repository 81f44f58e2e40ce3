#pragma once
// Faults of the chip in software, from an event stream.
//
//    {"event": "fault", "hook": "writeToHw", "trouble": "busy", "times": 3, "call": 10}
//    {"event": "fault", "hook": "writeToHw", "trouble": "parity", "times": 0, "inThousand": 50}
//    {"event": "fault", "table": "hostTable", "limit": 100}
//    {"event": "fault", "unit": "Linecard1", "lost": true}
//    {"event": "fault", "seed": 7}         {"event": "fault", "clear": true}

#include "agent/AgentFeature.h"

namespace QonAgent {

class FaultFeature : public AgentFeature {
 public:
   const char * name() const override { return "faults"; }
   void create( Agent & agent ) override { agent_ = &agent; }
   std::vector< EventKind > eventKinds() override;

 private:
   std::function< void() > parse( const Json & line ) const;

   Agent * agent_ = nullptr;
};

} // namespace QonAgent
