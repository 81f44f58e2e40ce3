#pragma once
// What a rule of an access list matches: a packet, field by field.
//
// A field that a packet has not (the ports of a further fragment, the protocol of a frame that is no IP
// packet) is matched by no filter that asks for it.

#include "chip/AclPart.h"

namespace SoftChip {

using QonChip::AclPacket;

/** Whether lists of the type are asked about the packet at all. */
bool concerns( Acl::AclType type, const AclPacket & packet );
bool matches( Acl::AclType type, const Acl::Rule & rule, const AclPacket & packet );

} // namespace SoftChip
