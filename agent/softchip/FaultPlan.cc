#include "agent/softchip/FaultPlan.h"

#include <algorithm>

#include "platform/Velto/Assert.h"

namespace SoftChip {

bool
FaultPlan::applies( Active & active ) {
   const Fault & fault = active.fault;
   return active.calls >= fault.call &&
          ( fault.inThousand >= 1000 || random_.below( 1000 ) < fault.inThousand );
}

std::optional< Trouble >
FaultPlan::next( const char * hook ) {
   std::optional< Trouble > trouble;
   if ( faults_.empty() ) {
      return trouble;
   }
   VELTO_ASSERT( hooks_.contains( hook ) );
   for ( auto & active : faults_ ) {
      if ( active.fault.hook != hook ) {
         continue;
      }
      ++active.calls;
      if ( !trouble && applies( active ) ) {
         trouble = active.fault.trouble;
         if ( active.fault.times && --active.fault.times == 0 ) {
            active.fault.hook.clear(); // used up
         }
      }
   }
   std::erase_if( faults_, []( const Active & active ) { return active.fault.hook.empty(); } );
   return trouble;
}

void
FaultPlan::limitIs( const String & table, U32 entries ) {
   *limits_.emplace( table, entries ).first = entries;
}

U32
FaultPlan::limit( const char * table, U32 size ) const {
   if ( limits_.empty() ) {
      return size;
   }
   auto limit = limits_.find( table );
   return limit ? std::min( *limit, size ) : size;
}

void
FaultPlan::unitLostIs( const String & unit, bool lost ) {
   if ( lost ? lost_.emplace( unit ).second : lost_.erase( unit ) ) {
      for ( auto & hears : unitsHeardBy_ ) {
         hears( unit );
      }
   }
}

void
FaultPlan::clear() {
   faults_.clear();
   limits_.clear();
   while ( !lost_.empty() ) {
      unitLostIs( String( ( *lost_.begin() ).key ), false );
   }
}

} // namespace SoftChip
