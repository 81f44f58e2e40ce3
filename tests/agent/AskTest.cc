// What an operator asks a running agent for, and what he can look up.

#include <fstream>
#include <nlohmann/json.hpp>

#include "agent/Events.h"
#include "agent/Reference.h"
#include "agent/base/Fields.h"
#include "agent/server/Completions.h"
#include "agent/server/Console.h"
#include "tests/agent/AgentWorld.h"

namespace Tests {

namespace {

using QonAgent::Json;

const char asked[] =
      R"({"PORT": {"Ethernet0": {}, "Ethernet4": {}, "Ethernet8": {}},
   "PORTCHANNEL": {"PortChannel1": {}}, "PORTCHANNEL_MEMBER": {"PortChannel1|Ethernet0": {}},
   "VLAN": {"Vlan10": {}, "Vlan100": {}, "Vlan20": {}},
   "VLAN_MEMBER": {"Vlan10|Ethernet4": {}, "Vlan100|Ethernet8": {"tagging_mode": "tagged"}}})";

class AskedWorld : public AgentWorld {
 public:
   AskedWorld() { load( asked ); }
   Json ask( const Json & request ) {
      Json answer = console.answer( request );
      return answer["ok"] == true ? answer : answer["error"];
   }
   Json event( const Json & line ) { return ask( { { "do", "event" }, { "line", line } } ); }
   /** Field `of` of the row whose field `field` says so. */
   Json look( const String & table, const char * field, const String & is, const char * of ) {
      return look( table, { { field, is } }, of );
   }
   /** The same, where it has all of these fields. */
   Json look( const String & table, const Json & fields, const char * of ) {
      Json answer = ask( { { "do", "show" }, { "words", { table } } } );
      for ( auto & row : answer["rows"] ) {
         bool fits = true;
         for ( auto & [field, is] : fields.items() ) {
            fits = fits && row[field] == is;
         }
         if ( fits ) {
            return row[of];
         }
      }
      return nullptr;
   }
   U64 counter( const String & feature, const String & what ) {
      Json value = look( "counters", { { "feature", feature }, { "counter", what } }, "value" );
      return value.is_number() ? value.get< U64 >() : ~U64( 0 );
   }
   QonAgent::Console console{ agent };
};

const Json fine = { { "ok", true } };

TEST( Ask, EventsHappenInARunningAgent ) {
   AskedWorld w;
   EXPECT_EQ( w.event( { { "event", "link" }, { "port", "Ethernet4" }, { "up", false } } ), fine );
   EXPECT_EQ( w.look( "interfaces", "interface", "Ethernet4", "link" ), "down" );
   EXPECT_EQ( w.event( { { "event", "lync" } } ).get< String >().substr( 0, 28 ),
              "no event 'lync'; there are: " );
   EXPECT_EQ(
         w.event( { { "event", "link" }, { "port", "Ethernet4" }, { "up", true }, { "x", 1 } } ),
         "field 'x' is not known here; there are: port, up" );
   EXPECT_EQ( w.event( { { "event", "link" }, { "time", 1 } } ),
              "an event that is given to a running agent has no time" );
   EXPECT_EQ( w.event( 7 ), "expected an object such as {\"event\": \"link\", ...}, found number" );
   EXPECT_EQ( w.look( "interfaces", "interface", "Ethernet4", "link" ), "down" );
   EXPECT_EQ( w.event( { { "event", "fault" }, { "hook", "writeToHw" }, { "trouble", "busy" } } ),
              fine );
}

