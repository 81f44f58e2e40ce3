#pragma once
// What the console shows beside the features' tables: the log, the state database, and the agent
// itself.
//
// Ownership: the agent outlives it, and the loop, if it is told of one.

#include "agent/Agent.h"
#include "agent/HookCounts.h"
#include "platform/Kiv/ChangeCounts.h"
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

   /** What somebody has done since the agent began. */
   struct Work {
      U64 changes = 0;
      U64 hookCalls = 0;
      Kiv::WorkTimes turns;
   };
   std::map< String, Work > workByFeature() const;
   std::vector< Counter > ownCounters() const;

   Agent & agent_;
   const Kiv::EventLoop * loop_ = nullptr;
   HookCounts hookCounts_;
   Kiv::ChangeCounts changeCounts_;
};

} // namespace QonAgent
