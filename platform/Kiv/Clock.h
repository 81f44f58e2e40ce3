#pragma once
// Kiv::Clock, a one-shot firing time that can be watched, and Kiv::TimerWheel, which fires them.
//
//    timeIs( t ) -> TimerWheel (by time, then by order of arming)
//    TaskScheduler's turn -> TimerWheel::fireDue( now ) -> clock idle -> watches of firedAttr
//
// Invariants
// 1. A clock that fires is idle (time() is never) before its watchers hear of it.
// 2. Clearing a clock, moving it, ending it, or detaching its watcher cancels a firing that is
//    due and not yet delivered.
// 3. A clock that is armed inside a handler, for now or earlier, fires in a later turn.
// 4. When a handler raises, the clocks that were due with its own stay armed as they were: they
//    fire in the next turn, in the order in which they would have.

#include <vector>

#include "platform/Kiv/Entity.h"
#include "platform/Kiv/Time.h"

namespace Kiv {

class Clock;

class TimerWheel {
 public:
   TimerWheel();
   ~TimerWheel();
   TimerWheel( const TimerWheel & ) = delete;
   TimerWheel & operator=( const TimerWheel & ) = delete;

   /** The wheel that clocks use which are given none: the latest one made. */
   static TimerWheel * current();

   /** When the next clock is due, in seconds of Kiv::now(); never if all are idle. */
   Seconds nextTime() const;
   /** Fires the clocks that are due at `now`; true if there were any. Not to be called by a
       handler. */
   bool fireDue( Seconds now );
   U32 armed() const { return U32( heap_.size() ); }

 private:
   friend class Clock;

   struct Slot {
      Seconds time;
      U64 order;
      Clock * clock;
      bool before( const Slot & o ) const {
         return time != o.time ? time < o.time : order < o.order;
      }
   };

   void arm( Clock * clock, Seconds time );
   void disarm( Clock * clock );
   void removeAt( U32 place );
   U32 up( U32 place, const Slot & slot );
   U32 down( U32 place, const Slot & slot );
   void put( U32 place, const Slot & slot );

   void enter( const Slot & slot );
   void putBack();

   std::vector< Slot > heap_; // four children a place
   std::vector< Slot > due_;  // those of cancelled firings have no clock
   U64 order_ = 0;
   TimerWheel * former_;
   static TimerWheel * current_;
};

class Clock : public Entity {
 public:
   explicit Clock( TimerWheel * wheel = TimerWheel::current() );
   ~Clock() override;

   /** When it fires, in seconds of Kiv::now(); never when idle. */
   Seconds time() const { return time_; }
   bool idle() const { return time_ == never; }
   /** Arms it for `time`, in place of what it was armed for; never makes it idle. */
   void timeIs( Seconds time );
   /** Moves the firing time earlier, not later. */
   void timeMin( Seconds time ) {
      if ( time < time_ ) {
         timeIs( time );
      }
   }

   /** What a watch on the firing names. */
   struct firedAttr {
      using Owner = Clock;
      using Key = void;
      using Value = void;
      static constexpr int index = 0;
   };

 private:
   friend class TimerWheel;
   static constexpr U32 nowhere = ~U32( 0 );

   void fire();

   TimerWheel * wheel_;
   Seconds time_ = never;
   U32 place_ = nowhere; // in the heap
   U32 due_ = nowhere;   // among the due ones
};

/** A clock with its handler: an idle clock that calls `handler` of its owner when it fires. */
template< class Owner, void ( Owner::*handler )() >
class ClockReactor {
 public:
   /** Watches `clock` instead of what was watched before; null ends it. */
   void attach( Owner * owner, Velto::Ptr< Clock > clock ) {
      watch_.attach( owner, clock.ptr() );
      clock_ = std::move( clock );
   }
   Clock * clock() const { return clock_.ptr(); }
   Clock * operator->() const { return clock_.ptr(); }
   explicit operator bool() const { return bool( clock_ ); }

 private:
   Velto::Ptr< Clock > clock_;
   Watch< Clock::firedAttr, Owner, handler > watch_;
};

} // namespace Kiv
