#pragma once
// Fatal assertions and range errors: the two ways in which the platform refuses.
//
// An assertion states what the program itself guarantees. When it fails, one line
//    <source>:<line>: <function>: Assertion '<expression>' failed.
// goes to standard error and the process aborts. Assertions stay on in every build.
// A range error states what a caller's value must be; it is an exception.

#include <stdexcept>

#include "platform/Velto/Types.h"

namespace Velto {

/** Raised for a value outside its type's range; what() is the whole text. */
class RangeError : public std::range_error {
 public:
   using std::range_error::range_error;
};

/** Prints the failure of `expression` and aborts. `source` is a path or a module name; of a
    path the last part without its ending is printed. */
[[noreturn]] void assertFail( const char * expression, const char * source, int line,
                              const char * function );

} // namespace Velto

/** Aborts unless the expression holds. The text printed is the expression as it is written. */
#define VELTO_ASSERT( ... )                                                                        \
   ( static_cast< bool >( __VA_ARGS__ )                                                            \
           ? void( 0 )                                                                             \
           : ::Velto::assertFail( #__VA_ARGS__, __FILE__, __LINE__, __PRETTY_FUNCTION__ ) )
