#pragma once
// Mirror sessions: copies of what passes some interfaces are sent to others, or into a tunnel.
//
//    operator -> Config -> forwarding agent -> hardware
//    others   <- Status <- forwarding agent <- HwCapability, HwStatus <- chip agent
//
// 1. A session with a tunnel has no other destinations: target interfaces beside it do not count.
// 2. HwStatus.session tells what the hardware holds now; an agent that starts begins with that.

#include "platform/Kiv/Attr.h"
#include "platform/types/Acl.h"
#include "platform/types/IpAddr.h"
#include "platform/types/TableAddStatus.h"
#include "platform/types/Ulnet.h"

namespace Mirroring {

using Velto::String;

/** Names the hardware's mirror sessions. */
constexpr S32
mirrorGroupInvalid() {
   return -1;
}

/** What of a source is mirrored; a bit each. */
enum class Direction : U8 { none = 0, rx = 1, tx = 2, both = 3 };
KIV_ENUM( Direction, none, rx, tx, both )

constexpr bool
has( Direction direction, Direction part ) {
   return U8( direction ) & U8( part );
}

/** What becomes of the copies of a session; none: they leave by ports. */
enum class TunnelType : U8 { none, gre, vxlan };
KIV_ENUM( TunnelType, none, gre, vxlan )

/** A tunnel as it is configured. */
class TunnelInfo {
   TunnelType type_ = TunnelType::none;
   Ulnet::IpGenAddr src_;
   Ulnet::IpGenAddr dst_;
   U8 ttl_ = 0;
   U8 dscp_ = 0;
   U16 greProtocol_ = 0;
   U32 vni_ = 0; // of a VXLAN tunnel
   String vrf_;
   bool forwardDrop_ = false; // a GRE session without a far end: everything is dropped
   KIV_VALUE( Mirroring, TunnelInfo, type, src, dst, ttl, dscp, greProtocol, vni, vrf, forwardDrop )
};

/** How the copies of a session are made. */
class SessionAttributes {
   bool truncate_ = false;
   U16 truncationSize_ = 0;    // bytes
   U16 headerRemovalSize_ = 0; // bytes off the front
   U32 rxSampleRate_ = 0;      // one of so many; 0 is all
   U16 grePayloadType_ = 0;    // 0: the tunnel's own
   bool greTimestamping_ = false;
   bool txGreMetadata_ = false;
   U64 rateLimit_ = 0; // bits a second; 0 is none
   bool portMirroringDisabled_ = false;
   KIV_VALUE( Mirroring, SessionAttributes, truncate, truncationSize, headerRemovalSize,
              rxSampleRate, grePayloadType, greTimestamping, txGreMetadata, rateLimit,
              portMirroringDisabled )
};

/** A source: what of it is mirrored, and which of that. */
class SrcIntfConfig : public Kiv::Entity {
   KIV_BODY( SrcIntfConfig, Kiv::Entity )
   KIV_ATTR( Direction, direction, Direction::both )
   KIV_ATTR( String, aclName, "" ) // empty: everything
   KIV_ATTR( Acl::AclType, aclType, Acl::AclType::ip )
   KIV_ATTR( U32, aclPriority, 0 )
 public:
   explicit SrcIntfConfig( const Ulnet::IntfId & intf, Direction direction = Direction::both )
       : direction_( direction ), intf_( intf ) {}
   Ulnet::IntfId intf() const { return intf_; }

 private:
   const Ulnet::IntfId intf_;
};

/** A VXLAN interface as a source: what it receives of these networks. */
class SrcVxlanIntfConfig : public Kiv::Entity {
   KIV_BODY( SrcVxlanIntfConfig, Kiv::Entity )
   KIV_ATTR( Direction, direction, Direction::rx ) // other than rx has no effect
   KIV_SET( U32, vni )                             // none: nothing is mirrored
 public:
   explicit SrcVxlanIntfConfig( const Ulnet::IntfId & intf ) : intf_( intf ) {}
   Ulnet::IntfId intf() const { return intf_; }

