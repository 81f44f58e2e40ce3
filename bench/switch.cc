// The whole switch at full size: 512 ports, 64 port-channels of 4, 4,094 VLANs with every bridged
// interface in each, 1,000 access lists of 24 rules, 64 mirror sessions, storm control everywhere,
// 10,000 VLAN mappings, 5,000 multicast groups, 100,000 MAC addresses. Its start (seconds of one core,
// memory that the start took, the longest turn), then one change of each kind while all of it stands, to
// rest: the time of the library, of the agent around it and of the chip in software together.
//
// Aims: 3 s, 1 GiB, 10 ms, 100 microseconds. Routes stand in bench/quarn.cc.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "agent/Agent.h"
#include "agent/ConfigReader.h"
#include "agent/Events.h"
#include "agent/softchip/Chip.h"
#include "bench/Ratio.h"
#include "bench/Turns.h"
#include "platform/Kiv/EventLoop.h"
#include "platform/Kiv/LogRecorder.h"

namespace {

using Velto::String;

constexpr U32 ports = 512, channels = 64, members = 4, vlans = 4094;
constexpr U32 lists = 1000, rules = 24, sessions = 64, mappings = 10000, groups = 5000,
              macs = 100000;
constexpr U32 firstFree = channels * members; // ports from here on are in no port-channel

String
text( U32 n ) {
   return std::to_string( n );
}

String
port( U32 i ) {
   return "Ethernet" + text( i );
}

String
channel( U32 i ) {
   return "PortChannel" + text( i + 1 );
}

/** All that frames come in by: port-channels, then the ports of none. */
constexpr U32 bridged = channels + ports - firstFree;
String
bridgedIntf( U32 i ) {
   return i < channels ? channel( i ) : port( firstFree + i - channels );
}

/** An octet of an address. */
String
octet( U32 n ) {
   char digits[3];
   std::snprintf( digits, sizeof( digits ), "%02x", n & 0xff );
   return digits;
}

String
mac( const char * prefix, U32 n ) {
   return prefix + octet( n >> 16 ) + ":" + octet( n >> 8 ) + ":" + octet( n );
}

String
macEvent( const char * op, U32 n ) {
   return R"({"event": "mac", "op": ")" + String( op ) + R"(", "mac": ")" + mac( "02:11:22:", n ) +
          R"(", "vlan": )" + text( 1 + n % vlans ) + R"(, "intf": ")" + bridgedIntf( n % bridged ) +
          "\"}";
}

/** A table of `rows` rows: each a key, and the text of its fields. */
template< class Key, class Fields >
String
table( const char * name, U32 rows, Key && key, Fields && fields ) {
   String all = String( ",\n\"" ) + name + "\": {";
   for ( U32 i = 0; i < rows; ++i ) {
      all += ( i ? ",\n\"" : "\n\"" ) + key( i ) + "\": {" + fields( i ) + "}";
   }
   return all + "}";
}

