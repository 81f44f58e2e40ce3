#include "simulation/Hitless.h"

namespace Sim {

void
Hitless::look( Holdings now, const String & during ) {
   if ( now == last_ ) {
      return;
   }
   for ( auto & [object, was] : before_ ) {
      auto is = now.find( object );
      if ( is == now.end() || is->second != was ) {
         disturbed_.try_emplace( object, ( is == now.end() ? "gone" : "became " + is->second ) +
                                               ", " + during );
      }
   }
   last_ = std::move( now );
}

String
Hitless::judge( const Holdings & after ) const {
   for ( auto & [object, what] : disturbed_ ) {
      auto is = after.find( object );
      if ( is != after.end() && is->second == before_.at( object ) ) {
         return "hitless: " + object + ", " + is->second + ", " + what;
      }
   }
   return {};
}

} // namespace Sim
