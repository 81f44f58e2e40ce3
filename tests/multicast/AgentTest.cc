// Multicast groups of a whole agent over the chip in software: few groups, and a MAC table that hosts have
// their places in, too.

#include <nlohmann/json.hpp>

#include "agent/Agent.h"
#include "agent/ConfigReader.h"
#include "agent/softchip/Chip.h"
#include "agent/softchip/MacPart.h"
#include "agent/softchip/MulticastPart.h"
#include "tests/harness/World.h"

namespace {

using Velto::String;
using Fields = std::map< String, String >;

const char configuration[] = R"({
   "PORT": { "Ethernet0": {}, "Ethernet4": {}, "Ethernet8": {} },
   "PORTCHANNEL": { "PortChannel1": {} },
   "PORTCHANNEL_MEMBER": { "PortChannel1|Ethernet4": {} },
   "VLAN": { "Vlan10": {} },
   "VLAN_MEMBER": { "Vlan10|Ethernet0": { "tagging_mode": "untagged" },
                    "Vlan10|Ethernet8": { "tagging_mode": "untagged" },
                    "Vlan10|PortChannel1": { "tagging_mode": "untagged" } },
   "MULTICAST_GROUP": {
      "Vlan10|01:00:5e:01:01:01": { "members": [ "Ethernet0", "PortChannel1" ] },
      "Vlan10|00:00:5e:01:01:01": { "members": [ "Ethernet0" ] },
      "Vlan10|01:00:5e:01:01:02": {},
      "Ethernet0|01:00:5e:01:01:03": { "members": [ "Ethernet0" ] }
   },
   "MULTICAST_COPY": { "LINK_LOCAL|lldp": {}, "ARP|x": {} }
})";

class McastAgent : public testing::Test {
 protected:
   McastAgent() {
      shape.multicast.groups = 3;
      chip.emplace( scheduler, shape );
      agent.emplace( scheduler, *chip );
      auto db = QonAgent::ConfigDb::parse( "x.json", configuration );
      report = QonAgent::ConfigReader( *agent, db ).load();
      agent->inputsRead();
      scheduler.runFor( 1 );
   }
   void event( const String & line ) {
      auto json = QonAgent::Json::parse( line );
      for ( auto & kind : agent->eventKinds() ) {
         if ( kind.name == json["event"] ) {
            kind.parse( json )();
         }
      }
      scheduler.runFor( 0.5 );
   }
   void igmp( const String & op, const String & group, const String & port ) {
      event( R"({"event": "igmp", "op": ")" + op + R"(", "vlan": 10, "group": "01:00:5e:01:01:)" +
             group + R"(", "port": ")" + port + R"("})" );
   }
   std::vector< Fields > show( const std::vector< String > & words ) {
      auto all = agent->showCommands();
      auto rows = QonAgent::runShow( *agent, *QonAgent::findShow( all, words ), words );
      std::vector< Fields > found;
      while ( const QonAgent::Row * row = rows.next() ) {
         Fields fields;
         for ( auto & [name, value] : row->fields() ) {
            auto text = std::get_if< String >( &value.held() );
            auto number = std::get_if< U64 >( &value.held() );
            auto seconds = std::get_if< double >( &value.held() );
            auto list = std::get_if< QonAgent::Value::List >( &value.held() );
            String & field = fields[name] = text      ? *text
                                            : number  ? Kiv::toText( *number )
                                            : seconds ? Kiv::toText( *seconds )
                                                      : "";
            for ( auto & part : list ? *list : QonAgent::Value::List() ) {
               field += ( field.empty() ? "" : " " ) + part;
            }
         }
         found.push_back( fields );
      }
      return found;
   }
   /** The ports that a frame from Ethernet0 to a group leaves by. */
   std::set< String > leavesBy( U64 group ) {
      std::set< String > by;
      const SoftChip::Frame frame = {
            agent->names().typed( "Ethernet0" ), Ulnet::EthAddr( group ), Ulnet::EthAddr( 2 ), {} };
      for ( auto & copy : chip->forward( frame ).copies ) {
         by.insert( agent->names().spelling( copy.port ) );
      }
      return by;
   }

   SoftChip::Shape shape;
   Kiv::VirtualScheduler scheduler;
   Kiv::LogRecorder logs;
   std::optional< SoftChip::Chip > chip;
   std::optional< QonAgent::Agent > agent;
   QonAgent::ConfigReport report;
};

