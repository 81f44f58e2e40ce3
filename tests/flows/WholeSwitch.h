#pragma once
// A switch that uses everything, and what its chip says to a set of frames at each port.

#include "tests/agent/RoadWorld.h"

namespace FlowTests {

using namespace Tests;

/** Ethernet12 has a life of its own, which rests while it is a member of PortChannel7. */
inline const char wholeConfig[] = R"({
   "PORT": { "Ethernet0": {}, "Ethernet4": {}, "Ethernet8": {}, "Ethernet12": {}, "Ethernet16": {},
             "Ethernet20": {}, "Ethernet24": {}, "Ethernet28": {}, "Ethernet32": {},
             "Ethernet36": {}, "Ethernet40": {}, "Ethernet44": {} },
   "PORTCHANNEL": { "PortChannel7": {}, "PortChannel10": {}, "PortChannel11": {} },
   "PORTCHANNEL_MEMBER": { "PortChannel7|Ethernet8": {}, "PortChannel7|Ethernet16": {},
                           "PortChannel10|Ethernet20": {}, "PortChannel11|Ethernet24": {},
                           "PortChannel11|Ethernet28": {} },
   "VLAN": { "Vlan10": {}, "Vlan20": {}, "Vlan30": {} },
   "VLAN_MEMBER": { "Vlan10|Ethernet0": { "tagging_mode": "untagged" },
                    "Vlan10|Ethernet4": { "tagging_mode": "tagged" },
                    "Vlan10|PortChannel7": { "tagging_mode": "tagged" },
                    "Vlan10|PortChannel10": { "tagging_mode": "tagged" },
                    "Vlan20|Ethernet4": { "tagging_mode": "tagged" },
                    "Vlan20|PortChannel7": { "tagging_mode": "untagged" },
                    "Vlan20|Ethernet32": { "tagging_mode": "untagged" },
                    "Vlan30|Ethernet0": { "tagging_mode": "tagged" },
                    "Vlan30|Ethernet12": { "tagging_mode": "untagged" },
                    "Vlan30|PortChannel11": { "tagging_mode": "tagged" } },
   "STP": { "GLOBAL": { "mode": "pvst" } },
   "STP_VLAN": { "Vlan10": {}, "Vlan20": {}, "Vlan30": {} },
   "MCLAG_DOMAIN": { "1": { "peer_link": "PortChannel10" } },
   "MCLAG_INTERFACE": { "1|PortChannel7": {} },
   "VLAN_MAPPING": { "PortChannel7|ingress|110": { "mapped_vlan": "10" },
                     "Ethernet4|egress|20": { "mapped_vlan": "220" },
                     "Ethernet12|ingress|130": { "mapped_vlan": "30" } },
   "MIRROR_SESSION": {
      "first": { "type": "SPAN", "src_port": "PortChannel7", "direction": "RX",
                 "dst_port": "Ethernet36" },
      "second": { "type": "SPAN", "src_port": "Ethernet0,Ethernet12", "direction": "TX",
                  "dst_port": "PortChannel11" } },
   "ACL_TABLE": {
      "WEB": { "type": "L3", "stage": "ingress", "ports": [ "PortChannel7", "Ethernet0" ] },
      "OWN": { "type": "L3", "stage": "ingress", "ports": [ "Ethernet12" ] },
      "ARP": { "type": "L2", "stage": "egress", "ports": [ "Ethernet4", "PortChannel7" ] } },
   "ACL_RULE": {
      "WEB|TELNET": { "PRIORITY": "9", "PACKET_ACTION": "DROP", "IP_PROTOCOL": "6",
                      "L4_DST_PORT": "23", "MIRROR_ACTION": "second" },
      "OWN|HTTP": { "PRIORITY": "9", "PACKET_ACTION": "DROP", "IP_PROTOCOL": "6",
                    "L4_DST_PORT": "80" },
      "ARP|ARP": { "PRIORITY": "9", "PACKET_ACTION": "DROP", "ETHER_TYPE": "0x0806" } },
   "PORT_STORM_CONTROL": { "PortChannel7|broadcast": { "kbps": "0" },
                           "Ethernet12|unknown-unicast": { "kbps": "0" } },
   "MULTICAST_GROUP": {
      "Vlan10|01:00:5e:01:01:01": { "members": [ "Ethernet4", "PortChannel7" ] },
      "Vlan30|01:00:5e:01:01:01": { "members": [ "Ethernet12", "Ethernet0" ] } },
   "MULTICAST_COPY": { "IGMP|x": {} },
   "TAP_AGG": { "GLOBAL": { "mode": "off" } },
   "TAP_PORT": { "Ethernet40": { "groups": [ "a" ], "identity": "77" } },
   "TOOL_PORT": { "Ethernet44": { "groups": [ "a" ], "identity_tagging": "dot1q" } }
})";

