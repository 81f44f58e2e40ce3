// Access lists on the road of a frame: the port's, then those of its VLAN's interface; lists of each
// type that is asked about it. Blocks let nothing pass.

#include "agent/softchip/AclPart.h"
#include "agent/softchip/Chip.h"
#include "agent/softchip/Stages.h"

namespace SoftChip {

namespace {

/** What passes an interface on the way in or out. */
struct Question {
   const Chip & chip;
   const Travel & travel;
   IntfId port;
   Acl::AclDirection direction;
   Tags tags;
   std::vector< Copy > & aside;
};

/** What one rule does beside deciding. */
String
actionsOf( const Question & question, const Qon::AclRule & rule ) {
   String what = rule.rule.log() ? ", logged" : "";
   if ( rule.mirrorGroup != Mirroring::mirrorGroupInvalid() ) {
      what += ", mirrored " + mirrorBy( question.chip, question.travel, rule.mirrorGroup,
                                        question.tags, question.aside );
   }
   return what;
}

Verdict
askLists( const Question & question ) {
   const AclTable & table = question.chip.of< AclPart >().table();
   const auto vlan = question.travel.vlan();
   const IntfId places[] = { question.port,
                             vlan.isNone() ? IntfId() : Ulnet::VlanIntfId::intfId( vlan.value() ) };
   Verdict verdict = { true, "" };
   for ( IntfId intf : places ) {
      if ( intf && table.blocked( intf ) ) {
         return { false, intf.stringValue() + " is blocked" };
      }
      if ( !intf || !verdict.goesOn ) {
         continue;
      }
      for ( auto & asked :
            table.asked( intf, IntfId(), question.direction, question.travel.frame.packet ) ) {
         verdict.goesOn = asked.permits();
         verdict.what += ( verdict.what.empty() ? "" : "; " ) + intf.stringValue() + ": list " +
                         asked.acl->aclName + ( verdict.goesOn ? " permits it" : " denies it" ) +
                         actionsOf( question, *asked.rule );
      }
   }
   return verdict;
}

} // namespace

Verdict
passAcl( const Chip & chip, Travel & travel ) {
   return askLists( { chip, travel, travel.frame.port, Acl::AclDirection::in, travel.frame.tags,
                      travel.aside } );
}

Verdict
passAclOut( const Chip & chip, const Travel & travel, Way & way ) {
   return askLists( { chip, travel, way.copy.port, Acl::AclDirection::out,
                      way.copy.tags.onTheWire(), way.aside } );
}

} // namespace SoftChip
