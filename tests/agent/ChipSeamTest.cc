// The agent over any chip: features in any order, chips that lack parts, one writer of groups.

#include <algorithm>
#include <nlohmann/json.hpp>

#include "agent/AgentProgram.h"
#include "agent/server/Console.h"
#include "agent/softchip/LagPart.h"
#include "agent/softchip/MacPart.h"
#include "agent/softchip/TopologyPart.h"
#include "agent/softchip/VlanPart.h"
#include "conformance/Conformance.h"
#include "tests/agent/AgentWorld.h"

namespace {

using namespace Tests;
using QonAgent::Json;

const char config[] = R"({
   "PORT": { "Ethernet0": {}, "Ethernet4": {}, "Ethernet8": {}, "Ethernet12": {} },
   "PORTCHANNEL": { "PortChannel7": {}, "PortChannel8": {} },
   "PORTCHANNEL_MEMBER": { "PortChannel7|Ethernet8": {}, "PortChannel7|Ethernet12": {} },
   "VLAN": { "Vlan10": {}, "Vlan20": {} },
   "VLAN_MEMBER": { "Vlan10|Ethernet0": { "tagging_mode": "untagged" },
                    "Vlan10|PortChannel7": { "tagging_mode": "tagged" },
                    "Vlan20|Ethernet4": { "tagging_mode": "tagged" } },
   "STP": { "GLOBAL": { "mode": "pvst" } }, "STP_VLAN": { "Vlan20": {} },
   "STP_PORT": { "Ethernet4": {} }
})";

/** An agent over a chip of the test's. */
class OverChip {
 public:
   OverChip( QonChip::Chip & chip, Kiv::VirtualScheduler & scheduler,
             const QonAgent::Features & features = QonAgent::agentFeatures(),
             const QonAgent::Settings & settings = {} )
       : scheduler( scheduler ), agent( scheduler, chip, features, settings ) {}
   QonAgent::ConfigReport load() {
      auto db = QonAgent::ConfigDb::parse( "x.json", config );
      auto report = QonAgent::ConfigReader( agent, db ).load();
      scheduler.runFor( 20 );
      return report;
   }
   bool event( const String & text ) {
      const Json line = Json::parse( text );
      for ( auto & kind : agent.eventKinds() ) {
         if ( kind.name == line.at( "event" ) ) {
            kind.parse( line )();
            scheduler.runFor( 20 );
            return true;
         }
      }
      return false;
   }
   /** The rows, or the error. */
   Json show( const Lines & words ) {
      const Json answer =
            QonAgent::Console( agent ).answer( { { "do", "show" }, { "words", words } } );
      return answer.contains( "rows" ) ? answer["rows"] : answer["error"];
   }

   Kiv::VirtualScheduler & scheduler;
   QonAgent::Agent agent;
};

/** What a chip holds in the end. */
String
heldBy( const SoftChip::Chip & chip ) {
   String text = chip.of< SoftChip::LagPart >().table().text();
   const auto vlans = chip.of< SoftChip::VlanPart >().vlans();
   for ( auto & [vlan, ports] : *vlans ) {
      text += std::to_string( vlan ) + ":";
      for ( auto & [port, how] : ports ) {
         text += " " + port.stringValue() + ( how.tagged ? "t" : "" );
      }
   }
   const auto topologies = chip.of< SoftChip::TopologyPart >().topologies();
   for ( auto & [name, topology] : topologies.value_or( QonChip::HeldTopologies() ) ) {
      text += "\n" + name + " of " + std::to_string( topology.vlans.size() );
      for ( auto & [port, state] : topology.ports ) {
         text += " " + port.stringValue() + " " + Kiv::toText( state );
      }
   }
   return text;
}

