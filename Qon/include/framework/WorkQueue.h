#pragma once
// Questions that are looked at one after the other, by whoever comes first.
//
//    handler -> queue.add( question ); queue.drain( this, act )
//                                          | act( question ) -> hooks, publishes
//                                          |    `-> watchers -> handlers -> add(), drain(): returns at once
//                                          `-> the next question, until none is left
//               queue.ask( this, question, act ): both, and cheaper for one that nobody is before
//               queue.during( this, now, act ): calls hooks at once, and what they ask for waits
//
// Invariants
// 1. One question is being looked at at a time. What is added meanwhile is looked at inside the
//    outermost drain(), after what was there before.
// 2. The owner lives until drain() returns, or to the moment after: drain() is the last thing that
//    a handler does with it, or the handler holds the owner itself.
// 3. A question that raises is put once more, behind the others: who asks for what holds now, and
//    compares it with what was done, finds done what was done. All others are looked at as if nothing
//    had happened. Then the first exception passes to the caller of the outermost drain().
//
// Ownership: a member of the one that asks. `Question` is a value.

#include "platform/Kiv/Fifo.h"
#include "platform/Velto/Scope.h"

namespace Qon {

template< class Question >
class WorkQueue {
   struct Entry {
      Question question;
      bool again = false; // it raised before
   };

 public:
   void add( Question question ) { waiting_.enq( { std::move( question ) } ); }
   bool draining() const { return draining_; }

   /** Calls `act( const Question & )` for everything that waits, unless a caller further out does so
       already. `owner` is the object of which the queue is a member. */
   template< class Act >
   void drain( const Velto::Node * owner, Act && act ) {
      if ( !draining_ ) {
         answerAll( owner, nullptr, act );
      }
   }
   /** add(), then drain(). */
   template< class Act >
   void ask( const Velto::Node * owner, const Question & question, Act && act ) {
      if ( draining_ || !waiting_.empty() ) {
         add( question );
         drain( owner, act );
      } else {
         answerAll( owner, &question, act );
      }
   }
   /** Calls `now()` at once and once, also inside a question; what is added meanwhile is looked at
       after it, or after that question. */
   template< class Now, class Act >
   void during( const Velto::Node * owner, Now && now, Act && act ) {
      if ( draining_ ) {
         now();
         return;
      }
      const Velto::Hold alive( owner );
      Velto::FirstError error;
      error.run( [&] {
         draining_ = true;
         const Velto::AtEnd done( [this] { draining_ = false; } );
         now();
      } );
      error.run( [&] { drain( owner, act ); } );
      error.pass();
   }

 private:
   /** Everything that waits, after `first` if there is one. */
   template< class Act >
   void answerAll( const Velto::Node * owner, const Question * first, Act && act ) {
      const Velto::Hold alive( owner );
      draining_ = true;
      const Velto::AtEnd done( [this] { draining_ = false; } );
      Velto::FirstError error;
      if ( first && !error.run( [&] { act( *first ); } ) ) {
         waiting_.enq( { *first, true } );
      }
      while ( !waiting_.empty() ) {
         const Entry entry = waiting_.front();
         waiting_.deq();
         if ( !error.run( [&] { act( entry.question ); } ) && !entry.again ) {
            waiting_.enq( { entry.question, true } );
         }
      }
      error.pass();
   }

   Kiv::Fifo< Entry > waiting_;
   bool draining_ = false;
};

} // namespace Qon
