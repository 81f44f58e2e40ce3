#pragma once
// What passes between the stages of VLAN mapping, second generation, and between the last of them
// and the chip agent.
//
//    SourceVlanMappingConfig, one a source -> MergedVlanMappingConfig -> PlatformVlanMappingConfig
//    SourceVlanMappingStatus <-------------------------------------- PlatformVlanMappingStatus
//          by configured interface                                     by physical port

#include "Qon/include/vlanmapping/VlanMappingRecords.h"

namespace Qon {

/** Who asks for translations, in the order in which a key that is free is offered. */
enum class VlanMappingConfigSource : U8 { bridging, flow, nativeVlan };
KIV_ENUM( VlanMappingConfigSource, bridging, flow, nativeVlan )
inline constexpr VlanMappingConfigSource vlanMappingConfigSources[] = {
      VlanMappingConfigSource::bridging, VlanMappingConfigSource::flow,
      VlanMappingConfigSource::nativeVlan };
/** As log messages name it: "CLI", "Steerline", "native VLAN". */
const char * shownSource( VlanMappingConfigSource source );
/** In which mode of an interface the source counts there. Fatal for any other source. */
Bridging::SwitchportMode
vlanMappingConfigSourceActiveSwitchportMode( VlanMappingConfigSource source );

/** A translation of an interface. */
class QonVlanMappingKey {
   Bridging::VlanMappingDirection direction_ = Bridging::VlanMappingDirection::ingress;
   U16 vlanId_ = 0;
   U16 innerVlanId_ = 0;
   KIV_VALUE( Qon, QonVlanMappingKey, direction, vlanId, innerVlanId )

