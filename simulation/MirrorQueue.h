#pragma once
// In which order mirror groups are handed out: whoever needs one has that which is free for the
// longest time.
//
//    names of groups (shared data) -> a name: takes the first; a name less: its group goes to the back
//    what starts and grows: told by the simulation, before the state machine hears of it
//
// A session that waits is given a group when one is free, so that the queue is empty then: a group that
// goes from hand to hand is the only one.

#include <deque>
#include <functional>
#include <map>

#include "Qon/include/framework/QonCommonSmData.h"
#include "platform/Kiv/Listener.h"

namespace Sim {

using Velto::String;

class MirrorQueue {
 public:
   /** `report` is told what comes out of turn. */
   explicit MirrorQueue( std::function< void( const String & ) > report )
       : report_( std::move( report ) ) {}

   /** Listens to `acsd` from now on. */
   void follow( Qon::QonCommonSmData * acsd );
   /** The state machine starts with so many groups, and takes these over. Groups that the agent fills
       in are in the shared data; `stale` are in hardware, and nobody's. */
   void start( U32 groups, bool agentFills, const std::map< String, U32 > & kept,
               const std::map< String, U32 > & stale );
   /** It is about to hear of so many. */
   void resize( U32 groups );
   /** "order: ..." if the shared data's queue is another one. */
   String check() const;

 private:
   void named( const String & name );
   void startOwn();

   Qon::QonCommonSmData * acsd_ = nullptr;
   std::function< void( const String & ) > report_;
   U32 groups_ = 0;
   bool agentFills_ = false;
   std::deque< U32 > free_;
   std::map< String, U32 > owners_;
   Kiv::Listener< Qon::QonCommonSmData::mirrorSessionNameToIdAttr > names_;
};

} // namespace Sim
