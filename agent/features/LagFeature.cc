#include "agent/features/LagFeature.h"

#include <nlohmann/json.hpp>

#include "agent/Agent.h"
#include "agent/configdb/ConfigReader.h"
#include "agent/features/Arguments.h"
#include "platform/types/Paths.h"

namespace QonAgent {

namespace {

constexpr U8 fallbackOff = 0;
constexpr U8 fallbackStatic = 1;
constexpr U8 fallbackIndividual = 2;

/** Answers for a kernel that knows every aggregate. */
class SoftLagDriver : public Qon::LagPacketDriver {
 public:
   SoftLagDriver() : LagPacketDriver( "lagPacketDriver" ) {}
   int getLagInfo( U32 lagIndex, char * buffer, U32 size ) override {
      const String info = "aggregate " + Kiv::toText( lagIndex );
      buffer[info.copy( buffer, size - 1 )] = 0;
      return 0;
   }
};

} // namespace

void
LagFeature::create( Agent & agent ) {
   agent_ = &agent;
   auto & entities = agent.entities();
   status_ = entities.mount< Interface::EthLagIntfStatusDir >( Paths::ethLagIntfStatus );
   config_ = entities.mount< Interface::EthLagIntfConfigDir >( Paths::ethLagIntfConfig );
   memberStatus_ = entities.mount< Hardware::Lag::MemberStatusDir >( Paths::lagMemberStatus );
   fapIdPorts_ = entities.mount< Hardware::FapIdPortDir >( Paths::hardwareFapIdPort );
   hardware_ = entities.mount< Hardware::Lag::Config >( Paths::hardwareLagConfig );
   mlag_ = entities.mount< Mlag::Status >( Paths::mlagStatus );
   auto held = entities.mount< Hardware::Lag::Status >( Paths::hardwareLagStatus );
   chip_ = SoftChip::LagTableIs( hardware_, held, agent.faults() );
   chip_->initializedIs( true );
   progSm_ = Qon::LagProgSmIs( hardware_, held, fapIdPorts_ );
   progSm_->initializedIs( true );
   lagSm_ =
         Qon::LagSmIs( agent.acsd(), status_,
                       entities.mount< Lag::Input::IntfDeviceNameDir >( Paths::lagInputDeviceName ),
                       mlag_, agent.acsd()->verifyData(), progSm_ );
   lagSm_->initializedIs( true );
   state_ = entities.mount< Hardware::Lag::Status >( Paths::hardwareLagState );
   stateAggregator_ = Qon::LagStateAggregatorSmIs( { held }, state_ );
   stateAggregator_->initializedIs( true );
   createCreators();
}

/** The groups by the maps and by the configuration of the interfaces, for comparison: the chip
    follows LagSm's. */
void
LagFeature::createCreators() {
   auto & entities = agent_->entities();
   auto phy = entities.mount< Interface::EthPhyIntfStatusDir >( Paths::ethPhyIntfStatus );
   auto aggregated =
         entities.mount< Hardware::Lag::AggregatedLagConfigDir >( Paths::aggregatedLagConfig );
   configAggregator_ = Qon::LagConfigAggregatorSmIs( config_, aggregated, &agent_->scheduler() );
   configAggregator_->initializedIs( true );
   mapCreator_ = Qon::LagConfigMapCreatorSmIs(
         { agent_->acsd(), aggregated, memberStatus_, phy, fapIdPorts_ },
         entities.mount< Hardware::Lag::Config >( Paths::hardwareLagOfConfig ) );
   mapCreator_->initializedIs( true );
   creator_ = Qon::QonLagCreatorSmIs(
         { agent_->acsd(), phy, fapIdPorts_, Velto::make< SoftLagDriver >() },
         entities.mount< Hardware::Lag::Config >( Paths::hardwareLagOfMembers ) );
   creator_->initializedIs( true );
}

void
LagFeature::destroy() {
   creator_ = nullptr;
   mapCreator_ = nullptr;
   configAggregator_ = nullptr;
   stateAggregator_ = nullptr;
   lagSm_ = nullptr;
   progSm_ = nullptr;
   chip_ = nullptr;
   mlag_ = nullptr;
   state_ = nullptr;
   hardware_ = nullptr;
   fapIdPorts_ = nullptr;
   memberStatus_ = nullptr;
   config_ = nullptr;
   status_ = nullptr;
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
      status->deviceNameIs( agent_->names().spelling( lag ) );
      status->lacpFallbackEnabledIs( fallback );
   } );
}

void
LagFeature::member( ConfigReader & reader, Ulnet::IntfId lag, Ulnet::IntfId port,
                    const String & field ) {
   Ulnet::IntfId former = reader.memberOf( port );
   if ( !former.isNull() ) {
      auto & names = agent_->names();
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

} // namespace QonAgent
