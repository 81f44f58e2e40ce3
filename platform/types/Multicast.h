#pragma once
// Layer-2 multicast: the groups that snooping and the operator want, and what packets the CPU gets.
//
//    IgmpSnooping::Status -> vlanStatus[10].routerIntf                     ports towards routers
//                         -> vlanStatus[10].ethGroup[01:00:5e:01:01:01].intf
//    Multicast::StaticConfig -> group[{addr, vlan}].intf
//    Multicast::CopyRequestConfig -> who asks for copies, by name

#include "platform/Kiv/Attr.h"
#include "platform/types/Bridging.h"
#include "platform/types/Ulnet.h"

namespace Qon {

/** A group address in a VLAN. */
class McastAddr {
   Ulnet::EthAddr addr_;
   U32 vlanId_ = 0;
   KIV_VALUE( Qon, McastAddr, addr, vlanId )
};

} // namespace Qon

namespace Bridging::IgmpSnooping {

/** One group of a VLAN, as snooping sees it. */
class EthGroupStatus : public Kiv::Entity {
   KIV_BODY( EthGroupStatus, Kiv::Entity )
   // False while the group is not to be in hardware, whatever its members are.
   KIV_ATTR( bool, indexValid, true )
   KIV_SET( Ulnet::IntfId, intf ) // that want the group's frames
 public:
   explicit EthGroupStatus( const Ulnet::EthAddr & groupAddr ) : groupAddr_( groupAddr ) {}
   Ulnet::EthAddr groupAddr() const { return groupAddr_; }

 private:
   const Ulnet::EthAddr groupAddr_;
};

/** Snooping in one VLAN. */
class VlanStatus : public Kiv::Entity {
   KIV_BODY( VlanStatus, Kiv::Entity )
   KIV_SET( Ulnet::IntfId, routerIntf ) // behind which a multicast router is
   KIV_ENTITIES( Ulnet::EthAddr, EthGroupStatus, ethGroup )
 public:
   explicit VlanStatus( const VlanId & vlanId ) : vlanId_( vlanId ) {}
   VlanId vlanId() const { return vlanId_; }

 private:
   const VlanId vlanId_;
};

class Status : public Kiv::Entity {
   KIV_BODY( Status, Kiv::Entity )
   KIV_ENTITIES( VlanId, VlanStatus, vlanStatus )
 public:
   explicit Status( const Velto::String & name ) : Kiv::Entity( name ) {}
};

} // namespace Bridging::IgmpSnooping

namespace Bridging::Multicast {

/** One group that the operator configured. */
class StaticGroup : public Kiv::Entity {
   KIV_BODY( StaticGroup, Kiv::Entity )
   KIV_SET( Ulnet::IntfId, intf )
 public:
   explicit StaticGroup( const Qon::McastAddr & key ) : key_( key ) {}
   const Qon::McastAddr & key() const { return key_; }

 private:
   const Qon::McastAddr key_;
};

class StaticConfig : public Kiv::Entity {
   KIV_BODY( StaticConfig, Kiv::Entity )
   KIV_ENTITIES( Qon::McastAddr, StaticGroup, group )
 public:
   explicit StaticConfig( const Velto::String & name ) : Kiv::Entity( name ) {}
};

/** Who asks for what of multicast packets to reach the CPU: names of other agents. */
class CopyRequestConfig : public Kiv::Entity {
   KIV_BODY( CopyRequestConfig, Kiv::Entity )
   KIV_SET( Velto::String, linkLocalCopyRequest )   // copies of link-local packets
   KIV_SET( Velto::String, igmpCopyAndDropRequest ) // IGMP packets, which go nowhere else
 public:
   explicit CopyRequestConfig( const Velto::String & name ) : Kiv::Entity( name ) {}
};

} // namespace Bridging::Multicast
