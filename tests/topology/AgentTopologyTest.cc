// The agent from a switch configuration to the chip, for both kinds of chip.

#include <nlohmann/json.hpp>

#include "agent/Agent.h"
#include "agent/ConfigReader.h"
#include "agent/server/Console.h"
#include "agent/softchip/Chip.h"
#include "tests/harness/World.h"

namespace {

using namespace Tests;
using namespace QonAgent;
using Bridging::VlanId;

const char config[] = R"({
   "PORT": { "Ethernet0": { "admin_status": "up" }, "Ethernet4": { "admin_status": "up" },
             "Ethernet8": { "admin_status": "up" }, "Ethernet12": { "admin_status": "up" } },
   "PORTCHANNEL": { "PortChannel7": { "admin_status": "up" }, "PortChannel8": {} },
   "PORTCHANNEL_MEMBER": { "PortChannel7|Ethernet8": {}, "PortChannel7|Ethernet12": {} },
   "VLAN": { "Vlan10": { "vlanid": "10" }, "Vlan20": { "vlanid": "20" }, "Vlan30": {},
             "Vlan40": { "vlanid": "41" } },
   "VLAN_MEMBER": { "Vlan10|Ethernet0": { "tagging_mode": "untagged" },
                    "Vlan10|PortChannel7": { "tagging_mode": "tagged" },
                    "Vlan20|Ethernet4": { "tagging_mode": "tagged" },
                    "Vlan20|PortChannel8": { "tagging_mode": "tagged" },
                    "Vlan50|Ethernet4": { "tagging_mode": "tagged" } },
   "STP": { "GLOBAL": { "mode": "pvst" } },
   "STP_VLAN": { "Vlan20": { "enabled": "true" } },
   "STP_PORT": { "Ethernet4": { "enabled": "true" }, "Ethernet0": { "enabled": "true" } }
})";

class AgentTopologyTest : public testing::TestWithParam< SoftChip::ChipKind > {
 protected:
   AgentTopologyTest() : chip( scheduler, { .kind = GetParam() } ), agent( scheduler, chip ) {}

   ConfigReport load( const String & text ) {
      auto db = ConfigDb::parse( "switch.json", text );
      auto report = ConfigReader( agent, db ).load();
      EXPECT_TRUE( scheduler.runToRest( scheduler.time() + 100 ) );
      return report;
   }
   void event( const String & text ) {
      const Json line = Json::parse( text );
      for ( auto & kind : agent.eventKinds() ) {
         if ( kind.name == line.at( "event" ) ) {
            kind.parse( line )();
            return;
         }
      }
      FAIL() << text;
   }
   Json show( const String & name, const std::vector< String > & arguments = {} ) {
      std::vector< String > words = { name };
      if ( name.starts_with( "hw " ) ) {
         words = { "hw", name.substr( 3 ) };
      }
      words.insert( words.end(), arguments.begin(), arguments.end() );
      const Json answer = Console( agent ).answer( { { "do", "show" }, { "words", words } } );
      return answer.contains( "rows" ) ? answer["rows"] : answer["error"];
   }
   /** The ports of a VLAN as `show <name>` has them. */
   String ports( const String & name, const String & vlan ) {
      String all;
      for ( auto & row : show( name, { vlan } ) ) {
         if ( row.contains( "interface" ) ) {
            all += row.at( "interface" ).get< String >() + " " +
                   row.at( "tagging" ).get< String >() + ",";
         }
      }
      return all;
   }

   Kiv::VirtualScheduler scheduler;
   SoftChip::Chip chip;
   Agent agent;
};

TEST_P( AgentTopologyTest, EveryVlanMemberAndPortStateIsInTheChip ) {
   auto report = load( config );
   ASSERT_EQ( report.warnings.size(), 2u );
   EXPECT_NE( report.warnings[0].find( "VLAN|Vlan40|vlanid" ), String::npos );
   EXPECT_NE( report.warnings[1].find( "VLAN_MEMBER|Vlan50|Ethernet4" ), String::npos );

   const bool tables = GetParam() == SoftChip::ChipKind::topology;
   EXPECT_EQ( ports( "hw vlan", "10" ), "Ethernet0 untagged,Ethernet8 tagged,Ethernet12 tagged," );
   // Ethernet4 runs spanning tree in VLAN 20 and begins discarding.
   EXPECT_EQ( ports( "vlan", "20" ), "Ethernet4 tagged,PortChannel8 tagged," );
   EXPECT_EQ( ports( "hw vlan", "20" ),
              tables ? "Ethernet4 tagged,PortChannel8 tagged," : "PortChannel8 tagged," );
   EXPECT_EQ( show( "hw vlan", { "30" } ), Json::array() );
   EXPECT_EQ( tables ? show( "hw topology" ).size() : 5u, 5u );
   for ( auto & row : show( "topology" ) ) {
      if ( row.contains( "wanted" ) ) {
         EXPECT_EQ( row.at( "wanted" ), row.at( "acknowledged" ) ) << row;
      }
   }
   event( R"({"event": "portState", "topology": "Vlan20", "intf": "Ethernet4",
              "state": "forwarding"})" );
   scheduler.settle();
   EXPECT_EQ( ports( "hw vlan", "20" ), "Ethernet4 tagged,PortChannel8 tagged," );
   EXPECT_EQ( show( "topology", { "Vlan20" } )[0].at( "acknowledged" ), "forwarding" );
   EXPECT_EQ( show( "topology", { "Vlan21" } ), "there is no topology 'Vlan21'" );
}

