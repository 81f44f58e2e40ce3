// What an operator gets wrong, and what the chip does: everything is said, and nothing vanishes.

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <csignal>
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>

#include "agent/player/EventPlayer.h"
#include "agent/record/Replay.h"
#include "platform/Kiv/Printable.h"
#include "tests/agent/SocketClient.h"

namespace Tests {

namespace {

using QonAgent::Json;

const char config[] =
      R"({"PORT": {"Ethernet0": {}, "Ethernet4": {}, "Ethernet8": {}},
   "PORTCHANNEL": {"PortChannel1": {}}, "PORTCHANNEL_MEMBER": {"PortChannel1|Ethernet0": {}},
   "VLAN": {"Vlan10": {}, "Vlan20": {}},
   "VLAN_MEMBER": {"Vlan10|Ethernet4": {}, "Vlan20|Ethernet8": {"tagging_mode": "tagged"}},
   "STP": {"GLOBAL": {"mode": "pvst"}}, "STP_VLAN": {"Vlan10": {}}, "STP_PORT": {"Ethernet4": {}}})";

class OperatorWorld : public AgentWorld {
 public:
   /** Plays lines; what the player says, without the file's name. */
   Lines play( const String & text ) {
      Lines said;
      auto player = QonAgent::EventPlayer::parse(
            agent, "f", text, [&]( const String & line ) { said.push_back( line ); } );
      player->start();
      scheduler.runFor( 1 );
      return said;
   }
   Json show( const String & words ) {
      Json answer = console.answer( { { "do", "show" }, { "words", Kiv::split( words, ' ' ) } } );
      return answer.contains( "rows" ) ? answer["rows"] : answer["error"];
   }
   QonAgent::Console console{ agent };
};

TEST( Operator, WhatTheChipRefusedIsShownUntilItIsAskedForAgainOrWithdrawn ) {
   OperatorWorld w;
   w.load( config );
   const String add = R"({"event": "mac", "op": "add", "mac": "02:11:22:00:00:01", "vlan": 10, )"
                      R"("intf": "Ethernet4"})"
                      "\n";
   const String fail = R"({"event": "fault", "hook": "writeToHw", "trouble": "fail"})"
                       "\n";
   w.play( fail + add );
   Json rows = w.show( "mac" );
   ASSERT_EQ( rows.size(), 1u );
   EXPECT_EQ( rows[0]["state"], "refused" );
   EXPECT_EQ( rows[0]["reason"], "refused by the chip" );
   EXPECT_GT( rows[0]["since"].get< double >(), 0.5 );
   w.play( add ); // again, and now it works
   rows = w.show( "mac" );
   ASSERT_EQ( rows.size(), 1u );
   EXPECT_EQ( rows[0]["state"], "programmed" );
   for ( auto withdrawal : { R"({"event": "mac", "op": "flushVlan", "vlan": 10})",
                             R"({"event": "mac", "op": "flushPort", "intf": "Ethernet4"})",
                             R"({"event": "mac", "op": "flushAll"})" } ) {
      w.play( R"({"event": "mac", "op": "flushAll"})" );
      w.play( fail + add );
      ASSERT_EQ( w.show( "mac" )[0]["state"], "refused" );
      w.play( R"({"event": "mac", "op": "flushVlan", "vlan": 20})" );
      EXPECT_EQ( w.show( "mac" ).size(), 1u );
      w.play( withdrawal );
      EXPECT_EQ( w.show( "mac" ).size(), 0u ) << withdrawal;
   }
}