String
configuration() {
   const auto none = []( U32 ) { return String(); };
   String all = R"({"STORM_CONTROL": {"GLOBAL": {"drop_logging": "true"}})";
   all += table( "PORT", ports, port, []( U32 ) { return R"("speed": "25000")"; } );
   all += table( "PORTCHANNEL", channels, channel, none );
   all += table(
         "PORTCHANNEL_MEMBER", firstFree,
         []( U32 i ) { return channel( i / members ) + "|" + port( i ); }, none );
   all += table(
         "VLAN", vlans, []( U32 i ) { return "Vlan" + text( i + 1 ); }, none );
   all += table(
         "VLAN_MEMBER", vlans * bridged,
         []( U32 i ) {
            return "Vlan" + text( i / bridged + 1 ) + "|" + bridgedIntf( i % bridged );
         },
         []( U32 ) { return R"("tagging_mode": "tagged")"; } );
   all += table(
         "PORT_STORM_CONTROL", bridged * 2,
         []( U32 i ) { return bridgedIntf( i / 2 ) + ( i % 2 ? "|multicast" : "|broadcast" ); },
         []( U32 i ) { return R"("kbps": ")" + text( 1000 + i ) + "\""; } );
   all += table(
         "VLAN_MAPPING", mappings,
         []( U32 i ) { return port( firstFree + i % 256 ) + "|ingress|" + text( 1 + i / 256 ); },
         []( U32 i ) { return R"("mapped_vlan": ")" + text( 2000 + i / 256 ) + "\""; } );
   all += table(
         "MIRROR_SESSION", sessions, []( U32 i ) { return "span" + text( i ); },
         []( U32 i ) {
            return R"("dst_port": ")" + port( ports - 1 - i ) + R"(", "src_port": ")" +
                   port( firstFree + i ) + R"(", "direction": "RX")";
         } );
   all += table(
         "MULTICAST_GROUP", groups,
         []( U32 i ) { return "Vlan" + text( 1 + i % vlans ) + "|" + mac( "01:00:5e:", i ); },
         []( U32 i ) {
            return R"("members": [")" + bridgedIntf( i % bridged ) + R"(", ")" +
                   bridgedIntf( ( i + 1 + i / bridged ) % bridged ) + "\"]";
         } );
   // One list an interface; those that are left are in force nowhere.
   all += table(
         "ACL_TABLE", lists, []( U32 i ) { return "LIST" + text( i ); },
         []( U32 i ) {
            return R"("type": "L3")" +
                   ( i < bridged ? R"(, "ports": [")" + bridgedIntf( i ) + "\"]" : "" );
         } );
   all += table(
         "ACL_RULE", lists * rules,
         []( U32 i ) { return "LIST" + text( i / rules ) + "|RULE" + text( i % rules ); },
         []( U32 i ) {
            return R"("PRIORITY": ")" + text( 1000 - i % rules ) + R"(", "SRC_IP": "10.)" +
                   text( i / rules % 250 ) + "." + text( i % rules ) +
                   R"(.0/24", "IP_PROTOCOL": "6",)" + R"( "PACKET_ACTION": ")" +
                   ( i % 2 ? "DROP" : "FORWARD" ) + "\"";
         } );
   return all + "}";
}

SoftChip::Shape
shape() {
   SoftChip::Shape shape;
   shape.hosts.buckets = 65536;
   shape.mirrors.sessions = sessions;
   shape.mirrors.filters = 1024;
   shape.multicast.groups = 8192;
   return shape;
}

/** Resident memory of this process, in MiB. */
double
resident() {
   std::ifstream statm( "/proc/self/statm" );
   double size = 0, pages = 0;
   statm >> size >> pages;
   return pages * 4096 / ( 1 << 20 );
}

class Switch {
 public:
   Switch() { scheduler.turnWatchIs( &turns ); }
   ~Switch() { scheduler.turnWatchIs( nullptr ); }

   /** What it had to say; it is read as one input, not in turns. */
   QonAgent::ConfigReport load( const String & config ) {
      const auto db = QonAgent::ConfigDb::parse( "switch.json", config );
      return QonAgent::ConfigReader( agent, db ).load();
   }
   /** What a line makes happen. */
   std::function< void() > event( const String & line ) const {
      return events.parse( QonAgent::Json::parse( line ) );
   }
   /** Until nothing is left to do now. */
   void work() {
      while ( scheduler.nextTime() <= Kiv::now() ) {
         scheduler.runOnce( 0 );
      }
   }
   /** The same, and what is put off for a short while: nothing but clocks of seconds is left. */
   void settle() {
      while ( scheduler.nextTime() <= Kiv::now() + 0.3 ) {
         scheduler.runOnce( 0.3 );
      }
   }

   Kiv::EventLoop scheduler; // slices are cut by the real time
   Kiv::LogRecorder log;
   SoftChip::Chip chip{ scheduler, shape() };
   QonAgent::Agent agent{ scheduler, chip };
   QonAgent::Events events{ agent };
   Bench::Turns turns;
};

std::unique_ptr< Switch > standing; // what start() leaves for the changes

Switch &
whole() {
   if ( !standing ) {
      standing = std::make_unique< Switch >();
      standing->load( configuration() );
      standing->agent.inputsRead();
      standing->settle();
      for ( U32 i = 0; i < macs; ++i ) {
         standing->event( macEvent( "add", i ) )();
      }
      standing->settle();
   }
   return *standing;
}

