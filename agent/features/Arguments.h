#pragma once
// What features do alike with the arguments of their commands and the fields of their events.

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>
#include <vector>

#include "agent/Agent.h"
#include "agent/Json.h"

namespace QonAgent {

/** The one interface that a command's arguments name; none if there are no arguments. Raises
    Velto::RangeError for more than one, or for a text that names no interface. */
std::optional< Ulnet::IntfId > argumentIntf( const Agent & agent,
                                             const std::vector< String > & arguments );

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

/** The rows; Velto::RangeError "there is no <what> 'ARGUMENT'" if a given argument left none. */
Json checkedRows( Json rows, const std::vector< String > & arguments, const char * what );

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
