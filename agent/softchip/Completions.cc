#include "agent/softchip/Completions.h"

namespace SoftChip {

void
Completions::add( std::function< void() > complete ) {
   if ( latency_ == 0 && waiting_.empty() ) {
      complete();
      return;
   }
   const Kiv::Seconds due = latency_ == Kiv::never ? Kiv::never : Kiv::now() + latency_;
   waiting_.push_back( { due, std::move( complete ) } );
   due_.at( due );
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
      due_.at( w.due );
   }
}

} // namespace SoftChip