TEST( Ask, SeveralValuesAreSetTogetherOrNotAtAll ) {
   AskedWorld w;
   auto set = [&]( const Json & values ) {
      return w.ask( { { "do", "set" }, { "values", values } } );
   };
   auto get = [&]( const String & path ) {
      return w.ask( { { "do", "get" }, { "path", path } } )["value"];
   };
   const String up = "interface/status/eth/phy/intfStatus[Ethernet4]/linkUp";
   EXPECT_EQ( set( { { "acsd/minIntfs", 7 }, { up, false } } ), fine );
   EXPECT_EQ( get( "acsd/minIntfs" ), "7" );
   EXPECT_EQ( get( up ), "False" );
   for ( auto & [path, value] : std::map< String, Json >{
               { up, "perhaps" }, { "acsd/none", 1 }, { "nowhere", 1 }, { up + "/x", 1 } } ) {
      EXPECT_TRUE( set( { { "acsd/minIntfs", 9 }, { path, value } } ).is_string() ) << path;
      EXPECT_EQ( get( "acsd/minIntfs" ), "7" ) << path;
   }
}

TEST( Ask, WordsAreCompletedByWhatThereIs ) {
   AskedWorld w;
   auto become = [&]( const String & line ) {
      String all;
      for ( auto & word :
            QonAgent::completions( w.agent, w.console.shows(), Kiv::split( line, ' ' ) ) ) {
         all += ( all.empty() ? "" : " " ) + word;
      }
      return all;
   };
   EXPECT_EQ( become( "show vla" ), "vlan vlan-mapping" );
   EXPECT_EQ( become( "show hw vl" ), "vlan vlan-mapping" );
   EXPECT_EQ( become( "show vlan 1" ), "10 100" );
   EXPECT_EQ( become( "show port-channel Po" ), "PortChannel1" );
   EXPECT_EQ( become( "show mac " ), "interface vlan" );
   EXPECT_EQ( become( "show mac vlan 2" ), "20" );
   EXPECT_EQ( become( "get acsd/portToL" ), "acsd/portToLag[" );
   EXPECT_EQ( become( "get acsd/portToLag[" ), "acsd/portToLag[Ethernet0]" );
   EXPECT_EQ( become( "watch bridging/vlan/config/vlanConfig[2" ),
              "bridging/vlan/config/vlanConfig[20]/" );
   EXPECT_EQ( become( "get bridging/vlan/config/vlanConfig[20]/" ),
              "bridging/vlan/config/vlanConfig[20]/member[" );
   EXPECT_EQ( become( "set acsd/minIntfs 7 acs" ), "acsd/" );
   EXPECT_EQ( become( "set acsd/minI" ), "acsd/minIntfs" );
   EXPECT_EQ( become( "set acsd/minIntfs " ), "" );
   EXPECT_EQ( become( "event lin" ), "link" );
   EXPECT_EQ( become( "event link " ), "port= up=" );
   EXPECT_EQ( become( "trace QonVlanH" ), "QonVlanHelper" );
   EXPECT_EQ( become( "trace QonVlanHelper QonVlanH" ), "" );
   EXPECT_EQ( become( "raise DATAPLANE_MIRROR_SESSION" ),
              "DATAPLANE_MIRROR_SESSION_RESOURCES_FULL" );
   EXPECT_EQ( become( "raise X DATAPLANE_MIRROR_SESSION" ), "" );
   EXPECT_EQ( become( "frame Ethernet" ), "Ethernet0 Ethernet4 Ethernet8" );
   EXPECT_EQ( become( "frame Ethernet0 vla" ), "vlan=" );
   EXPECT_EQ( become( "get acsd/nowhere/x" ), "" );
}

TEST( Ask, WorkIsCounted ) {
   AskedWorld w;
   auto updates = [&] {
      return w.look( "hooks", "hook", "VlanHelper::doUpdateVlan", "calls" ).get< U64 >();
   };
   const U64 changes = w.counter( "vlan", "changes heard" ), before = updates(),
             calls = w.counter( "vlan", "calls of hooks" ),
             others = w.counter( "lag", "calls of hooks" );
   w.event( { { "event", "vlanMember" },
              { "vlan", 20 },
              { "intf", "Ethernet4" },
              { "mode", "tagged" } } );
   w.scheduler.runFor( 1 );
   EXPECT_EQ( updates(), before + 1 );
   EXPECT_GT( w.counter( "vlan", "calls of hooks" ), calls );
   EXPECT_EQ( w.counter( "vlan", "changes heard" ), changes + 1 );
   EXPECT_EQ( w.counter( "lag", "calls of hooks" ), others );
   w.event( { { "event", "fault" }, { "hook", "writeToHw" }, { "trouble", "fail" } } );
   w.event( { { "event", "mac" },
              { "op", "add" },
              { "mac", "02:11:22:00:00:01" },
              { "vlan", 10 },
              { "intf", "Ethernet4" } } );
   w.scheduler.runFor( 1 );
   EXPECT_EQ( w.counter( "mac", "commands refused" ), 1u );
   EXPECT_EQ( w.counter( "vlan", "VLANs" ), 3u );
   EXPECT_GT( w.look( "memory", "what", "resident", "bytes" ).get< U64 >(), 1000000u );
   EXPECT_EQ( w.look( "uptime", "since", "", "uptime" ), w.agent.uptime() ); // no time of day here
}

