// The agent from a switch configuration to the frames that leave the chip.

#include <nlohmann/json.hpp>

#include "agent/ConfigReader.h"
#include "agent/server/Console.h"
#include "agent/softchip/Chip.h"
#include "agent/softchip/TapAggPart.h"
#include "tests/harness/World.h"

namespace {

using QonAgent::Json;
using Tests::intf;
using Tests::String;

const char config[] = R"({
   "PORT": { "Ethernet0": {}, "Ethernet4": {}, "Ethernet8": {}, "Ethernet12": {},
             "Ethernet16": {} },
   "PORTCHANNEL": { "PortChannel7": {} },
   "PORTCHANNEL_MEMBER": { "PortChannel7|Ethernet12": {} },
   "TAP_AGG": { "GLOBAL": { "mode": "on", "tcam_profile": "tap" } },
   "TAP_PORT": {
      "Ethernet0": { "groups": "web,mail", "truncate_size": "128", "identity": "100",
                     "mac_address": "02:11:22:00:00:01", "gre_strip_endpoints": "10.0.0.1" },
      "Ethernet4": { "groups": [ "mail" ], "raw": "true", "policy_map": "pm" },
      "Ethernet99": { "groups": "web" },
      "Ethernet12": { "groups": [ "a,b" ] } },
   "TOOL_PORT": {
      "Ethernet8": { "groups": "web", "identity_tagging": "dot1q", "dot1q_remove": "1" },
      "PortChannel7": { "groups": "mail" },
      "Ethernet16": { "identity_tagging": "both" } },
   "TAP_POLICY_MAP": { "pm|voice": { "groups": "voice" }, "pm|none": {}, "pm": { "groups": "x" } }
})";

class TapAggAgent : public testing::Test {
 protected:
   TapAggAgent() {
      report = load( config );
      agent.inputsRead();
      scheduler.runFor( 1 );
   }
   QonAgent::ConfigReport load( const String & text ) {
      auto db = QonAgent::ConfigDb::parse( "x.json", text );
      return QonAgent::ConfigReader( agent, db ).load();
   }
   const QonChip::HeldTapAgg & held() { return chip.of< SoftChip::TapAggPart >().table().held(); }
   void event( const String & text ) {
      const Json line = Json::parse( "{" + text + "}" );
      for ( auto & kind : agent.eventKinds() ) {
         if ( kind.name == line.at( "event" ) ) {
            kind.parse( line )();
            scheduler.runFor( 1.1 );
            return;
         }
      }
      FAIL() << text;
   }
   Json show( const std::vector< String > & words ) {
      const Json answer =
            QonAgent::Console( agent ).answer( { { "do", "show" }, { "words", words } } );
      return answer.contains( "rows" ) ? answer["rows"] : answer["error"];
   }
   /** Fields of a row, separated by blanks. */
   std::vector< String > lines( const std::vector< String > & words ) {
      std::vector< String > all;
      for ( auto & row : show( words ) ) {
         String line;
         for ( auto & [field, value] : row.items() ) {
            if ( field != "since" && !value.is_null() && value != "" && value != Json::array() ) {
               line += ( line.empty() ? "" : " " ) +
                       ( value.is_string() ? value.get< String >() : value.dump() );
            }
         }
         all.push_back( line );
      }
      std::sort( all.begin(), all.end() );
      return all;
   }
   std::set< Ulnet::IntfId > out( const String & from ) {
      std::set< Ulnet::IntfId > ports;
      for ( auto & copy :
            chip.forward(
                      { intf( from ), Ulnet::EthAddr( U64( 1 ) ), Ulnet::EthAddr( U64( 2 ) ), {} } )
                  .copies ) {
         ports.insert( copy.port );
      }
      return ports;
   }

   Kiv::VirtualScheduler scheduler;
   Kiv::LogRecorder logs;
   SoftChip::Chip chip{ scheduler };
   QonAgent::Agent agent{ scheduler, chip };
   QonAgent::ConfigReport report;
};

TEST_F( TapAggAgent, FromTheTablesToTheTools ) {
   EXPECT_EQ( report.warnings.size(), 5u );
   auto named = [&]( const String & place ) {
      return std::any_of( report.warnings.begin(), report.warnings.end(),
                          [&]( auto & line ) { return line.find( place ) != String::npos; } );
   };
   EXPECT_TRUE( named( "TAP_PORT|Ethernet99" ) && named( "TAP_PORT|Ethernet12|groups" ) &&
                named( "TOOL_PORT|Ethernet16|identity_tagging" ) &&
                named( "TAP_POLICY_MAP|pm|none" ) && named( "TAP_POLICY_MAP|pm" ) );
   EXPECT_EQ( out( "Ethernet0" ), ( std::set{ intf( "Ethernet8" ), intf( "Ethernet12" ) } ) );
   EXPECT_EQ( out( "Ethernet4" ), std::set{ intf( "Ethernet12" ) } );
   EXPECT_TRUE( out( "Ethernet8" ).empty() ); // a tool takes nothing
   const Json ways = show( { "hw", "tap-agg", "path", "Ethernet0" } );
   ASSERT_EQ( ways.size(), 2u );
   EXPECT_EQ( ways[0]["tool"], "Ethernet8" );
   EXPECT_EQ( ways[0]["changes"], ( Json{ "GRE header off to 10.0.0.1", "1 VLAN tags off",
                                          "to 02:11:22:00:00:01", "tag 100", "cut to 128" } ) );
   EXPECT_EQ( ways[1]["ports"], Json{ "Ethernet12" } );
   EXPECT_EQ( show( { "hw", "tap-agg", "path", "Ethernet8" } ),
              "there is no tap port 'Ethernet8'" );
   // The ports are those of spanning tree, too.
   auto followed = agent.entities().mount< TapAgg::HwConfig >( "tapagg/hwconfig" );
   EXPECT_TRUE( followed->tapIntf( intf( "Ethernet4" ) ) &&
                followed->toolIntf( intf( "Port-Channel7" ) ) && followed->tapAggTopoId() );
   EXPECT_EQ( chip.of< SoftChip::TapAggPart >().table().tcamProfile(), "tap" );

   event( R"("event": "toolPort", "port": "Ethernet8", "active": false)" );
   event( R"("event": "toolGroups", "port": "PortChannel7", "groups": ["web"])" );
   EXPECT_EQ( out( "Ethernet0" ), std::set{ intf( "Ethernet12" ) } );
   EXPECT_TRUE( out( "Ethernet4" ).empty() );
   event( R"("event": "operationalMode", "mode": "switching")" );
   scheduler.runFor( 5 );
   EXPECT_EQ( show( { "hw", "tap-agg" } ).size(), 0u );
   EXPECT_FALSE( chip.of< SoftChip::TapAggPart >().table().refused() );
}

