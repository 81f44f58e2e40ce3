// The road of a frame through the chip, from a configuration to the copies that leave.

#include <nlohmann/json.hpp>

#include "agent/server/Console.h"
#include "agent/softchip/TopologyPart.h"
#include "tests/agent/RoadWorld.h"

namespace {

using namespace Tests;

const char roadConfig[] = R"({
   "PORT": { "Ethernet0": {}, "Ethernet4": {}, "Ethernet8": {}, "Ethernet12": {}, "Ethernet16": {},
             "Ethernet20": {}, "Ethernet24": {}, "Ethernet28": {} },
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
const String toHost = String( "dmac=" ) + host;
const String toHostIn10 = toHost + ",vlan=10";

class RoadTest : public testing::TestWithParam< SoftChip::ChipKind >, public RoadWorld {
 protected:
   using Ports = RoadWorld::Ports;
   RoadTest() : RoadWorld( SoftChip::Shape{ .kind = GetParam() } ) {
      EXPECT_TRUE( load( roadConfig ).warnings.empty() );
   }
   /** Adds rows to the configuration. */
   void more( const String & rows ) {
      const String whole = roadConfig;
      load( whole.substr( 0, whole.rfind( '}' ) ) + ", " + rows + "}" );
   }
   void learn( const String & port ) {
      event( String( R"("event": "mac", "op": "add", "vlan": 10, "mac": ")" ) + host +
             R"(", "intf": ")" + port + "\"" );
   }
   void member( const String & port, const String & flags ) {
      event( R"("event": "lagMember", "portChannel": "PortChannel7", "port": ")" + port + "\", " +
             flags );
   }
};

TEST_P( RoadTest, VlansAndTagsDecideWhoGetsAFrameAndHow ) {
   learn( "Ethernet0" );
   EXPECT_EQ( out( "Ethernet4", toHostIn10 ), "Ethernet0" );
   // An inner tag comes out where the outer one goes off.
   EXPECT_EQ( out( "Ethernet4", toHostIn10 + ",inner=30" ), "Ethernet0/30" );
   learn( "Ethernet4" );
   EXPECT_EQ( out( "Ethernet0", toHost ), "Ethernet4/10" );
   EXPECT_EQ( out( "Ethernet4", toHost ), "" ); // takes no frames without a tag
   EXPECT_EQ( last( "Ethernet4", toHost + ",vlan=20" ), "20, without Ethernet4: dropped" );
   EXPECT_EQ( out( "Ethernet24", toHost + ",vlan=20" ), "" ); // alone in its VLAN
   event( R"("event": "vlanMember", "vlan": 10, "intf": "Ethernet4", "mode": "none")" );
   EXPECT_EQ( out( "Ethernet0", toHost ), "" );
   event( R"("event": "mac", "op": "add", "vlan": 10, "mac": "02:11:22:00:00:01",
             "intf": "Ethernet4", "type": "drop")" );
   EXPECT_EQ( last( "Ethernet0", toHost ), String( host ) + " is to be dropped" );
}

TEST_P( RoadTest, WhatIsNotKnownIsFloodedOnceToEveryAggregateAndNeverBack ) {
   const auto fromPort = ask( "Ethernet4", toHostIn10 );
   EXPECT_EQ( leaves( fromPort ).find( "Ethernet0" ), 0u );
   EXPECT_EQ( fromPort.copies.size(), 3u ); // of each group one member
   EXPECT_EQ( out( "Ethernet8", toHostIn10 ), "Ethernet0 Ethernet20/10 Ethernet4/10" );
   learn( "PortChannel7" );
   EXPECT_EQ( out( "Ethernet8", toHostIn10 ), "" );
}

