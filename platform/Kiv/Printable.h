#pragma once
// Texts from files and sockets on their way to a terminal or a log.

#include "platform/Velto/Types.h"

namespace Kiv {

/** The text with everything that a terminal would act on, or that is not UTF-8, as "\\x1b". */
Velto::String printable( const Velto::String & text );

} // namespace Kiv
