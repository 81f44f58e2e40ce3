#include "agent/base/Version.h"

namespace QonAgent {

Velto::String
agentVersion() {
   return QON_VERSION;
}

} // namespace QonAgent
