#pragma once
// Access lists: what a chip brings to program instances of them.

#include <set>

#include "Qon/include/acl/AclHelper.h"
#include "chip/Chip.h"

namespace QonChip {

/** An instance in the chip. */
struct HeldAcl {
   Acl::AclType type = Acl::AclType::ip;
   String name;
   Qon::AclKey key;
   U32 number = 0;
   bool committed = false; ///< it decides
   bool stale = false;     ///< of a former helper
   Ptr< const Qon::AclRuleSet > rules;
   std::set< Qon::AclIntfUse > uses; ///< of hosts: of the port alone
};

struct HeldAcls {
   std::vector< HeldAcl > acls;
   std::set< IntfId > blocked;
};

/** A unit, and its room for rules. */
struct AclUnit {
   String name;
   U32 used = 0;
   U32 size = 0;
   bool there = true;
};

/** The header of a packet, as far as lists look at it. */
struct AclPacket {
   Ulnet::EthAddr ethSrc, ethDst;
   U16 etherType = 0;
   Ulnet::IpGenAddr src, dst; ///< of one family; null: no IP packet
   U8 protocol = 0;
   std::optional< U16 > srcPort, dstPort;
   U8 tcpFlags = 0;
   std::optional< U8 > icmpType, icmpCode;
   bool fragment = false; ///< behind the first
};

/** What decides on a packet that passes an interface. */
struct AclDecision {
   enum class Verdict : U8 { noList, permit, deny, blocked };
   Verdict verdict = Verdict::noList;
   Qon::AclOperation acl; ///< the instance, and its rule; of a list's decision alone
   Qon::AclRule rule;
};
using AclVerdict = AclDecision::Verdict;

class AclPart {
 public:
   virtual ~AclPart() = default;

   /** The hook object. */
   virtual Ptr< QonHelper::AclHelper > makeAclHelper() = 0;

   /** What the chip holds; none if it cannot be read back. */
   virtual std::optional< HeldAcls > acls() const { return std::nullopt; }
   /** Its units; empty if it does not tell. */
   virtual std::vector< AclUnit > units() const { return {}; }
   /** What the chip does with a packet: the first list that denies decides, else the last one that
       was asked. `member`: of the port-channel that carries a sub-interface. None if it cannot
       tell. */
   virtual std::optional< AclDecision > lookup( IntfId intf, IntfId member,
                                                Acl::AclDirection direction,
                                                const AclPacket & packet ) const {
      (void)intf, (void)member, (void)direction, (void)packet;
      return std::nullopt;
   }
};

} // namespace QonChip