TEST_P( AgentTopologyTest, WithoutSpanningTreeOneTopologyForwardsEverywhere ) {
   auto db = Json::parse( config );
   db.erase( "STP" );
   load( db.dump() );
   for ( auto & row : show( "topology" ) ) {
      EXPECT_EQ( row.at( "topology" ), "Mst0" );
      EXPECT_EQ( row.at( "acknowledged" ), "forwarding" );
   }
   EXPECT_EQ( ports( "hw vlan", "20" ), "Ethernet4 tagged,PortChannel8 tagged," );
}

TEST_P( AgentTopologyTest, EventsMovePortsVlansAndModes ) {
   load( config );
   event( R"({"event": "chipLatency", "seconds": 5})" );
   event( R"({"event": "portState", "topology": "Vlan10", "intf": "PortChannel7",
              "state": "blocking"})" );
   scheduler.runFor( 2 );
   auto row = show( "topology", { "Vlan10" } )[1];
   EXPECT_EQ( row.at( "waiting" ), "yes" );
   if ( GetParam() == SoftChip::ChipKind::vlan ) {
      auto vlan = show( "vlan", { "10" } )[1];
      EXPECT_EQ( vlan.at( "state" ), "in progress" );
      EXPECT_NEAR( vlan.at( "since" ).get< double >(), 2, 0.1 );
   }
   scheduler.runFor( 4 );
   EXPECT_EQ( show( "topology", { "Vlan10" } )[1].at( "acknowledged" ), "blocking" );

   event( R"({"event": "topology", "topology": "Mst1", "id": 7})" );
   event( R"({"event": "portState", "topology": "Mst1", "intf": "Ethernet0",
              "state": "forwarding"})" );
   event( R"({"event": "vlanTopology", "vlan": 10, "topology": "Mst1"})" );
   event( R"({"event": "macFlush", "topology": "Mst1", "intf": "Ethernet0"})" );
   event( R"({"event": "vlanMember", "vlan": 10, "intf": "Ethernet4", "mode": "tagged"})" );
   scheduler.runFor( 20 );
   row = show( "topology", { "Mst1" } )[0];
   EXPECT_EQ( row.at( "vlans" ), Json::array( { "10" } ) );
   EXPECT_EQ( row.at( "flushes" ), 1 );
   EXPECT_EQ( row.at( "acknowledged" ), "forwarding" );
   EXPECT_EQ( ports( "vlan", "10" ),
              "Ethernet0 untagged,Ethernet8 tagged,Ethernet12 tagged,Ethernet4 tagged," );

   event( R"({"event": "tapAgg", "topology": "Taps", "id": 99, "tap": ["Ethernet0"],
              "tool": []})" );
   event( R"({"event": "operationalMode", "mode": "tapAgg"})" );
   event( R"({"event": "portState", "topology": "Mst1", "intf": "Ethernet0",
              "state": "blocking"})" );
   scheduler.runFor( 20 );
   EXPECT_EQ( show( "topology", { "Mst1" } )[0].at( "acknowledged" ), "forwarding" );
   event( R"({"event": "operationalMode", "mode": "switching"})" );
   scheduler.runFor( 20 );
   EXPECT_EQ( show( "topology", { "Mst1" } )[0].at( "acknowledged" ), "blocking" );
   EXPECT_THROW( event( R"({"event": "operationalMode", "mode": "no such"})" ), Velto::RangeError );
}

INSTANTIATE_TEST_SUITE_P( Kinds, AgentTopologyTest,
                          testing::Values( SoftChip::ChipKind::topology, SoftChip::ChipKind::vlan ),
                          []( const auto & info ) { return Kiv::toText( info.param ); } );

} // namespace
