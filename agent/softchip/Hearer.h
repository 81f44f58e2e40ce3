#pragma once
// Who hears what a table of the chip has done: the hook object of the moment. A table outlives its
// hook objects, and what one of them handed over is done all the same when it has gone; but nobody
// else is told.
//
//    hook object: hearer.is( this ) ... hearer.is( nullptr )
//    table: accepts -> ticket = hearer.ticket() ... done -> if ( auto hook = hearer.of( ticket ) )

#include "platform/Velto/Assert.h"
#include "platform/Velto/Types.h"

namespace SoftChip {

template< class Hook >
class Hearer {
 public:
   /** Stands for whoever hears when it is drawn. */
   using Ticket = U64;

   /** Null: nobody. One hook object hears at a time. */
   void is( Hook * hook ) {
      VELTO_ASSERT( !hook || !hook_ );
      hook_ = hook;
      ++current_;
   }
   Ticket ticket() const { return current_; }
   /** The hook object of a ticket; null once it has gone. */
   Hook * of( Ticket ticket ) const { return ticket == current_ ? hook_ : nullptr; }
   Hook * now() const { return hook_; }

 private:
   Hook * hook_ = nullptr;
   Ticket current_ = 0;
};

} // namespace SoftChip
