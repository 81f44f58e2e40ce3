#pragma once
// The hooks of VLANs over the table of the chip in software. The table outlives it.
//
//    VlanHelper -> doUpdateVlan( vlan ): the members of the moment go to the table
//               -> at once or later: they are in it -> updateVlanDone()

#include "agent/softchip/VlanTable.h"

namespace SoftChip {

class SoftVlanHelper : public Qon::VlanHelper, private VlanTable::Hook {
 public:
   SoftVlanHelper( const String & name, const Qon::QonCommonSmData * acsd, VlanTable & table );
   ~SoftVlanHelper() override;

   VlanTable & table() { return table_; }
   const VlanTable & table() const { return table_; }

   void doCreateHwVlan( VlanId vlan ) override { table_.create( vlan ); }
   void doUpdateVlan( VlanId vlan ) override { table_.update( vlan, wanted( vlan ) ); }
   /** Reports each VLAN whose table differs from what it is to hold and is not under way. */
   void verify() override;
   void verifyDataIs( Velto::Ptr< Qon::VerifyData > data ) { verifyData_ = std::move( data ); }

 private:
   void updated( VlanId vlan, bool fails ) override;
   VlanPorts wanted( VlanId vlan ) const;

   VlanTable & table_;
   Velto::Ptr< Qon::VerifyData > verifyData_;
};

} // namespace SoftChip
