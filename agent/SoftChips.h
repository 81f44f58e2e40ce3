#pragma once
// The chips in software that an agent can be started over.

#include "agent/AgentRun.h"

namespace QonAgent {

/** "topology": one with topology tables; "vlan": one that keeps forwarding per VLAN. */
Chips softChips();

} // namespace QonAgent
