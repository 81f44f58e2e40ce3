// VLAN mapping in the agent over the chip in software, in every form of both generations: rows,
// events, what is shown, and what becomes of a frame.

#include <nlohmann/json.hpp>
#include <set>

#include "agent/server/Console.h"
#include "agent/softchip/VlanMappingPart.h"
#include "tests/agent/AgentWorld.h"

namespace {

using QonAgent::Json;
using SoftChip::VlanMappingForm;
using Velto::String;

const char base[] = R"({
   "PORT": { "Ethernet0": {}, "Ethernet4": {}, "Ethernet8": {}, "Ethernet12": {} },
   "PORTCHANNEL": { "PortChannel7": {} },
   "PORTCHANNEL_MEMBER": { "PortChannel7|Ethernet8": {}, "PortChannel7|Ethernet12": {} },
   "VLAN": { "Vlan10": {}, "Vlan110": {}, "Vlan7": {} },
   "VLAN_MEMBER": { "Vlan110|Ethernet0": { "tagging_mode": "tagged" },
                    "Vlan110|Ethernet4": { "tagging_mode": "tagged" },
                    "Vlan7|Ethernet0": { "tagging_mode": "untagged" },
                    "Vlan7|Ethernet4": { "tagging_mode": "untagged" },
                    "Vlan10|PortChannel7": { "tagging_mode": "tagged" } },
   "VLAN_MAPPING": { "Ethernet0|ingress|10": { "mapped_vlan": "110" },
                     "Ethernet4|egress|110": { "mapped_vlan": "10" },
                     "Ethernet4|egress|7": { "native": "true" },
                     "PortChannel7|ingress|20": { "mapped_vlan": "10", "source": "flow" } }
})";

struct Form {
   const char * generation;
   VlanMappingForm form;
   Kiv::Seconds latency;
};

class AgentVlanMapping : public testing::TestWithParam< Form > {
 protected:
   static SoftChip::Shape shape() {
      SoftChip::Shape shape;
      shape.vlanMapping.form = GetParam().form;
      shape.latency = GetParam().latency;
      return shape;
   }
   QonAgent::ConfigReport load( const String & text ) {
      auto db = QonAgent::ConfigDb::parse( "x.json", text );
      auto report = QonAgent::ConfigReader( agent, db ).load();
      scheduler.runFor( 10 );
      return report;
   }
   void event( const String & text ) {
      const Json line = Json::parse( text );
      for ( auto & kind : agent.eventKinds() ) {
         if ( kind.name == line.at( "event" ) ) {
            kind.parse( line )();
         }
      }
      scheduler.runFor( 10 );
   }
   Json show( const String & name ) {
      Json words = Json::array();
      for ( auto & word : Kiv::split( name, ' ' ) ) {
         words.push_back( word );
      }
      const Json answer =
            QonAgent::Console( agent ).answer( { { "do", "show" }, { "words", words } } );
      return answer.at( "ok" ) == true ? answer.at( "rows" ) : answer.at( "error" );
   }
   /** "Ethernet0 ingress 10: owner, reason" of everything that is wanted. */
   std::set< String > wanted() {
      std::set< String > all;
      for ( auto & row : show( "vlan-mapping" ) ) {
         all.insert( row.at( "interface" ).get< String >() + " " +
                     row.at( "direction" ).get< String >() + " " +
                     row.at( "vlan" ).get< String >() + " for " +
                     row.at( "source" ).get< String >() + ": " + row.at( "owner" ).get< String >() +
                     ", " + row.at( "reason" ).get< String >() );
      }
      return all;
   }
   bool first() const { return GetParam().generation == String( "1" ); }

   Kiv::VirtualScheduler scheduler;
   Kiv::LogRecorder logs;
   SoftChip::Chip chip{ scheduler, shape() };
   QonAgent::Agent agent{ scheduler,
                          chip,
                          QonAgent::agentFeatures(),
                          { { "vlan-mapping", GetParam().generation } } };
};

