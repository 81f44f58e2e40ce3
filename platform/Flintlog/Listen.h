#pragma once
// Traces for whoever asks while the process runs: by the name of a facility, up to a level of detail.
//
//    listen( "QonVlanHelper", &sink, 5 ) ... listen( "QonVlanHelper", nullptr, 0 )
//
// Ownership: a sink stays its owner's, who says unlisten() before it ends.

#include <vector>

#include "platform/Flintlog/Trace.h"

namespace Flintlog {

/** The names of all facilities, in alphabetical order. */
std::vector< Velto::String > facilities();

/** Gives the facilities of that name a sink of their own, up to that level; null takes it away. Raises
    Velto::RangeError, which names what there is, for a name that no facility has. */
void listen( const Velto::String & facility, Sink * sink, U8 finest );
/** Nobody traces to this sink any more. */
void unlisten( const Sink * sink );

} // namespace Flintlog