TEST( Operator, WhatTheChipHasNoRoomForIsShownWithReasonAndTime ) {
   OperatorWorld w;
   for ( auto table : { "lagTable", "aclEntries", "stormLimiters", "vlanMappingTable" } ) {
      w.chip.faults().limitIs( table, 0 );
   }
   w.chip.faults().limitIs( "topoTable", 1 );
   w.load( R"({"PORT": {"Ethernet0": {}, "Ethernet4": {}},
   "PORTCHANNEL": {"PortChannel1": {}}, "PORTCHANNEL_MEMBER": {"PortChannel1|Ethernet0": {}},
   "VLAN": {"Vlan10": {}, "Vlan20": {}}, "VLAN_MEMBER": {"Vlan10|Ethernet4": {}},
   "STP": {"GLOBAL": {"mode": "pvst"}}, "STP_VLAN": {"Vlan10": {}, "Vlan20": {}},
   "VLAN_MAPPING": {"Ethernet4|ingress|30": {"mapped_vlan": "10"}},
   "PORT_STORM_CONTROL": {"Ethernet4|broadcast": {"kbps": "1000"}},
   "ACL_TABLE": {"DATA": {"type": "L3", "ports": ["Ethernet4"]}},
   "ACL_RULE": {"DATA|ONE": {"PRIORITY": "1", "PACKET_ACTION": "DROP", "SRC_IP": "10.0.0.0/8"}}})" );
   w.scheduler.runFor( 3 );
   struct {
      const char * words;
      const char * field;
      const char * says;
   } const cases[] = { { "port-channel members", "reason", "no room for a group" },
                       { "acl", "waits", "other rules, interfaces or room" },
                       { "storm-control", "reason", "no limiter" },
                       { "vlan-mapping", "reason", "table full or refused" },
                       { "topology Vlan20", "reason", "no room in the chip" } };
   for ( auto & c : cases ) {
      const Json rows = w.show( c.words );
      ASSERT_EQ( rows.size(), 1u ) << c.words << rows;
      EXPECT_EQ( rows[0].value( c.field, "" ), c.says ) << rows;
      EXPECT_GE( rows[0].value( "since", 0.0 ), 2.5 ) << c.words << rows;
   }
}

TEST( Operator, ShowVlanTellsWhatTheChipDoes ) {
   OperatorWorld w;
   w.load( config );
   EXPECT_EQ( w.show( "vlan 10" )[0]["forwarding"], "no" ); // discarding, not an edge port
   EXPECT_EQ( w.show( "vlan 20" )[0]["forwarding"], "yes" );
   w.play(
         R"({"event": "portState", "topology": "Vlan10", "intf": "Ethernet4", "state": "forwarding"})" );
   EXPECT_EQ( w.show( "vlan 10" )[0]["forwarding"], "yes" );
}

TEST( Operator, WhatIsMisspelledIsNamedWithWhatThereIs ) {
   OperatorWorld w;
   w.load( config );
   struct {
      const char * line;
      const char * said;
   } const cases[] = {
         { R"({"event": "fault", "hook": "writeToHardware", "trouble": "busy"})",
           "there is no hook with faults 'writeToHardware'; there are: " },
         { R"({"event": "fault", "table": "hosts", "limit": 1})",
           "there is no table with a limit 'hosts'; there are: " },
         { R"({"event": "portState", "topology": "Mst0", "intf": "Ethernet4", "state": "forwarding"})",
           "there is no topology 'Mst0'; there are: Vlan10, Vlan20" },
         { R"({"event": "portDel", "topology": "Vlan20", "intf": "Ethernet4"})",
           "there is no port of the topology 'Ethernet4'; there is: Ethernet8" },
         { R"({"event": "topology", "topology": "Mst1", "id": 0})", "there is no topology 'Mst1'" },
         { R"({"event": "vlanTopology", "vlan": 30, "topology": ""})",
           "VLAN 30 is in no topology" },
         { R"({"event": "vlanMember", "vlan": 10, "intf": "Ethernet8", "mode": "none"})",
           "Ethernet8 is no member of VLAN 10" },
         { R"({"event": "lagMember", "portChannel": "PortChannel1", "port": "Ethernet4", "member": false})",
           "Ethernet4 is no member of PortChannel1" },
         { R"({"event": "delete", "path": "bridging/vlan/config/vlanConfig[30]"})",
           "bridging/vlan/config/vlanConfig[30]: there is no vlanConfig[30]" },
         { R"({"event": "link", "port": "Ethernet4", "up": true, "sped": 1})",
           "field 'sped' is not known here; there are: port, up" },
   };
   struct {
      const char * line;
      const char * raised;
   } const refused[] = {
         { R"({"event": "vlanMember", "vlan": 9999, "intf": "Ethernet8", "mode": "none"})",
           "field 'vlan': expected a VLAN from 1 to 4094, found 9999" },
         { R"({"event": "vlanMember", "vlan": -1, "intf": "Ethernet8", "mode": "none"})",
           "field 'vlan': expected a whole number from 0 to 4294967295, found -1" },
         { R"({"event": "vlanMember", "vlan": 10.5, "intf": "Ethernet8", "mode": "none"})",
           "field 'vlan': expected a whole number from 0 to 4294967295, found 10.5" },
         { R"({"event": "vlanMember", "vlan": 4294967306, "intf": "Ethernet8", "mode": "none"})",
           "field 'vlan': expected a whole number from 0 to 4294967295, found 4294967306" },
         { R"({"event": "link", "port": "Ethernet4", "up": 1})",
           "field 'up': expected true or false, found 1" },
         { R"({"event": "link", "port": ["Ethernet4"], "up": true})",
           R"(field 'port': expected a text, found ["Ethernet4"])" },
   };
   for ( auto & c : cases ) {
      const Lines said = w.play( c.line );
      ASSERT_EQ( said.size(), 1u ) << c.line;
      EXPECT_EQ( said[0].substr( 0, 14 + String( c.said ).size() ),
                 String( "warning: f:1: " ) + c.said );
   }
   EXPECT_EQ( w.show( "vlan 99999" ), "expected a VLAN from 1 to 4094, found '99999'" );
   for ( auto & r : refused ) {
      try {
         w.play( r.line );
         ADD_FAILURE() << r.line;
      } catch ( const Velto::RangeError & e ) {
         EXPECT_EQ( e.what(), String( "f:1: " ) + r.raised );
      }
   }
}

