#include "agent/features/PortsFeature.h"

#include "agent/Agent.h"
#include "agent/ConfigReader.h"
#include "agent/features/Arguments.h"
#include "platform/types/Paths.h"

namespace QonAgent {

namespace {

constexpr U64 maxMegabits = 4'000'000;
constexpr U64 megabit = 1'000; // in kilobits

} // namespace

PortsFeature::PortsFeature( Agent & agent )
    : agent_( agent ), status_( agent.entities().mount< Interface::EthPhyIntfStatusDir >(
                             Paths::ethPhyIntfStatus ) ),
      hwPorts_( agent.entities().mount< Hardware::FapIdPortDir >( Paths::hardwareFapIdPort ) ) {}

Qon::FapIdPort
PortsFeature::hwPort( Ulnet::IntfId intf ) const {
   if ( const auto port = agent_.chip().fapIdPort( intf ) ) {
      return *port;
   }
   std::set< Qon::FapIdPort > taken;
   for ( auto && [other, port] : hwPorts_->fapIdPortIteratorConst() ) {
      taken.insert( port );
   }
   Qon::FapIdPort port( 0, hwPorts_->fapIdPorts() + 1 );
   while ( taken.contains( port ) ) {
      port = Qon::FapIdPort( 0, port.port() + 1 );
   }
   return port;
}

std::vector< ConfigTable >
PortsFeature::tables() const {
   return { { "PORT",
              "port",
              { { "admin_status", "up or down; up" }, { "speed", "Mb/s" } },
              { R"("Ethernet0": {"speed": "25000"})", R"("Ethernet4": {})",
                R"("Ethernet8": {"speed": "10000"})",
                R"("Ethernet12": {"admin_status": "down"})" } } };
}

void
PortsFeature::configure( ConfigReader & reader ) {
   auto said = std::make_shared< Configured< Ulnet::IntfId, Port >::Said >();
   reader.eachRow( "PORT", [&]( const ConfigRow & row ) {
      Ulnet::IntfId intf = reader.intf( "", row.part( 0, 1 ) );
      bool up = row.word( "admin_status", { "down", "up" }, 1 );
      const U64 kbps = row.number( "speed", 0, maxMegabits, 0 ) * megabit;
      const auto speed = Interface::EthSpeedApi::fromKbps( kbps );
      if ( kbps && speed == Interface::EthSpeed::speedUnknown ) {
         reader.warn( row, "speed", "no speed of an Ethernet port; taken for unknown" );
      }
      if ( reader.isPort( intf ) ) {
         throw RowError( "", "another row defines this port" );
      }
      reader.portIs( intf );
      said->emplace_back( intf, Port{ speed, up } );
   } );
   reader.apply( [=, this] {
      configured_.become(
            *said, [this]( Ulnet::IntfId intf, const Port & ) { portDel( intf ); },
            [this]( Ulnet::IntfId intf, const Port & port, const Port * former ) {
               portIs( intf, port, former );
            } );
   } );
}

/** The link stays as it is until the row says otherwise than before. */
void
PortsFeature::portIs( Ulnet::IntfId intf, const Port & port, const Port * former ) {
   auto status = status_->intfStatusIs( intf );
   status->speedIs( port.speed );
   if ( !former || former->up != port.up ) {
      status->linkUpIs( port.up );
   }
   if ( !hwPorts_->fapIdPortHas( intf ) ) {
      hwPorts_->fapIdPortIs( intf, hwPort( intf ) );
   }
   agent_.acsd()->intfIs( intf, true );
}

void
PortsFeature::portDel( Ulnet::IntfId intf ) {
   agent_.acsd()->intfDel( intf );
   hwPorts_->fapIdPortDel( intf );
   status_->intfStatusDel( intf );
}

Rows
PortsFeature::interfaces( Arguments arguments ) const {
   for ( auto & [intf, port] : inOrder( status_->intfStatusIteratorConst() ) ) {
      if ( arguments.has( 0 ) && intf != arguments.intf( 0 ) ) {
         continue;
      }
      Ulnet::IntfId lag = agent_.acsd()->portToLag( intf );
      const Row made = { { "interface", agent_.names().spelling( intf ) },
                         { "link", port->linkUp() ? "up" : "down" },
                         { "speed", Interface::EthSpeedApi::speedKbps( port->speed() ) / megabit },
                         { "portChannel", agent_.names().spelling( lag ) },
                         { "intfId", intf.stringValue() } };
      co_yield made;
   }
}

std::vector< ShowCommand >
PortsFeature::showCommands() {
   return { { "interfaces",
              "ports: link, speed, aggregate",
              { intfArgument(
                    "PORT", "port",
                    [this]( Ulnet::IntfId intf ) { return status_->intfStatusHas( intf ); } ) },
              { { "interface", "Interface" },
                { "link", "Link" },
                { "speed", "Mb/s", true },
                { "portChannel", "Port-channel" } },
              [this]( auto & arguments ) { return interfaces( arguments ); } } };
}

std::vector< EventKind >
PortsFeature::eventKinds() {
   return { { "link", R"({"time": 2.5, "event": "link", "port": "Ethernet0", "up": false})",
              [this]( const Json & line ) -> std::function< void() > {
                 String name = fieldOf< String >( line, "port" );
                 bool up = fieldOf< bool >( line, "up" );
                 Ulnet::IntfId intf = agent_.names().typed( name );
                 return [=, this] {
                    mustBeThere( agent_, intf );
                    auto port = status_->intfStatus( intf );
                    if ( !port ) {
                       throw Velto::RangeError( "there is no port '" + name + "'" );
                    }
                    port->linkUpIs( up );
                 };
              } } };
}

FeatureKind
portsFeature() {
   return feature< PortsFeature >( "ports" );
}

} // namespace QonAgent
