#pragma once
// One next hop: where packets of a forwarding equivalence class go, and how they are wrapped.
//
//    NextHop (handle) -> PlatformApi::Via { ViaGen, NextHopInfo, ... }, shared by all that are equal
//    ViaAndWeight     =  NextHop and its share of the traffic
//
// "A via" and "a next hop" are the same thing. A Via behind a handle never changes, and its hash is
// computed once; handles are equal when their vias are.
//
// Numbers and types that the text of a value shows are those of the forwarding tables. Where nothing
// fixes the names of an enumeration, they are this library's.

#include "Qon/include/adjacency/QonAdjTypesCommon.h"
#include "platform/types/IntfId.h"
#include "platform/types/VrfId.h"

namespace Qon {

/** What becomes of packets at a next hop. */
enum class NextHopType : U8 {
   unset = 0,
   drop = 1,
   arpRequired = 2, // the address behind it is not known yet
   cpu = 3,
   resolved = 4,
   tunnel = 5,
   vrfAction = 6, // looked up again in another VRF
};
KIV_ENUM( NextHopType, unset, drop, arpRequired, cpu, resolved, tunnel, vrfAction )

class NextHopEntry {
   NextHopType type_ = NextHopType::unset;
   Ulnet::IpGenAddr ipGenAddr_;
   Ulnet::EthAddr macAddr_;
   Ulnet::IntfId l2Intf_;
   Ulnet::IntfId l3Intf_;
   VrfId arpVrfId_;
   Ulnet::MplsLabel label_;
   KIV_VALUE( Qon, NextHopEntry, type, ipGenAddr, macAddr, l2Intf, l3Intf, arpVrfId, label )
};

/** What a next hop was resolved to. */
class NextHopInfo {
   NextHopType nextHopType_ = NextHopType::unset;
   Ulnet::IntfId l2Intf_;
   Ulnet::EthAddr ethAddr_;
   Ulnet::IpGenAddr tunnelDstIpAddr_;
   VrfId arpVrfId_;
   U32 swTunnelGroupId_ = 0;
   KIV_VALUE( Qon, NextHopInfo, nextHopType, l2Intf, ethAddr, tunnelDstIpAddr, arpVrfId,
              swTunnelGroupId )
};

class NextHopInfoKey {
   NextHopType type_ = NextHopType::unset;
   Ulnet::EthAddr macAddr_;
   Ulnet::IntfId l2Intf_;
   Ulnet::IntfId l3Intf_;
   KIV_VALUE( Qon, NextHopInfoKey, type, macAddr, l2Intf, l3Intf )
};

/** A next hop as the forwarding tables say it. */
class ViaGen {
   Ulnet::IntfId l3Intf_;
   EncapInfo encapInfo_;
   U64 routeCacheInfo_ = 0;
   U64 unionData_ = 0;
   std::optional< Ulnet::IpGenAddr > sourceIpOpt_;
   Ulnet::IpGenAddr nextHop_;
   U32 tableId_ = 0;
   U32 rawValue_ = 0;
   KIV_VALUE( Qon, ViaGen, l3Intf, encapInfo, routeCacheInfo, unionData, sourceIpOpt, nextHop,
              tableId, rawValue )
};

/** What a next hop behind a VXLAN tunnel needs of layer 2, when it leads to a class of its own. */
class VxlanHFecTunnelL2Info {
   U32 vni_ = 0;
   Ulnet::IpGenAddr vtepAddr_;
   KIV_VALUE( Qon, VxlanHFecTunnelL2Info, vni, vtepAddr )
};

} // namespace Qon

namespace Qon::PlatformApi {

/** A next hop: what the forwarding tables say, and what it was resolved to. */
class Via {
   ViaGen viaGen_;
   NextHopInfo nextHopInfo_;
   std::optional< U64 > allocationId_; // of the platform's resource, where it has one
   std::optional< VxlanHFecTunnelL2Info > vxlanHFecTunnelL2Info_;
   KIV_VALUE( Qon::PlatformApi, Via, viaGen, nextHopInfo, allocationId, vxlanHFecTunnelL2Info )
};

} // namespace Qon::PlatformApi

namespace Qon {

/** A next hop, or none. */
using NextHop = KivStash::DedupHandle< PlatformApi::Via >;
using NextHopDedupTable = KivStash::DedupTable< PlatformApi::Via >;

/** The encapsulation of a next hop; none where there is no next hop. */
const EncapInfo & getEncapInfo( const NextHop & via );

class NextHopAndWeight {
   NextHop nextHop_;
   U32 weight_ = 1;
   KIV_VALUE( Qon, NextHopAndWeight, nextHop, weight )
};

class NexthopAndPosition {
   U32 position_ = 0;
   U32 nextLevelPosition_ = 0;
   NextHop nexthop_; // fixed text
   KIV_VALUE( Qon, NexthopAndPosition, position, nextLevelPosition, nexthop )
};

} // namespace Qon

namespace Qon::PlatformApi {

/** An entry of a via list. Its weight, 1 to 2^32 - 1, is its share of the traffic. */
class ViaAndWeight {
   NextHop via_;
   U32 weight_ = 1;
   KIV_VALUE( Qon::PlatformApi, ViaAndWeight, via, weight )
};

} // namespace Qon::PlatformApi
