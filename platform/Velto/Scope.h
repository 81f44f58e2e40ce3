#pragma once
// What lets a function keep its promises when a handler that it calls raises, or ends the very
// object that it works for.
//
//    const Velto::Hold alive( this );             the object is there until the end of the block
//    const Velto::AtEnd idle( [&] { busy_ = false; } );   done however the block is left
//    Velto::FirstError error;
//    for ( ... ) error.run( [&] { ... } );        all of them, whichever raises
//    error.pass();                                then the first exception, to the caller
//
// Blocks end in reverse: declare Hold first, so that it outlives what the others touch.

#include <exception>

#include "platform/Velto/Node.h"

namespace Velto {

/** Counts a node until the end of a block. One that nobody counts lives in a block of its own, and
    is left alone. */
class Hold {
 public:
   explicit Hold( const Node * node ) : node_( node && node->useCount() ? node : nullptr ) {
      if ( node_ ) {
         node_->kivRef();
      }
   }
   Hold( const Hold & ) = delete;
   Hold & operator=( const Hold & ) = delete;
   ~Hold() {
      if ( node_ ) {
         node_->kivUnref();
      }
   }

 private:
   const Node * node_;
};

/** Calls `act`, which does not raise, when the block is left, by whatever way. */
template< class Act >
class AtEnd {
 public:
   explicit AtEnd( Act act ) : act_( std::move( act ) ) {}
   AtEnd( const AtEnd & ) = delete;
   AtEnd & operator=( const AtEnd & ) = delete;
   ~AtEnd() { act_(); }

 private:
   Act act_;
};

/** The first exception of several things that are all to be done. Later ones are dropped: one
    change has one answer. */
class FirstError {
 public:
   /** True if `act` did not raise. */
   template< class Act >
   bool run( Act && act ) {
      try {
         act();
         return true;
      } catch ( ... ) {
         if ( !first_ ) {
            first_ = std::current_exception();
         }
         return false;
      }
   }
   /** Raises the first one, if there is one. */
   void pass() {
      if ( first_ ) [[unlikely]] {
         raise();
      }
   }

 private:
   [[noreturn, gnu::cold]] void raise() {
      std::rethrow_exception( std::exchange( first_, nullptr ) );
   }

   std::exception_ptr first_;
};

} // namespace Velto
