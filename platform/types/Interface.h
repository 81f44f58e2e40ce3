#pragma once
// Interfaces as the link-aggregation agent and the interface agent publish them.

#include "platform/Kiv/Attr.h"
#include "platform/Kiv/Text.h"
#include "platform/types/Link.h"
#include "platform/types/Ulnet.h"

namespace Interface {

/** A member of an aggregate: what LACP lets it do. */
class LagMember {
   bool collecting_ = true;
   bool distributing_ = true;
   KIV_VALUE( Interface, LagMember, collecting, distributing )
};

/** One aggregate, as negotiated. */
class EthLagIntfStatus : public Kiv::Entity {
   KIV_BODY( EthLagIntfStatus, Kiv::Entity )
   KIV_MAP( Ulnet::IntfId, LagMember, intf )
   KIV_ATTR( U8, lacpFallbackEnabled, 0 ) // 0 off, 1 static, 2 individual
   KIV_ATTR( Velto::String, deviceName, "" )
 public:
   explicit EthLagIntfStatus( const Ulnet::IntfId & lag );
   Ulnet::IntfId intfId() const { return intfId_; }

 private:
   const Ulnet::IntfId intfId_;
};

class EthLagIntfStatusDir : public Kiv::Entity {
   KIV_BODY( EthLagIntfStatusDir, Kiv::Entity )
   KIV_ENTITIES( Ulnet::IntfId, EthLagIntfStatus, intfStatus )
 public:
   explicit EthLagIntfStatusDir( const Velto::String & name ) : Kiv::Entity( name ) {}
};

/** The speeds that an Ethernet interface can have. */
enum class EthSpeed : U8 {
   speedUnknown,
   speed10Mbps,
   speed100Mbps,
   speed1Gbps,
   speed2p5Gbps,
   speed5Gbps,
   speed10Gbps,
   speed25Gbps,
   speed40Gbps,
   speed50Gbps,
   speed100Gbps,
   speed200Gbps,
   speed400Gbps,
   speed800Gbps,
};
KIV_ENUM( EthSpeed, speedUnknown, speed10Mbps, speed100Mbps, speed1Gbps, speed2p5Gbps, speed5Gbps,
          speed10Gbps, speed25Gbps, speed40Gbps, speed50Gbps, speed100Gbps, speed200Gbps,
          speed400Gbps, speed800Gbps )

struct EthSpeedApi {
   /** In kilobits a second; 0 of an unknown speed. */
   static U64 speedKbps( EthSpeed speed );
   /** The speed of so many kilobits a second; unknown if there is none. */
   static EthSpeed fromKbps( U64 kbps );
};

/** What an interface does with the frames that it takes. */
enum class ForwardingModel : U8 {
   bridged,   ///< it is a port of its VLANs
   routed,    ///< a router's interface
   discarding ///< neither
};
KIV_ENUM( ForwardingModel, bridged, routed, discarding )

/** One physical interface. */
class EthPhyIntfStatus : public Kiv::Entity {
   KIV_BODY( EthPhyIntfStatus, Kiv::Entity )
   KIV_ATTR( bool, active, true )
   KIV_ATTR( bool, linkUp, false )
   KIV_ATTR( EthSpeed, speed, EthSpeed::speedUnknown )
   KIV_ATTR( ForwardingModel, forwardingModel, ForwardingModel::bridged )
 public:
   explicit EthPhyIntfStatus( const Ulnet::IntfId & intf );
   Ulnet::IntfId intfId() const { return intfId_; }

 private:
   const Ulnet::IntfId intfId_;
};

class EthPhyIntfStatusDir : public Kiv::Entity {
   KIV_BODY( EthPhyIntfStatusDir, Kiv::Entity )
   KIV_ENTITIES( Ulnet::IntfId, EthPhyIntfStatus, intfStatus )
 public:
   explicit EthPhyIntfStatusDir( const Velto::String & name ) : Kiv::Entity( name ) {}
};

enum class LagMode : U8 { off = 0, on = 1, active = 2, passive = 3 };
KIV_ENUM( LagMode, off, on, active, passive )

/** Of which aggregate a physical interface is configured to be a member. */
class EthLagIntfConfig : public Kiv::Entity {
   KIV_BODY( EthLagIntfConfig, Kiv::Entity )
   KIV_ATTR( Ulnet::IntfId, lag ) // null is none
   KIV_ATTR( LagMode, mode, LagMode::on )
 public:
   explicit EthLagIntfConfig( const Ulnet::IntfId & intf );
   Ulnet::IntfId intfId() const { return intfId_; }

 private:
   const Ulnet::IntfId intfId_;
};

class EthLagIntfConfigDir : public Kiv::Entity {
   KIV_BODY( EthLagIntfConfigDir, Kiv::Entity )
   KIV_ENTITIES( Ulnet::IntfId, EthLagIntfConfig, intfConfig )
 public:
   explicit EthLagIntfConfigDir( const Velto::String & name ) : Kiv::Entity( name ) {}
};

} // namespace Interface
