#pragma once
// VLANs and their members, as the switch is configured.

#include "platform/Kiv/Attr.h"
#include "platform/types/Bridging.h"
#include "platform/types/Ulnet.h"

namespace Bridging::Vlan {

class VlanConfig : public Kiv::Entity {
   KIV_BODY( VlanConfig, Kiv::Entity )
   KIV_MAP( Ulnet::IntfId, bool, member ) // true for tagged
 public:
   explicit VlanConfig( const VlanId & vlan ) : vlan_( vlan ) {}
   VlanId vlan() const { return vlan_; }

 private:
   const VlanId vlan_;
};

class Config : public Kiv::Entity {
   KIV_BODY( Config, Kiv::Entity )
   KIV_ENTITIES( VlanId, VlanConfig, vlanConfig )
 public:
   explicit Config( const Velto::String & name ) : Kiv::Entity( name ) {}
};

} // namespace Bridging::Vlan
