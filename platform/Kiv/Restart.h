#pragma once
// Whether the agent goes down for a restart: what it programmed shall stay in the hardware, and
// what it published shall stay published, for the next incarnation.
//
//    host: agentRestartingIs( true ) -> ends its state machines
//    clean-up of a state machine: agentRestarting() -> leaves everything as it is

namespace Kiv {

/** False until the host says so. */
bool agentRestarting();
void agentRestartingIs( bool v );

} // namespace Kiv