TEST( Ask, RetriesAreCounted ) {
   AskedWorld w;
   w.load( R"({"PORT": {"Ethernet4": {}, "Ethernet8": {}}, "VLAN": {"Vlan10": {}},
   "VLAN_MEMBER": {"Vlan10|Ethernet4": {}}})" );
   w.scheduler.runFor( 100 );
   for ( auto feature : { "mac", "vlan", "vlan-mapping", "acl" } ) {
      EXPECT_EQ( w.counter( feature, "retries" ), 0u ) << feature;
   }
   w.chip.faults().limitIs( "hostTable", 0 );
   for ( auto & [hook, trouble] :
         std::map< String, String >{ { "vlanMapping", "busy" }, { "doUpdateVlan", "fail" } } ) {
      EXPECT_EQ( w.event( { { "event", "fault" }, { "hook", hook }, { "trouble", trouble } } ),
                 fine );
   }
   w.event( { { "event", "mac" },
              { "op", "add" },
              { "mac", "02:11:22:00:00:01" },
              { "vlan", 10 },
              { "intf", "Ethernet4" } } );
   w.load( R"({"PORT": {"Ethernet4": {}, "Ethernet8": {}}, "VLAN": {"Vlan10": {}},
   "VLAN_MEMBER": {"Vlan10|Ethernet8": {}},
   "VLAN_MAPPING": {"Ethernet4|ingress|30": {"mapped_vlan": "10"}}})" );
   w.scheduler.runFor( 100 );
   EXPECT_EQ( w.counter( "vlan", "retries" ), 1u );
   EXPECT_EQ( w.counter( "vlan-mapping", "retries" ), 1u );
   EXPECT_GE( w.counter( "mac", "retries" ), 2u ); // it still does not fit
}

class SlowTask : public Kiv::Task {
 public:
   using Task::Task;
   bool run() override {
      usleep( 20000 );
      return false;
   }
};

TEST( Ask, TurnsAndSlicesAreMeasured ) {
   AskedWorld w;
   Kiv::EventLoop loop;
   SlowTask task( &loop, 1, "LagConfigAggregatorSm" );
   loop.runOnce( 0 );
   task.wake();
   loop.runOnce( 0 );
   w.console.loopIs( &loop );
   auto look = [&]( const String & feature, const String & counter ) {
      return w.look( "counters", { { "feature", feature }, { "counter", counter } }, "value" )
            .get< double >();
   };
   EXPECT_EQ( look( "agent", "turns" ), 2 );
   EXPECT_GE( look( "agent", "longest turn in seconds" ), 0.02 );
   EXPECT_EQ( look( "lag", "slices" ), 1 );
   EXPECT_GE( look( "lag", "longest slice in seconds" ), 0.02 );
   EXPECT_EQ( look( "vlan", "slices" ), 0 );
}