 private:
   const Ulnet::IntfId intf_;
};

class SessionConfig : public Kiv::Entity {
   KIV_BODY( SessionConfig, Kiv::Entity )
   KIV_ENTITIES( Ulnet::IntfId, SrcIntfConfig, srcIntf )
   KIV_ENTITIES( Ulnet::IntfId, SrcVxlanIntfConfig, srcVxlanIntf )
   KIV_SET( Ulnet::IntfId, targetIntf )
   KIV_ATTR( TunnelInfo, tunnel )
   KIV_ATTR( bool, internal, false ) // made by the switch itself
   // What SessionAttributes says, one by one.
   KIV_ATTR( bool, truncate, false )
   KIV_ATTR( U16, truncationSize, 0 )
   KIV_ATTR( U16, headerRemovalSize, 0 )
   KIV_ATTR( U32, rxSampleRate, 0 )
   KIV_ATTR( U16, grePayloadType, 0 )
   KIV_ATTR( bool, greTimestamping, false )
   KIV_ATTR( bool, txGreMetadata, false )
   KIV_ATTR( U64, rateLimit, 0 )
   KIV_ATTR( bool, portMirroringDisabled, false )
   KIV_MAP( String, U64, mirrorSessRateLimitSet ) // not served: rateLimit is
 public:
   explicit SessionConfig( const String & name ) : Kiv::Entity( name ) {}
   SessionAttributes attributes() const {
      return { truncate(),      truncationSize(), headerRemovalSize(),
               rxSampleRate(),  grePayloadType(), greTimestamping(),
               txGreMetadata(), rateLimit(),      portMirroringDisabled() };
   }
};

class Config : public Kiv::Entity {
   KIV_BODY( Config, Kiv::Entity )
   KIV_ENTITIES( String, SessionConfig, session )
 public:
   explicit Config( const String & name ) : Kiv::Entity( name ) {}
};

/** What the chip agent says of the hardware. */
class HwCapability : public Kiv::Entity {
   KIV_BODY( HwCapability, Kiv::Entity )
   KIV_ATTR( U32, maxSupportedSessions, 0 ) // more than 256 count as 256
   KIV_ATTR( bool, agentFillsPool, false )  // the hosting agent fills the pool of groups
   KIV_ATTR( U32, sourceLimitsVersion, 0 )  // changes when the limits of sources change
 public:
   explicit HwCapability( const String & name ) : Kiv::Entity( name ) {}
};

/** What became of a session. */
class SessionStatus : public Kiv::Entity {
   KIV_BODY( SessionStatus, Kiv::Entity )
   KIV_ATTR( S32, mirrorGroup, mirrorGroupInvalid() )
   KIV_ATTR( bool, createdInHw, false )
   KIV_ATTR( U32, generation, 0 ) // counts the changes of the session as a whole in hardware
   KIV_SET( Ulnet::IntfId, failedSrc )
   KIV_SET( Ulnet::IntfId, failedDst )
   KIV_ATTR( bool, tunnelFailed, false )
   KIV_MAP( Ulnet::IntfId, Direction, programmedSrc )
   KIV_SET( Ulnet::IntfId, programmedDst )
 public:
   explicit SessionStatus( const String & name ) : Kiv::Entity( name ) {}
};

class Status : public Kiv::Entity {
   KIV_BODY( Status, Kiv::Entity )
   KIV_ENTITIES( String, SessionStatus, session )
 public:
   explicit Status( const String & name ) : Kiv::Entity( name ) {}
};

/** A session that the hardware holds. */
class SessionHwStatus : public Kiv::Entity {
   KIV_BODY( SessionHwStatus, Kiv::Entity )
   KIV_ATTR( S32, mirrorGroup, mirrorGroupInvalid() )
   KIV_ATTR( TunnelType, tunnelType, TunnelType::none )
   KIV_SET( Ulnet::IntfId, targetIntf )
   KIV_MAP( Ulnet::IntfId, Direction, srcIntf )
   // How the filter of a port went in, once the chip knows; the forwarding agent deletes an entry
   // before it adds the source again.
   KIV_MAP( Ulnet::IntfId, QonTypes::TableAddStatus, aclStatus )
 public:
   explicit SessionHwStatus( const String & name ) : Kiv::Entity( name ) {}
};

class HwStatus : public Kiv::Entity {
   KIV_BODY( HwStatus, Kiv::Entity )
   KIV_ENTITIES( String, SessionHwStatus, session )
   KIV_ATTR( bool, reconciled, false ) // tunnels of an earlier life may be touched
 public:
   explicit HwStatus( const String & name ) : Kiv::Entity( name ) {}
};

} // namespace Mirroring
