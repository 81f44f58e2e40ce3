#include "Qon/include/tapagg/QonTapaggSm.h"

#include "platform/Kiv/Describe.h"

KIV_DEFINE( Qon::AllocatedGroupInfo )
KIV_DEFINE( Qon::AllocatedPortInfo )
KIV_DEFINE( Qon::TapAggSm )

namespace Qon {

using Bridging::Input::TapGroups;

void
TapAggUsers::noteParts( const String & name, bool used ) {
   if ( name.find( ',' ) == String::npos ) {
      return;
   }
   for ( const String & part : TapGroups( name ) ) {
      auto & joins = *joins_.emplace( part ).first;
      used ? void( joins.emplace( name ) ) : void( joins.erase( name ) );
      if ( joins.empty() ) {
         joins_.erase( part );
      }
   }
}

std::vector< String >
TapAggUsers::pmapGroups() const {
   std::vector< String > names;
   for ( auto && entry : users_ ) {
      if ( entry.value.pmapGroup ) {
         names.push_back( entry.key );
      }
   }
   return names;
}

std::vector< String >
TapAggUsers::joinsOf( const String & part ) const {
   std::vector< String > names;
   if ( auto joins = joins_.find( part ) ) {
      for ( auto && entry : *joins ) {
         names.push_back( entry.key );
      }
   }
   return names;
}

std::vector< TapAggUsers::IntfId >
TapAggUsers::toolsOfParts( const String & name ) const {
   KeySet< IntfId > tools;
   if ( name.find( ',' ) != String::npos ) {
      for ( const String & part : TapGroups( name ) ) {
         if ( auto users = users_.find( part ) ) {
            for ( auto && entry : users->tools ) {
               tools.emplace( entry.key );
            }
         }
      }
   }
   std::vector< IntfId > list;
   for ( auto && entry : tools ) {
      list.push_back( entry.key );
   }
   return list;
}

} // namespace Qon