INSTANTIATE_TEST_SUITE_P( Forms, AgentVlanMapping,
                          testing::Values( Form{ "1", VlanMappingForm::atOnce, 0 },
                                           Form{ "1", VlanMappingForm::late, 0.1 },
                                           Form{ "1", VlanMappingForm::directories, 0.1 },
                                           Form{ "2", VlanMappingForm::atOnce, 0.1 } ) );

TEST_P( AgentVlanMapping, RowsReachTheChipAndFramesAreTranslated ) {
   EXPECT_TRUE( load( base ).warnings.empty() );
   const String native = first() ? "CLI" : "native VLAN";
   EXPECT_EQ( wanted(), ( std::set< String >{ "Ethernet0 ingress 10 for cli: CLI, ",
                                              "Ethernet4 egress 110 for cli: CLI, ",
                                              "Ethernet4 egress 7 for cli: " + native + ", ",
                                              "PortChannel7 ingress 20 for flow: Steerline, " } ) );
   EXPECT_EQ( show( "hw vlan-mapping" ).size(), 5u ); // both members
   EXPECT_EQ( show( "vlan-mapping Ethernet0" ).size(), 1u );
   auto tagsOf = [&]( U32 vlan ) {
      std::set< U32 > tags;
      for ( auto & copy :
            chip.forward( { Tests::intf( "Ethernet0" ), Ulnet::EthAddr( "ff:ff:ff:ff:ff:ff" ),
                            Ulnet::EthAddr( "02:11:22:00:00:01" ),
                            Bridging::VlanIdOrNone( vlan ) } )
                  .copies ) {
         tags.insert( copy.tags.outer.value() );
      }
      return tags;
   };
   EXPECT_EQ( tagsOf( 10 ), std::set< U32 >{ 10 } ); // in VLAN 110 between the two
   EXPECT_EQ( tagsOf( 0 ), std::set< U32 >{ 7 } );   // would leave without a tag
}

TEST_P( AgentVlanMapping, WrongRowsAndEventsCostThemselves ) {
   const auto report = load( R"({
      "PORT": { "Ethernet0": {} },
      "VLAN_MAPPING": { "Ethernet0|ingress|4095": { "mapped_vlan": "110" },
                        "Ethernet0|ingress": { "mapped_vlan": "110" },
                        "Ethernet0|sideways|10": { "mapped_vlan": "110" },
                        "Ethernet9|ingress|10": { "mapped_vlan": "110" },
                        "Ethernet0|ingress|11": {},
                        "Ethernet0|ingress|12": { "mapped_vlan": "0" },
                        "Ethernet0|ingress|13": { "mapped_vlan": "110", "source": "nobody" },
                        "Ethernet0|egress|14": { "native": "true", "source": "flow" },
                        "Ethernet0|egress|15": { "native": "true" },
                        "Ethernet0|egress|16": { "native": "true" },
                        "Ethernet0|ingress|17|18": { "mapped_vlan": "19" } } })" );
   EXPECT_EQ( report.warnings.size(), 9u );
   EXPECT_EQ( wanted().size(), 2u );
   for ( auto bad : { R"("intf": "Vlan10", "direction": "ingress", "vlan": 10, "mapped": 11)",
                      R"("intf": "Ethernet0", "direction": "both", "vlan": 10, "mapped": 11)",
                      R"("intf": "Ethernet0", "direction": "ingress", "vlan": 0, "mapped": 11)",
                      R"("intf": "Ethernet0", "direction": "ingress", "vlan": 1, "mapped": 4095)",
                      R"("intf": "Ethernet0", "direction": "ingress", "vlan": 1)" } ) {
      EXPECT_THROW( event( R"({"event": "vlanMapping", "source": "cli", )" + String( bad ) + "}" ),
                    Velto::RangeError )
            << bad;
   }
   EXPECT_EQ( wanted().size(), 2u );
}

