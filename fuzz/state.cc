// A snapshot of the state database, which a small switch is then configured over.

#include "agent/base/StateFile.h"
#include "fuzz/Fuzz.h"
#include "fuzz/World.h"

FUZZ( state ) {
   Fuzz::VirtualWorld world;
   Fuzz::accepted(
         [&] { QonAgent::applyStateText( world.agent.entities(), "state", input.rest() ); } );
   world.load( Fuzz::smallSwitch );
   world.agent.inputsRead();
   world.runOn();
}