void
start( benchmark::State & state ) {
   const String config = configuration();
   for ( auto _ : state ) {
      standing.reset();
      malloc_trim( 0 );
      const double before = resident();
      double spent = Bench::spent();
      const auto phase = [&]( const char * name ) {
         const double now = Bench::spent();
         state.counters[name] = ( now - spent ) / 1e9;
         spent = now;
      };
      standing = std::make_unique< Switch >();
      const auto report = standing->load( config );
      phase( "s_config" );
      state.counters["MiB_at_most"] = resident() - before;
      standing->agent.inputsRead();
      standing->settle();
      phase( "s_to_rest" );
      std::vector< std::function< void() > > learned;
      for ( U32 i = 0; i < macs; ++i ) {
         learned.push_back( standing->event( macEvent( "add", i ) ) );
      }
      spent = Bench::spent(); // they come as values, not as lines
      for ( auto & happens : learned ) {
         happens();
      }
      standing->settle();
      phase( "s_macs" );
      learned.clear();
      malloc_trim( 0 );
      state.counters["MiB"] = resident() - before;
      state.counters["ms_longest_turn"] = standing->turns.longest / 1e6;
      state.counters["rows"] = report.rows;
      state.counters["warnings"] = double( report.warnings.size() );
      if ( !report.warnings.empty() ) {
         state.SetLabel( report.warnings.front() );
      }
   }
}
BENCHMARK( start )->Iterations( 1 )->Unit( benchmark::kSecond );

/** One way and back: the time of either, to rest. */
void
change( benchmark::State & state, const String & there, const String & back ) {
   Switch & all = whole();
   const auto first = all.event( there ), second = all.event( back );
   std::vector< double > times;
   all.turns.longest = 0;
   for ( auto _ : state ) {
      for ( auto * happens : { &first, &second } ) {
         const double began = Bench::spent();
         ( *happens )();
         all.work();
         times.push_back( Bench::spent() - began );
         all.settle(); // what is put off
      }
   }
   state.counters["us"] = Bench::median( times ) / 1e3;
   state.counters["us_longest"] = *std::max_element( times.begin(), times.end() ) / 1e3;
   state.counters["ms_longest_turn"] = all.turns.longest / 1e6;
}

#define CHANGE( name, there, back )                                                                \
   BENCHMARK_CAPTURE( change, name, there, back )->Iterations( 5 )->Unit( benchmark::kMicrosecond )

CHANGE( link, R"({"event": "link", "port": "Ethernet400", "up": false})",
        R"({"event": "link", "port": "Ethernet400", "up": true})" );
CHANGE(
      lag_member,
      R"({"event": "lagMember", "portChannel": "PortChannel3", "port": "Ethernet9", "member": false})",
      R"({"event": "lagMember", "portChannel": "PortChannel3", "port": "Ethernet9", "member": true})" );
CHANGE(
      port_state,
      R"({"event": "portState", "topology": "Mst0", "intf": "Ethernet400", "state": "discarding"})",
      R"({"event": "portState", "topology": "Mst0", "intf": "Ethernet400", "state": "forwarding"})" );
CHANGE( mac_address, macEvent( "add", macs ), macEvent( "remove", macs ) );
CHANGE(
      acl_of_a_port,
      R"({"event": "acl", "intf": "Ethernet400", "acl": "LIST900", "type": "ip", "direction": "in"})",
      R"({"event": "acl", "intf": "Ethernet400", "acl": "LIST901", "type": "ip", "direction": "in"})" );
CHANGE(
      igmp,
      R"({"event": "igmp", "op": "join", "vlan": 10, "group": "01:00:5e:7f:01:01", "port": "Ethernet400"})",
      R"({"event": "igmp", "op": "leave", "vlan": 10, "group": "01:00:5e:7f:01:01", "port": "Ethernet400"})" );
CHANGE(
      vlan_mapping,
      R"({"event": "vlanMapping", "intf": "Ethernet400", "direction": "ingress", "vlan": 3000, "mapped": 3001, "source": "cli"})",
      R"({"event": "vlanMapping", "intf": "Ethernet400", "direction": "ingress", "vlan": 3000, "mapped": 3002, "source": "cli"})" );
CHANGE(
      mirror_filter,
      R"({"event": "mirrorFilter", "session": "span5", "intf": "Ethernet261", "acl": "LIST900", "type": "ip"})",
      R"({"event": "mirrorFilter", "session": "span5", "intf": "Ethernet261", "acl": "LIST901", "type": "ip"})" );

} // namespace
