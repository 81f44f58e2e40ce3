#pragma once
// The events of an agent: lines that make something happen, checked and then done.
//
//    {"event": "link", "port": "Ethernet0", "up": false} -> Events::parse() -> what makes it happen
//
// They come from a file, with the times at which they happen (EventPlayer), or from a client.
//
// Invariants
// 1. parse() changes nothing.
//
// Ownership: the agent outlives them.

#include <map>

#include "agent/AgentFeature.h"

namespace QonAgent {

class Events {
 public:
   explicit Events( Agent & agent );

   /** What makes a line happen, which raises Velto::RangeError if it cannot be done. `unknown`, if
       there is one, becomes what is to be said of a field that nobody asked for. Raises
       Velto::RangeError for a line that is wrong. */
   std::function< void() > parse( const Json & line, String * unknown = nullptr ) const;

   /** By name. */
   const std::map< String, EventKind > & kinds() const { return kinds_; }

 private:
   std::map< String, EventKind > kinds_;
};

} // namespace QonAgent
