// Answers of many lines: made while they are sent, whatever becomes of what they tell.

#include <nlohmann/json.hpp>

#include "agent/Events.h"
#include "agent/base/StateFile.h"
#include "platform/types/Acl.h"
#include "platform/types/Paths.h"
#include "tests/agent/SocketClient.h"

namespace Tests {

namespace {

using QonAgent::Json;
using QonAgent::Rows;

const char everything[] =
      R"({"PORT": {"Ethernet0": {}, "Ethernet4": {}, "Ethernet8": {}, "Ethernet12": {}},
   "PORTCHANNEL": {"PortChannel1": {}, "PortChannel2": {}},
   "PORTCHANNEL_MEMBER": {"PortChannel1|Ethernet0": {}, "PortChannel2|Ethernet4": {}},
   "MCLAG_DOMAIN": {"1": {"peer_link": "PortChannel2"}}, "MCLAG_INTERFACE": {"1|PortChannel1": {}},
   "VLAN": {"Vlan10": {}, "Vlan11": {}, "Vlan20": {}},
   "VLAN_MEMBER": {"Vlan10|Ethernet8": {}, "Vlan10|Ethernet12": {"tagging_mode": "tagged"},
                   "Vlan11|PortChannel1": {"tagging_mode": "tagged"}, "Vlan20|Ethernet8": {}},
   "VLAN_MAPPING": {"Ethernet8|ingress|10": {"mapped_vlan": "11"},
                    "PortChannel1|egress|11": {"mapped_vlan": "10"},
                    "Ethernet8|egress|20": {"native": "true"},
                    "Ethernet12|ingress|20": {"mapped_vlan": "10", "source": "flow"}},
   "MIRROR_SESSION": {"span": {"dst_port": "PortChannel1", "src_port": "Ethernet8,Ethernet12"},
                      "tunnel": {"src_ip": "10.0.0.1", "dst_ip": "10.0.0.2", "gre_type": "0x8949",
                                 "src_port": "Ethernet8", "direction": "TX"}},
   "PORT_STORM_CONTROL": {"Ethernet8|broadcast": {"kbps": "1000"},
                          "Ethernet8|multicast": {"kbps": "1000"},
                          "PortChannel1|unknown-unicast": {"percent": "1"}},
   "STORM_CONTROL": {"TC|3": {"pps": "77"}},
   "ACL_TABLE": {"DATA": {"type": "L3", "ports": ["Ethernet8", "PortChannel1"]},
                 "FRAMES": {"type": "L2", "stage": "ingress", "ports": ["Ethernet12"]}},
   "ACL_RULE": {"DATA|ONE": {"PRIORITY": "1", "PACKET_ACTION": "DROP", "SRC_IP": "10.0.0.0/8"},
                "DATA|TWO": {"PRIORITY": "2", "PACKET_ACTION": "DROP", "DST_IP": "10.0.0.3/32"}},
   "STP": {"GLOBAL": {"mode": "pvst"}}, "STP_VLAN": {"Vlan10": {}},
   "MULTICAST_GROUP": {"Vlan10|01:00:5e:01:01:01": {"members": ["Ethernet8", "PortChannel1"]},
                       "Vlan11|01:00:5e:01:01:02": {"members": ["PortChannel1"]}},
   "MULTICAST_COPY": {"LINK_LOCAL|lldp": {}},
   "TAP_POLICY_MAP": {"map|voice": {"groups": "voice"}},
   "TAP_PORT": {"Ethernet8": {"groups": "a,b"}},
   "TOOL_PORT": {"Ethernet12": {"groups": "a"}, "PortChannel1": {"groups": "b"}}})";

