#pragma once
// One rule of an access list: what it matches, and what becomes of that.
//
//    Rule: seq 10, permit, ip{ protocol 6, src 10.0.0.0/8, dstPort 80-90 }
//
// 1. A filter that says nothing of a field matches whatever stands in it.
// 2. Lists of type ip and ipv6 look at `ip`, lists of type mac at `mac`; the other filter counts for
//    nothing.
// 3. Rules are asked in ascending order of their numbers, and the first one that matches decides.

#include <optional>

#include "platform/Kiv/Text.h"
#include "platform/types/Ulnet.h"

namespace Acl {

using Velto::String;

enum class AclType : U8 { ip = 0, mac = 1, ipv6 = 2 };
KIV_ENUM( AclType, ip, mac, ipv6 )

constexpr AclType
ip() {
   return AclType::ip;
}
constexpr AclType
mac() {
   return AclType::mac;
}
constexpr AclType
ipv6() {
   return AclType::ipv6;
}

/** Whether a list is asked about what comes in by an interface, or about what leaves. */
enum class AclDirection : U8 { in = 0, out = 1 };
KIV_ENUM( AclDirection, in, out )

inline constexpr AclType aclTypes[] = { AclType::ip, AclType::mac, AclType::ipv6 };
inline constexpr AclDirection aclDirections[] = { AclDirection::in, AclDirection::out };

/** Rules that nobody wrote: the switch adds them behind those that were. */
enum class ImplicitRuleType : U8 {
   icmpv6NeighborSolicitation,
   icmpv6NeighborAdvertisement,
   denyAll,
};
KIV_ENUM( ImplicitRuleType, icmpv6NeighborSolicitation, icmpv6NeighborAdvertisement, denyAll )

enum class RuleAction : U8 { permit, deny };
KIV_ENUM( RuleAction, permit, deny )

/** Protocols that have ports, or types. */
namespace Protocol {
constexpr U8 icmp = 1, tcp = 6, udp = 17, icmpv6 = 58;
}

/** Ports of TCP and UDP, both ends included; any by default. */
class PortRange {
   U16 first_ = 0;
   U16 last_ = 65535;
   KIV_VALUE( Acl, PortRange, first, last )

   bool any() const { return first_ == 0 && last_ == 65535; }
   bool has( U16 port ) const { return first_ <= port && port <= last_; }
};

/** Of IPv4 and IPv6 packets. */
class IpFilter {
   std::optional< U8 > protocol_;
   Ulnet::IpGenPrefix src_; // null is any
   Ulnet::IpGenPrefix dst_;
   PortRange srcPort_;
   PortRange dstPort_;
   U8 tcpFlags_ = 0; // in the bits of the mask
   U8 tcpFlagsMask_ = 0;
   std::optional< U8 > icmpType_;
   std::optional< U8 > icmpCode_;
   bool fragments_ = false; // only fragments behind the first, which show no ports
   KIV_VALUE( Acl, IpFilter, protocol, src, dst, srcPort, dstPort, tcpFlags, tcpFlagsMask, icmpType,
              icmpCode, fragments )
};

/** Of the frame's own header. */
class MacFilter {
   Ulnet::EthAddrWithMask src_{ Ulnet::EthAddr(), Ulnet::EthAddr() }; // any
   Ulnet::EthAddrWithMask dst_{ Ulnet::EthAddr(), Ulnet::EthAddr() };
   std::optional< U16 > etherType_;
   KIV_VALUE( Acl, MacFilter, src, dst, etherType )
};

class Rule {
   U32 seq_ = 0;
   RuleAction action_ = RuleAction::permit;
   bool log_ = false;
   String mirrorSession_; // to which what matches is copied; empty: none
   IpFilter ip_;
   MacFilter mac_;
   KIV_VALUE( Acl, Rule, seq, action, log, mirrorSession, ip, mac )
};

} // namespace Acl