TEST( Ask, TracesAndMessagesAreHeardAsFarAsTheyAreAskedFor ) {
   AskedWorld w;
   auto trace = [&]( const Json & level ) {
      Json request = { { "do", "trace" }, { "facility", "QonVlanHelper" } };
      if ( !level.is_null() ) {
         request["level"] = level;
      }
      testing::internal::CaptureStderr();
      EXPECT_EQ( w.ask( request ), fine );
      w.event( { { "event", "vlanMember" },
                 { "vlan", 20 },
                 { "intf", "Ethernet4" },
                 { "mode", "tagged" } } );
      w.event( { { "event", "vlanMember" },
                 { "vlan", 20 },
                 { "intf", "Ethernet4" },
                 { "mode", "none" } } );
      return testing::internal::GetCapturedStderr();
   };
   EXPECT_NE( trace( 5 ).find( "QonVlanHelper 5 Ethernet4 vlan 20 overriding" ), String::npos );
   EXPECT_EQ( trace( 3 ), "" );
   EXPECT_NE( trace( 9 ), "" );
   EXPECT_EQ( trace( nullptr ), "" );
   EXPECT_EQ( w.ask( { { "do", "trace" }, { "facility", "Qon" }, { "level", 5 } } )
                    .get< String >()
                    .substr( 0, 40 ),
              "there is no facility 'Qon'; there are: Q" );
   // Messages below the level are remembered, and not passed on.
   auto raise = [&]( const char * name ) {
      w.ask( { { "do", "raise" },
               { "message", name },
               { "arguments", { "sw1", "00:11:22:33:44:55", "10" } } } );
      return w.logs.records().size();
   };
   w.ask( { { "do", "logLevel" }, { "level", 2 } } );
   EXPECT_EQ( raise( "ETH_MACADDRBANKFULL" ), 0u );
   EXPECT_EQ( w.look( "log", "message", "ETH_MACADDRBANKFULL", "clock" ), "" );
   w.ask( { { "do", "logLevel" }, { "level", 6 } } );
   w.scheduler.runFor( 100 );
   EXPECT_EQ( raise( "ETH_MACADDRBANKFULL" ), 1u );
}

String
content( const String & file ) {
   std::ifstream in( file );
   return { std::istreambuf_iterator< char >( in ), {} };
}

TEST( Reference, TheDocumentSaysWhatTheCodeSays ) {
   AgentWorld w;
   const String reference = QonAgent::referenceOf( w.agent, QonAgent::Console( w.agent ).shows() );
   EXPECT_NE( content( "docs/agent.md" ).find( reference ), String::npos )
         << "tools/update-reference writes it";
}

TEST( Reference, EveryTablesFieldsAreThoseThatAreRead ) {
   AgentWorld w;
   String all;
   std::set< String > documented;
   for ( auto & feature : w.agent.features() ) {
      for ( auto & table : feature->tables() ) {
         String rows;
         for ( auto & example : table.examples ) {
            rows += ( rows.empty() ? "" : ", " ) + example;
         }
         all += ( all.empty() ? "\"" : ", \"" ) + table.name + "\": {" + rows + "}";
         for ( auto & [field, what] : table.fields ) {
            documented.insert( table.name + "|" + field );
         }
      }
   }
   std::set< String > read;
   {
      const QonAgent::FieldsAsked noted;
      const auto report = w.load( "{" + all + "}" );
      EXPECT_EQ( report.warnings, Lines() );
      EXPECT_EQ( report.notes, Lines() );
      for ( auto & field : noted.names() ) {
         if ( field.back() != '@' && field.find( '|' ) != String::npos ) {
            read.insert( field );
         }
      }
   }
   EXPECT_EQ( read, documented );
}

TEST( Reference, EveryEventsExampleIsOne ) {
   AgentWorld w;
   w.load( asked );
   const QonAgent::Events events( w.agent );
   U32 faults = 0;
   for ( auto & [name, kind] : events.kinds() ) {
      auto lines = kind.examples;
      lines.push_back( kind.help );
      for ( auto & line : lines ) {
         String unknown;
         EXPECT_NO_THROW( events.parse( Json::parse( line ), &unknown ) ) << line;
         EXPECT_EQ( unknown, "" ) << line;
         faults += name == "fault";
      }
   }
   EXPECT_GE( faults, w.chip.faults().hooks().size() + w.chip.faults().tables().size() );
}

} // namespace

} // namespace Tests
