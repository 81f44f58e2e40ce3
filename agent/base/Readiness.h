#pragma once
// What a service manager is told of a program that it started.

#include "platform/Velto/Types.h"

namespace QonAgent {

/** Sends "READY=1" and the like to the socket that $NOTIFY_SOCKET names: a path, or an abstract name
    behind "@". Without one, or if nobody listens there, nothing happens. */
void tellServiceManager( const Velto::String & state );

} // namespace QonAgent
