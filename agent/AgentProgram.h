#pragma once
// A whole agent as a program: what main() of a chip developer's agent calls.
//
//    #include "agent/AgentProgram.h"
//
//    int main( int argc, char ** argv ) {
//       return QonAgent::agentMain( argc, argv, makeMyChip );
//    }
//
// The agent mounts the state database, makes the chip and then the features over its parts, loads
// the files that the command line names, serves qonctl, records if it is asked to, and takes
// everything down in reverse: features, then Chip::takeDown(), then the chip. Features whose part
// the chip has not do without. On virtual time the chip is pumped before the time moves on.
//
// Ownership: the chip is the agent's. One agent a process at a time.

#include <vector>

#include "chip/Chip.h"

namespace QonAgent {

/** A chip that an agent can be started over. */
struct ChipChoice {
   Velto::String name; ///< one word, for --chip and recordings
   QonChip::MakeChip make;
};
/** At least one; the first is taken unless another is chosen. */
using Chips = std::vector< ChipChoice >;

/** Runs until SIGTERM, SIGINT, or, with --once, until there is nothing left to do. Returns the exit
    code: 0 ended as asked, 1 a replay that differs, 2 bad input. */
int agentMain( int argc, char ** argv, const QonChip::MakeChip & make );
/** With an option --chip that chooses one of several. */
int agentMain( int argc, char ** argv, const Chips & chips );

} // namespace QonAgent