TEST_P( RoadTest, AnAggregateSpreadsByAddressesOverTheMembersThatDistribute ) {
   learn( "PortChannel7" );
   EXPECT_EQ( spread( "Ethernet0", toHost ),
              ( Ports{ "Ethernet8/10", "Ethernet12/10", "Ethernet16/10" } ) );
   member( "Ethernet12", R"("distributing": false)" );
   EXPECT_EQ( spread( "Ethernet0", toHost ), ( Ports{ "Ethernet8/10", "Ethernet16/10" } ) );
   member( "Ethernet12", R"("collecting": false)" );
   EXPECT_EQ( out( "Ethernet12", toHostIn10 ), "" );
   // The peer link lends its member when the aggregate has none of its own; not to its own frames.
   for ( const char * port : { "Ethernet8", "Ethernet12", "Ethernet16" } ) {
      member( port, R"("member": false)" );
   }
   EXPECT_EQ( spread( "Ethernet0", toHost ), ( Ports{ "Ethernet20/10" } ) );
   EXPECT_EQ( last( "Ethernet20", toHostIn10 ), "Port-Channel7: no member distributes: dropped" );
}

TEST_P( RoadTest, ABlockedPortNeitherTakesNorGetsFrames ) {
   learn( "Ethernet4" );
   EXPECT_EQ( out( "Ethernet0", toHost ), "Ethernet4/10" );
   auto block = [&]( const String & port ) {
      event( R"("event": "portState", "topology": "Vlan10", "state": "blocking", "intf": ")" +
             port + "\"" );
   };
   block( "Ethernet4" );
   EXPECT_EQ( out( "Ethernet0", toHost ), "" );
   EXPECT_EQ( out( "Ethernet4", toHostIn10 ), "" );
   block( "PortChannel7" );
   learn( "PortChannel7" );
   EXPECT_EQ( spread( "Ethernet0", toHost ), Ports{ "" } );
}

/** Before VLANs and states of ports are looked at; not outside of spanning tree. */
TEST_P( RoadTest, TheProcessorTakesBpdus ) {
   const String bpdu = "dmac=01:80:c2:00:00:00", perVlan = "dmac=01:00:0c:cc:cc:cd,vlan=20";
   EXPECT_EQ( out( "Ethernet24", bpdu ), "Cpu" );
   EXPECT_EQ( out( "Ethernet4", perVlan ), "Cpu/20" );
   event( R"("event": "operationalMode", "mode": "tapAgg")" );
   EXPECT_EQ( out( "Ethernet24", bpdu ), "" );
   EXPECT_EQ( out( "Ethernet4", perVlan ), "" );
   event( R"("event": "operationalMode", "mode": "switching")" );
   EXPECT_EQ( out( "Ethernet24", bpdu ), "Cpu" );
}

TEST_P( RoadTest, TranslationsOfBothTagsGoBeforeThoseOfTheOuterOne ) {
   more( R"("VLAN_MAPPING": {
      "Ethernet4|ingress|110": { "mapped_vlan": "10" },
      "Ethernet4|ingress|110|7": { "mapped_vlan": "10", "mapped_inner": "70" },
      "Ethernet4|ingress|20|8": { "mapped_vlan": "10" },
      "Ethernet0|egress|10": { "native": "true" },
      "PortChannel7|egress|10": { "mapped_vlan": "210", "mapped_inner": "30" } })" );
   learn( "PortChannel10" );
   EXPECT_EQ( out( "Ethernet4", toHost + ",vlan=110" ), "Ethernet20/10" );
   EXPECT_EQ( out( "Ethernet4", toHost + ",vlan=110,inner=6" ), "Ethernet20/10.6" );
   EXPECT_EQ( out( "Ethernet4", toHost + ",vlan=110,inner=7" ), "Ethernet20/10.70" );
   EXPECT_EQ( out( "Ethernet4", toHost + ",vlan=20,inner=8" ), "Ethernet20/10" );
   EXPECT_EQ( out( "Ethernet4", toHost + ",vlan=20" ), "" ); // not in VLAN 20
   learn( "Ethernet0" );
   EXPECT_EQ( out( "Ethernet4", toHost + ",vlan=110,inner=6" ), "Ethernet0/10.6" ); // encapsulated
   learn( "PortChannel7" );
   EXPECT_EQ( spread( "Ethernet4", toHost + ",vlan=110" ),
              ( Ports{ "Ethernet8/210.30", "Ethernet12/210.30", "Ethernet16/210.30" } ) );
}

/** Lists of each type by the fields of theirs, on the way in and out; what they mirror leaves, although
    it is dropped. */
