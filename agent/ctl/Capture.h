#pragma once
// Files of captured frames, in the classic format (pcap) of either byte order.

#include <vector>

#include "platform/Velto/Types.h"

namespace QonAgent {

using Velto::String;

/** The frames of a file ("-" is standard input), as many octets of each as are needed to tell what it is.
    Raises Velto::RangeError "FILE: what": for a file that is no whole capture of Ethernet frames. */
std::vector< String > readCapture( const String & file );

/** Two digits an octet. */
String hexOf( const String & octets );

} // namespace QonAgent
