#pragma once
// A run of a world: events one by one, checks after each, and what is known when it fails.
//
//    simulate( plan, steps ) -> Generator -> World          a seed's own history
//    replay( history ) -> World                             one that is given
//    judge( history ) -> a child process -> replay          survives whatever happens
//    minimize( history ) -> judge...                        drops what the failure does not need

#include "simulation/History.h"

namespace Sim {

struct Outcome {
   Finding finding; ///< false: all held
   U32 steps = 0;   ///< events applied; the last one is that which failed
   U64 transcript = 0;
};

/** Runs `steps` events of the plan's own, and one that takes everything down. Invariants are checked in
    turn; when something is found, or there is a transcript, it runs with all of them after each step. */
Outcome simulate( const Plan & plan, U32 steps, std::FILE * transcript = nullptr );
/** The same events, not run. */
History historyOf( const Plan & plan, U32 steps );
Outcome replay( const History & history, std::FILE * transcript = nullptr );

/** Replays in a child process; a crash, a fatal assertion and a hang are findings too. */
Outcome judge( const History & history );

/** The smallest history found that fails with the same finding; `progress` is told the number
    of events now and then. A history that does not fail comes back as it is. */
History minimize( const History & history, void ( *progress )( U32 events ) = nullptr );

/** The last events before a failure, each on a line with its number. */
String lastEvents( const std::vector< Event > & events, U32 steps );

/** Prints seed, step and the last events when the process is killed by an assertion, a crash or
    a hang, and ends it with `exitCode`. */
void reportDeath( int exitCode );
/** Kills the process with SIGPROF if it works for a minute without another call of this. */
void limitTime();
/** Keeps the number of the present step there, for a process that outlives this one. */
void stepsCountIn( U32 & counter );

} // namespace Sim
