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

/** One physical interface. */
class EthPhyIntfStatus : public Kiv::Entity {
   KIV_BODY( EthPhyIntfStatus, Kiv::Entity )
   KIV_ATTR( bool, active, true )
   KIV_ATTR( bool, linkUp, false )
   KIV_ATTR( U64, speed, 0 ) // bits a second
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
