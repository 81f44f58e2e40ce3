#pragma once
// The reader's end of one writer's tables: the connection, and the sleep of those who follow.
//
//    Source -> socket "<path>" of the writer's Server
//       | connected, lost, connects again by itself
//       `-> Reader of each table -> adopts a generation when it is complete -> its Followers
//
// Invariants
// 1. The end of the connection takes nothing away: what was read stays as the writer left it until a
//    new writer has written everything.
// 2. Followers that have nothing to do cost nothing: the writer wakes the process, by the connection.
// 3. Nothing that a writer sends or writes can cost more than wrong values and time.
//
// Ownership: the event loop outlives it. Readers and followers may outlive it; they then hear of
// nothing new.

#include <map>
#include <memory>

#include "platform/Kiv/Alarm.h"
#include "platform/Kiv/EventLoop.h"
#include "platform/Quarn/Memory.h"

namespace Quarn {

using Kiv::Seconds;

class Reader;
struct Answer;

class Source {
 public:
   /** Raises Velto::RangeError for a path that no socket can have. Connects now, or as soon as there
       is a writer. */
   Source( Kiv::EventLoop * loop, const String & path );
   Source( const Source & ) = delete;
   Source & operator=( const Source & ) = delete;
   ~Source();

   bool connected() const;
   /** When that became so, by Kiv::now(). */
   Seconds since() const { return since_; }
   /** "", or why the writer that is there was not believed. */
   const String & refusal() const { return refusal_; }

 private:
   friend class Reader;
   class Link;

   void readerIs( Reader * reader );
   void readerDel( Reader * reader );
   void reconnect();
   void lost();
   void ask( Reader * reader );
   void answered( const Answer & answer, const Handle & memory );
   /** Sleeps, unless somebody who does not work has something to do. */
   void rest();

   Kiv::EventLoop * loop_;
   String path_;
   Seconds since_;
   String refusal_;
   U32 numbers_ = 0;
   std::map< U32, Reader * > readers_; // by the number of their question
   std::shared_ptr< Link > link_;
   Kiv::Alarm retry_;
};

} // namespace Quarn
