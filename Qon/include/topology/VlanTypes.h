#pragma once
// The vocabulary of VLANs in the hardware.

#include "platform/Kiv/Text.h"

namespace Qon {

/** How the programming of a VLAN ended. */
enum class VlanProgrammingStatus : U8 { success = 0, failed = 1 };
KIV_ENUM( VlanProgrammingStatus, success, failed )

/** How a port is in a VLAN; not at all when both directions are false. */
struct VlanMembership {
   bool tagged = false;
   bool ingress = false;
   bool egress = false;
   explicit operator bool() const { return ingress || egress; }
   bool operator==( const VlanMembership & ) const = default;
};

} // namespace Qon
