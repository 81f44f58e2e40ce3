#pragma once
// The fields of JSON objects that come from outside, typed, with one clear line for what is wrong.

#include <set>

#include "agent/base/Json.h"
#include "platform/Velto/Types.h"

namespace QonAgent {

using Velto::String;

bool hasField( const Json & line, const char * field );

/** A field of an object, such as an event's line or a request, of the type that JSON has for T: bool,
    U32, double, String, a vector of String, or Json for whatever it is. Raises Velto::RangeError. */
template< class T >
T fieldOf( const Json & line, const char * field );

/** Notes which fields are asked for while it lives, so that those which nobody knows can be told; of
    rows of a configuration as "TABLE|field". One at a time. */
class FieldsAsked {
 public:
   FieldsAsked();
   ~FieldsAsked();
   FieldsAsked( const FieldsAsked & ) = delete;
   FieldsAsked & operator=( const FieldsAsked & ) = delete;

   const std::set< String > & names() const { return names_; }

   static bool noting() { return current_ != nullptr; }
   static void note( const String & field );

 private:
   static inline FieldsAsked * current_ = nullptr;
   std::set< String > names_;
};

} // namespace QonAgent
