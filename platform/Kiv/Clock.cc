#include "platform/Kiv/Clock.h"

#include "platform/Velto/Scope.h"

namespace Kiv {

TimerWheel * TimerWheel::current_ = nullptr;

TimerWheel::TimerWheel() : former_( current_ ) {
   current_ = this;
}

TimerWheel::~TimerWheel() {
   for ( Slot & slot : heap_ ) {
      slot.clock->wheel_ = nullptr;
   }
   for ( Slot & slot : due_ ) {
      if ( slot.clock ) {
         slot.clock->wheel_ = nullptr;
      }
   }
   if ( current_ == this ) {
      current_ = former_;
   }
}

TimerWheel *
TimerWheel::current() {
   return current_;
}

Seconds
TimerWheel::nextTime() const {
   return heap_.empty() ? never : heap_[0].time;
}

bool
TimerWheel::fireDue( Seconds now ) {
   VELTO_ASSERT( due_.empty() ); // a handler must not run the loop
   const Velto::AtEnd done( [this] { putBack(); } );
   while ( !heap_.empty() && heap_[0].time <= now ) {
      const Slot slot = heap_[0];
      removeAt( 0 );
      slot.clock->due_ = U32( due_.size() );
      due_.push_back( slot );
   }
   for ( U32 i = 0; i < due_.size(); ++i ) {
      if ( Clock * clock = std::exchange( due_[i].clock, nullptr ) ) {
         clock->due_ = Clock::nowhere;
         clock->fire();
      }
   }
   return !due_.empty();
}

/** Ends a turn: what is due and was not fired goes back to its place. */
void
TimerWheel::putBack() {
   for ( const Slot & slot : due_ ) {
      if ( slot.clock ) {
         slot.clock->due_ = Clock::nowhere;
         enter( slot );
      }
   }
   due_.clear();
}

void
TimerWheel::put( U32 place, const Slot & slot ) {
   heap_[place] = slot;
   slot.clock->place_ = place;
}

U32
TimerWheel::up( U32 place, const Slot & slot ) {
   while ( place ) {
      U32 parent = ( place - 1 ) / 4;
      if ( !slot.before( heap_[parent] ) ) {
         break;
      }
      put( place, heap_[parent] );
      place = parent;
   }
   return place;
}

U32
TimerWheel::down( U32 place, const Slot & slot ) {
   U32 size = U32( heap_.size() );
   for ( U32 child; ( child = 4 * place + 1 ) < size; ) {
      U32 best = child;
      for ( U32 c = child + 1; c < child + 4 && c < size; ++c ) {
         if ( heap_[c].before( heap_[best] ) ) {
            best = c;
         }
      }
      if ( !heap_[best].before( slot ) ) {
         break;
      }
      put( place, heap_[best] );
      place = best;
   }
   return place;
}

void
TimerWheel::removeAt( U32 place ) {
   heap_[place].clock->place_ = Clock::nowhere;
   Slot last = heap_.back();
   heap_.pop_back();
   if ( place < heap_.size() ) {
      put( down( up( place, last ), last ), last );
   }
}

void
TimerWheel::arm( Clock * clock, Seconds time ) {
   Slot slot = { time, ++order_, clock };
   if ( clock->place_ != Clock::nowhere ) {
      put( down( up( clock->place_, slot ), slot ), slot );
      return;
   }
   enter( slot );
}

void
TimerWheel::enter( const Slot & slot ) {
   heap_.push_back( slot );
   put( up( U32( heap_.size() ) - 1, slot ), slot );
}

void
TimerWheel::disarm( Clock * clock ) {
   if ( clock->place_ != Clock::nowhere ) {
      removeAt( clock->place_ );
   }
   if ( clock->due_ != Clock::nowhere ) {
      due_[clock->due_].clock = nullptr;
      clock->due_ = Clock::nowhere;
   }
}

Clock::Clock( TimerWheel * wheel ) : wheel_( wheel ) {
   VELTO_ASSERT( wheel );
}

Clock::~Clock() {
   if ( wheel_ && time_ != never ) {
      wheel_->disarm( this );
   }
}

void
Clock::timeIs( Seconds time ) {
   if ( time == time_ ) {
      return;
   }
   VELTO_ASSERT( time == time ); // not a number has no place in an order
   time_ = time;
   if ( !wheel_ ) {
      return;
   }
   if ( time == never ) {
      wheel_->disarm( this );
      return;
   }
   if ( due_ != nowhere ) {
      wheel_->disarm( this );
   }
   wheel_->arm( this, time );
}

void
Clock::fire() {
   time_ = never;
   kivPublish( firedAttr::index );
}

} // namespace Kiv
