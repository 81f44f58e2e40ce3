#include "agent/base/ClockText.h"

#include <cstdio>
#include <ctime>

#include "platform/Kiv/TimeOfDay.h"

namespace QonAgent {

Velto::String
clockText( Kiv::Seconds at ) {
   const auto day = Kiv::timeOfDay( at );
   if ( !day ) {
      return "";
   }
   const auto milliseconds = U64( *day * 1000 );
   const auto seconds = std::time_t( milliseconds / 1000 );
   std::tm local = {};
   localtime_r( &seconds, &local );
   char text[40];
   const auto size = std::strftime( text, sizeof( text ), "%Y-%m-%d %H:%M:%S", &local );
   std::snprintf( text + size, sizeof( text ) - size, ".%03u", unsigned( milliseconds % 1000 ) );
   return text;
}

} // namespace QonAgent
