#pragma once
// What a chip has accepted and not done yet: done within the call, after a while, or when somebody
// says so, in whatever order.

#include <functional>
#include <vector>

#include "platform/Kiv/Alarm.h"

namespace SoftChip {

/** A member of the object that owns it, which the functions may change at will. */
class Completions {
 public:
   Completions() = default;
   Completions( const Completions & ) = delete;
   Completions & operator=( const Completions & ) = delete;

   /** How long everything takes that is accepted from now on, in seconds. 0: it is done before
       add() returns. Kiv::never: until finish() is called. */
   void latencyIs( Kiv::Seconds latency ) { latency_ = latency; }
   void add( std::function< void() > complete );
   /** How many are accepted and not done, oldest first. */
   U32 waiting() const { return U32( waiting_.size() ); }
   /** Does one of them. */
   void finish( U32 index );
   void finishAll();

 private:
   struct Waiting {
      Kiv::Seconds due;
      std::function< void() > complete;
   };
   void finishDue();

   Kiv::Seconds latency_ = 0;
   std::vector< Waiting > waiting_;
   Kiv::Alarm due_{ [this] { finishDue(); } };
};

} // namespace SoftChip
