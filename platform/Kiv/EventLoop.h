#pragma once
// The scheduler on real time: waits for descriptors and for the next clock, then runs turns.
//
//    EventLoop::run(): epoll (descriptors, timer) -> FdWatch::ready() ... -> TaskScheduler::turn()
//
// Invariants
// 1. While a task has work the loop does not wait, but looks at its descriptors before each turn.
// 2. An FdWatch that is destroyed inside a ready() hears nothing more.
//
// Ownership: the loop does not own descriptors; an FdWatch does not close its own.

#include <map>
#include <vector>

#include "platform/Kiv/TaskScheduler.h"

namespace Kiv {

class EventLoop;

/** Hears when a descriptor can be read or written. */
class FdWatch {
 public:
   FdWatch( EventLoop * loop, int fd );
   virtual ~FdWatch();
   FdWatch( const FdWatch & ) = delete;
   FdWatch & operator=( const FdWatch & ) = delete;

   int fd() const { return fd_; }
   /** What to hear of; both false at first. A hang-up counts as readable. */
   void wanted( bool readable, bool writable );
   virtual void ready( bool readable, bool writable ) = 0;

 private:
   EventLoop * loop_;
   int fd_;
};

/** How long several pieces of work took. */
struct WorkTimes {
   U64 times = 0;
   Seconds busy = 0;
   Seconds longest = 0;
   Seconds longestAt = 0; ///< when that one ended
   void add( Seconds began, Seconds ended );
   void add( const WorkTimes & others );
};

class EventLoop : public TaskScheduler {
 public:
   EventLoop();
   ~EventLoop();
   /** The loop that a scheduler is; null for one whose time is virtual, which watches nothing. */
   static EventLoop * of( const TaskScheduler * scheduler );

   /** Runs until stop(). Kiv::now() is the system's monotonic clock. */
   void run();
   /** Ends run() after the present turn. May be called by a handler. */
   void stop() { stopped_ = true; }
   /** Waits at most `limit` seconds for something to do, and does one round of it. */
   void runOnce( Seconds limit );
   /** The rounds since the loop was made, waiting excepted: descriptors, clocks and a slice each. */
   const WorkTimes & rounds() const { return rounds_; }
   /** The slices of the tasks, by their names. */
   const std::map< String, WorkTimes > & slices() const { return slices_; }

 private:
   friend class FdWatch;
   bool runSliceOf( Task & task ) override;
   int waitTime( Seconds limit );

   EventLoop * former_; // the one that was made before, of those that live
   int epoll_ = -1;
   int timer_ = -1;
   bool stopped_ = false;
   WorkTimes rounds_;
   std::map< String, WorkTimes > slices_;
   std::vector< FdWatch * > live_; // by descriptor
};

} // namespace Kiv
