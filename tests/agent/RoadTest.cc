// The road of a frame through the chip, from a configuration to the copies that leave.

#include <nlohmann/json.hpp>
#include <set>

#include "agent/server/Console.h"
#include "tests/agent/AgentWorld.h"

namespace {

using namespace Tests;
using SoftChip::Copy;
using SoftChip::Passage;

const char roadConfig[] = R"({
   "PORT": { "Ethernet0": {}, "Ethernet4": {}, "Ethernet8": {}, "Ethernet12": {}, "Ethernet16": {},
             "Ethernet20": {}, "Ethernet24": {} },
   "PORTCHANNEL": { "PortChannel7": {}, "PortChannel10": {} },
   "PORTCHANNEL_MEMBER": { "PortChannel7|Ethernet8": {}, "PortChannel7|Ethernet12": {},
                           "PortChannel7|Ethernet16": {}, "PortChannel10|Ethernet20": {} },
   "VLAN": { "Vlan10": {}, "Vlan20": {} },
   "VLAN_MEMBER": { "Vlan10|Ethernet0": { "tagging_mode": "untagged" },
                    "Vlan10|Ethernet4": { "tagging_mode": "tagged" },
                    "Vlan10|PortChannel7": { "tagging_mode": "tagged" },
                    "Vlan10|PortChannel10": { "tagging_mode": "tagged" },
                    "Vlan20|Ethernet24": { "tagging_mode": "tagged" } },
   "STP": { "GLOBAL": { "mode": "pvst" } }, "STP_VLAN": { "Vlan10": {} },
   "STP_PORT": { "Ethernet4": { "portfast": "true" } },
   "MCLAG_DOMAIN": { "1": { "peer_link": "PortChannel10" } },
   "MCLAG_INTERFACE": { "1|PortChannel7": {} }
})";
const char host[] = "02:11:22:00:00:01";

class RoadTest : public testing::TestWithParam< SoftChip::ChipKind > {
 protected:
   RoadTest() { EXPECT_TRUE( load( roadConfig ).warnings.empty() ); }

   QonAgent::ConfigReport load( const String & text ) {
      auto db = QonAgent::ConfigDb::parse( "x.json", text );
      auto report = QonAgent::ConfigReader( agent, db ).load();
      scheduler.runFor( 20 );
      return report;
   }
   void event( const String & text ) {
      const auto line = QonAgent::Json::parse( "{" + text + "}" );
      for ( auto & kind : agent.eventKinds() ) {
         if ( kind.name == line.at( "event" ) ) {
            kind.parse( line )();
         }
      }
      scheduler.runFor( 20 );
   }
   void learn( const String & port ) {
      event( String( R"("event": "mac", "op": "add", "vlan": 10, "mac": ")" ) + host +
             R"(", "intf": ")" + port + "\"" );
   }
   void member( const String & port, const String & flags ) {
      event( R"("event": "lagMember", "portChannel": "PortChannel7", "port": ")" + port + "\", " +
             flags );
   }
   Passage send( const String & port, U32 vlan = 0, U32 source = 2 ) {
      char address[40];
      std::snprintf( address, sizeof address, "02:11:22:00:%02x:%02x", source / 256, source % 256 );
      return chip.forward( { intf( port ), Ulnet::EthAddr( host ), Ulnet::EthAddr( address ),
                             vlan ? Bridging::VlanIdOrNone( Bridging::VlanId( vlan ) )
                                  : Bridging::VlanIdOrNone() } );
   }
   /** "Ethernet0 Ethernet4/10": the ports by which copies leave, and their tags. */
   static String leaves( const Passage & passage ) {
      std::set< String > all;
      for ( auto & copy : passage.copies ) {
         all.insert( copy.port.stringValue() +
                     ( copy.tag.isNone() ? "" : "/" + copy.tag.stringValue() ) );
      }
      EXPECT_EQ( all.size(), passage.copies.size() ) << "a port gets two copies";
      String text;
      for ( auto & one : all ) {
         text += ( text.empty() ? "" : " " ) + one;
      }
      return text;
   }
   /** The ports that frames from `port` to the host leave by, of many sources. */
   std::set< String > spread( const String & port, U32 vlan = 0 ) {
      std::set< String > ports;
      for ( U32 source = 2; source < 300; ++source ) {
         ports.insert( leaves( send( port, vlan, source ) ) );
         EXPECT_EQ( leaves( send( port, vlan, source ) ), leaves( send( port, vlan, source ) ) );
      }
      return ports;
   }
   static String last( const Passage & passage ) { return passage.steps.back().what; }

   Kiv::VirtualScheduler scheduler;
   SoftChip::Chip chip{ scheduler, { .kind = GetParam() } };
   QonAgent::Agent agent{ scheduler, chip };
};

