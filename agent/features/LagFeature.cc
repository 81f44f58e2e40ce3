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
      programmer_( part_ ? part_->makeProgrammer( hardware_, held_ ) : nullptr ),
      times_( agent.entities(), Paths::hardwareLagState ) {
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
   auto reading = std::make_shared< Reading >();
   reader.eachRow( "PORTCHANNEL",
                   [&]( const ConfigRow & row ) { channel( reader, row, *reading ); } );
   reader.eachRow( "PORTCHANNEL_MEMBER", [&]( const ConfigRow & row ) {
      Ulnet::IntfId lag = reader.portChannel( "", row.part( 0, 2 ) );
      member( reader, lag, reader.port( "", row.part( 1, 2 ) ), "", *reading );
   } );
   // Older files list the members in the port-channel's own row.
   for ( auto & row : reader.db().rows( "PORTCHANNEL" ) ) {
      reader.check( row, [&] { listedMembers( reader, row, *reading ); } );
   }
   reader.eachRow( "MCLAG_DOMAIN",
                   [&]( const ConfigRow & row ) { domain( reader, row, *reading ); } );
   reader.eachRow( "MCLAG_INTERFACE",
                   [&]( const ConfigRow & row ) { mlagInterface( reader, row, *reading ); } );
   reader.apply( [=, this] { become( *reading ); } );
}

void
LagFeature::channel( ConfigReader & reader, const ConfigRow & row, Reading & reading ) const {
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
   channel.fallback = row.flag( "fallback", false ) ? mode : fallbackOff;
   reader.portChannelIs( lag );
   reading.channel[lag] = channel;
   reading.channels.emplace_back( lag, channel );
}

void
LagFeature::member( ConfigReader & reader, Ulnet::IntfId lag, Ulnet::IntfId port,
                    const String & field, Reading & reading ) const {
   Ulnet::IntfId former = reader.memberOf( port );
   if ( !former.isNull() ) {
      auto & names = agent_.names();
      throw RowError( field, names.spelling( port ) + " is a member of " +
                                   names.spelling( former ) + " already" );
   }
   reader.memberIs( port, lag );
   const Channel & channel = reading.channel[lag];
   reading.members.emplace_back( port, Member{ lag, channel.up, channel.mode } );
}

void
LagFeature::listedMembers( ConfigReader & reader, const ConfigRow & row, Reading & reading ) const {
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
            member( reader, lag, port, field, reading );
         }
      } catch ( const RowError & e ) {
         reader.warn( row, e.field(), String( e.what() ) + "; member skipped" );
      }
   }
}

void
LagFeature::become( const Reading & reading ) {
   Velto::FirstError error;
   error.run( [&] {
      channels_.become(
            reading.channels,
            [this]( Ulnet::IntfId lag, const Channel & ) { status_->intfStatusDel( lag ); },
            [this]( Ulnet::IntfId lag, const Channel & channel, const Channel * ) {
               auto status = status_->intfStatusIs( lag );
               status->deviceNameIs( agent_.names().spelling( lag ) );
               status->lacpFallbackEnabledIs( channel.fallback );
            } );
   } );
   error.run( [&] {
      members_.become(
            reading.members,
            [this]( Ulnet::IntfId port, const Member & member ) { memberDel( port, member ); },
            [this]( Ulnet::IntfId port, const Member & member, const Member * former ) {
               memberIs( port, member, former );
            } );
   } );
   error.run( [&] { mlagBecomes( reading ); } );
   error.pass();
}

/** What it may do stays as LACP has it until the row says otherwise than before. */
void
LagFeature::memberIs( Ulnet::IntfId port, const Member & member, const Member * former ) {
   if ( former && former->lag != member.lag ) {
      memberDel( port, *former );
      former = nullptr;
   }
   auto config = config_->intfConfigIs( port );
   config->modeIs( member.mode );
   config->lagIs( member.lag );
   if ( !former || former->up != member.up ) {
      const Interface::LagMember flags( member.up, member.up );
      memberStatus_->memberStatusIs( port, flags );
      status_->intfStatusIs( member.lag )->intfIs( port, flags );
   }
}

void
LagFeature::memberDel( Ulnet::IntfId port, const Member & member ) {
   if ( auto status = status_->intfStatus( member.lag ) ) {
      status->intfDel( port );
   }
   memberStatus_->memberStatusDel( port );
   config_->intfConfigDel( port );
}

FeatureKind
lagFeature() {
   return feature< LagFeature >( "lag", LagFeature::options() );
}

} // namespace QonAgent