/** An agent with something to show everywhere. */
class FullWorld : public AgentWorld {
 public:
   FullWorld() { fill(); }
   void fill() {
      load( R"({"PORT": {}})" ); // what is said as before would not come back
      load( everything );
      for ( auto mac : { "02:11:22:00:00:01", "02:11:22:00:00:02", "02:11:22:00:00:03" } ) {
         event( { { "event", "mac" },
                  { "op", "add" },
                  { "mac", mac },
                  { "vlan", 10 },
                  { "intf", "Ethernet8" } } );
         scheduler.runFor( 1 );
      }
      event( { { "event", "mac" },
               { "op", "add" },
               { "mac", "02:11:22:00:00:04" },
               { "vlan", 20 },
               { "intf", "Ethernet12" } } );
   }
   /** Everything that is configured or published goes, and the chip's hosts too. */
   void wreck() {
      for ( auto & mount : std::vector( agent.entities().mounts() ) ) {
         if ( mount.path == Paths::aclIntfConfig ) {
            emptyLists( *static_cast< Acl::IntfConfig * >( mount.entity.ptr() ) );
         } else if ( mount.path != QonAgent::acsdPath ) {
            empty( *mount.entity );
         }
      }
      event( { { "event", "mac" }, { "op", "flushAll" } } );
      scheduler.runFor( 10 );
   }
   QonAgent::Console console{ agent };
   const std::vector< QonAgent::EventKind > kinds = agent.eventKinds();

 private:
   void event( const Json & line ) {
      for ( auto & kind : kinds ) {
         if ( kind.name == line["event"] ) {
            kind.parse( line )();
         }
      }
   }
   /** Directions stay: each takes numbers of lists for good. */
   static void emptyLists( Acl::IntfConfig & config ) {
      for ( auto && [type, byType] : config.typeIteratorConst() ) {
         for ( auto && [direction, intfs] : byType->directionIteratorConst() ) {
            intfs->intfDelAll();
         }
      }
   }
   static void empty( Kiv::Entity & entity ) {
      for ( auto type = entity.typeData(); type; type = type->base ) {
         for ( int i = 0; i < type->count; ++i ) {
            if ( type->attrs[i].walk && type->attrs[i].key ) {
               type->attrs[i].del( entity, nullptr );
            }
         }
      }
   }
};

Rows
show( const FullWorld & w, const QonAgent::ShowCommand & command ) {
   auto words = Kiv::split( command.name, ' ' );
   for ( auto & argument : command.arguments ) {
      if ( argument.required ) { // "hw frame PORT DST"
         words.push_back( argument.name == "PATH"                           ? "bridging"
                          : argument.name == "LIST"                         ? "DATA"
                          : argument.name == "in|out"                       ? "in"
                          : argument.kind == QonAgent::Argument::Kind::mac  ? "02:11:22:00:00:01"
                          : argument.kind == QonAgent::Argument::Kind::vlan ? "10"
                                                                            : "Ethernet8" );
      }
   }
   return QonAgent::runShow( w.agent, command, words );
}

/** How many steps a command's rows take. */
U32
stepsOf( Rows rows ) {
   U32 steps = 0;
   while ( rows.step() != Rows::Step::end ) {
      ++steps;
   }
   return steps;
}

TEST( LongAnswers, RowsSurviveWhateverHappensBetweenThem ) {
   FullWorld w;
   U32 all = 0;
   for ( auto & command : w.console.shows() ) {
      const U32 steps = stepsOf( show( w, command ) );
      all += steps;
      for ( bool again : { false, true } ) {
         for ( U32 stop = 0; stop <= std::min( steps, 60u ); ++stop ) {
            Rows rows = show( w, command );
            for ( U32 i = 0; i < stop; ++i ) {
               rows.step();
            }
            w.wreck();
            if ( again ) {
               w.fill();
            }
            U32 rest = 0;
            while ( rows.step() != Rows::Step::end ) {
               ASSERT_LT( ++rest, 2000u ) << command.name;
            }
            if ( !again ) {
               w.fill();
            }
         }
      }
   }
   EXPECT_GT( all, 50u );
}

