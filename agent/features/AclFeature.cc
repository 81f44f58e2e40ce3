#include "agent/features/AclFeature.h"

#include "agent/features/AclReading.h"
#include "agent/features/Arguments.h"
#include "platform/types/Paths.h"

namespace QonAgent {

using Ulnet::IntfId;

AclFeature::AclFeature( Agent & agent )
    : agent_( agent ), part_( agent.chip().part< QonChip::AclPart >() ),
      config_( agent.entities().mount< Acl::Config >( Paths::aclConfig ) ),
      intfConfig_( agent.entities().mount< Acl::IntfConfig >( Paths::aclIntfConfig ) ),
      params_( agent.entities().mount< Acl::ParamConfig >( Paths::aclParamConfig ) ),
      hosts_( agent.entities().mount< Acl::PerHostConfig >( Paths::aclPerHostConfig ) ),
      subIntfs_( agent.entities().mount< Interface::SubIntfConfigDir >( Paths::subIntfConfig ) ),
      bridging_( agent.entities().mount< Bridging::Config >( Paths::bridgingConfig ) ),
      mirroring_( agent.entities().mount< Mirroring::Status >( Paths::mirroringStatus ) ),
      errdisable_( agent.entities().mount< Errdisable::CauseStatus >( Paths::errdisableAcl ) ) {
   if ( part_ ) {
      helper_ = part_->makeAclHelper();
      aclSm_ = Qon::AclSmIs(
            { agent.acsd(), config_, intfConfig_, params_, bridging_, subIntfs_, helper_,
              mirroring_, errdisable_, agent.epochStatus(),
              agent.entities().mount< Acl::IntfCardConfig >( Paths::aclIntfCardConfig ),
              agent.entities().mount< Acl::DpAclUpdateRequest >( Paths::aclDpUpdateRequest ),
              agent.entities().mount< Acl::DpAclUpdateStatus >( Paths::aclDpUpdateStatus ),
              hosts_ } );
      aclSm_->initializedIs( true );
   }
}

AclFeature::~AclFeature() = default;

std::function< void() >
AclFeature::parseAttach( const Json & line ) {
   const IntfId intf = agent_.names().typed( fieldOf< String >( line, "intf" ) );
   const String name = fieldOf< String >( line, "acl" );
   const auto type = Kiv::fromText< AclType >( fieldOf< String >( line, "type" ) );
   const auto direction = Kiv::fromText< AclDirection >( fieldOf< String >( line, "direction" ) );
   auto config = intfConfig_->type( type );
   if ( !config || !config->directionHas( direction ) ) {
      Reading none;
      directionNeeded( none, type, direction );
   }
   return [=, this] {
      auto intfs = intfConfig_->typeIs( type )->directionIs( direction );
      name.empty() ? intfs->intfDel( intf ) : intfs->intfIs( intf, name );
   };
}

/** What comes in counts: its direction is needed. */
std::function< void() >
AclFeature::parseHost( const Json & line ) {
   const IntfId intf = agent_.names().typed( fieldOf< String >( line, "intf" ) );
   const auto host = Kiv::fromText< Ulnet::EthAddr >( fieldOf< String >( line, "host" ) );
   const String name = fieldOf< String >( line, "acl" );
   const auto type = Kiv::fromText< AclType >( fieldOf< String >( line, "type" ) );
   if ( host.isZero() || host.isMulticast() ) {
      throw Velto::RangeError( "host: expected the address of a station, found " +
                               host.stringValue() );
   }
   auto config = intfConfig_->type( type );
   if ( !config || !config->directionHas( AclDirection::in ) ) {
      Reading none;
      directionNeeded( none, type, AclDirection::in );
   }
   return [=, this] {
      intfConfig_->typeIs( type )->directionIs( AclDirection::in );
      const Acl::HostKey key( intf, host );
      name.empty() ? hosts_->hostDel( key ) : hosts_->hostIs( key, Acl::HostAcl( type, name ) );
   };
}

std::vector< EventKind >
AclFeature::eventKinds() {
   return { { "acl-host",
              R"({"time": 1, "event": "acl-host", "intf": "Ethernet0", "host": )"
              R"("02:11:22:00:00:01", "acl": "DATAACL", "type": "ip"})",
              [this]( const Json & line ) { return parseHost( line ); } },
            { "acl",
              R"({"time": 1, "event": "acl", "intf": "Ethernet0", "acl": "DATAACL", "type": "ip",)"
              R"( "direction": "in"})",
              [this]( const Json & line ) { return parseAttach( line ); } } };
}

FeatureKind
aclFeature() {
   return feature< AclFeature >( "acl" );
}

} // namespace QonAgent