TEST_P( AgentVlanMapping, ConflictsAndTroubleAreShown ) {
   load( base );
   event( R"({"event": "vlanMapping", "intf": "Ethernet0", "direction": "ingress", "vlan": 10,
              "mapped": 7, "source": "flow"})" );
   auto has = [&]( const String & line ) { return wanted().contains( line ); };
   if ( first() ) {
      EXPECT_TRUE( has( "Ethernet0 ingress 10 for flow: CLI, in use by CLI" ) );
   } else {
      EXPECT_TRUE( has( "Ethernet0 ingress 10 for flow: , not in this mode of the interface" ) );
      event( R"({"event": "switchportMode", "intf": "Ethernet0", "mode": "flow"})" );
      EXPECT_TRUE( has( "Ethernet0 ingress 10 for flow: Steerline, " ) );
      event( R"({"event": "nativeVlan", "intf": "PortChannel7", "direction": "ingress",
                 "vlan": 20})" );
      event( R"({"event": "switchportMode", "intf": "PortChannel7", "mode": "trunk"})" );
      EXPECT_TRUE( has( "PortChannel7 ingress 20 for cli: native VLAN, " ) );
   }
   chip.faults().limitIs( "vlanMappingTable", 0 );
   event( R"({"event": "vlanMapping", "intf": "Ethernet4", "direction": "ingress", "vlan": 30,
              "mapped": 110, "source": "cli"})" );
   EXPECT_TRUE( has( first() ? "Ethernet4 ingress 30 for cli: , table full or refused"
                             : "Ethernet4 ingress 30 for cli: CLI, table full" ) );
   EXPECT_EQ( logs.records().back().name, "ETH_VLAN_MAPPING_TABLE_FULL" );
   chip.faults().clear();
   chip.faults().add( { "vlanMapping", SoftChip::Trouble::busy, 0, 0, 1000 } );
   event( R"({"event": "vlanMapping", "intf": "Ethernet4", "direction": "ingress", "vlan": 31,
              "mapped": 110, "source": "cli"})" );
   bool waits = false;
   for ( auto & row : show( "vlan-mapping Ethernet4" ) ) {
      waits |= row.at( "reason" ) == "cannot be programmed now" &&
               ( !first() || row.at( "retry" ).get< double >() <= 5 );
   }
   EXPECT_TRUE( waits );
   chip.faults().clear();
   scheduler.runFor( 10 );
   EXPECT_TRUE( has( "Ethernet4 ingress 31 for cli: CLI, " ) );
}

TEST_P( AgentVlanMapping, SinceIsWhenItBecameWhatItIs ) {
   load( base );
   scheduler.runFor( 30 );
   chip.faults().add( { "vlanMapping", SoftChip::Trouble::busy, 0, 0, 1000 } );
   event( R"({"event": "vlanMapping", "intf": "Ethernet0", "direction": "ingress", "vlan": 31,
              "mapped": 110, "source": "cli"})" );
   chip.faults().clear();
   scheduler.runFor( 10 );
   auto since = [&]( const String & vlan ) {
      for ( auto & row : show( "vlan-mapping" ) ) {
         if ( row.at( "vlan" ) == vlan ) {
            EXPECT_EQ( row.at( "programmed" ), "yes" );
            return row.at( "since" ).get< double >();
         }
      }
      return -1.0;
   };
   EXPECT_GT( since( "110" ), 49 ); // of another port
   EXPECT_GE( since( "31" ), 0 );
   EXPECT_LE( since( "31" ), 10 ); // wanted for 20 seconds
   event( R"({"event": "vlanMapping", "intf": "Ethernet0", "direction": "ingress", "vlan": 10,
              "mapped": 111, "source": "cli"})" );
   EXPECT_LE( since( "10" ), 10 );
   event( R"({"event": "vlanMapping", "intf": "Ethernet0", "direction": "ingress", "vlan": 31,
              "mapped": 0, "source": "cli"})" );
   event( R"({"event": "vlanMapping", "intf": "Ethernet0", "direction": "ingress", "vlan": 31,
              "mapped": 110, "source": "cli"})" );
   EXPECT_LE( since( "31" ), 10 ); // nothing is left of the one before
}

} // namespace