TEST( LongAnswers, ADumpSurvivesWhateverHappensBetweenItsLines ) {
   FullWorld w;
   for ( bool again : { false, true } ) {
      for ( U32 stop = 0; stop < 150; ++stop ) {
         Orvane::Dump dump( w.agent.entities(), "" );
         Kiv::GenericIf::Line line;
         for ( U32 i = 0; i < stop; ++i ) {
            ASSERT_TRUE( dump.next( line ) );
         }
         w.wreck();
         if ( again ) {
            w.fill();
         }
         for ( U32 rest = 0; dump.next( line ); ) {
            ASSERT_LT( ++rest, 10000u );
         }
         if ( !again ) {
            w.fill();
         }
      }
   }
}

/** A world whose shared data takes many lines to dump. */
struct LongWorld : ServerWorld {
   LongWorld() {
      for ( U32 i = 0; i < entries; ++i ) {
         agent.acsd()->internalVlanIs( intf( "Ethernet" + std::to_string( i ) ), i );
      }
   }
   static constexpr U32 entries = 20000;
   const String dump = "{\"do\": \"dump\", \"path\": \"acsd/internalVlan\"}\n";
   const String get = "{\"do\": \"get\", \"path\": \"acsd/minIntfs\"}\n";
   const String got = R"({"ok":true,"value":"0"})";
};

TEST( LongAnswers, AreStreamedWhileOthersAreServed ) {
   LongWorld w;
   SocketClient reader( w.loop, w.path );
   SocketClient lazy( w.loop, w.path );
   SocketClient other( w.loop, w.path );
   lazy.send( w.dump ); // and reads nothing
   reader.send( w.dump + w.get );
   reader.endInput();
   EXPECT_EQ( reader.line(), R"({"ok":true})" );
   EXPECT_EQ( reader.line(), R"({"path":"acsd/internalVlan[Ethernet0]","value":"0"})" );
   other.send( w.get );
   EXPECT_EQ( other.line(), w.got );
   // What changes on the way is told as it is when its turn comes.
   w.agent.acsd()->internalVlanIs( intf( "Ethernet19999" ), 7 );
   w.agent.acsd()->internalVlanDel( intf( "Ethernet19998" ) );
   U32 lines = 1;
   String last, line;
   while ( ( line = reader.line() ) != R"({"ok":true})" && !line.empty() ) {
      last = line;
      ++lines;
   }
   EXPECT_EQ( lines, LongWorld::entries - 1 );
   EXPECT_EQ( last, R"({"path":"acsd/internalVlan[Ethernet19999]","value":"7"})" );
   // Then comes the next answer, though the client says nothing more.
   EXPECT_EQ( reader.line(), w.got );
   EXPECT_TRUE( reader.ended() );
   // Somebody leaves in the middle.
   lazy.leave();
   EXPECT_TRUE( w.clientsAre( 1 ) );
}

TEST( LongAnswers, EndWithAnErrorWhereARowCannotBeMade ) {
   auto failing = []() -> Rows {
      const QonAgent::Row row = {
            { "a", U32( 1 ) }, { "b", 0.30000000000000004 }, { "c", "\x1b[2J\xff" } };
      co_yield row;
      co_yield QonAgent::Pause();
      throw Velto::RangeError( "no more" );
   };
   QonAgent::ShowCommand command;
   command.columns = { { "a", "A", true } };
   const auto answer = QonAgent::answerOf( command, failing() );
   String text = answer.head;
   for ( auto more = answer.pieces(); more( text ); ) {
   }
   EXPECT_EQ( text,
              "{\"ok\":true,\"columns\":[{\"field\":\"a\",\"heading\":\"A\",\"numeric\":true}]}\n"
              "{\"row\":{\"a\":1,\"b\":0.3,\"c\":\"\\u001b[2J\xef\xbf\xbd\"}}\n"
              "{\"ok\":false,\"error\":\"no more\"}\n" );
}

/** Every line of every mount, in no order. */
Lines
stateOf( QonAgent::Agent & agent ) {
   Lines lines;
   Orvane::Dump dump( agent.entities(), "" );
   for ( Kiv::GenericIf::Line line; dump.next( line ); ) {
      lines.push_back( line.path + ( line.isEntity ? "" : " = " + line.value ) );
   }
   std::sort( lines.begin(), lines.end() );
   return lines;
}

