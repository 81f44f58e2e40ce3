#pragma once
// What the console shows beside the features' tables: the log, the state database, and the agent
// itself.
//
// Ownership: the agent outlives it, and the loop, if it is told of one.

#include <optional>

#include "agent/Agent.h"
#include "agent/HookCounts.h"
#include "platform/Kiv/EventLoop.h"

namespace QonAgent {

class OwnShows {
 public:
   explicit OwnShows( Agent & agent ) : agent_( agent ) {}
   /** The loop whose rounds are counted. */
   void loopIs( const Kiv::EventLoop * loop ) { loop_ = loop; }
   std::vector< ShowCommand > commands() const;

 private:
   Rows logRows() const;
   Rows messageRows() const;
   Rows entityRows( String path ) const;
   Rows mountRows() const;
   Rows versionRows() const;
   Rows uptimeRows() const;
   Rows memoryRows() const;
   Rows counterRows() const;
   Rows hookRows() const;

   Agent & agent_;
   const Kiv::EventLoop * loop_ = nullptr;
   mutable std::optional< HookCounts > hookCounts_;
};

} // namespace QonAgent