String
comesTo( SoftChip::ChipKind kind, const QonAgent::Features & features ) {
   Kiv::VirtualScheduler scheduler;
   SoftChip::Chip chip( scheduler, { .kind = kind } );
   OverChip world( chip, scheduler, features );
   EXPECT_TRUE( world.event( R"({"event": "chipLatency", "seconds": 0.2})" ) );
   EXPECT_TRUE( world.load().warnings.empty() );
   EXPECT_TRUE( world.event( R"({"event": "mac", "op": "add", "mac": "02:11:22:00:00:01",
                                 "vlan": 10, "intf": "Ethernet0"})" ) );
   return heldBy( chip ) + "\n" + std::to_string( world.show( { "hw", "mac" } ).size() );
}

TEST( ChipSeam, AnyOrderOfFeaturesComesToTheSameEnd ) {
   for ( auto kind : { SoftChip::ChipKind::topology, SoftChip::ChipKind::vlan } ) {
      auto features = QonAgent::agentFeatures();
      const String whole = comesTo( kind, features );
      EXPECT_NE( whole.find( "Ethernet12(0/4 CD)" ), String::npos ) << whole;
      for ( std::size_t n = 0; n < features.size(); ++n ) {
         std::rotate( features.begin(), features.begin() + 1, features.end() );
         EXPECT_EQ( comesTo( kind, features ), whole ) << "first: " << features[0].name;
      }
      std::reverse( features.begin(), features.end() );
      EXPECT_EQ( comesTo( kind, features ), whole );
   }
}

TEST( ChipSeam, EveryWriterOfGroupsAloneMakesTheChipFollow ) {
   Kiv::VirtualScheduler scheduler;
   std::map< String, String > texts;
   for ( const char * writer : { "status", "interfaces", "members" } ) {
      SoftChip::Chip chip( scheduler );
      OverChip world( chip, scheduler, QonAgent::agentFeatures(), { { "lag-writer", writer } } );
      world.load();
      texts[writer] = chip.of< SoftChip::LagPart >().table().text();
      EXPECT_EQ( world.show( { "port-channel", "PortChannel7" } )[0]["programmed"].size(), 2u );
      world.event( R"({"event": "lagMember", "portChannel": "PortChannel7", "port": "Ethernet8",
                       "distributing": false})" );
      EXPECT_EQ( world.show( { "hw", "lag" } )[0]["index"], 7 );
   }
   EXPECT_EQ( texts["status"], "7: Port-Channel7 Ethernet8(0/3 CD) Ethernet12(0/4 CD)\n" );
   EXPECT_EQ( texts["interfaces"], texts["status"] );
   EXPECT_EQ( texts["members"], texts["status"] );
   SoftChip::Chip chip( scheduler );
   EXPECT_THROW( OverChip( chip, scheduler, QonAgent::agentFeatures(), { { "lag-writer", "x" } } ),
                 Velto::RangeError );
}

/** A chip of MAC addresses alone, in whose numbering ports count down. */
class MacChip : public QonChip::Chip {
 public:
   explicit MacChip( Kiv::TaskScheduler & scheduler )
       : board_{ scheduler, faults_, {} }, mac_( board_ ) {
      add< QonChip::MacPart >( mac_ );
   }
   String name() const override { return "mac-only"; }
   std::optional< Qon::FapIdPort > fapIdPort( Ulnet::IntfId intf ) const override {
      return Qon::FapIdPort( 3, intf == Tests::intf( "Ethernet0" ) ? 9 : 8 );
   }

 private:
   SoftChip::FaultPlan faults_;
   SoftChip::Board board_;
   /** As a chip makes it that does not know Qon::smIs(): hearing nothing by itself. */
   struct PlainMac : SoftChip::MacPart {
      using SoftChip::MacPart::MacPart;
      Velto::Ptr< Qon::QonMacProgrammer > makeProgrammer() override {
         auto programmer = SoftChip::MacPart::makeProgrammer();
         programmer->hasNotificationActiveIs( false );
         return programmer;
      }
   } mac_;
};

