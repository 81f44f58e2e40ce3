#include "agent/base/FileMode.h"

#include <cstdlib>

#include "platform/Kiv/Text.h"

namespace QonAgent {

U32
fileMode( const Velto::String & text ) {
   char * end = nullptr;
   const unsigned long mode = std::strtoul( text.c_str(), &end, 8 );
   if ( text.empty() || *end || mode > 0777 ) {
      Kiv::textRefused( "up to 0777", text );
   }
   return U32( mode );
}

} // namespace QonAgent
