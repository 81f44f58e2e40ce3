#include "agent/features/LagFeature.h"

#include <nlohmann/json.hpp>
#include <set>

#include "agent/Agent.h"
#include "agent/configdb/ConfigReader.h"
#include "agent/features/Arguments.h"
#include "platform/types/Mlag.h"
#include "platform/types/Paths.h"

namespace QonAgent {

namespace {

constexpr U8 fallbackOff = 0;
constexpr U8 fallbackStatic = 1;

/** The members by name. */
Qon::QonLagPortList::Entries
sorted( const Qon::QonLagPortList & members ) {
   Qon::QonLagPortList::Entries all( members.begin(), members.end() );
   std::sort( all.begin(), all.end(),
              []( const auto & a, const auto & b ) { return a.first < b.first; } );
   return all;
}

} // namespace

void
LagFeature::create( Agent & agent ) {
   agent_ = &agent;
   auto & entities = agent.entities();
   status_ = entities.mount< Interface::EthLagIntfStatusDir >( Paths::ethLagIntfStatus );
   config_ = entities.mount< Interface::EthLagIntfConfigDir >( Paths::ethLagIntfConfig );
   hardware_ = entities.mount< Hardware::Lag::Config >( Paths::hardwareLagConfig );
   progSm_ = Qon::LagProgSmIs(
         hardware_, entities.mount< Hardware::Lag::Status >( Paths::hardwareLagStatus ),
         entities.mount< Hardware::FapIdPortDir >( Paths::hardwareFapIdPort ) );
   progSm_->initializedIs( true );
   lagSm_ = Qon::LagSmIs(
         agent.acsd(), status_,
         entities.mount< Lag::Input::IntfDeviceNameDir >( Paths::lagInputDeviceName ),
         entities.mount< Mlag::Status >( Paths::mlagStatus ), agent.acsd()->verifyData(), progSm_ );
   lagSm_->initializedIs( true );
}

void
LagFeature::destroy() {
   lagSm_ = nullptr;
   progSm_ = nullptr;
   hardware_ = nullptr;
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
}

void
LagFeature::channel( ConfigReader & reader, const ConfigRow & row ) {
   Ulnet::IntfId lag = reader.intf( "", row.part( 0, 1 ) );
   if ( !Ulnet::PortChannelIntfId::isPortChannelIntfId( lag ) ) {
      throw RowError( "", "'" + row.key() + "' is not the name of a port-channel" );
   }
   Channel channel;
   channel.up = row.word( "admin_status", { "down", "up" }, 1 );
   channel.mode = row.flag( "static", false ) ? Interface::LagMode::on : Interface::LagMode::active;
   U8 fallback = row.flag( "fallback", false ) ? fallbackStatic : fallbackOff;
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
      status_->intfStatusIs( lag )->intfIs( port, Interface::LagMember( channel.up, channel.up ) );
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
      Ulnet::IntfId port = reader.port( field, name );
      if ( reader.memberOf( port ) != lag ) {
         member( reader, lag, port, field );
      }
   }
}

Json
LagFeature::portChannels( const std::vector< String > & arguments ) const {
   auto only = argumentIntf( *agent_, arguments );
   auto & names = agent_->names();
   Json rows = Json::array();
   for ( auto & [lag, status] : inOrder( status_->intfStatusIteratorConst() ) ) {
      if ( only && lag != *only ) {
         continue;
      }
      Json members = Json::array();
      bool up = false;
      for ( auto & [port, flags] : sorted( agent_->acsd()->lagToPort( lag ) ) ) {
         members.push_back( names.spelling( port ) );
         up = up || flags.distributing();
      }
      rows.push_back( { { "portChannel", names.spelling( lag ) },
                        { "state", up ? "up" : "down" },
                        { "members", members },
                        { "fallback", status->lacpFallbackEnabled() },
                        { "intfId", lag.stringValue() } } );
   }
   return checkedRows( std::move( rows ), arguments, "port-channel" );
}

/** A row a member that the aggregate lists, whether or not it has become one. */
void
LagFeature::memberRows( Ulnet::IntfId lag, const Interface::EthLagIntfStatus & status,
                        Json & rows ) const {
   auto yes = []( bool v ) { return v ? "yes" : "no"; };
   auto & names = agent_->names();
   auto members = agent_->acsd()->lagToPort( lag );
   auto group = hardware_->lag( lag );
   std::set< Ulnet::IntfId > listed;
   for ( auto i = status.intfIteratorConst(); i; ++i ) {
      listed.insert( i.key() );
   }
   for ( auto port : listed ) {
      auto flags = members.port( port );
      rows.push_back( { { "portChannel", names.spelling( lag ) },
                        { "port", names.spelling( port ) },
                        { "member", yes( members.portHas( port ) ) },
                        { "collecting", yes( flags.collecting() ) },
                        { "distributing", yes( flags.distributing() ) },
                        { "hardware", yes( group && group->memberHas( port ) ) } } );
   }
}

Json
LagFeature::members( const std::vector< String > & arguments ) const {
   auto only = argumentIntf( *agent_, arguments );
   Json rows = Json::array();
   for ( auto & [lag, status] : inOrder( status_->intfStatusIteratorConst() ) ) {
      if ( !only || lag == *only ) {
         memberRows( lag, *status, rows );
      }
   }
   return rows;
}

std::vector< ShowCommand >
LagFeature::showCommands() {
   return { { "port-channel",
              "aggregates and their members",
              "[PORT-CHANNEL]",
              { { "portChannel", "Port-channel" }, { "state", "State" }, { "members", "Members" } },
              [this]( const auto & arguments ) { return portChannels( arguments ); } },
            { "port-channel members",
              "what each member may do",
              "[PORT-CHANNEL]",
              { { "portChannel", "Port-channel" },
                { "port", "Port" },
                { "member", "Member" },
                { "collecting", "Collecting" },
                { "distributing", "Distributing" },
                { "hardware", "Hardware" } },
              [this]( const auto & arguments ) { return members( arguments ); } } };
}

} // namespace QonAgent
