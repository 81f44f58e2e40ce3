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
              agent.entities().mount< Acl::DpAclUpdateStatus >( Paths::aclDpUpdateStatus ) } );
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

std::vector< EventKind >
AclFeature::eventKinds() {
   return { { "acl",
              R"({"time": 1, "event": "acl", "intf": "Ethernet0", "acl": "DATAACL", "type": "ip",)"
              R"( "direction": "in"})",
              [this]( const Json & line ) { return parseAttach( line ); } } };
}

FeatureKind
aclFeature() {
   return feature< AclFeature >( "acl" );
}

} // namespace QonAgent
