// An agent over the chip in the other process.

#include "Driver.h"
#include "agent/AgentProgram.h"

int
main( int argc, char ** argv ) {
   return QonAgent::agentMain( argc, argv, Piped::makePipedChip );
}
