#include "agent/ctl/Output.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/Velto/Assert.h"

namespace QonAgent {

void
checkOutput( bool written ) {
   if ( !written ) {
      throw Velto::RangeError( String( "standard output: " ) + std::strerror( errno ) );
   }
}

void
print( const String & text ) {
   checkOutput( std::fputs( text.c_str(), stdout ) >= 0 );
}

String
jsonText( const Json & json, int indent ) {
   return json.dump( indent, ' ', false, Json::error_handler_t::replace );
}

void
printJson( const Json & json, int indent ) {
   print( jsonText( json, indent ) + "\n" );
}

U32
tableWidth() {
   winsize size = {};
   return ioctl( STDOUT_FILENO, TIOCGWINSZ, &size ) == 0 ? size.ws_col : 0;
}

Json
column( const char * field, const char * heading ) {
   return { { "field", field }, { "heading", heading }, { "numeric", false } };
}

void
JsonList::entry( const String & text ) {
   print( ( begun_ ? ",\n  " : String( 1, brackets_[0] ) + "\n  " ) + text );
   begun_ = true;
}

void
JsonList::end() {
   print( begun_ ? String( "\n" ) + brackets_[1] + "\n" : String( brackets_ ) + "\n" );
}

} // namespace QonAgent
