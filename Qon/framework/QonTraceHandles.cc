#include "Qon/include/framework/QonTraceHandles.h"

#include <unistd.h>

#include <cstdlib>

namespace Qon {

using Velto::String;

namespace {

/** "Qon/adjacency/QonL2AdjSm.cc" -> "QonL2AdjSm". */
String
baseName( const String & path ) {
   auto slash = path.rfind( '/' );
   String file = slash == String::npos ? path : path.substr( slash + 1 );
   return file.substr( 0, file.find( '.' ) );
}

} // namespace

void
initializeQonL3QtHandle( Flintlog::HandlePtr & handle, const String & name, U8 finest ) {
   if ( handle || std::getenv( "FLINTLOG_DISABLE" ) ) {
      return;
   }
   handle = std::make_unique< Flintlog::Handle >( name, finest );
}

void
initializeQonL3QtHandleUniqueName( Flintlog::HandlePtr & handle, const String & caller,
                                   U8 finest ) {
   const char * process = std::getenv( "AGENT_PROCESS_NAME" );
   String name =
         process ? String( process ) + "-" + std::to_string( getpid() ) : baseName( caller );
   initializeQonL3QtHandle( handle, name, finest );
}

} // namespace Qon
