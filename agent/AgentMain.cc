// qon-agent: the agent over a chip in software.

#include "agent/AgentProgram.h"
#include "agent/SoftChips.h"

int
main( int argc, char ** argv ) {
   return QonAgent::agentMain( argc, argv, QonAgent::softChips() );
}
