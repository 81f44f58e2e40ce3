// A recording, replayed: as it is, or, where it has no title, line by line with the checks that no
// fuzzer would find.

#include <sstream>

#include "agent/AgentRun.h"
#include "agent/SoftChips.h"
#include "fuzz/File.h"
#include "fuzz/Fuzz.h"
#include "platform/Kiv/LogRecorder.h"

using QonAgent::Record;

static void
write( const Fuzz::String & text, const Fuzz::String & name ) {
   if ( text.starts_with( "qon-recording" ) ) {
      std::ofstream( name, std::ios::binary ) << text;
      return;
   }
   QonAgent::RecordWriter writer( name );
   std::istringstream lines( text );
   for ( Fuzz::String line; std::getline( lines, line ); ) {
      if ( !line.empty() ) {
         writer.write( { Record::Kind( line[0] ),
                         line.size() > 2 ? QonAgent::unescaped( line.substr( 2 ) ) : "" } );
      }
   }
}

FUZZ( recording ) {
   const Kiv::LogRecorder quiet;
   const Fuzz::File file;
   write( input.rest(), file.name );
   QonAgent::replayFile(
         file.name, []( const Fuzz::String & ) {}, QonAgent::softChips() );
}
