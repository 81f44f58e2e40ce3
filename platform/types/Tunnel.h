#pragma once
// Tunnels as routing sees them: by which way the far end can be reached.

#include "platform/Kiv/Attr.h"
#include "platform/types/Bridging.h"
#include "platform/types/IpAddr.h"
#include "platform/types/Ulnet.h"

namespace Tunnel {

/** The far end of a tunnel. */
class Endpoint {
   Ulnet::IpGenAddr dst_;
   Velto::String vrf_;
   KIV_VALUE( Tunnel, Endpoint, dst, vrf )
};

/** The way to it: the interface by which frames leave, and to whom they go next. */
class Resolution {
   Ulnet::IntfId intf_;
   Ulnet::EthAddr nextHop_;
   Bridging::VlanIdOrNone vlan_;
   KIV_VALUE( Tunnel, Resolution, intf, nextHop, vlan )
};

class Status : public Kiv::Entity {
   KIV_BODY( Status, Kiv::Entity )
   KIV_MAP( Endpoint, Resolution, resolution ) // without an entry there is no way
 public:
   explicit Status( const Velto::String & name ) : Kiv::Entity( name ) {}
};

} // namespace Tunnel
