// A configuration file, twice: as what an agent starts with, and loaded over what is there.

#include "fuzz/Fuzz.h"
#include "fuzz/World.h"

FUZZ( config ) {
   Fuzz::VirtualWorld world;
   for ( unsigned i = 0; i < 2; ++i ) {
      if ( !Fuzz::accepted( [&] { world.load( input.rest() ); } ) ) {
         return;
      }
      world.agent.inputsRead();
      world.runOn();
   }
}
