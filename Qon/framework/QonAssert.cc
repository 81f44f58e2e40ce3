#include "Qon/include/framework/QonAssert.h"

#include <execinfo.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "platform/Velto/Assert.h"

namespace Qon {

namespace {
constexpr int capturedFrames = 11;
constexpr int searchedFrames = 7;
constexpr int reportLine = 12;
const char * const notSearched = " <Frames below are not searched, as they are too far from the "
                                 "callsite, and may result in incorrect interpretation>\n";
} // namespace

void
qonAssertFail( const String & message, const char * source, const char * function ) {
   std::fprintf( stderr, "%s\n", message.c_str() );
   std::fflush( stderr );
   Velto::assertFail( "0", source, reportLine, function );
}

String
unimplementedFunction( const char * hook ) {
   return String( "Call to unimplemented function " ) + hook;
}

bool
breadthTestPasses( const char * const * symbols, int frames ) {
   return std::any_of( symbols, symbols + std::min( frames, searchedFrames ),
                       []( const char * symbol ) { return std::strstr( symbol, "GenericIf" ); } );
}

String
breadthTestListing( const char * const * symbols, int frames ) {
   int lastSearched = std::min( frames, searchedFrames ) - 1;
   String listing;
   for ( int i = 0; i < frames; ++i ) {
      listing += "[" + std::to_string( i ) + "] " + symbols[i] + "\n";
      listing += i == lastSearched ? notSearched : "";
   }
   return listing;
}

void
assertCallerIsBreadthTestScript() {
   void * stack[capturedFrames];
   int frames = backtrace( stack, capturedFrames );
   char ** symbols = backtrace_symbols( stack, frames );
   VELTO_ASSERT( symbols );
   bool passes = breadthTestPasses( symbols, frames ) ||
                 envSet( "QON_ASSERTCALLERISBREADTHTESTSCRIPT_ALLOW" );
   String listing = passes ? "" : breadthTestListing( symbols, frames );
   std::free( symbols );
   if ( passes ) {
      return;
   }
   String text = "assertCallerIsBreadthTestScript: Did not find GenerifIf in stack (set env var "
                 "QON_ASSERTCALLERISBREADTHTESTSCRIPT_ALLOW to permit):\n" +
                 listing;
   Velto::assertFail( text.c_str(), __FILE__, __LINE__, __PRETTY_FUNCTION__ );
}

} // namespace Qon
