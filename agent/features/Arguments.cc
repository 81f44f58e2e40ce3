#include "agent/features/Arguments.h"

namespace QonAgent {

std::optional< Ulnet::IntfId >
argumentIntf( const Agent & agent, const std::vector< String > & arguments ) {
   if ( arguments.empty() ) {
      return std::nullopt;
   }
   if ( arguments.size() > 1 ) {
      throw Velto::RangeError( "one argument at most, not '" + arguments[1] + "'" );
   }
   return agent.names().typed( arguments[0] );
}

Json
checkedRows( Json rows, const std::vector< String > & arguments, const char * what ) {
   if ( rows.empty() && !arguments.empty() ) {
      throw Velto::RangeError( String( "there is no " ) + what + " '" + arguments[0] + "'" );
   }
   return rows;
}

} // namespace QonAgent
