#pragma once
// The fields of JSON objects that come from outside, typed, with one clear line for what is wrong.

#include "agent/base/Json.h"
#include "platform/Velto/Types.h"

namespace QonAgent {

using Velto::String;

bool hasField( const Json & line, const char * field );

/** A field of an object, such as an event's line or a request, of the type that JSON has for T: bool,
    U32, double, String, a vector of String, or Json for whatever it is. Raises Velto::RangeError. */
template< class T >
T fieldOf( const Json & line, const char * field );

} // namespace QonAgent
