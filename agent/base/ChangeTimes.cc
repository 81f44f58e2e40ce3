#include "agent/base/ChangeTimes.h"

namespace QonAgent {

ChangeTimes::ChangeTimes( const Orvane::EntityManager & entities, const String & path )
    : watch_( PathWatch::follow( entities, path,
                                 [this]( auto & change ) { handleChange( change ); } ) ) {}

void
ChangeTimes::handleChange( const PathWatch::Change & change ) {
   if ( change.value ) {
      times_[change.path] = Kiv::now();
      return;
   }
   times_.erase( change.path );
   const String below = change.path + "/";
   auto gone = times_.lower_bound( below );
   while ( gone != times_.end() && gone->first.starts_with( below ) ) {
      gone = times_.erase( gone );
   }
}

std::optional< Kiv::Seconds >
ChangeTimes::of( const String & path ) const {
   auto found = times_.find( path );
   return found == times_.end() ? std::nullopt : std::optional( found->second );
}

} // namespace QonAgent
