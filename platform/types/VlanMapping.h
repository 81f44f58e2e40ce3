#pragma once
// VLAN translations as the switch is configured: on which interface which VLAN becomes which.
//
//    SwitchIntfConfig[ Ethernet3 ]
//       ingress  VLAN 10 -> 110     a frame that comes in with tag 10 is in VLAN 110
//       egress   VLAN 110 -> 10     a frame of VLAN 110 goes out with tag 10
//       native   ingress 7          a frame without a tag is in VLAN 7
//                egress 7           a frame that would go out without a tag gets tag 7
//
// The numbers of keys and mappings are taken as they are written; whoever programs them checks them.

#include "platform/Kiv/Attr.h"
#include "platform/types/Bridging.h"
#include "platform/types/Ulnet.h"

namespace Bridging {

enum class VlanMappingDirection : U8 { ingress, egress };
KIV_ENUM( VlanMappingDirection, ingress, egress )

inline constexpr VlanMappingDirection vlanMappingDirections[] = { VlanMappingDirection::ingress,
                                                                  VlanMappingDirection::egress };

/** How an interface takes part in bridging. */
enum class SwitchportMode : U8 { access, trunk, dot1qTunnel, tap, tool, routed, flow };
KIV_ENUM( SwitchportMode, access, trunk, dot1qTunnel, tap, tool, routed, flow )

/** What is translated: a VLAN, and the one inside it; 0 is none. */
class VlanXlateKey {
   U16 vlanId_ = 0;
   U16 innerVlanId_ = 0;
   KIV_VALUE( Bridging, VlanXlateKey, vlanId, innerVlanId )
};

/** What it becomes. */
class VlanXlateMapping {
   U16 vlanId_ = 0;
   U16 innerVlanId_ = 0;
   KIV_VALUE( Bridging, VlanXlateMapping, vlanId, innerVlanId )
};

/** Raises Velto::RangeError unless the outer VLAN is from 1 to 4094, and the inner one none or so. */
template< class Vlans >
void
checkVlanXlate( const Vlans & vlans ) {
   VlanId( vlans.vlanId() );
   if ( vlans.innerVlanId() ) {
      VlanId( vlans.innerVlanId() );
   }
}

/** The translations that one source wants on one interface. */
class VlanXlateIntfConfig : public Kiv::Entity {
   KIV_BODY( VlanXlateIntfConfig, Kiv::Entity )
   KIV_MAP( VlanXlateKey, VlanXlateMapping, ingressVlanXlate )
   KIV_MAP( VlanXlateKey, VlanXlateMapping, egressVlanXlate )
 public:
   using Direction = VlanMappingDirection;
   explicit VlanXlateIntfConfig( const Ulnet::IntfId & intf ) : intf_( intf ) {}
   Ulnet::IntfId intf() const { return intf_; }

   /** @name Of a direction */
   /** @{ */
   bool vlanXlateHas( Direction d, const VlanXlateKey & key ) const {
      return d == Direction::ingress ? ingressVlanXlateHas( key ) : egressVlanXlateHas( key );
   }
   VlanXlateMapping vlanXlate( Direction d, const VlanXlateKey & key ) const {
      return d == Direction::ingress ? ingressVlanXlate( key ) : egressVlanXlate( key );
   }
   void vlanXlateIs( Direction d, const VlanXlateKey & key, VlanXlateMapping mapping ) {
      d == Direction::ingress ? ingressVlanXlateIs( key, mapping )
                              : egressVlanXlateIs( key, mapping );
   }
   void vlanXlateDel( Direction d, const VlanXlateKey & key ) {
      d == Direction::ingress ? ingressVlanXlateDel( key ) : egressVlanXlateDel( key );
   }
   auto vlanXlateIteratorConst( Direction d ) const {
      return d == Direction::ingress ? ingressVlanXlateIteratorConst()
                                     : egressVlanXlateIteratorConst();
   }
   /** @} */

 private:
   const Ulnet::IntfId intf_;
};

/** An interface's bridging. */
class SwitchIntfConfig : public VlanXlateIntfConfig {
   KIV_BODY( SwitchIntfConfig, VlanXlateIntfConfig )
   KIV_ATTR( SwitchportMode, switchportMode, SwitchportMode::trunk )
   KIV_ATTR( VlanIdOrNone, ingressNativeVlan )
   KIV_ATTR( VlanIdOrNone, egressNativeVlan )
 public:
   explicit SwitchIntfConfig( const Ulnet::IntfId & intf ) : VlanXlateIntfConfig( intf ) {}

   VlanIdOrNone nativeVlan( Direction d ) const {
      return d == Direction::ingress ? ingressNativeVlan() : egressNativeVlan();
   }
   void nativeVlanIs( Direction d, VlanIdOrNone vlan ) {
      d == Direction::ingress ? ingressNativeVlanIs( vlan ) : egressNativeVlanIs( vlan );
   }
};

class Config : public Kiv::Entity {
   KIV_BODY( Config, Kiv::Entity )
   KIV_ENTITIES( Ulnet::IntfId, SwitchIntfConfig, switchIntfConfig )
 public:
   explicit Config( const Velto::String & name ) : Kiv::Entity( name ) {}
};

} // namespace Bridging
