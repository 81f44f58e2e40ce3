#include "platform/Velto/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace Velto {

namespace {
/** "Qon/mac/QonChipProgrammer.cc" -> "QonChipProgrammer". */
String
moduleOf( const String & path ) {
   auto slash = path.rfind( '/' );
   String file = slash == String::npos ? path : path.substr( slash + 1 );
   return file.substr( 0, file.find( '.' ) );
}
} // namespace

void
assertFail( const char * expression, const char * source, int line, const char * function ) {
   std::fprintf( stderr, "%s:%d: %s: Assertion '%s' failed.\n", moduleOf( source ).c_str(), line,
                 function, expression );
   std::fflush( stderr );
   std::abort();
}

} // namespace Velto
