#pragma once
// A clock that calls a function; what simulated chips are late with.

#include <functional>

#include "platform/Kiv/Clock.h"

namespace Sim {

class Alarm : public Velto::Node {
 public:
   explicit Alarm( std::function< void() > call ) : call_( std::move( call ) ) {
      hasNotificationActiveIs( true );
      clock_.attach( this, Velto::make< Kiv::Clock >() );
   }
   Kiv::Clock * clock() const { return clock_.clock(); }
   void in( Kiv::Seconds span ) { clock_->timeMin( Kiv::now() + span ); }

 private:
   void due() { call_(); }
   std::function< void() > call_;
   Kiv::ClockReactor< Alarm, &Alarm::due > clock_;
};

} // namespace Sim
