// A configuration that is read again: a difference, and no more than that.

#include <nlohmann/json.hpp>

#include "agent/HookCounts.h"
#include "agent/server/Console.h"
#include "platform/types/Paths.h"
#include "tests/agent/AgentWorld.h"

namespace Tests {

namespace {

using QonAgent::Json;

const char one[] =
      R"({"PORT": {"Ethernet0": {}, "Ethernet4": {"speed": "10000"}, "Ethernet8": {},
            "Ethernet12": {"admin_status": "down"}, "Ethernet16": {}},
   "PORTCHANNEL": {"PortChannel1": {"fallback": "true"}, "PortChannel2": {}, "PortChannel3": {}},
   "PORTCHANNEL_MEMBER": {"PortChannel1|Ethernet0": {}, "PortChannel2|Ethernet4": {}},
   "MCLAG_DOMAIN": {"1": {"peer_link": "PortChannel2"}},
   "MCLAG_INTERFACE": {"1|PortChannel1": {}, "1|PortChannel3": {}},
   "VLAN": {"Vlan10": {}, "Vlan11": {}, "Vlan20": {}},
   "VLAN_MEMBER": {"Vlan10|Ethernet8": {}, "Vlan10|Ethernet12": {"tagging_mode": "tagged"},
                   "Vlan11|PortChannel1": {"tagging_mode": "tagged"}, "Vlan20|Ethernet8": {"tagging_mode": "tagged"}},
   "VLAN_MAPPING": {"Ethernet8|ingress|10": {"mapped_vlan": "11"},
                    "Ethernet8|ingress|12": {"mapped_vlan": "20"},
                    "PortChannel1|egress|11": {"mapped_vlan": "10"},
                    "Ethernet8|egress|20": {"native": "true"},
                    "Ethernet12|ingress|20": {"mapped_vlan": "10", "source": "flow"}},
   "MIRROR_SESSION": {"span": {"dst_port": "PortChannel1,Ethernet16",
                               "src_port": "Ethernet8,Ethernet12"},
                      "tunnel": {"src_ip": "10.0.0.1", "dst_ip": "10.0.0.2",
                                 "src_port": "Ethernet8", "direction": "TX"}},
   "PORT_STORM_CONTROL": {"Ethernet8": {"drop_logging": "true"},
                          "Ethernet8|broadcast": {"kbps": "1000"},
                          "Ethernet8|multicast": {"kbps": "1000"},
                          "Ethernet12|unknown-unicast": {"percent": "1"}},
   "STORM_CONTROL": {"TC|3": {"pps": "77"}, "TC|4": {"pps": "4"},
                     "GLOBAL": {"counter_period": "2", "errdisable": "true"}},
   "ACL_TABLE": {"DATA": {"type": "L3", "ports": ["Ethernet8", "PortChannel1"]},
                 "SIX": {"type": "L3V6", "ports": ["Ethernet8"]}},
   "ACL_RULE": {"DATA|ONE": {"PRIORITY": "1", "PACKET_ACTION": "DROP", "SRC_IP": "10.0.0.0/8"},
                "DATA|TWO": {"PRIORITY": "2", "PACKET_ACTION": "DROP", "DST_IP": "10.0.0.3/32"}},
   "VLAN_SUB_INTERFACE": {"Ethernet12.20": {}},
   "STP": {"GLOBAL": {"mode": "pvst"}}, "STP_VLAN": {"Vlan10": {}, "Vlan20": {}},
   "STP_PORT": {"Ethernet8": {}, "Ethernet12": {"portfast": "true"}}})";

const char other[] =
      R"({"PORT": {"Ethernet0": {}, "Ethernet4": {"speed": "25000"}, "Ethernet8": {},
            "Ethernet12": {"admin_status": "up"}, "Ethernet20": {}},
   "PORTCHANNEL": {"PortChannel1": {}, "PortChannel2": {"admin_status": "down"}},
   "PORTCHANNEL_MEMBER": {"PortChannel1|Ethernet4": {}, "PortChannel2|Ethernet0": {}},
   "MCLAG_DOMAIN": {"7": {"peer_link": "PortChannel1"}}, "MCLAG_INTERFACE": {"7|PortChannel2": {}},
   "VLAN": {"Vlan10": {}, "Vlan20": {}, "Vlan30": {}},
   "VLAN_MEMBER": {"Vlan10|Ethernet8": {"tagging_mode": "tagged"}, "Vlan20|Ethernet20": {},
                   "Vlan30|Ethernet8": {}},
   "VLAN_MAPPING": {"Ethernet8|ingress|10": {"mapped_vlan": "20"},
                    "Ethernet8|egress|30": {"native": "true"},
                    "Ethernet12|ingress|20": {"mapped_vlan": "10"}},
   "MIRROR_SESSION": {"span": {"dst_port": "Ethernet20", "src_port": "Ethernet8", "direction": "RX",
                               "sample_rate": "5"}},
   "PORT_STORM_CONTROL": {"Ethernet8|broadcast": {"kbps": "2000", "cpu_kbps": "10"}},
   "STORM_CONTROL": {"TC|4": {"pps": "5"}},
   "ACL_TABLE": {"DATA": {"type": "L3", "ports": ["Ethernet20"]},
                 "SIX": {"type": "L3", "ports": ["Ethernet8"]}},
   "ACL_RULE": {"DATA|TWO": {"PRIORITY": "2", "PACKET_ACTION": "DROP", "DST_IP": "10.0.0.4/32"}},
   "VLAN_SUB_INTERFACE": {"Ethernet8.10": {}},
   "STP": {"GLOBAL": {"mode": "pvst"}}, "STP_VLAN": {"Vlan10": {}},
   "STP_PORT": {"Ethernet8": {"portfast": "true"}}})";

