#pragma once
// Work that the chip does a little later, in the order in which it was given.

#include <deque>
#include <functional>

#include "platform/Kiv/Clock.h"

/** A member of the hook class whose work it is: what is not done yet goes with it. */
class Later {
 public:
   static constexpr Kiv::Seconds delay = 0.002;

   explicit Later( Kiv::TimerWheel * wheel ) : queue_( Velto::make< Queue >( wheel ) ) {}

   void add( std::function< void() > work ) { queue_->add( std::move( work ) ); }

 private:
   class Queue : public Velto::Node {
    public:
      explicit Queue( Kiv::TimerWheel * wheel ) {
         hasNotificationActiveIs( true );
         clock_.attach( this, Velto::make< Kiv::Clock >( wheel ) );
      }
      void add( std::function< void() > work ) {
         work_.emplace_back( Kiv::now() + delay, std::move( work ) );
         clock_->timeMin( work_.front().first );
      }
      void handleDue() {
         auto work = std::move( work_.front().second );
         work_.pop_front();
         if ( !work_.empty() ) {
            clock_->timeMin( work_.front().first );
         }
         work();
      }

    private:
      std::deque< std::pair< Kiv::Seconds, std::function< void() > > > work_;
      Kiv::ClockReactor< Queue, &Queue::handleDue > clock_;
   };
   Velto::Ptr< Queue > queue_;
};
