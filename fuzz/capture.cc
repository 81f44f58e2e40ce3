// A file of captured frames.

#include "agent/ctl/Capture.h"
#include "fuzz/File.h"
#include "fuzz/Fuzz.h"
#include "fuzz/World.h"

FUZZ( capture ) {
   const Fuzz::File file( input.rest() );
   Fuzz::accepted( [&] { QonAgent::readCapture( file.name ); } );
}