TEST_P( RoadTest, ListsDecideByPacketsAndMirrorThem ) {
   more( R"("MIRROR_SESSION": { "watch": { "type": "SPAN", "dst_port": "Ethernet28" } },
      "ACL_TABLE": {
         "WEB": { "type": "L3", "stage": "ingress", "ports": [ "Ethernet0" ] },
         "NIL": { "type": "L3V6", "stage": "ingress", "ports": [ "Vlan10" ] },
         "ARP": { "type": "L2", "stage": "egress", "ports": [ "PortChannel7" ] } },
      "ACL_RULE": {
         "WEB|TELNET": { "PRIORITY": "9", "PACKET_ACTION": "DROP", "IP_PROTOCOL": "6",
                         "L4_DST_PORT": "23", "MIRROR_ACTION": "watch" },
         "NIL|ALL": { "PRIORITY": "9", "PACKET_ACTION": "DROP", "SRC_IPV6": "2001:db8::/32" },
         "ARP|ARP": { "PRIORITY": "9", "PACKET_ACTION": "DROP", "ETHER_TYPE": "0x0806" } })" );
   learn( "PortChannel7" );
   const String ip = toHost + ",src=10.0.0.1,dst=10.0.0.2,protocol=6,dport=";
   EXPECT_EQ( spread( "Ethernet0", ip + "80" ),
              ( Ports{ "Ethernet8/10", "Ethernet12/10", "Ethernet16/10" } ) );
   EXPECT_EQ( out( "Ethernet0", ip + "23" ), "Ethernet28" );
   EXPECT_EQ( ask( "Ethernet0", ip + "23" ).copies.at( 0 ).changes, Lines{ "mirrored by watch" } );
   EXPECT_NE( out( "Ethernet4", ip + "23,vlan=10" ), "" ); // another port
   EXPECT_NE( last( "Ethernet0", toHost + ",src=2001:db8::1,dst=::1" ).find( "NIL denies" ),
              String::npos );
   EXPECT_NE( out( "Ethernet0", toHost + ",src=2001:db9::1,dst=::1" ), "" );
   EXPECT_EQ( spread( "Ethernet0", toHost + ",ethertype=2054" ), Ports{ "" } );
   learn( "Ethernet4" );
   EXPECT_EQ( out( "Ethernet0", toHost + ",ethertype=2054" ), "Ethernet4/10" );
}

/** A destination that is an aggregate gets one copy; a tunnel's leaves by the way there is. */
TEST_P( RoadTest, SessionsCopyWhatComesInAndWhatLeaves ) {
   more( R"("MIRROR_SESSION": {
      "in": { "type": "SPAN", "src_port": "Ethernet0", "direction": "RX",
              "dst_port": "PortChannel10", "truncate_size": "64" },
      "out": { "type": "SPAN", "src_port": "PortChannel7", "direction": "TX",
               "dst_port": "Ethernet28" } })" );
   learn( "PortChannel7" );
   EXPECT_EQ(
         spread( "Ethernet0", toHost ),
         ( Ports{ "Ethernet20 Ethernet28/10 Ethernet8/10", "Ethernet12/10 Ethernet20 Ethernet28/10",
                  "Ethernet16/10 Ethernet20 Ethernet28/10" } ) );
   EXPECT_EQ( ask( "Ethernet0", toHost ).copies.at( 0 ).changes,
              ( Lines{ "mirrored by in", "cut to 64" } ) );
   EXPECT_EQ( out( "Ethernet4", toHostIn10 + ",smac=02:11:22:00:00:02" ).find( "Ethernet20" ),
              String::npos );
}

TEST_P( RoadTest, AStormOfRateZeroIsDroppedByItsKind ) {
   more( R"("PORT_STORM_CONTROL": { "Ethernet0|broadcast": { "kbps": "0" },
                                    "PortChannel7|unknown-unicast": { "kbps": "0" } })" );
   EXPECT_EQ( last( "Ethernet0", "dmac=ff:ff:ff:ff:ff:ff" ), "broadcast at most 0 kbps: dropped" );
   EXPECT_EQ( ask( "Ethernet0", toHost ).copies.size(), 3u );
   EXPECT_EQ( out( "Ethernet12", toHostIn10 ), "" );
   learn( "Ethernet4" );
   EXPECT_EQ( out( "Ethernet12", toHostIn10 ), "Ethernet4/10" ); // known by now
}

