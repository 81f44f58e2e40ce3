#pragma once
// Runs the programs that were built.

#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <cstdlib>

#include "platform/Velto/Types.h"

namespace Tests {

using Velto::String;

/** Runs a shell command; what it writes goes to `text`. Its exit status, -1 if it was killed. */
inline int
shell( const String & command, String & text ) {
   std::FILE * pipe = popen( ( "( " + command + " ) 2>&1 < /dev/null" ).c_str(), "r" );
   std::array< char, 4096 > piece;
   text.clear();
   while ( std::size_t n = fread( piece.data(), 1, piece.size(), pipe ) ) {
      text.append( piece.data(), n );
   }
   int status = pclose( pipe );
   return WIFEXITED( status ) ? WEXITSTATUS( status ) : -1;
}

/** The folder of the built programs. */
inline String
programs() {
   const char * folder = std::getenv( "QON_BIN" );
   return folder ? folder : "build/release/bin";
}

inline int
runProgram( const String & command, String & text ) {
   return shell( programs() + "/" + command, text );
}

} // namespace Tests
