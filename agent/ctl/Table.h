#pragma once
// Prints rows as a table of at most `width` columns of characters.
//
//    Port-channel  Members
//    ------------  --------------------
//    PortChannel1  Ethernet0, Ethernet4
//
// 1. Columns are two blanks apart and as wide as their widest cell; numbers stand to the right.
// 2. Where that is too wide, the widest columns are narrowed and their cells continue in further
//    lines, broken at blanks, or behind slashes, where there are any.
// 3. No line ends in a blank.

#include "agent/base/Json.h"
#include "platform/Velto/Types.h"

namespace QonAgent {

/** `columns` and `rows` as the agent answers them. */
Velto::String tableOf( const Json & columns, const Json & rows, U32 width = 80 );

} // namespace QonAgent
