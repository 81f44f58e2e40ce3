#pragma once
// Access lists in the chip in software.

#include "agent/softchip/Part.h"
#include "agent/softchip/SoftAclHelper.h"

namespace SoftChip {

class AclPart : public QonChip::AclPart {
 public:
   using Seam = QonChip::AclPart;
   explicit AclPart( const Board & board ) : table_( board.faults, board.shape.acls ) {}

   Velto::Ptr< QonHelper::AclHelper > makeAclHelper() override {
      return Velto::make< SoftAclHelper >( table_ );
   }
   std::optional< QonChip::HeldAcls > acls() const override { return table_.held(); }
   std::vector< QonChip::AclUnit > units() const override { return table_.units(); }

   std::optional< QonChip::AclDecision > lookup( QonChip::IntfId intf, QonChip::IntfId member,
                                                 Acl::AclDirection direction,
                                                 const AclPacket & packet ) const override {
      return table_.lookup( intf, member, direction, packet );
   }

   AclTable & table() { return table_; }
   const AclTable & table() const { return table_; }
   void latencyIs( Kiv::Seconds latency ) {
      table_.completions().latencyIs( latency );
      table_.blockCompletions().latencyIs( latency );
   }

 private:
   AclTable table_;
};

} // namespace SoftChip
