#pragma once
// The hardware side of VLANs: what a chip-specific agent overrides, and the request for VLAN
// membership of a port, which other features make.
//
//    features -> requestPortVlanMembershipChange() -> doAddPortToVlan() / doRemovePortFromVlan()
//    VlanHelper (QonVlanHelper.h) keeps membership and forwarding per VLAN on top of these hooks.

#include "Qon/include/framework/QonBaseSm.h"
#include "platform/Kiv/Text.h"
#include "platform/types/Bridging.h"
#include "platform/types/Ulnet.h"

namespace Qon {

enum class PortVlanMembershipChangeKind : U8 {
   setOverride = 0, // the flags replace the membership
   expand = 1,      // the flags are added to the membership
};
KIV_ENUM( PortVlanMembershipChangeKind, setOverride, expand )

class VlanHelperBase : public QonBaseHelper {
 public:
   explicit VlanHelperBase( const String & name ) : QonBaseHelper( name ) {}

   /** Compares what the chip holds with what is wanted; findings go to the verification data. */
   virtual void verify() { unimplemented( "VlanHelperBase::verify" ); }
   /** Writes the VLAN's desired membership to the chip. Counts as done when the chip's agent
       calls VlanHelper::updateVlanDone(). */
   virtual void doUpdateVlan( Bridging::VlanId ) { unimplemented( "VlanHelper::doUpdateVlan" ); }
   /** Makes the VLAN in the chip, before its first doUpdateVlan. Done on return. */
   virtual void doCreateHwVlan( Bridging::VlanId ) {
      unimplemented( "VlanHelper::doCreateHwVlan" );
   }
   /** Adds the port to the VLAN with these flags, or changes the flags that it has. */
   virtual void doAddPortToVlan( Ulnet::IntfId, Bridging::VlanId, bool /* tagged */,
                                 bool /* ingress */, bool /* egress */ ) {
      unimplemented( "VlanHelper::doAddPortToVlan" );
   }
   virtual void doRemovePortFromVlan( Ulnet::IntfId, Bridging::VlanId ) {
      unimplemented( "VlanHelper::doRemovePortFromVlan" );
   }
   /** Sets the VLAN's filtering database id. Done on return. */
   virtual void doUpdateVlanFid( Bridging::VlanId, U32 /* fid */ ) {
      unimplemented( "VlanHelper::doUpdateVlanFid" );
   }
   /** Asks for `port`'s membership in `vlan`; both directions false asks for none. Returns the
       generation to wait for, 0 if nothing had to be programmed. The base knows setOverride
       only. */
   virtual U64 requestPortVlanMembershipChange( PortVlanMembershipChangeKind kind,
                                                Ulnet::IntfId port, Bridging::VlanId vlan,
                                                bool tagged, bool ingress, bool egress );

   QON_ASSERT_FAMILY( VlanHelperBase, "QonVlanHelperBase", Silence::never )

 protected:
   void unimplemented( const char * hook ) const { qonAssert( unimplementedFunction( hook ) ); }
};

} // namespace Qon