TEST( ChipSeam, AChipOfOnePartIsServedAndTheRestSaysSo ) {
   Kiv::VirtualScheduler scheduler;
   MacChip chip( scheduler );
   OverChip world( chip, scheduler );
   EXPECT_TRUE( world.load().warnings.empty() );
   EXPECT_TRUE( world.event( R"({"event": "mac", "op": "add", "mac": "02:11:22:00:00:01",
                                 "vlan": 10, "intf": "Ethernet0"})" ) );
   EXPECT_EQ( world.show( { "mac" } )[0]["state"], "programmed" );
   EXPECT_EQ( world.show( { "hw", "mac" } )[0]["interface"], "Ethernet0" );
   EXPECT_EQ( world.agent.entities().get( "hardware/fapidport/fapIdPort[Ethernet0]" ),
              Kiv::toText( Qon::FapIdPort( 3, 9 ) ) );
   EXPECT_EQ( world.show( { "vlan" } ), "the chip 'mac-only' does not serve VLANs" );
   EXPECT_EQ( world.show( { "topology" } ), "the chip 'mac-only' does not serve topologies" );
   EXPECT_EQ( world.show( { "port-channel", "members", "PortChannel7" } )[0]["reason"],
              "no groups in the chip" );
   EXPECT_EQ( world.show( { "hw", "frame", "Ethernet0", "02:11:22:00:00:01" } ),
              "there is nothing to show as 'hw frame'; 'show' alone lists what there is" );
   EXPECT_FALSE( world.event( R"({"event": "chipLatency", "seconds": 1})" ) );
}

TEST( ChipSeam, AMakerThatMakesNoneEndsTheProgramsWithAMessageInTheirName ) {
   const QonChip::MakeChip none = []( Kiv::TaskScheduler & ) { return nullptr; };
   char path[] = "/opt/bin/my-agent", once[] = "--once";
   char * arguments[] = { path, once, nullptr };
   EXPECT_EXIT( exit( QonAgent::agentMain( 2, arguments, none ) ), testing::ExitedWithCode( 2 ),
                "^my-agent: error: there is no chip 'chip': its maker returned none\n$" );
   EXPECT_EXIT( exit( QonConformance::conformanceMain( 1, arguments, none ) ),
                testing::ExitedWithCode( 2 ),
                "^my-agent: error: there is no chip: its maker returned none\n$" );
}

TEST( ChipSeam, ArgumentsThatAreWrongAreAnsweredAlikeByEveryCommand ) {
   Kiv::VirtualScheduler scheduler;
   SoftChip::Chip chip( scheduler );
   OverChip world( chip, scheduler );
   world.load();
   const struct {
      Lines words;
      const char * error;
   } cases[] = {
         { { "interfaces", "Ethernet9" }, "there is no port 'Ethernet9'" },
         { { "port-channel", "PortChannel9" }, "there is no port-channel 'PortChannel9'" },
         { { "port-channel", "members", "PortChannel9" },
           "there is no port-channel 'PortChannel9'" },
         { { "hw", "lag", "PortChannel9" }, "there is no port-channel 'PortChannel9'" },
         { { "vlan", "30" }, "there is no VLAN '30'" },
         { { "hw", "vlan", "30" }, "there is no VLAN '30'" },
         { { "topology", "Mst9" }, "there is no topology 'Mst9'" },
         { { "vlan", "10", "20" }, "'show vlan' takes [VLAN], and not '20'" },
         { { "entity" }, "'show entity' needs PATH" },
         { { "hw", "frame" }, "'show hw frame' needs PORT" },
         { { "mlag", "x" }, "'show mlag' takes no argument" },
   };
   for ( auto & c : cases ) {
      EXPECT_EQ( world.show( c.words ), c.error );
   }
   EXPECT_EQ( world.show( { "port-channel", "members", "PortChannel8" } ), Json::array() );
   EXPECT_EQ( world.show( { "hw", "lag", "PortChannel8" } ), Json::array() );
}

} // namespace
