#pragma once
// Work that the chip does a little later, in the order in which it was given.

#include <deque>

#include "platform/Kiv/Alarm.h"

/** A member of the hook class whose work it is: what is not done yet goes with it. */
class Later {
 public:
   static constexpr Kiv::Seconds delay = 0.002;

   explicit Later( Kiv::TimerWheel * wheel ) : alarm_( [this] { due(); }, wheel ) {}
   Later( const Later & ) = delete;
   Later & operator=( const Later & ) = delete;

   void add( std::function< void() > work ) {
      work_.emplace_back( Kiv::now() + delay, std::move( work ) );
      alarm_.at( work_.front().first );
   }

 private:
   void due() {
      auto work = std::move( work_.front().second );
      work_.pop_front();
      if ( !work_.empty() ) {
         alarm_.at( work_.front().first );
      }
      work();
   }

   std::deque< std::pair< Kiv::Seconds, std::function< void() > > > work_;
   Kiv::Alarm alarm_;
};
