#pragma once
// What the forwarding tables number and report.

#include "platform/types/Number.h"

namespace Routing::Fib {
/** Version of a forwarding equivalence class, as the routing agents count it. */
using FecVersionId = Kiv::VersionId< struct FecVersionTag >;
/** Version of a route. */
using RouteVersionId = Kiv::VersionId< struct RouteVersionTag >;
} // namespace Routing::Fib

namespace Routing {
/** How urgent the routes of a table are; 0 is nothing special. */
using RoutePriority = Kiv::Number< struct RoutePriorityTag, U8 >;
} // namespace Routing

namespace Routing::Hardware {
/** Whether the hardware side acknowledges forwarding equivalence classes. */
enum class FecAckSupport : U8 { fecAckUnknown, fecAckNotSupported, fecAckSupported };
KIV_ENUM( FecAckSupport, fecAckUnknown, fecAckNotSupported, fecAckSupported )
} // namespace Routing::Hardware

namespace Quarn::Fib {
/** Names a forwarding equivalence class within one table. */
using FecId = Kiv::Number< struct FecIdTag, U64 >;
/** Names it among all tables. */
using GlobalFecId = Kiv::Number< struct GlobalFecIdTag, U64 >;
} // namespace Quarn::Fib

namespace Qon {
/** Version of what the platform-dependent layer was handed. */
using QonPdVersionId = Kiv::VersionId< struct QonPdVersionTag >;
} // namespace Qon