TEST( Operator, EventsOnPortsThatAreNotThereAreRefused ) {
   OperatorWorld w;
   w.load( config );
   struct {
      const char * line;
      const char * said;
   } const cases[] = {
         { R"({"event": "mac", "op": "add", "mac": "02:11:22:00:00:01", "vlan": 10, "intf": "Ethernet5"})",
           "there is no port 'Ethernet5'; there are: Ethernet0, Ethernet4, Ethernet8" },
         { R"({"event": "mac", "op": "flushPort", "intf": "PortChannel2"})",
           "there is no port-channel 'PortChannel2'; there is: PortChannel1" },
         { R"({"event": "vlanMember", "vlan": 10, "intf": "Ethernet5", "mode": "tagged"})",
           "there is no port 'Ethernet5'; there are: " },
         { R"({"event": "lagMember", "portChannel": "PortChannel1", "port": "Ethernet5"})",
           "there is no port 'Ethernet5'; there are: " },
         { R"({"event": "link", "port": "Ethernet5", "up": true})",
           "there is no port 'Ethernet5'; there are: " },
         { R"({"event": "stormTraffic", "port": "Ethernet5", "kind": "broadcast", "kbps": 1})",
           "there is no port 'Ethernet5'; there are: " },
   };
   for ( auto & c : cases ) {
      const Lines said = w.play( c.line );
      ASSERT_EQ( said.size(), 1u ) << c.line;
      EXPECT_EQ( said[0].rfind( String( "warning: f:1: " ) + c.said, 0 ), 0u ) << said[0];
   }
}

TEST( Operator, RelationsThatCannotBeMeantAreOneWarningEach ) {
   AgentWorld w;
   const auto report = w.load(
         R"({"PORT": {"Ethernet0": {}, "Ethernet4": {}},
   "PORTCHANNEL": {"PortChannel1": {}, "PortChannel11001": {}},
   "PORTCHANNEL_MEMBER": {"PortChannel1|Ethernet0": {}},
   "VLAN": {"Vlan10": {}, "Vlan20": {}, "Vlan30": {}, "Vlan4095": {}},
   "VLAN_MEMBER": {"Vlan10|Ethernet4": {}, "Vlan20|Ethernet4": {}, "Vlan30|Ethernet4": {},
                   "Vlan10|Ethernet0": {"tagging_mode": "tagged"},
                   "Vlan20|Ethernet0": {"tagging_mode": "tagged"}},
   "STP": {"GLOBAL": {"mode": "zap"}}})" );
   EXPECT_EQ(
         report.warnings,
         ( Lines{ "x.json: PORTCHANNEL|PortChannel11001: port-channels of a switch have numbers up "
                  "to 9999",
                  "x.json: VLAN|Vlan4095: 'Vlan4095' is not the name of a VLAN, Vlan1 to Vlan4094; "
                  "row skipped",
                  "x.json: VLAN_MEMBER|Vlan20|Ethernet4|tagging_mode: Ethernet4 is untagged in "
                  "Vlan10 already",
                  "x.json: VLAN_MEMBER|Vlan10|Ethernet0: Ethernet0 is a member of PortChannel1, "
                  "whose VLANs it has; those of its own do not count",
                  "x.json: STP|GLOBAL|mode: expected none, pvst or mst, found 'zap'; row "
                  "skipped" } ) );
}

