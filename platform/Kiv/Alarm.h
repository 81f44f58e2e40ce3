#pragma once
// A clock that calls a function: a member of whoever has something to do later.
//
//    Kiv::Alarm alarm_{ [this] { finish(); } };
//    alarm_.in( 0.002 ) -> TimerWheel -> the function
//
// Invariants
// 1. It rings once for any number of in() and at(), at the earliest of their times; the function
//    may arm it again.
// 2. After its end it rings no more. The function may end it.

#include <functional>

#include "platform/Kiv/Clock.h"

namespace Kiv {

class Alarm {
 public:
   using Call = std::function< void() >;

   explicit Alarm( Call call, TimerWheel * wheel = TimerWheel::current() )
       : bell_( Velto::make< Bell >( std::move( call ), wheel ) ) {}

   /** Rings in so many seconds, or as it would before that. */
   void in( Seconds span ) { at( now() + span ); }
   /** Rings at that time of Kiv::now(), or as it would before that. */
   void at( Seconds time ) { bell_->clock->timeMin( time ); }
   void off() { bell_->clock->timeIs( never ); }
   /** When it rings; never if it is off. */
   Seconds time() const { return bell_->clock->time(); }

 private:
   struct Bell : Velto::Node {
      Bell( Call && c, TimerWheel * wheel ) : call( std::move( c ) ) {
         hasNotificationActiveIs( true );
         clock.attach( this, Velto::make< Clock >( wheel ) );
      }
      void ring() {
         Velto::Ptr< Bell > self( this ); // the function may end the alarm
         call();
      }
      Call call;
      ClockReactor< Bell, &Bell::ring > clock;
   };
   Velto::Ptr< Bell > bell_;
};

} // namespace Kiv
