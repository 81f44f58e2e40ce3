#include "platform/Kiv/Restart.h"

namespace Kiv {

namespace {
bool restarting = false;
}

bool
agentRestarting() {
   return restarting;
}

void
agentRestartingIs( bool v ) {
   restarting = v;
}

} // namespace Kiv
