#pragma once
// The fields of JSON objects that come from outside, typed, with one clear line for what is wrong.

#include <nlohmann/json.hpp>

#include "agent/base/Json.h"
#include "platform/Velto/Assert.h"
#include "platform/Velto/Types.h"

namespace QonAgent {

using Velto::String;

/** A field of an object, such as an event's line or a request, of the type that JSON has for T.
 * Raises Velto::RangeError. */
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
