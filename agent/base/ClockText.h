#pragma once
// A time of Kiv::now() as people read it.

#include "platform/Kiv/Time.h"

namespace QonAgent {

/** "2026-11-22 13:05:07.123" in the time zone of the process; empty while the time is no real one. */
Velto::String clockText( Kiv::Seconds at );

} // namespace QonAgent
