#include "agent/softchip/Completions.h"

namespace SoftChip {

class Completions::Reactor : public Velto::Node {
 public:
   explicit Reactor( Completions * owner ) : owner_( owner ) {
      hasNotificationActiveIs( true );
      clock.attach( this, Velto::make< Kiv::Clock >() );
   }
   void handleClock() { owner_->finishDue(); }
   Completions * const owner_;
   Kiv::ClockReactor< Reactor, &Reactor::handleClock > clock;
};

Completions::Completions() : reactor_( Velto::make< Reactor >( this ) ) {}

Completions::~Completions() = default;

void
Completions::add( std::function< void() > complete ) {
   if ( latency_ == 0 && waiting_.empty() ) {
      complete();
      return;
   }
   const Kiv::Seconds due = latency_ == Kiv::never ? Kiv::never : Kiv::now() + latency_;
   waiting_.push_back( { due, std::move( complete ) } );
   reactor_->clock->timeMin( due );
}

void
Completions::finish( U32 index ) {
   auto complete = std::move( waiting_.at( index ).complete );
   waiting_.erase( waiting_.begin() + index );
   complete();
}

void
Completions::finishAll() {
   while ( waiting() ) {
      finish( 0 );
   }
}

void
Completions::finishDue() {
   const Kiv::Seconds now = Kiv::now();
   std::vector< Waiting > due, later;
   for ( auto & w : waiting_ ) {
      ( w.due <= now ? due : later ).push_back( std::move( w ) );
   }
   waiting_ = std::move( later );
   for ( auto & w : due ) {
      w.complete();
   }
   for ( auto & w : waiting_ ) {
      reactor_->clock->timeMin( w.due );
   }
}

} // namespace SoftChip
