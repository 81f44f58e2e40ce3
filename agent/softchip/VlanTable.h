#pragma once
// The VLAN table of the chip in software: the members of each VLAN as the chip holds them.
//
//    VlanHelper -> doUpdateVlan( vlan ): the members of the moment are taken over
//               -> at once or later: written to the table -> updateVlanDone()
//
// Invariants
// 1. The table changes only for VLANs that were created, and only when an update is done.
// 2. An update that fails by the fault plan (hook "doUpdateVlan") writes nothing; one that is lost
//    is never reported.

#include "Qon/include/topology/QonVlanHelper.h"
#include "agent/softchip/Completions.h"
#include "agent/softchip/FaultPlan.h"

namespace SoftChip {

using Bridging::VlanId;
using Ulnet::IntfId;
using Velto::String;

struct VlanPort {
   IntfId intf;
   Qon::VlanMembership how;
};

class SoftVlanHelper : public Qon::VlanHelper {
 public:
   SoftVlanHelper( const String & name, const Qon::QonCommonSmData * acsd, FaultPlan & plan )
       : VlanHelper( name, acsd ), plan_( plan ) {}

   /** When updates are done. */
   Completions & completions() { return completions_; }

   void doCreateHwVlan( VlanId vlan ) override { table_.emplace( vlan ); }
   void doUpdateVlan( VlanId vlan ) override;
   /** Reports each VLAN whose table differs from what it is to hold and is not under way. */
   void verify() override;
   void verifyDataIs( Velto::Ptr< Qon::VerifyData > data ) { verifyData_ = std::move( data ); }

   /** The VLANs of the table, in order of creation. */
   std::vector< VlanId > vlans() const;
   /** The members of a VLAN in the chip; empty for one that is not there. */
   const std::vector< VlanPort > & ports( VlanId vlan ) const;
   /** Whether the chip has the port in the VLAN, in either direction. */
   bool has( VlanId vlan, IntfId intf ) const;
   /** How often the table was written. */
   U64 writes() const { return writes_; }

 private:
   void done( VlanId vlan, bool fails );
   std::vector< VlanPort > wanted( VlanId vlan ) const;

   FaultPlan & plan_;
   Completions completions_;
   Kiv::DenseMap< VlanId, std::vector< VlanPort > > table_;
   Kiv::DenseMap< VlanId, std::vector< VlanPort > > underWay_;
   Velto::Ptr< Qon::VerifyData > verifyData_;
   U64 writes_ = 0;
};

} // namespace SoftChip