TEST_P( RoadTest, VlansAndTagsDecideWhoGetsAFrameAndHow ) {
   learn( "Ethernet0" );
   EXPECT_EQ( leaves( send( "Ethernet4", 10 ) ), "Ethernet0" );
   learn( "Ethernet4" );
   EXPECT_EQ( leaves( send( "Ethernet0" ) ), "Ethernet4/10" );
   EXPECT_EQ( leaves( send( "Ethernet4" ) ), "" ); // takes no frames without a tag
   EXPECT_EQ( last( send( "Ethernet4", 20 ) ), "20, without Ethernet4: dropped" );
   EXPECT_EQ( leaves( send( "Ethernet24", 20 ) ), "" ); // alone in its VLAN
   event( R"("event": "vlanMember", "vlan": 10, "intf": "Ethernet4", "mode": "none")" );
   EXPECT_EQ( last( send( "Ethernet0" ) ), "Ethernet4: Ethernet4 is not in VLAN 10: dropped" );
   event( R"("event": "mac", "op": "add", "vlan": 10, "mac": "02:11:22:00:00:01",
             "intf": "Ethernet4", "type": "drop")" );
   EXPECT_EQ( last( send( "Ethernet0" ) ), String( host ) + " is to be dropped" );
}

TEST_P( RoadTest, WhatIsNotKnownIsFloodedOnceToEveryAggregateAndNeverBack ) {
   const String fromPort = leaves( send( "Ethernet4", 10 ) );
   EXPECT_NE( fromPort.find( "Ethernet0" ), String::npos ) << fromPort;
   EXPECT_EQ( send( "Ethernet4", 10 ).copies.size(), 3u ) << fromPort; // of each group one member
   EXPECT_EQ( leaves( send( "Ethernet8", 10 ) ), "Ethernet0 Ethernet20/10 Ethernet4/10" );
   learn( "PortChannel7" );
   EXPECT_EQ( leaves( send( "Ethernet8", 10 ) ), "" );
}

TEST_P( RoadTest, AnAggregateSpreadsByAddressesOverTheMembersThatDistribute ) {
   learn( "PortChannel7" );
   using Ports = std::set< String >;
   EXPECT_EQ( spread( "Ethernet0" ),
              ( Ports{ "Ethernet8/10", "Ethernet12/10", "Ethernet16/10" } ) );
   member( "Ethernet12", R"("distributing": false)" );
   EXPECT_EQ( spread( "Ethernet0" ), ( Ports{ "Ethernet8/10", "Ethernet16/10" } ) );
   member( "Ethernet12", R"("collecting": false)" );
   EXPECT_EQ( leaves( send( "Ethernet12", 10 ) ), "" );
   // The peer link lends its member when the aggregate has none of its own; not to its own frames.
   for ( const char * port : { "Ethernet8", "Ethernet12", "Ethernet16" } ) {
      member( port, R"("member": false)" );
   }
   EXPECT_EQ( spread( "Ethernet0" ), ( Ports{ "Ethernet20/10" } ) );
   EXPECT_EQ( last( send( "Ethernet20", 10 ) ), "Port-Channel7: no member distributes: dropped" );
}

TEST_P( RoadTest, ABlockedPortNeitherTakesNorGetsFrames ) {
   learn( "Ethernet4" );
   EXPECT_EQ( leaves( send( "Ethernet0" ) ), "Ethernet4/10" );
   event( R"("event": "portState", "topology": "Vlan10", "intf": "Ethernet4",
             "state": "blocking")" );
   EXPECT_EQ( leaves( send( "Ethernet0" ) ), "" );
   EXPECT_EQ( leaves( send( "Ethernet4", 10 ) ), "" );
   event( R"("event": "portState", "topology": "Vlan10", "intf": "PortChannel7",
             "state": "blocking")" );
   learn( "PortChannel7" );
   EXPECT_EQ( spread( "Ethernet0" ), std::set< String >{ "" } );
}

TEST_P( RoadTest, TheConsoleShowsTheRoad ) {
   learn( "Ethernet4" );
   const auto rows =
         QonAgent::Console( agent )
               .answer( { { "do", "show" }, { "words", { "hw", "frame", "Ethernet0", host } } } )
               .at( "rows" );
   EXPECT_EQ( rows.front().at( "stage" ), "arrival" );
   EXPECT_EQ( rows.back().at( "what" ), "Ethernet4 with tag 10" );
}

INSTANTIATE_TEST_SUITE_P( Kinds, RoadTest,
                          testing::Values( SoftChip::ChipKind::topology, SoftChip::ChipKind::vlan ),
                          []( const auto & info ) { return Kiv::toText( info.param ); } );

} // namespace