TEST_F( McastAgent, GroupsOfTheConfigurationForward ) {
   EXPECT_EQ( report.warnings.size(), 4u );
   using Names = std::set< String >;
   EXPECT_EQ( leavesBy( 0x01005e010101 ), Names{ "Ethernet4" } ) << "not back, and a member of two";
   EXPECT_EQ( leavesBy( 0x01005e010199 ), ( Names{ "Ethernet4", "Ethernet8" } ) ) << "not known";
   EXPECT_TRUE( chip->of< SoftChip::MulticastPart >().table().linkLocalCopied );
   const auto rows = show( { "multicast" } );
   ASSERT_EQ( rows.size(), 1u );
   EXPECT_EQ( rows[0].at( "members" ), "Ethernet0 PortChannel1" );
   EXPECT_EQ( rows[0].at( "ports" ), "Ethernet0 Ethernet4" );
   EXPECT_EQ( rows[0].at( "state" ), "programmed" );
   EXPECT_EQ( rows[0].at( "origin" ), "static" );
   const auto path = show( { "hw", "multicast", "path", "01:00:5e:01:01:01", "10" } );
   ASSERT_EQ( path.size(), 2u );
   EXPECT_EQ( path[1].at( "interface" ), "Ethernet4" );
}

TEST_F( McastAgent, AFileThatIsReadAgainIsADifference ) {
   igmp( "join", "05", "Ethernet8" );
   auto read = [&]( const String & groups ) {
      auto db = QonAgent::ConfigDb::parse(
            "y.json", R"({ "PORT": { "Ethernet0": {}, "Ethernet4": {}, "Ethernet8": {} },
                           "MULTICAST_GROUP": { )" +
                            groups + " } }" );
      EXPECT_EQ( QonAgent::ConfigReader( *agent, db ).load().warnings.size(), 0u );
      scheduler.runFor( 0.5 );
   };
   read( R"("Vlan10|01:00:5e:01:01:01": { "members": [ "Ethernet8", "Ethernet0" ] })" );
   EXPECT_EQ( show( { "multicast", "10", "01:00:5e:01:01:01" } )[0].at( "members" ),
              "Ethernet0 Ethernet8" );
   EXPECT_FALSE( chip->of< SoftChip::MulticastPart >().table().linkLocalCopied );
   read( "" );
   EXPECT_TRUE( show( { "multicast", "10", "01:00:5e:01:01:01" } ).empty() );
   EXPECT_EQ( show( { "hw", "multicast" } ).size(), 1u ) << "what snooping wants stays";
}

TEST_F( McastAgent, SaysWhoFloodsAndWhy ) {
   igmp( "join", "02", "Ethernet8" );
   igmp( "join", "03", "PortChannel1" );
   auto row = show( { "multicast", "10", "01:00:5e:01:01:03" } );
   ASSERT_EQ( row.size(), 1u );
   EXPECT_EQ( row[0].at( "state" ), "flooding" );
   EXPECT_EQ( row[0].at( "why" ), "no group of the chip is free" );
   EXPECT_EQ( row[0].at( "queue" ), "1" );
   EXPECT_EQ( leavesBy( 0x01005e010103 ).size(), 2u );
   const auto used = show( { "resources", "multicast" } );
   EXPECT_EQ( used[0].at( "used" ) + "/" + used[0].at( "of" ), "3/3" );
   EXPECT_EQ( used[2].at( "used" ), "1" );
   scheduler.runFor( 2 );
   EXPECT_EQ( show( { "multicast", "10", "01:00:5e:01:01:03" } )[0].at( "since" ), "2.5" );
   event( R"({"event": "igmp", "op": "delete", "vlan": 10, "group": "01:00:5e:01:01:02"})" );
   EXPECT_EQ( show( { "multicast", "10", "01:00:5e:01:01:03" } )[0].at( "state" ), "programmed" );
   EXPECT_EQ( leavesBy( 0x01005e010103 ), std::set< String >{ "Ethernet4" } );
   event( R"({"event": "igmp", "op": "invalid", "vlan": 10, "group": "01:00:5e:01:01:03"})" );
   EXPECT_EQ( show( { "multicast", "10", "01:00:5e:01:01:03" } )[0].at( "why" ),
              "its index is not valid" );
   EXPECT_EQ( show( { "hw", "multicast" } ).size(), 1u );
}

TEST_F( McastAgent, GroupsAndHostsShareTheMacTable ) {
   chip->faults().limitIs( "hostTable", 1 ); // the static group's
   igmp( "join", "02", "Ethernet8" );
   EXPECT_EQ( show( { "multicast", "10", "01:00:5e:01:01:02" } )[0].at( "why" ),
              "no room in the MAC table" );
   EXPECT_TRUE( show( { "hw", "mac" } ).empty() ) << "a group is no host";
   chip->faults().limitIs( "hostTable", 2 );
   scheduler.runFor( 6 );
   EXPECT_EQ( show( { "multicast", "10", "01:00:5e:01:01:02" } )[0].at( "state" ), "programmed" );
   // Another agent over the same chip starts with nothing of it.
   agent.reset();
   EXPECT_EQ( chip->of< SoftChip::MulticastPart >().table().macEntries().size(), 2u );
   agent.emplace( scheduler, *chip );
   scheduler.runFor( 1 );
   EXPECT_TRUE( chip->of< SoftChip::MulticastPart >().table().macEntries().empty() );
}

} // namespace
