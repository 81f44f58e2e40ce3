#include "agent/base/PlainWords.h"

#include <utility>

namespace QonAgent {

using Velto::String;

String
plainWords( String text ) {
   static const std::pair< String, String > words[] = {
         { "Bridging::VlanId::value < 1 or > 4094 not allowed", "expected a VLAN from 1 to 4094" },
         { "Bridging::VlanIdOrNone::value > 4094 not allowed",
           "expected a VLAN from 1 to 4094, or 0 for none" },
   };
   for ( auto & [said, plain] : words ) {
      if ( const auto at = text.find( said ); at != String::npos ) {
         text.replace( at, said.size(), plain );
      }
   }
   return text;
}

} // namespace QonAgent