const char oneTopology[] =
      R"({"PORT": {"Ethernet0": {}, "Ethernet4": {}, "Ethernet8": {}, "Ethernet12": {}}, "VLAN": {"Vlan10": {}, "Vlan20": {}},
   "VLAN_MEMBER": {"Vlan10|Ethernet8": {}, "Vlan20|Ethernet8": {"tagging_mode": "tagged"}}, "STP": {"GLOBAL": {"mode": "mst"}},
   "STP_PORT": {"Ethernet8": {}}})";

class ReloadWorld : public AgentWorld {
 public:
   explicit ReloadWorld( const char * config ) {
      again( config );
      agent.inputsRead();
      scheduler.runFor( 100 );
   }
   void again( const char * config ) {
      EXPECT_EQ( load( config ).warnings, Lines() );
      scheduler.runFor( 100 );
   }
   void event( const Json & line ) {
      EXPECT_EQ( console.answer( { { "do", "event" }, { "line", line } } )["ok"], true ) << line;
      scheduler.runFor( 10 );
   }
   /** What the features are given, and what the chip holds; in alphabetical order. */
   Lines state( bool everything ) {
      Lines lines;
      Orvane::Dump dump( agent.entities(), "" );
      for ( Kiv::GenericIf::Line line; dump.next( line ); ) {
         if ( everything || isInput( line.path ) ) {
            lines.push_back( line.path + ( line.isEntity ? "" : " = " + line.value ) );
         }
      }
      for ( auto & command : console.shows() ) {
         // A port that has left a topology keeps its last state in the chip's table.
         if ( command.name.starts_with( "hw " ) &&
              ( everything || command.name != "hw topology" ) &&
              !( !command.arguments.empty() && command.arguments[0].required ) ) {
            Json answer = console.answer(
                  { { "do", "show" }, { "words", Kiv::split( command.name, ' ' ) } } );
            for ( auto & row : answer["rows"] ) {
               lines.push_back( command.name + " " + row.dump() );
            }
         }
      }
      std::sort( lines.begin(), lines.end() );
      return lines;
   }
   QonAgent::Console console{ agent };

 private:
   /** Not what counts the changes that there were, nor what holds nothing by itself. */
   static bool isInput( const String & path ) {
      for ( auto history : { "/version", "/changeInfo", "/generation", "/dropsComparable" } ) {
         if ( path.ends_with( history ) ) {
            return false;
         }
      }
      const bool holdsLists = path.starts_with( "acl/" ) && path.ends_with( "]" ) &&
                              path.find( "/acl[" ) == String::npos &&
                              path.find( "/intf[" ) == String::npos;
      return !holdsLists && !path.starts_with( "hardware/stormcontrol/slice" ) &&
             !path.starts_with( "hardware/stormcontrol/drop" );
   }
};

Lines
without( const Lines & some, const Lines & others ) {
   Lines rest;
   std::set_difference( some.begin(), some.end(), others.begin(), others.end(),
                        std::back_inserter( rest ) );
   return rest;
}

TEST( Reload, ComesToWhatAFreshAgentMakesOfTheFile ) {
   const char * const configs[] = { one, other, oneTopology, "{\"PORT\": {}}" };
   for ( auto from : configs ) {
      for ( auto to : configs ) {
         const Lines wanted = ReloadWorld( to ).state( false ); // one world at a time has the time
         ReloadWorld reloaded( from );
         reloaded.again( to );
         const Lines got = reloaded.state( false );
         EXPECT_EQ( without( got, wanted ), Lines() ) << from << to;
         EXPECT_EQ( without( wanted, got ), Lines() ) << from << to;
      }
   }
}

TEST( Reload, WhatIsSaidAsBeforeStaysAsItIs ) {
   ReloadWorld w( one );
   w.event( { { "event", "link" }, { "port", "Ethernet0" }, { "up", false } } );
   w.event( { { "event", "portState" },
              { "topology", "Vlan10" },
              { "intf", "Ethernet8" },
              { "state", "forwarding" } } );
   w.event( { { "event", "lagMember" },
              { "portChannel", "PortChannel1" },
              { "port", "Ethernet0" },
              { "distributing", false } } );
   w.event( { { "event", "mlag" }, { "state", "inactive" } } );
   w.event( { { "event", "mac" },
              { "op", "add" },
              { "mac", "02:11:22:00:00:01" },
              { "vlan", 10 },
              { "intf", "Ethernet8" } } );
   const Lines before = w.state( true );
   QonAgent::HookCounts counts;
   w.again( one );
   EXPECT_EQ( w.state( true ), before );
   EXPECT_EQ( counts.byName(), ( std::map< String, U64 >() ) );
   // Something else changes: what became of the rest stays.
   String more = one;
   const String from = R"("Vlan20|Ethernet8": {"tagging_mode": "tagged"})";
   more.replace( more.find( from ), from.size(), R"("Vlan20|Ethernet16": {})" );
   w.again( more.c_str() );
   const Lines after = w.state( true );
   for ( auto & line : without( before, after ) ) {
      EXPECT_NE( line.find( "20" ), String::npos ) << line;
   }
   EXPECT_FALSE( without( after, before ).empty() );
}

TEST( Reload, APortThatGetsAnotherSpeedKeepsItsLink ) {
   ReloadWorld w( one );
   w.event( { { "event", "link" }, { "port", "Ethernet4" }, { "up", false } } );
   w.again( other );
   const String port = String( Paths::ethPhyIntfStatus ) + "/intfStatus[Ethernet4]/";
   EXPECT_EQ( w.agent.entities().get( port + "linkUp" ), "False" );
   EXPECT_EQ( w.agent.entities().get( port + "speed" ), "speed25Gbps" );
}

} // namespace

} // namespace Tests