/** A file that comes behind another one is a difference to it. */
TEST_F( TapAggAgent, AFileIsReadAgain ) {
   const String ports = R"("PORT": { "Ethernet0": {}, "Ethernet4": {}, "Ethernet8": {} })";
   const String next = "{" + ports + R"(, "TAP_AGG": { "GLOBAL": { "mode": "on" } },
      "TAP_PORT": { "Ethernet0": { "groups": "mail" } },
      "TOOL_PORT": { "Ethernet8": { "groups": "web,mail" } },
      "TAP_POLICY_MAP": { "pm|fax": { "groups": "voice" }, "pm2|fax": { "groups": "fax" } } })";
   EXPECT_EQ( load( next ).warnings, std::vector< String >() );
   scheduler.runFor( 1.1 );
   QonChip::HeldTapPort neutral;
   neutral.group = held().taps.at( intf( "Ethernet0" ) ).group;
   EXPECT_EQ( held().taps, ( std::map{ std::pair( intf( "Ethernet0" ), neutral ) } ) );
   EXPECT_EQ( held().tools.size(), 1u );
   EXPECT_EQ( held().groups.size(), 4u );
   EXPECT_EQ( out( "Ethernet0" ), std::set{ intf( "Ethernet8" ) } );
   auto maps = agent.entities().mount< TapAgg::PolicyMapConfig >( "tapagg/policymap/config" );
   auto ids = agent.entities().mount< TapAgg::PmapGroupStatus >( "tapagg/pmapgroup/status" );
   auto followed = agent.entities().mount< TapAgg::HwConfig >( "tapagg/hwconfig" );
   EXPECT_EQ( maps->servicePolicys() + maps->policyMap( "pm" )->classMaps(), 1u );
   EXPECT_EQ( ids->groupNameToIds(), 2u );
   EXPECT_EQ( followed->tapIntfs() + followed->toolIntfs(), 2u );
   // What became of it meanwhile stays.
   event( R"("event": "toolGroups", "port": "Ethernet8", "groups": ["web"])" );
   load( next );
   EXPECT_TRUE( out( "Ethernet0" ).empty() );
   load( "{" + ports + "}" );
   EXPECT_EQ( maps->policyMaps() + ids->groupNameToIds(), 0u );
   scheduler.runFor( 6 );
   EXPECT_EQ( held(), QonChip::HeldTapAgg() );
   EXPECT_FALSE( chip.of< SoftChip::TapAggPart >().table().refused() );
}

TEST_F( TapAggAgent, WhoWantsWhatAndWhyNot ) {
   chip.faults().limitIs( "tapGroups", 4 );
   event( R"("event": "toolPort", "port": "Ethernet8", "active": false)" );
   event( R"("event": "tapGroups", "port": "Ethernet4", "groups": ["full"])" );
   Json rows = show( { "tap-agg" } );
   auto row = [&]( const String & what, const String & name ) {
      for ( auto & each : rows ) {
         if ( each["what"] == what && each["name"] == name ) {
            return each;
         }
      }
      return Json::object();
   };
   EXPECT_EQ( row( "group", "mail,web" )["wanted"], Json{ "tap Ethernet0" } );
   EXPECT_EQ( row( "group", "mail" )["state"], "programmed" );
   EXPECT_EQ( row( "group", "voice" )["wanted"], ( Json{ "class pm|voice", "policy maps" } ) );
   EXPECT_EQ( row( "group", "full" )["state"], "pending" );
   const double waits = row( "group", "full" )["since"].get< double >();
   scheduler.runFor( 3 );
   rows = show( { "tap-agg" } );
   EXPECT_NEAR( row( "group", "full" )["since"].get< double >(), waits + 3, 0.01 );
   EXPECT_EQ( row( "tap", "Ethernet4" )["why"], "the chip has no group for it" );
   EXPECT_EQ( row( "tap", "Ethernet4" )["wanted"], Json{ "full" } );
   EXPECT_EQ( row( "tool", "Ethernet8" )["why"], "the port cannot take frames" );
   EXPECT_EQ( row( "tool", "Ethernet8" )["state"], "programmed" );
   EXPECT_EQ( logs.records().size(), 1u );
   EXPECT_EQ( lines( { "hw", "tap-agg" } ).size(), 8u );
   // Who wants it anew has waited since then.
   event( R"("event": "tapGroups", "port": "Ethernet4", "groups": [])" );
   event( R"("event": "tapGroups", "port": "Ethernet4", "groups": ["full"])" );
   rows = show( { "tap-agg" } );
   EXPECT_EQ( row( "group", "full" )["state"], "pending" );
   EXPECT_LT( row( "group", "full" )["since"].get< double >(), 1.2 );
}

} // namespace
