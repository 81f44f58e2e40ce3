#pragma once
// Which version of the programs this is.

#include "platform/Velto/Types.h"

namespace QonAgent {

/** "1.0.0" */
Velto::String agentVersion();

} // namespace QonAgent
