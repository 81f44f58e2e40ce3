#include "agent/features/LagFeature.h"

#include "agent/Agent.h"
#include "agent/ConfigReader.h"
#include "agent/features/Arguments.h"
#include "platform/types/Paths.h"

namespace QonAgent {

namespace {

const String lastNumber = "9999";
constexpr U8 fallbackOff = 0;
constexpr U8 fallbackStatic = 1;
constexpr U8 fallbackIndividual = 2;

constexpr char writerOption[] = "lag-writer";
constexpr char byStatus[] = "status";
constexpr char byInterfaces[] = "interfaces";
constexpr char byMembers[] = "members";

} // namespace

std::vector< FeatureOption >
LagFeature::options() {
   return { { writerOption,
              { byStatus, byInterfaces, byMembers },
              "what the groups of the chip are made of" } };
}

LagFeature::LagFeature( Agent & agent )
    : agent_( agent ), part_( agent.chip().part< QonChip::LagPart >() ),
      status_(
            agent.entities().mount< Interface::EthLagIntfStatusDir >( Paths::ethLagIntfStatus ) ),
      config_(
            agent.entities().mount< Interface::EthLagIntfConfigDir >( Paths::ethLagIntfConfig ) ),
      memberStatus_(
            agent.entities().mount< Hardware::Lag::MemberStatusDir >( Paths::lagMemberStatus ) ),
      fapIdPorts_( agent.entities().mount< Hardware::FapIdPortDir >( Paths::hardwareFapIdPort ) ),
      hardware_( agent.entities().mount< Hardware::Lag::Config >( Paths::hardwareLagConfig ) ),
      held_( agent.entities().mount< Hardware::Lag::Status >( Paths::hardwareLagStatus ) ),
      state_( agent.entities().mount< Hardware::Lag::Status >( Paths::hardwareLagState ) ),
      mlagConfig_( agent.entities().mount< Mlag::Config >( Paths::mlagConfig ) ),
      mlag_( agent.entities().mount< Mlag::Status >( Paths::mlagStatus ) ),
      programmer_( part_ ? part_->makeProgrammer( hardware_, held_ ) : nullptr ) {
   const String & writer = agent.setting( writerOption );
   if ( writer == byStatus ) {
      progSm_ = Qon::LagProgSmIs( hardware_, held_, fapIdPorts_ );
      progSm_->initializedIs( true );
   }
   lagSm_ = Qon::LagSmIs(
         agent.acsd(), status_,
         agent.entities().mount< Lag::Input::IntfDeviceNameDir >( Paths::lagInputDeviceName ),
         mlag_, agent.acsd()->verifyData(), progSm_ );
   lagSm_->initializedIs( true );
   sharerHeard_.attach( mlagConfig_.ptr(), [this]( const Ulnet::IntfId & lag ) {
      mlagConfig_->peerLinkSharerHas( lag ) ? lagSm_->sharePeerLinkWithLagIs( lag, true )
                                            : lagSm_->sharePeerLinkWithLagDel( lag );
   } );
   stateAggregator_ = Qon::LagStateAggregatorSmIs( { held_ }, state_ );
   stateAggregator_->initializedIs( true );
   if ( writer == byInterfaces ) {
      makeInterfacesWriter();
   } else if ( writer == byMembers ) {
      makeMembersWriter();
   }
}

void
LagFeature::inputsRead() {
   if ( progSm_ ) {
      progSm_->inputsReadIs( true );
   }
}

void
LagFeature::makeInterfacesWriter() {
   auto & entities = agent_.entities();
   auto aggregated =
         entities.mount< Hardware::Lag::AggregatedLagConfigDir >( Paths::aggregatedLagConfig );
   configAggregator_ = Qon::LagConfigAggregatorSmIs( config_, aggregated, &agent_.scheduler() );
   configAggregator_->initializedIs( true );
   mapCreator_ = Qon::LagConfigMapCreatorSmIs(
         { agent_.acsd(), aggregated, memberStatus_,
           entities.mount< Interface::EthPhyIntfStatusDir >( Paths::ethPhyIntfStatus ),
           fapIdPorts_ },
         hardware_ );
   mapCreator_->initializedIs( true );
}

void
LagFeature::makeMembersWriter() {
   creator_ = Qon::QonLagCreatorSmIs(
         { agent_.acsd(),
           agent_.entities().mount< Interface::EthPhyIntfStatusDir >( Paths::ethPhyIntfStatus ),
           fapIdPorts_,
           part_ ? part_->makePacketDriver()
                 : Velto::Ptr< Qon::LagPacketDriver >( Velto::make< QonChip::EveryLagDriver >() ) },
         hardware_ );
   creator_->initializedIs( true );
}

std::vector< ConfigTable >
LagFeature::tables() const {
   return {
         { "PORTCHANNEL",
           "port-channel",
           { { "admin_status", "up or down; up" },
             { "static", "true: without LACP; false" },
             { "fallback", "true: what is done without LACP is in fallback_mode; false" },
             { "fallback_mode", "static or individual; static" },
             { "members", "ports, a list; as rows of PORTCHANNEL_MEMBER" } },
           { R"("PortChannel1": {"admin_status": "up", "fallback": "true"})",
             R"("PortChannel2": {"static": "true", "members": ["Ethernet4"]})" } },
         { "PORTCHANNEL_MEMBER", "port-channel|port", {}, { R"("PortChannel1|Ethernet0": {})" } },
         { "MCLAG_DOMAIN",
           "domain",
           { { "peer_link", "a port-channel or a port" } },
           { R"("1": {"peer_link": "PortChannel2"})" } },
         { "MCLAG_INTERFACE", "domain|port-channel", {}, { R"("1|PortChannel1": {})" } } };
}

void
LagFeature::configure( ConfigReader & reader ) {
   reader.eachRow( "PORTCHANNEL", [&]( const ConfigRow & row ) { channel( reader, row ); } );
   reader.eachRow( "PORTCHANNEL_MEMBER", [&]( const ConfigRow & row ) {
      Ulnet::IntfId lag = reader.portChannel( "", row.part( 0, 2 ) );
      member( reader, lag, reader.port( "", row.part( 1, 2 ) ), "" );
   } );
   // Older files list the members in the port-channel's own row.
   for ( auto & row : reader.db().rows( "PORTCHANNEL" ) ) {
      reader.check( row, [&] { listedMembers( reader, row ); } );
   }
   reader.eachRow( "MCLAG_DOMAIN", [&]( const ConfigRow & row ) { domain( reader, row ); } );
   reader.eachRow( "MCLAG_INTERFACE",
                   [&]( const ConfigRow & row ) { mlagInterface( reader, row ); } );
}

void
LagFeature::channel( ConfigReader & reader, const ConfigRow & row ) {
   Ulnet::IntfId lag = reader.intf( "", row.part( 0, 1 ) );
   if ( !Qon::hasLagIndex( lag ) ) {
      throw RowError( "", "'" + row.key() + "' is not the name of a port-channel" );
   }
   const String digits = row.key().substr( row.key().find_first_of( "0123456789" ) );
   if ( digits.size() > lastNumber.size() && digits[0] != '0' ) {
      reader.warn( row, "", "port-channels of a switch have numbers up to " + lastNumber );
   }
   Channel channel;
   channel.up = row.word( "admin_status", { "down", "up" }, 1 );
   channel.mode = row.flag( "static", false ) ? Interface::LagMode::on : Interface::LagMode::active;
   const U8 mode = row.word( "fallback_mode", { "static", "individual" }, 0 ) ? fallbackIndividual
                                                                              : fallbackStatic;
   const U8 fallback = row.flag( "fallback", false ) ? mode : fallbackOff;
   reader.portChannelIs( lag );
   channels_[lag] = channel;
   reader.apply( [=, this] {
      auto status = status_->intfStatusIs( lag );
      status->deviceNameIs( agent_.names().spelling( lag ) );
      status->lacpFallbackEnabledIs( fallback );
   } );
}

void
LagFeature::member( ConfigReader & reader, Ulnet::IntfId lag, Ulnet::IntfId port,
                    const String & field ) {
   Ulnet::IntfId former = reader.memberOf( port );
   if ( !former.isNull() ) {
      auto & names = agent_.names();
      throw RowError( field, names.spelling( port ) + " is a member of " +
                                   names.spelling( former ) + " already" );
   }
   reader.memberIs( port, lag );
   Channel channel = channels_[lag];
   reader.apply( [=, this] {
      auto config = config_->intfConfigIs( port );
      config->modeIs( channel.mode );
      config->lagIs( lag );
      const Interface::LagMember flags( channel.up, channel.up );
      memberStatus_->memberStatusIs( port, flags );
      status_->intfStatusIs( lag )->intfIs( port, flags );
   } );
}

void
LagFeature::listedMembers( ConfigReader & reader, const ConfigRow & row ) {
   static const char field[] = "members";
   auto names = row.list( field );
   if ( names.empty() || !reader.isPortChannel( reader.intf( "", row.key() ) ) ) {
      return;
   }
   Ulnet::IntfId lag = reader.intf( "", row.key() );
   for ( auto & name : names ) {
      // Each name stands for a row of its own: a wrong one does not cost the others.
      try {
         Ulnet::IntfId port = reader.port( field, name );
         if ( reader.memberOf( port ) != lag ) {
            member( reader, lag, port, field );
         }
      } catch ( const RowError & e ) {
         reader.warn( row, e.field(), String( e.what() ) + "; member skipped" );
      }
   }
}

FeatureKind
lagFeature() {
   return feature< LagFeature >( "lag", LagFeature::options() );
}

} // namespace QonAgent
