#pragma once
// Reads whole files, with one clear line for every way in which that can fail.

#include "platform/Velto/Types.h"

namespace QonAgent {

/** The content of a file ("-" is standard input). Raises Velto::RangeError "FILE: why". */
Velto::String readFile( const Velto::String & file );

} // namespace QonAgent
