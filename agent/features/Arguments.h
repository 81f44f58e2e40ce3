#pragma once
// What features do alike with the arguments of their commands and the fields of their events.

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "agent/Agent.h"
#include "agent/Json.h"

namespace QonAgent {

/** The entities of a collection, by name of interface: Ethernet9 before Ethernet10. */
template< class Iterator >
auto
inOrder( Iterator i ) {
   std::vector< std::pair< Ulnet::IntfId, decltype( i.ptr() ) > > all;
   for ( ; i; ++i ) {
      all.emplace_back( i.key(), i.ptr() );
   }
   std::sort( all.begin(), all.end(),
              []( const auto & a, const auto & b ) { return a.first < b.first; } );
   return all;
}

/** A port or a port-channel that a command is given, if it likes. */
Argument intfArgument( const String & name, const String & what,
                       std::function< bool( Ulnet::IntfId intf ) > known );
/** The same of a VLAN. */
Argument vlanArgument( std::function< bool( Bridging::VlanId vlan ) > known );

/** What there is to show of a part that the chip has not: Velto::RangeError. */
[[noreturn]] void notServed( const Agent & agent, const char * what );

/** A field of an event's line, of the type that JSON has for T. Raises Velto::RangeError. */
template< class T >
T
fieldOf( const Json & line, const char * field ) {
   auto found = line.find( field );
   if ( found == line.end() ) {
      throw Velto::RangeError( String( "field '" ) + field + "' is missing" );
   }
   try {
      return found->template get< T >();
   } catch ( const nlohmann::json::exception & ) {
      throw Velto::RangeError( String( "field '" ) + field + "' cannot be " + found->dump() );
   }
}

} // namespace QonAgent