   Bridging::VlanXlateKey key() const { return { vlanId_, innerVlanId_ }; }
   static QonVlanMappingKey of( Bridging::VlanMappingDirection d, Bridging::VlanXlateKey key ) {
      return { d, key.vlanId(), key.innerVlanId() };
   }
};

/** The winner of a key and what it asks for. */
class MergedVlanMappingData {
   VlanMappingConfigSource source_ = VlanMappingConfigSource::bridging;
   Bridging::VlanXlateMapping mapping_;
   KIV_VALUE( Qon, MergedVlanMappingData, source, mapping )
};

/** The same on a port, for the interface that it is configured for; a port-channel, or the port
    itself. The version changes whenever the chip agent shall look at it again, and comes back in
    the status. */
class PlatformVlanMappingData {
   MergedVlanMappingData merged_;
   Ulnet::IntfId intf_;
   U32 version_ = 0;
   KIV_VALUE( Qon, PlatformVlanMappingData, merged, intf, version )
};

/** @name One of each source */
/** @{ */
class SourceIntfVlanMappingConfig : public Kiv::Entity {
   KIV_BODY( SourceIntfVlanMappingConfig, Kiv::Entity )
   KIV_MAP( QonVlanMappingKey, Bridging::VlanXlateMapping, vlanMappingConfig )
 public:
   explicit SourceIntfVlanMappingConfig( const Ulnet::IntfId & ) {}
};

class SourceVlanMappingConfig : public Kiv::Entity {
   KIV_BODY( SourceVlanMappingConfig, Kiv::Entity )
   KIV_ENTITIES( Ulnet::IntfId, SourceIntfVlanMappingConfig, intfVlanMappingConfig )
 public:
   explicit SourceVlanMappingConfig( VlanMappingConfigSource ) {}
};

class SourceVlanMappingConfigDir : public Kiv::Entity {
   KIV_BODY( SourceVlanMappingConfigDir, Kiv::Entity )
   KIV_ENTITIES( VlanMappingConfigSource, SourceVlanMappingConfig, sourceVlanMappingConfig )
 public:
   explicit SourceVlanMappingConfigDir( const String & name ) : Kiv::Entity( name ) {}
};

/** Whether a source has said all that it had to say at the start. */
class VlanMappingOutputState : public Kiv::Entity {
   KIV_BODY( VlanMappingOutputState, Kiv::Entity )
   KIV_ATTR( bool, ready, false )
 public:
   explicit VlanMappingOutputState( const String & name ) : Kiv::Entity( name ) {}
};

class SourceIntfVlanMappingStatus : public Kiv::Entity {
   KIV_BODY( SourceIntfVlanMappingStatus, Kiv::Entity )
   KIV_MAP( QonVlanMappingKey, QonTypes::TableAddStatus, vlanMappingStatus )
 public:
   explicit SourceIntfVlanMappingStatus( const Ulnet::IntfId & ) {}
};

/** What became of the translations of one source: the worst of the ports, full before notNow before
    failed; handedOver while a port is waited for. */
class SourceVlanMappingStatus : public Kiv::Entity {
   KIV_BODY( SourceVlanMappingStatus, Kiv::Entity )
   KIV_ENTITIES( Ulnet::IntfId, SourceIntfVlanMappingStatus, intfVlanMappingStatus )
 public:
   explicit SourceVlanMappingStatus( VlanMappingConfigSource ) {}
};

class SourceVlanMappingStatusDir : public Kiv::Entity {
   KIV_BODY( SourceVlanMappingStatusDir, Kiv::Entity )
   KIV_ENTITIES( VlanMappingConfigSource, SourceVlanMappingStatus, sourceVlanMappingStatus )
 public:
   explicit SourceVlanMappingStatusDir( const String & name ) : Kiv::Entity( name ) {}
};
/** @} */

/** @name Merged */
/** @{ */
class MergedIntfVlanMappingConfig : public Kiv::Entity {
   KIV_BODY( MergedIntfVlanMappingConfig, Kiv::Entity )
   KIV_MAP( QonVlanMappingKey, MergedVlanMappingData, vlanMappingConfig )
 public:
   explicit MergedIntfVlanMappingConfig( const Ulnet::IntfId & ) {}
};

class MergedVlanMappingConfig : public Kiv::Entity {
   KIV_BODY( MergedVlanMappingConfig, Kiv::Entity )
   KIV_ENTITIES( Ulnet::IntfId, MergedIntfVlanMappingConfig, intfVlanMappingConfig )
 public:
   explicit MergedVlanMappingConfig( const String & name ) : Kiv::Entity( name ) {}
};
/** @} */

/** @name Of physical ports */
/** @{ */
class PlatformIntfVlanMappingConfig : public Kiv::Entity {
   KIV_BODY( PlatformIntfVlanMappingConfig, Kiv::Entity )
   KIV_MAP( QonVlanMappingKey, PlatformVlanMappingData, vlanMappingConfig )
 public:
   explicit PlatformIntfVlanMappingConfig( const Ulnet::IntfId & ) {}
};

class PlatformVlanMappingConfig : public Kiv::Entity {
   KIV_BODY( PlatformVlanMappingConfig, Kiv::Entity )
   KIV_ENTITIES( Ulnet::IntfId, PlatformIntfVlanMappingConfig, intfVlanMappingConfig )
 public:
   explicit PlatformVlanMappingConfig( const String & name ) : Kiv::Entity( name ) {}
};

class PlatformIntfVlanMappingStatus : public Kiv::Entity {
   KIV_BODY( PlatformIntfVlanMappingStatus, Kiv::Entity )
   KIV_MAP( QonVlanMappingKey, QonVlanMappingStatus, vlanMappingStatus )
 public:
   explicit PlatformIntfVlanMappingStatus( const Ulnet::IntfId & ) {}
};

/** Written by the chip agent. What it says counts while `ready`. */
class PlatformVlanMappingStatus : public Kiv::Entity {
   KIV_BODY( PlatformVlanMappingStatus, Kiv::Entity )
   KIV_ATTR( bool, ready, false )
   KIV_ENTITIES( Ulnet::IntfId, PlatformIntfVlanMappingStatus, intfVlanMappingStatus )
 public:
   explicit PlatformVlanMappingStatus( const String & name ) : Kiv::Entity( name ) {}
};

/** The membership of ports as the hardware has it. */
class ProgrammedPortToLag : public Kiv::Entity {
   KIV_BODY( ProgrammedPortToLag, Kiv::Entity )
   KIV_MAP( Ulnet::IntfId, Ulnet::IntfId, portToLag )
 public:
   explicit ProgrammedPortToLag( const String & name ) : Kiv::Entity( name ) {}
};
/** @} */

/** The features that hold a port-channel: one that is in it must not change under their hands. */
class PortChannelInterlock : public Kiv::Entity {
   KIV_BODY( PortChannelInterlock, Kiv::Entity )
   KIV_SET( String, feature )
 public:
   explicit PortChannelInterlock( const Ulnet::IntfId & ) {}
};

class PortChannelInterlockDir : public Kiv::Entity {
   KIV_BODY( PortChannelInterlockDir, Kiv::Entity )
   KIV_ENTITIES( Ulnet::IntfId, PortChannelInterlock, portChannel )
 public:
   explicit PortChannelInterlockDir( const String & name ) : Kiv::Entity( name ) {}
};

} // namespace Qon