TEST_P( RoadTest, GroupsReachTheirMembersAndTheProcessorGetsItsPackets ) {
   const String group = "dmac=01:00:5e:01:01:01", igmp = ",src=10.0.0.1,dst=224.1.1.1,protocol=2";
   more( R"("MULTICAST_GROUP": { "Vlan10|01:00:5e:01:01:01": { "members": [ "Ethernet4" ] } },
            "MULTICAST_COPY": { "IGMP|x": {}, "LINK_LOCAL|x": {} })" );
   EXPECT_EQ( out( "Ethernet0", group ), "Ethernet4/10" );
   EXPECT_EQ( out( "Ethernet0", group + igmp ), "Cpu" );
   const String local = leaves( ask( "Ethernet0", "dmac=01:00:5e:00:00:05" ) );
   EXPECT_EQ( local.find( "Cpu" ), 0u ) << local;
   EXPECT_NE( local.find( "Ethernet4/10" ), String::npos ) << local;
}

TEST_P( RoadTest, TapPortsLeadToTools ) {
   more( R"("TAP_AGG": { "GLOBAL": { "mode": "on" } },
            "TAP_PORT": { "Ethernet0": { "groups": [ "a" ], "identity": "77",
                                         "inner_identity": "78", "truncate_size": "128" } },
            "TOOL_PORT": { "Ethernet4": { "groups": [ "a" ], "identity_tagging": "qinq" },
                           "Ethernet24": { "groups": [ "a" ], "identity_tagging": "dot1q",
                                           "dot1q_remove": "1" },
                           "Ethernet28": { "groups": [ "b" ] } })" );
   EXPECT_EQ( out( "Ethernet0", toHost + ",vlan=20,inner=30" ),
              "Ethernet24/77.30 Ethernet4/77.78" );
   EXPECT_EQ( ask( "Ethernet0", toHost ).copies.at( 0 ).changes.back(), "cut to 128" );
   EXPECT_EQ( out( "Ethernet4", toHostIn10 ), "" );
}

TEST_P( RoadTest, TheConsoleShowsTheRoad ) {
   learn( "Ethernet4" );
   QonAgent::Console console( agent );
   auto answer = [&]( const String & fields ) {
      return console.answer(
            { { "do", "show" }, { "words", { "hw", "frame", "Ethernet0", fields } } } );
   };
   const auto rows = answer( toHost + ",smac=02:11:22:00:00:02" ).at( "rows" );
   EXPECT_EQ( rows.front().at( "stage" ), "arrival" );
   EXPECT_EQ( rows.back().at( "what" ), "Ethernet4 with tag 10" );
   EXPECT_EQ( rows.back().at( "tag" ), 10 );
   // The same as octets: destination, source, IPv4.
   const String head = "bytes=021122000001021122000002";
   EXPECT_EQ( answer( head + "0802" ).at( "rows" ), rows );
   EXPECT_EQ( answer( head + "81000014" + "0802" ).at( "rows" ).back().at( "what" ), "nothing" );

   const std::pair< const char *, const char * > wrong[] = {
         { "dmac=x", "packet: dmac: expected a MAC address" },
         { "vlan=4095", "frame: vlan: " },
         { "inner=20", "frame: inner: a frame without a tag has no inner one" },
         { "priority=8,vlan=10", "frame: priority: expected 0 to 7, found 8" },
         { "src=10.0.0.1,dst=::1", "frame: dst: expected an address of the family of src" },
         { "colour=red", "frame: no field 'colour'; expected, for example, dmac=" },
         { "bytes=0", "frame: bytes: expected two digits for each, found 1 digits" },
         { "bytes=0g", "frame: bytes: expected hexadecimal digits, found 'g' at 1" },
         { "bytes=02",
           "frame: ends in the Ethernet header: expected 14 octets from 0 on, found 1" },
   };
   for ( auto & [fields, error] : wrong ) {
      const auto reply = answer( fields );
      EXPECT_EQ( reply.value( "error", "" ).find( error ), 0u ) << reply;
   }
}

INSTANTIATE_TEST_SUITE_P( Kinds, RoadTest,
                          testing::Values( SoftChip::ChipKind::topology, SoftChip::ChipKind::vlan ),
                          []( const auto & info ) { return Kiv::toText( info.param ); } );

} // namespace
