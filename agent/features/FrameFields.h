#pragma once
// Frames as they are typed: fields of a packet (PacketFields.h), and
//
//    vlan=10, inner=20     the tag, and the one behind it
//    priority=3            of the tag: the traffic class
//    bytes=0211220000...   the frame itself, instead of any other field

#include "agent/features/PacketFields.h"
#include "agent/softchip/Road.h"

namespace QonAgent {

constexpr char frameForm[] = "dmac=02:11:22:00:00:01,vlan=10,src=10.0.0.1";

/** Those of a packet, and the frame's own. */
std::vector< String > frameFieldNames();

/** A frame that arrives at the port. Raises Velto::RangeError. */
SoftChip::Frame frameOf( Ulnet::IntfId port, const String & text );

/** The same from its octets, from the destination on. Raises Velto::RangeError for one that ends within
    a header: which one, and where. */
SoftChip::Frame wireFrame( Ulnet::IntfId port, const std::vector< U8 > & octets );

} // namespace QonAgent
