#include "Qon/include/framework/HookTap.h"

namespace Qon {

HookListener * HookTap::first_ = nullptr;
U32 HookTap::readers_ = 0;
HookTap::Walk * HookTap::walk_ = nullptr;

/** A delivery under way, which knows whose turn is next. */
struct HookTap::Walk {
   HookListener * next = first_;
   Walk * const outer = walk_;
   Walk() { walk_ = this; }
   ~Walk() { walk_ = outer; }
};

HookListener::HookListener( bool reads ) : reads_( reads ) {
   HookTap::readers_ += reads_;
   HookListener ** end = &HookTap::first_;
   while ( *end ) {
      end = &( *end )->next_;
   }
   *end = this;
}

HookListener::~HookListener() {
   HookTap::readers_ -= reads_;
   for ( HookTap::Walk * walk = HookTap::walk_; walk; walk = walk->outer ) {
      if ( walk->next == this ) {
         walk->next = next_;
      }
   }
   HookListener ** place = &HookTap::first_;
   while ( *place != this ) {
      place = &( *place )->next_;
   }
   *place = next_;
}

void
HookTap::tellAll( const char * hook, const String & arguments ) {
   Walk walk;
   while ( HookListener * listener = walk.next ) {
      walk.next = listener->next_;
      listener->hookCalled( hook, arguments );
   }
}

} // namespace Qon
