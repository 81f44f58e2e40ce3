#pragma once
// The one scheduler of a process: clocks, and cooperative tasks that work in slices.
//
//    turn():  clocks that are due  ->  one slice of the most urgent task
//
//    VirtualScheduler: time moves only when there is nothing to do (tests, replay, simulation)
//    EventLoop (EventLoop.h): real time, file descriptors
//
// Invariants
// 1. A turn fires the clocks that were due when it began, then runs one slice of one task.
// 2. Among tasks that have work, the smallest priority number runs; equals take turns.
// 3. Nothing else in the process reads a clock or waits.
// 4. An exception that leaves a clock's handler or a task ends the turn, and passes to whoever asked
//    for it. The clocks and tasks that had not come to their turn do so in the next one; a task that
//    raised has work left.

#include "platform/Kiv/Clock.h"
#include "platform/Kiv/Time.h"

namespace Kiv {

class TaskScheduler;

/** Work that is done in slices. The owner keeps it; its destruction withdraws it. It may outlive its
    scheduler, and then does nothing. */
class Task {
 public:
   Task( TaskScheduler * scheduler, U32 priority, const String & name );
   virtual ~Task();
   Task( const Task & ) = delete;
   Task & operator=( const Task & ) = delete;

   U32 priority() const { return priority_; }
   const String & name() const { return name_; }

   /** Asks for slices, until run() says that no work is left. */
   void wake();
   bool awake() const { return awake_; }

   /** Does work until it is all done (false) or shouldYield() (true: work is left). It is called
       again after an exception, and must have left behind what it raised for. */
   virtual bool run() = 0;
   /** Counts one unit of work; true when the slice is used up. */
   bool shouldYield();

 private:
   friend class TaskScheduler;
   TaskScheduler * scheduler_;
   U32 priority_;
   bool awake_ = false;
   Task * next_ = nullptr;   // in the queue
   Task * before_ = nullptr; // of all tasks
   Task * after_ = nullptr;
   String name_;
};

/** What one slice may use: whichever is used up first. The time is read every `unitsPerRead`
    units. */
struct SliceBudget {
   Seconds seconds = 0.005;
   U32 units = ~U32( 0 );
   U32 unitsPerRead = 16;
};

/** Hears where turns begin and end; for tools that note down what happens. */
class TurnWatch {
 public:
   virtual ~TurnWatch() = default;
   virtual void turnBegins() = 0;
   /** `worked`: a clock fired or a slice was run. */
   virtual void turnEnds( bool worked ) = 0;
};

class TaskScheduler {
 public:
   TaskScheduler() = default;
   virtual ~TaskScheduler();
   TaskScheduler( const TaskScheduler & ) = delete;
   TaskScheduler & operator=( const TaskScheduler & ) = delete;

   TimerWheel * timerWheel() { return &wheel_; }
   void budgetIs( const SliceBudget & budget ) { budget_ = budget; }
   const SliceBudget & budget() const { return budget_; }

   /** One turn; false if there was nothing to do. */
   bool turn();
   /** Installs `watch` in place of the one before; null is none. It stays the caller's. */
   void turnWatchIs( TurnWatch * watch ) { turnWatch_ = watch; }
   /** When the next turn has something to do: -infinity with a task awake, never with nothing. */
   Seconds nextTime() const;

 protected:
   /** Runs a slice, and says whether work is left. Who notes how long slices take adds to it; the task
       may be gone then. */
   virtual bool runSliceOf( Task & task ) { return task.run(); }

 private:
   friend class Task;

   void enter( Task * task );
   void leave( Task * task );
   bool runSlice();

   TimerWheel wheel_;
   SliceBudget budget_;
   TurnWatch * turnWatch_ = nullptr;
   Task * tasks_ = nullptr;
   Task * ready_ = nullptr; // by priority, then by arrival
   Task * running_ = nullptr;
   Seconds deadline_ = 0;
   U32 units_ = 0;
};

/** A scheduler whose time is its own. It installs itself as the source of Kiv::now() while it
    lives. */
class VirtualScheduler : public TaskScheduler, private TimeSource {
 public:
   explicit VirtualScheduler( Seconds start = 1000.0 );
   ~VirtualScheduler();

   Seconds time() const { return now_; }
   /** What every reading of the time costs, in seconds; to test budgets. */
   void readCostIs( Seconds cost ) { readCost_ = cost; }
   Seconds readCost() const { return readCost_; }
   /** Moves the time on without running anything. */
   void advance( Seconds by ) { now_ += by; }
   /** Runs turns at the present time until there is nothing to do. At most `turns` of them. */
   void settle( U32 turns = ~U32( 0 ) );
   /** Runs until `time`, moving the time from one armed clock to the next. */
   void runUntil( Seconds time );
   void runFor( Seconds span ) { runUntil( now_ + span ); }
   /** Runs until nothing is armed and no task is awake, at most until `limit`; false if the
       limit was reached first. */
   bool runToRest( Seconds limit );

 private:
   Seconds now() override {
      now_ += readCost_;
      return now_;
   }
   Seconds now_;
   Seconds readCost_ = 0;
   TimeSource * former_;
};

} // namespace Kiv
