#include "platform/Kiv/TaskScheduler.h"

#include "platform/Velto/Scope.h"

namespace Kiv {

Task::Task( TaskScheduler * scheduler, U32 priority, const String & name )
    : scheduler_( scheduler ), priority_( priority ), name_( name ) {
   VELTO_ASSERT( scheduler );
   after_ = scheduler->tasks_;
   if ( after_ ) {
      after_->before_ = this;
   }
   scheduler->tasks_ = this;
}

Task::~Task() {
   if ( !scheduler_ ) {
      return;
   }
   scheduler_->leave( this );
   ( before_ ? before_->after_ : scheduler_->tasks_ ) = after_;
   if ( after_ ) {
      after_->before_ = before_;
   }
}

void
Task::wake() {
   if ( !awake_ && scheduler_ ) {
      awake_ = true;
      scheduler_->enter( this );
   }
}

bool
Task::shouldYield() {
   if ( !scheduler_ ) {
      return true;
   }
   auto & s = *scheduler_;
   ++s.units_;
   if ( s.units_ >= s.budget_.units ) {
      return true;
   }
   return s.units_ % s.budget_.unitsPerRead == 0 && Kiv::now() >= s.deadline_;
}

TaskScheduler::~TaskScheduler() {
   for ( Task * t = tasks_; t; t = t->after_ ) {
      t->scheduler_ = nullptr;
   }
}

void
TaskScheduler::enter( Task * task ) {
   Task ** place = &ready_;
   while ( *place && ( *place )->priority_ <= task->priority_ ) {
      place = &( *place )->next_;
   }
   task->next_ = *place;
   *place = task;
}

void
TaskScheduler::leave( Task * task ) {
   if ( running_ == task ) {
      running_ = nullptr;
   }
   for ( Task ** place = &ready_; *place; place = &( *place )->next_ ) {
      if ( *place == task ) {
         *place = task->next_;
         return;
      }
   }
}

bool
TaskScheduler::runSlice() {
   Task * task = ready_;
   if ( !task ) {
      return false;
   }
   ready_ = task->next_;
   task->awake_ = false; // a wake-up during the slice brings it back
   running_ = task;
   units_ = 0;
   bool more = true; // also when it raises
   const Velto::AtEnd slice( [&] {
      if ( running_ && more ) {
         task->wake();
      }
      running_ = nullptr;
   } );
   deadline_ = Kiv::now() + budget_.seconds;
   more = runSliceOf( *task );
   return true;
}

bool
TaskScheduler::turn() {
   if ( turnWatch_ ) [[unlikely]] {
      turnWatch_->turnBegins();
   }
   bool worked = true; // also when it raises
   const Velto::AtEnd turn( [&] {
      if ( turnWatch_ ) [[unlikely]] {
         turnWatch_->turnEnds( worked );
      }
   } );
   // A watched turn reads the time in any case, whoever else has armed a clock.
   bool fired = ( turnWatch_ || wheel_.nextTime() != never ) && wheel_.fireDue( Kiv::now() );
   worked = runSlice() || fired;
   return worked;
}

Seconds
TaskScheduler::nextTime() const {
   return ready_ ? -never : wheel_.nextTime();
}

VirtualScheduler::VirtualScheduler( Seconds start )
    : now_( start ), former_( timeSourceIs( this ) ) {}

VirtualScheduler::~VirtualScheduler() {
   timeSourceIs( former_ );
}

void
VirtualScheduler::settle( U32 turns ) {
   while ( turns-- && nextTime() <= now_ ) {
      turn();
   }
}

void
VirtualScheduler::runUntil( Seconds time ) {
   for ( ;; ) {
      settle();
      Seconds next = nextTime();
      if ( next > time ) {
         break;
      }
      now_ = next > now_ ? next : now_;
   }
   now_ = time > now_ ? time : now_;
}

bool
VirtualScheduler::runToRest( Seconds limit ) {
   for ( ;; ) {
      settle();
      Seconds next = nextTime();
      if ( next == never ) {
         return true;
      }
      if ( next > limit ) {
         return false;
      }
      now_ = next > now_ ? next : now_;
   }
}

} // namespace Kiv
