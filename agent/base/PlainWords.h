#pragma once
// What the library says of values that it refuses, for people who do not know its types.

#include "platform/Velto/Types.h"

namespace QonAgent {

/** The text with what names a type of the library said in other words. */
Velto::String plainWords( Velto::String text );

} // namespace QonAgent
