// Access lists on the road of a frame. A frame is no IP packet: lists of type mac are asked, the
// port's first, then those of its VLAN's interface. Blocks let nothing pass.

#include "agent/softchip/AclPart.h"
#include "agent/softchip/Chip.h"
#include "agent/softchip/Stages.h"

namespace SoftChip {

namespace {

using QonChip::AclVerdict;

Verdict
askLists( const Chip & chip, IntfId port, Bridging::VlanIdOrNone vlan, Acl::AclDirection direction,
          const Frame & frame ) {
   QonChip::AclPacket packet;
   packet.ethSrc = frame.source;
   packet.ethDst = frame.destination;
   const IntfId places[] = { port,
                             vlan.isNone() ? IntfId() : Ulnet::VlanIntfId::intfId( vlan.value() ) };
   String what;
   for ( IntfId intf : places ) {
      if ( !intf ) {
         continue;
      }
      const auto decision =
            chip.of< AclPart >().table().lookup( intf, IntfId(), direction, packet );
      const String list = intf.stringValue() + ": list " + decision.acl.aclName;
      switch ( decision.verdict ) {
      case AclVerdict::noList:
         break;
      case AclVerdict::blocked:
         return { false, intf.stringValue() + " is blocked" };
      case AclVerdict::deny:
         return { false, list + " denies it" };
      case AclVerdict::permit:
         what += ( what.empty() ? "" : "; " ) + list + " permits it";
      }
   }
   return { true, what };
}

} // namespace

Verdict
passAcl( const Chip & chip, Travel & travel ) {
   return askLists( chip, travel.frame.port, travel.vlan, Acl::AclDirection::in, travel.frame );
}

Verdict
passAclOut( const Chip & chip, const Travel & travel, Way & way ) {
   return askLists( chip, way.copy.port, travel.vlan, Acl::AclDirection::out, travel.frame );
}

} // namespace SoftChip
