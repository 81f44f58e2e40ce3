#include "platform/Kiv/TimeOfDay.h"

#include <chrono>

namespace Kiv {

std::optional< Seconds >
timeOfDay( Seconds at ) {
   TimeSource * source = timeSourceIs( nullptr );
   timeSourceIs( source );
   while ( auto passing = dynamic_cast< PassingTimeSource * >( source ) ) {
      source = passing->former();
   }
   if ( source ) {
      return std::nullopt;
   }
   auto since1970 = std::chrono::system_clock::now().time_since_epoch();
   return std::chrono::duration< Seconds >( since1970 ).count() - ( now() - at );
}

} // namespace Kiv