/** A fresh agent that is given what this one holds comes to hold the same. */
void
goesBackIn( AgentWorld & w ) {
   w.agent.inputsRead();
   w.scheduler.runFor( 100 );
   const Json taken = QonAgent::takeState( w.agent.entities(), "" );
   const Lines wanted = stateOf( w.agent );
   AgentWorld fresh;
   fresh.acsd().freeMirrorSessionEnq( 7 );
   QonAgent::applyState( fresh.agent.entities(), QonAgent::parseState( taken.dump() ) );
   fresh.agent.inputsRead();
   fresh.scheduler.runFor( 100 );
   const Lines got = stateOf( fresh.agent );
   Lines more, less;
   std::set_difference( got.begin(), got.end(), wanted.begin(), wanted.end(),
                        std::back_inserter( more ) );
   std::set_difference( wanted.begin(), wanted.end(), got.begin(), got.end(),
                        std::back_inserter( less ) );
   EXPECT_EQ( more, Lines() );
   EXPECT_EQ( less, Lines() );
   EXPECT_GT( wanted.size(), 150u );
}

TEST( LongAnswers, ASnapshotOfEveryMountGoesBackIn ) {
   AgentWorld w;
   w.load( everything );
   w.acsd().freeMirrorSessionEnq( 3 ); // a queue that a fresh agent has something else in
   w.acsd().freeMirrorSessionEnq( 4 );
   goesBackIn( w );
}

TEST( LongAnswers, ASnapshotOfTapAggregationGoesBackIn ) {
   AgentWorld w;
   w.load( everything );
   for ( const char * event :
         { R"({"event": "operationalMode", "mode": "tapAgg"})",
           R"({"event": "tapAgg", "topology": "Taps", "id": 7, "tap": ["Ethernet0"], "tool": []})" } ) {
      SCOPED_TRACE( event );
      QonAgent::Events( w.agent ).parse( Json::parse( event ) )();
      goesBackIn( w );
   }
}

TEST( LongAnswers, AQueueOfASnapshotTakesThePlaceOfWhatWasInIt ) {
   const String path = "acsd/freeMirrorSession";
   AgentWorld w;
   w.acsd().freeMirrorSessionEnq( 3 );
   w.acsd().freeMirrorSessionEnq( 4 );
   const Json taken = QonAgent::takeState( w.agent.entities(), path );
   AgentWorld fresh;
   fresh.acsd().freeMirrorSessionEnq( 7 );
   QonAgent::applyState( fresh.agent.entities(), QonAgent::parseState( taken.dump() ) );
   EXPECT_EQ( QonAgent::takeState( fresh.agent.entities(), path ), taken );
}

TEST( LongAnswers, AreFilteredByArgumentsWithKeywords ) {
   FullWorld w;
   w.scheduler.runFor( 10 );
   auto ask = [&]( const String & words ) {
      Json answer = w.console.answer( { { "do", "show" }, { "words", Kiv::split( words, ' ' ) } } );
      return answer.contains( "rows" ) ? answer["rows"] : answer["error"];
   };
   EXPECT_EQ( ask( "vlan 10" ).size(), 2u );
   EXPECT_EQ( ask( "hw vlan 10" ).size(), 2u );
   EXPECT_EQ( ask( "mac" ).size(), 4u );
   EXPECT_EQ( ask( "mac vlan 10" ).size(), 3u );
   EXPECT_EQ( ask( "hw mac interface Ethernet12" ).size(), 1u );
   EXPECT_EQ( ask( "mac interface Ethernet12 vlan 10" ).size(), 0u );
   EXPECT_EQ( ask( "mac 10" ), "'show mac' takes [vlan VLAN] [interface INTERFACE], and not '10'" );
   EXPECT_EQ( ask( "mac vlan" ), "'show mac': VLAN is missing behind 'vlan'" );
   EXPECT_EQ( ask( "mac vlan 1 vlan 2" ), "'show mac' takes one VLAN, and not '2' too" );
}

} // namespace

} // namespace Tests
