#include "agent/features/PortsFeature.h"

#include <nlohmann/json.hpp>

#include "agent/Agent.h"
#include "agent/configdb/ConfigReader.h"
#include "agent/features/Arguments.h"
#include "platform/types/Paths.h"

namespace QonAgent {

namespace {

constexpr U64 maxMegabits = 4'000'000;
constexpr U64 megabit = 1'000'000;

} // namespace

void
PortsFeature::create( Agent & agent ) {
   agent_ = &agent;
   auto & entities = agent.entities();
   status_ = entities.mount< Interface::EthPhyIntfStatusDir >( Paths::ethPhyIntfStatus );
   hwPorts_ = entities.mount< Hardware::FapIdPortDir >( Paths::hardwareFapIdPort );
}

void
PortsFeature::destroy() {
   status_ = nullptr;
   hwPorts_ = nullptr;
}

void
PortsFeature::configure( ConfigReader & reader ) {
   reader.eachRow( "PORT", [&]( const ConfigRow & row ) {
      Ulnet::IntfId intf = reader.intf( "", row.part( 0, 1 ) );
      bool up = row.word( "admin_status", { "down", "up" }, 1 );
      U64 speed = row.number( "speed", 0, maxMegabits, 0 ) * megabit;
      if ( reader.isPort( intf ) ) {
         throw RowError( "", "another row defines this port" );
      }
      reader.portIs( intf );
      reader.apply( [=, this] {
         auto port = status_->intfStatusIs( intf );
         port->speedIs( speed );
         port->linkUpIs( up );
         if ( !hwPorts_->fapIdPortHas( intf ) ) {
            hwPorts_->fapIdPortIs( intf, Qon::FapIdPort( 0, hwPorts_->fapIdPorts() + 1 ) );
         }
         agent_->acsd()->intfIs( intf, true );
      } );
   } );
}

Json
PortsFeature::interfaces( const std::vector< String > & arguments ) const {
   auto only = argumentIntf( *agent_, arguments );
   Json rows = Json::array();
   for ( auto & [intf, port] : inOrder( status_->intfStatusIteratorConst() ) ) {
      if ( !only || intf == *only ) {
         Ulnet::IntfId lag = agent_->acsd()->portToLag( intf );
         rows.push_back( { { "interface", agent_->names().spelling( intf ) },
                           { "link", port->linkUp() ? "up" : "down" },
                           { "speed", port->speed() / megabit },
                           { "portChannel", agent_->names().spelling( lag ) },
                           { "intfId", intf.stringValue() } } );
      }
   }
   return checkedRows( std::move( rows ), arguments, "port" );
}

std::vector< ShowCommand >
PortsFeature::showCommands() {
   return { { "interfaces",
              "ports: link, speed, aggregate",
              "[PORT]",
              { { "interface", "Interface" },
                { "link", "Link" },
                { "speed", "Mb/s", true },
                { "portChannel", "Port-channel" } },
              [this]( const auto & arguments ) { return interfaces( arguments ); } } };
}

std::vector< EventKind >
PortsFeature::eventKinds() {
   return { { "link", R"({"time": 2.5, "event": "link", "port": "Ethernet0", "up": false})",
              [this]( const Json & line ) -> std::function< void() > {
                 String name = fieldOf< String >( line, "port" );
                 bool up = fieldOf< bool >( line, "up" );
                 Ulnet::IntfId intf = agent_->names().typed( name );
                 return [=, this] {
                    auto port = status_->intfStatus( intf );
                    if ( !port ) {
                       throw Velto::RangeError( "there is no port '" + name + "'" );
                    }
                    port->linkUpIs( up );
                 };
              } } };
}

} // namespace QonAgent