class WholeSwitch : public RoadWorld {
 public:
   /** What becomes of the frames, by "PORT FIELDS". */
   using Answers = std::map< String, Ports >;

   using RoadWorld::RoadWorld;

   void bringUp() {
      EXPECT_EQ( load( wholeConfig ).warnings, Lines() );
      for ( const char * host :
            { R"("mac": "02:00:00:00:00:01", "vlan": 10, "intf": "Ethernet0")",
              R"("mac": "02:00:00:00:00:02", "vlan": 10, "intf": "PortChannel7")",
              R"("mac": "02:00:00:00:00:03", "vlan": 20, "intf": "Ethernet32")",
              R"("mac": "02:00:00:00:00:04", "vlan": 30, "intf": "Ethernet0")" } ) {
         event( String( R"("event": "mac", "op": "add", )" ) + host );
      }
   }
   static std::vector< String > portNames() {
      std::vector< String > names;
      for ( U32 number = 0; number <= 44; number += 4 ) {
         names.push_back( "Ethernet" + std::to_string( number ) );
      }
      return names;
   }
   static std::vector< String > frames() {
      std::vector< String > all = { "dmac=01:80:c2:00:00:00" };
      const String web = ",src=10.0.0.1,dst=10.0.0.2,protocol=6,dport=";
      for ( const char * vlan :
            { "", ",vlan=10", ",vlan=20", ",vlan=30", ",vlan=110", ",vlan=130" } ) {
         for ( const char * address :
               { "02:00:00:00:00:01", "02:00:00:00:00:02", "02:00:00:00:00:03", "02:00:00:00:00:04",
                 "02:00:00:00:00:99", "ff:ff:ff:ff:ff:ff", "01:00:5e:01:01:01" } ) {
            all.push_back( String( "dmac=" ) + address + vlan );
         }
         all.push_back( String( "dmac=02:00:00:00:00:02" ) + vlan + web + "23" );
         all.push_back( String( "dmac=02:00:00:00:00:01" ) + vlan + web + "80" );
         all.push_back( String( "dmac=02:00:00:00:00:02,ethertype=2054" ) + vlan );
      }
      return all;
   }
   /** Every port and tag that copies of a frame leave with, whatever its source, and how many leave at
       once. */
   Ports answer( const String & port, const String & fields ) {
      constexpr U32 sources = 12; // enough that every member of an aggregate is chosen
      Ports all;
      for ( auto & leaves : spread( port, fields, sources ) ) {
         const auto copies = leaves.empty() ? Lines() : Kiv::split( leaves, ' ' );
         all.insert( copies.begin(), copies.end() );
         all.insert( std::to_string( copies.size() ) + " copies" );
      }
      return all;
   }
   Answers answersAt( const std::vector< String > & ports ) {
      Answers answers;
      for ( auto & port : ports ) {
         for ( auto & fields : frames() ) {
            answers[port + " " + fields] = answer( port, fields );
         }
      }
      return answers;
   }
   Answers answers() { return answersAt( portNames() ); }
   void join( const String & port ) { eventNow( membership( port, R"("collecting": true)" ) ); }
   void leave( const String & port ) { eventNow( membership( port, R"("member": false)" ) ); }

 private:
   static String membership( const String & port, const String & how ) {
      return R"("event": "lagMember", "portChannel": "PortChannel7", "port": ")" + port + "\", " +
             how;
   }
};

/** What differs, a line each: "PORT FIELDS: {was} {is}". */
inline Lines
differences( const WholeSwitch::Answers & was, const WholeSwitch::Answers & is ) {
   Lines lines;
   for ( auto & [frame, ports] : was ) {
      auto now = is.find( frame );
      if ( now == is.end() || now->second != ports ) {
         lines.push_back( frame + ": " + testing::PrintToString( ports ) + " " +
                          ( now == is.end() ? "" : testing::PrintToString( now->second ) ) );
      }
   }
   return lines;
}

} // namespace FlowTests
