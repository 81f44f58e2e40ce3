#include "platform/types/TapAggConfig.h"

#include <algorithm>

#include "platform/Kiv/Describe.h"
#include "platform/Kiv/Hash.h"

namespace Bridging::Input {

TapGroups::TapGroups( const String & text ) {
   for ( std::size_t from = 0; from < text.size(); ) {
      const auto comma = std::min( text.find( ',', from ), text.size() );
      nameIs( text.substr( from, comma - from ) );
      from = comma + 1;
   }
}

void
TapGroups::nameIs( const String & name ) {
   auto place = std::lower_bound( names_.begin(), names_.end(), name );
   if ( !name.empty() && ( place == names_.end() || *place != name ) ) {
      names_.insert( place, name );
   }
}

U64
TapGroups::hash() const {
   U64 h = 0;
   for ( const String & name : names_ ) {
      h = Kiv::hashJoin( h, Kiv::hashOf( name ) );
   }
   return h;
}

String
TapGroups::stringValue() const {
   String text;
   for ( const String & name : names_ ) {
      text += ( text.empty() ? "" : "," ) + name;
   }
   return text;
}

} // namespace Bridging::Input

KIV_DEFINE( Bridging::Input::TapPortConfig )
KIV_DEFINE( Bridging::Input::ToolPortConfig )
KIV_DEFINE( Bridging::Input::TapAggConfig )
KIV_DEFINE( Bridging::HostFlush::RequestDir )
KIV_DEFINE( Bridging::HostFlush::ReplyDir )
KIV_DEFINE( TapAgg::Status )
KIV_DEFINE( TapAgg::ToolPortStatus )
KIV_DEFINE( TapAgg::PmapGroupConfig )
KIV_DEFINE( TapAgg::PmapGroupStatus )
KIV_DEFINE( TapAgg::ClassMapConfig )
KIV_DEFINE( TapAgg::PolicyMap )
KIV_DEFINE( TapAgg::ServicePolicy )
KIV_DEFINE( TapAgg::PolicyMapConfig )