TEST( Operator, TextsFromOutsideDoNotReachATerminalAsTheyAre ) {
   EXPECT_EQ( Kiv::printable( "Ä\x1b[2J\n\x7f\xff\xc2\x9b|" ),
              "Ä\\x1b[2J\\x0a\\x7f\\xff\\xc2\\x9b|" );
   // A character that is not whole.
   EXPECT_EQ( Kiv::printable( "\xe2\x82" ), "\\xe2\\x82" );
}

/** A socket in a folder of its own. */
class SocketOf {
 public:
   SocketOf() { mkdir( folder.c_str(), 0700 ); }
   ~SocketOf() {
      unlink( path.c_str() );
      rmdir( folder.c_str() );
   }
   U32 mode() const {
      struct stat about = {};
      return stat( path.c_str(), &about ) == 0 ? about.st_mode & 0777 : 0;
   }
   const String folder = "/tmp/qon-socket-test." + std::to_string( getpid() );
   const String path = folder + "/s";
};

TEST( Operator, ASocketIsItsOwnersWhateverTheMask ) {
   Kiv::EventLoop loop;
   SocketOf at;
   const mode_t before = umask( 0 );
   {
      QonAgent::SocketServer server( loop, at.path, {} );
      EXPECT_EQ( at.mode(), 0600u );
      // Somebody puts another one there: that one stays.
      unlink( at.path.c_str() );
      QonAgent::SocketServer second( loop, at.path, {}, { 0660, "" } );
      EXPECT_EQ( at.mode(), 0660u );
   }
   EXPECT_EQ( access( at.path.c_str(), F_OK ), -1 );
   std::optional< QonAgent::SocketServer > first;
   first.emplace( loop, at.path, QonAgent::Connection::LineHandler() );
   unlink( at.path.c_str() );
   QonAgent::SocketServer other( loop, at.path, {} );
   first.reset();
   EXPECT_EQ( access( at.path.c_str(), F_OK ), 0 );
   EXPECT_THROW( QonAgent::SocketServer( loop, at.folder + "/g", {}, { 0600, "no such group" } ),
                 Velto::RangeError );
   EXPECT_EQ( access( ( at.folder + "/g" ).c_str(), F_OK ), -1 );
   umask( before );
}

TEST( Operator, ARecordingThatCannotGoOnIsOneMessage ) {
   SocketOf at;
   const String file = at.folder + "/r";
   std::ofstream( file ) << "kept";
   Lines said;
   {
      Kiv::VirtualScheduler scheduler;
      QonAgent::FileRecorder recorder( scheduler, file,
                                       [&]( const String & line ) { said.push_back( line ); } );
      EXPECT_EQ( recorder.file(), file + ".1" );
      recorder.kindIs( "noise", []( const String & ) {} );
      std::signal( SIGXFSZ, SIG_IGN );
      rlimit limit = {};
      getrlimit( RLIMIT_FSIZE, &limit );
      rlimit small = { 4096, limit.rlim_max };
      setrlimit( RLIMIT_FSIZE, &small );
      for ( int i = 0; i < 300; ++i ) {
         recorder.input( "noise", String( 100, 'x' ) );
      }
      setrlimit( RLIMIT_FSIZE, &limit );
      recorder.input( "noise", "there is room again" );
      EXPECT_FALSE( recorder.good() );
   }
   ASSERT_EQ( said.size(), 1u );
   EXPECT_NE( said[0].find( "File too large" ), String::npos ) << said[0];
   String kept;
   std::ifstream( file ) >> kept;
   EXPECT_EQ( kept, "kept" );
   EXPECT_LE( std::ifstream( file + ".1", std::ios::ate ).tellg(), 4096 );
   std::remove( file.c_str() );
   std::remove( ( file + ".1" ).c_str() );
}

} // namespace

} // namespace Tests
