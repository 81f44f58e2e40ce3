#pragma once
// What VLAN mapping reads and writes in the state database, beside the bridging configuration.
//
//    flow programming -> QonFlowVlanXlateConfigDir -> VlanMappingSm
//    VlanMappingSm -> QonVlanMappingConfigDir, one a direction --> chip agent
//                     QonVlanMappingIntfConfigDir             /       |
//    VlanMappingSm <- QonVlanMappingStatusDir, one a direction <------'
//    VlanMappingSm -> QonVlanLagMemberStatusDir -> chip agent
//
// The directories are used by a chip that takes translations from them, and goes on with what they
// hold when the agent restarts. All keys in them name physical ports: for a port-channel, its members.

#include "Qon/include/framework/QonTypes.h"
#include "platform/types/VlanMapping.h"

namespace Qon {

using Velto::String;

/** A translation in one direction, on one interface. Native translations have the inner VLAN
    `nativeInnerVlan`, which no frame has. */
class PortVlanKey {
   Ulnet::IntfId portId_;
   U16 vlanId_ = 0;
   U16 innerVlanId_ = 0;
   KIV_VALUE( Qon, PortVlanKey, portId, vlanId, innerVlanId )

   Bridging::VlanXlateKey key() const { return { vlanId_, innerVlanId_ }; }
   static PortVlanKey of( Ulnet::IntfId port, Bridging::VlanXlateKey key ) {
      return { port, key.vlanId(), key.innerVlanId() };
   }
};

inline constexpr U16 nativeInnerVlan = 0xffff;
inline Bridging::VlanXlateKey
nativeKey( Bridging::VlanIdOrNone vlan ) {
   return { vlan.value(), nativeInnerVlan };
}
inline bool
isNative( Bridging::VlanXlateKey key ) {
   return key.innerVlanId() == nativeInnerVlan;
}

/** Who asks for a translation. */
enum class QonVlanMappingSource : U8 { BriselCli, Steerline, None };
KIV_ENUM( QonVlanMappingSource, BriselCli, Steerline, None )
inline constexpr QonVlanMappingSource qonVlanMappingSources[] = { QonVlanMappingSource::BriselCli,
                                                                  QonVlanMappingSource::Steerline };
/** As log messages name it: "CLI", "Steerline". */
const char * shownSource( QonVlanMappingSource source );

/** An entry of the retry list: a configured interface and whose translations did not all fit. */
class UnprogrammedMapping {
   Ulnet::IntfId intf_;
   QonVlanMappingSource source_ = QonVlanMappingSource::None;
   KIV_VALUE( Qon, UnprogrammedMapping, intf, source )
};

/** Hears, in either generation, that what became of a key of a configured interface may be another
    thing now. */
class VlanMappingListener {
 public:
   virtual void outcomeHeard( Ulnet::IntfId intf, Bridging::VlanMappingDirection direction,
                              Bridging::VlanXlateKey key ) = 0;

 protected:
   ~VlanMappingListener() = default;
};

/** What the flow-programming feature wants. */
class QonFlowVlanXlateConfigDir : public Kiv::Entity {
   KIV_BODY( QonFlowVlanXlateConfigDir, Kiv::Entity )
   KIV_ENTITIES( Ulnet::IntfId, Bridging::VlanXlateIntfConfig, vlanXlateIntfConfig )
 public:
   explicit QonFlowVlanXlateConfigDir( const String & name ) : Kiv::Entity( name ) {}
};

/** A translation that is handed over. `lag` is the port-channel that it was configured for, null for
    the port itself. The version changes whenever the chip agent shall look at it again. */
class QonVlanMappingConfig {
   Bridging::VlanXlateMapping mapping_;
   Ulnet::IntfId lag_;
   QonVlanMappingSource source_ = QonVlanMappingSource::BriselCli;
   U32 version_ = 0;
   KIV_VALUE( Qon, QonVlanMappingConfig, mapping, lag, source, version )
};

/** What became of it: the result, and the version that it is the result of. A chip agent that keeps
    no versions writes 0, which is taken for the present one. */
class QonVlanMappingStatus {
   QonTypes::TableAddStatus result_ = QonTypes::TableAddStatus::success;
   U32 version_ = 0;
   KIV_VALUE( Qon, QonVlanMappingStatus, result, version )

   bool answers( U32 version ) const { return version_ == 0 || version_ == version; }
};

class QonVlanMappingConfigDir : public Kiv::Entity {
   KIV_BODY( QonVlanMappingConfigDir, Kiv::Entity )
   KIV_MAP( PortVlanKey, QonVlanMappingConfig, vlanMappingConfig )
 public:
   explicit QonVlanMappingConfigDir( const String & name ) : Kiv::Entity( name ) {}
};

class QonVlanMappingStatusDir : public Kiv::Entity {
   KIV_BODY( QonVlanMappingStatusDir, Kiv::Entity )
   KIV_MAP( PortVlanKey, QonVlanMappingStatus, vlanMappingStatus )
 public:
   explicit QonVlanMappingStatusDir( const String & name ) : Kiv::Entity( name ) {}
};

/** The keys of a port that are handed over in either direction, by kind: of the command line, of the
    flow source, native. */
class QonVlanMappingIntfConfig : public Kiv::Entity {
   KIV_BODY( QonVlanMappingIntfConfig, Kiv::Entity )
   KIV_SET( Bridging::VlanXlateKey, vlanXlateKeySet )
   KIV_SET( Bridging::VlanXlateKey, dfVlanXlateKeySet )
   KIV_SET( Bridging::VlanXlateKey, nativeVlanXlateKeySet )
 public:
   explicit QonVlanMappingIntfConfig( const Ulnet::IntfId & ) {}
   bool empty() const {
      return !vlanXlateKeySets() && !dfVlanXlateKeySets() && !nativeVlanXlateKeySets();
   }
};

class QonVlanMappingIntfConfigDir : public Kiv::Entity {
   KIV_BODY( QonVlanMappingIntfConfigDir, Kiv::Entity )
   KIV_ENTITIES( Ulnet::IntfId, QonVlanMappingIntfConfig, vlanMappingIntfConfig )
 public:
   explicit QonVlanMappingIntfConfigDir( const String & name ) : Kiv::Entity( name ) {}
};

/** What of a port-channel's translations the hardware has on one member. */
class QonVlanLagMemberStatus : public Kiv::Entity {
   KIV_BODY( QonVlanLagMemberStatus, Kiv::Entity )
   KIV_SET( Bridging::VlanXlateKey, ingressKey )
   KIV_SET( Bridging::VlanXlateKey, egressKey )
 public:
   explicit QonVlanLagMemberStatus( const Ulnet::IntfId & ) {}
   void keyIs( Bridging::VlanMappingDirection d, const Bridging::VlanXlateKey & key, bool there );
   bool empty() const { return !ingressKeys() && !egressKeys(); }
};

class QonVlanLagStatus : public Kiv::Entity {
   KIV_BODY( QonVlanLagStatus, Kiv::Entity )
   KIV_ENTITIES( Ulnet::IntfId, QonVlanLagMemberStatus, memberStatus )
 public:
   explicit QonVlanLagStatus( const Ulnet::IntfId & ) {}
};

class QonVlanLagMemberStatusDir : public Kiv::Entity {
   KIV_BODY( QonVlanLagMemberStatusDir, Kiv::Entity )
   KIV_ENTITIES( Ulnet::IntfId, QonVlanLagStatus, lagStatus )
 public:
   explicit QonVlanLagMemberStatusDir( const String & name ) : Kiv::Entity( name ) {}
};

} // namespace Qon
