#pragma once
// Who may use a file, as chmod has it.

#include "platform/Velto/Types.h"

namespace QonAgent {

/** Octal digits up to 0777. Raises Velto::RangeError. */
U32 fileMode( const Velto::String & text );

} // namespace QonAgent
