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
   std::set< Qon::AclIntfUse > uses;
};

struct HeldAcls {
   std::vector< HeldAcl > acls;
   std::set< IntfId > blocked;
};

class AclPart {
 public:
   virtual ~AclPart() = default;

   /** The hook object. */
   virtual Ptr< QonHelper::AclHelper > makeAclHelper() = 0;

   /** What the chip holds; none if it cannot be read back. */
   virtual std::optional< HeldAcls > acls() const { return std::nullopt; }
};

} // namespace QonChip
