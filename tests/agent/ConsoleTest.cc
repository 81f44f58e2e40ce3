// What the console can ask for, and what watches, snapshots and event streams do.

#include <nlohmann/json.hpp>

#include <cstdio>
#include <fstream>

#include "agent/base/PathWatch.h"
#include "agent/base/StateFile.h"
#include "agent/ctl/Table.h"
#include "agent/player/EventPlayer.h"
#include "agent/server/Console.h"
#include "tests/agent/AgentWorld.h"

namespace Tests {

namespace {

using QonAgent::Console;
using QonAgent::EventPlayer;
using QonAgent::Json;
using QonAgent::PathWatch;

const char leaf[] =
      R"({"PORT": {"Ethernet10": {"speed": "25000"}, "Ethernet9": {}, "Ethernet2": {}},
   "PORTCHANNEL": {"PortChannel0002": {}}, "PORTCHANNEL_MEMBER": {"PortChannel0002|Ethernet10": {}}})";

const char phy[] = "interface/status/eth/phy";

/** The changes below a path, as texts. */
class Follower {
 public:
   Follower( AgentWorld & w, const String & path )
       : watch_( PathWatch::follow( w.agent.entities(), path, [this]( auto & change ) {
            seen_.push_back( change.path + ( change.isEntity ? change.value ? " +" : " -"
                                             : change.value  ? " = " + *change.value
                                                             : " gone" ) );
         } ) ) {}
   Lines seen() { return std::exchange( seen_, {} ); }

 private:
   Lines seen_;
   Velto::Ptr< PathWatch > watch_;
};

TEST( Console, ShowsInTheOrderOfInterfacesAndInTheFilesSpelling ) {
   AgentWorld w;
   w.load( leaf );
   Console console( w.agent );
   auto rows = [&]( const Lines & words ) {
      Json answer = console.answer( { { "do", "show" }, { "words", words } } );
      return answer.contains( "rows" ) ? answer["rows"] : answer["error"];
   };
   Json interfaces = rows( { "interfaces" } );
   ASSERT_EQ( interfaces.size(), 3u );
   EXPECT_EQ( interfaces[0]["interface"], "Ethernet2" );
   EXPECT_EQ( interfaces[2]["interface"], "Ethernet10" );
   EXPECT_EQ( interfaces[2]["portChannel"], "PortChannel0002" );
   EXPECT_EQ( interfaces[2]["speed"], 25000 );
   // By either spelling; the longest name of a table wins.
   for ( auto name : { "PortChannel0002", "Port-Channel2" } ) {
      EXPECT_EQ( rows( { "port-channel", name } )[0]["members"], Json( { "Ethernet10" } ) );
      EXPECT_EQ( rows( { "port-channel", "members", name } )[0]["programmed"], "yes" );
   }
   EXPECT_EQ( rows( { "port-channel", "PortChannel3" } ),
              "there is no port-channel 'PortChannel3'" );
   EXPECT_EQ( rows( { "log", "x" } ), "'show log' takes no argument" );
   // Every table that there is can be shown, with what its columns name.
   Json help = console.answer( { { "do", "help" } } );
   for ( auto & show : help["shows"] ) {
      auto words = Kiv::split( show["show"].get< String >(), ' ' );
      const String arguments = show["arguments"];
      if ( arguments.empty() || arguments[0] == '[' ) { // none is needed
         Json answer = console.answer( { { "do", "show" }, { "words", words } } );
         EXPECT_TRUE( answer["ok"].get< bool >() ) << answer;
      }
   }
}

TEST( Console, ChangesByPathAreWhatTheFeaturesHear ) {
   AgentWorld w;
   w.load( leaf );
   Console console( w.agent );
   auto ask = [&]( Json request ) { return console.answer( request ); };
   String lag = "interface/status/eth/lag/intfStatus[Port-Channel7]";
   EXPECT_TRUE( ask( { { "do", "insert" }, { "path", lag } } )["ok"].get< bool >() );
   EXPECT_TRUE( ask( { { "do", "set" },
                       { "path", lag + "/intf[Ethernet9]" },
                       { "value", "{collecting: True}" } } )["ok"]
                      .get< bool >() );
   EXPECT_EQ( ask( { { "do", "get" }, { "path", "acsd/portToLag[Ethernet9]" } } )["value"],
              "Port-Channel7" );
   EXPECT_TRUE( ask( { { "do", "delete" }, { "path", lag } } )["ok"].get< bool >() );
   EXPECT_EQ( ask( { { "do", "get" }, { "path", "acsd/portToLag[Ethernet9]" } } )["value"],
              "None" );
   EXPECT_EQ( ask( { { "do", "set" }, { "path", "acsd/minIntfs" }, { "value", -1 } } )["ok"],
              false );
}

TEST( Console, MessagesAreRaisedByNameAndRemembered ) {
   AgentWorld w;
   Console console( w.agent );
   Json request = { { "do", "raise" },
                    { "message", "ETH_MACADDRBANKFULL" },
                    { "arguments", { "sw1", "00:11:22:33:44:55", "10" } } };
   EXPECT_EQ( console.answer( request )["emitted"], true );
   EXPECT_EQ( console.answer( request )["emitted"], false ); // within its interval
   Json rows = console.answer( { { "do", "show" }, { "words", { "log" } } } )["rows"];
   ASSERT_EQ( rows.size(), 1u );
   EXPECT_EQ( rows[0]["message"], "ETH_MACADDRBANKFULL" );
   EXPECT_EQ( w.logs.records().size(), 1u ); // passed on to who listened before
   request["arguments"] = { "sw1" };
   EXPECT_EQ( console.answer( request )["error"], "ETH_MACADDRBANKFULL takes 3 arguments, not 1" );
}

TEST( Watch, FollowsWhatComesGoesAndComesBack ) {
   AgentWorld w;
   w.load( leaf );
   auto & entities = w.agent.entities();
   String port = String( phy ) + "/intfStatus[Ethernet50]";
   Follower all( w, phy );
   Follower one( w, port + "/linkUp" ); // not there yet
   Follower above( w, "interface" );
   entities.insert( port );
   EXPECT_EQ( all.seen(),
              ( Lines{ port + " +", port + "/active = True", port + "/linkUp = False",
                       port + "/speed = speedUnknown", port + "/forwardingModel = bridged" } ) );
   EXPECT_EQ( one.seen(), Lines{ port + "/linkUp = False" } );
   entities.set( port + "/linkUp", "True" );
   entities.set( port + "/linkUp", "True" ); // no change
   entities.set( port + "/speed", "speed25Gbps" );
   EXPECT_EQ( all.seen(), ( Lines{ port + "/linkUp = True", port + "/speed = speed25Gbps" } ) );
   EXPECT_EQ( one.seen(), Lines{ port + "/linkUp = True" } );
   entities.del( port );
   EXPECT_EQ( all.seen(), Lines{ port + " -" } );
   entities.insert( port );
   entities.set( port + "/linkUp", "True" );
   EXPECT_EQ( one.seen().back(), port + "/linkUp = True" );
   EXPECT_GT( above.seen().size(), 8u );
   EXPECT_THROW( Follower( w, "nowhere" ), Velto::RangeError );
   EXPECT_THROW( Follower( w, "interfac" ), Velto::RangeError );
}

TEST( Watch, FollowsKeysOfMapsAndEndsWithTheWatcher ) {
   AgentWorld w;
   w.load( leaf );
   {
      Follower map( w, "acsd/portToLag" );
      Follower key( w, "acsd/portToLag[Ethernet2]" );
      String member = "interface/status/eth/lag/intfStatus[Port-Channel2]/intf[Ethernet2]";
      w.agent.entities().set( member, "{collecting: True, distributing: True}" );
      w.agent.entities().del( member );
      Lines expected = { "acsd/portToLag[Ethernet2] = Port-Channel2",
                         "acsd/portToLag[Ethernet2] gone" };
      EXPECT_EQ( map.seen(), expected );
      EXPECT_EQ( key.seen(), expected );
      w.agent.entities().del( "interface/status/eth/lag/intfStatus" ); // all of them at once
      EXPECT_EQ( map.seen(), Lines{ "acsd/portToLag[Ethernet10] gone" } );
      EXPECT_EQ( key.seen(), Lines() );
   }
   w.acsd().minIntfsIs( 9 );
}

TEST( StateFile, ASnapshotRestoresWhatItWasTakenOf ) {
   AgentWorld w;
   w.load( leaf );
   Json taken = QonAgent::takeState( w.agent.entities(), "interface/status/eth/lag" );
   taken.update( QonAgent::takeState( w.agent.entities(), phy ) );
   AgentWorld fresh;
   QonAgent::applyState( fresh.agent.entities(), QonAgent::parseState( taken.dump() ) );
   EXPECT_EQ( fresh.acsd().portToLag( intf( "Ethernet10" ) ), intf( "Port-Channel2" ) );
   for ( auto path : { "interface/status/eth/lag", phy } ) {
      EXPECT_EQ( QonAgent::takeState( fresh.agent.entities(), path ),
                 QonAgent::takeState( w.agent.entities(), path ) );
   }
   for ( auto [text, error] :
         { std::pair( "[]", "expected an object of paths and values, found array" ),
           std::pair( "{\"acsd/minIntfs\": [1]}", "acsd/minIntfs: expected a value, found array" ),
           std::pair( "{\"acsd/nothing\": 1}",
                      "acsd/nothing: Qon::QonCommonSmData has no attribute 'nothing'" ),
           std::pair( "{\"acsd/minIntfs\": 1", "1:19: not valid JSON: it ends too early" ) } ) {
      try {
         QonAgent::applyState( fresh.agent.entities(), QonAgent::parseState( text ) );
         ADD_FAILURE() << text;
      } catch ( const Velto::RangeError & e ) {
         EXPECT_STREQ( e.what(), error );
      }
   }
}

/** A file that goes with the test. */
class TestFile {
 public:
   explicit TestFile( const String & content ) { std::ofstream( name ) << content; }
   ~TestFile() { std::remove( name.c_str() ); }
   const String name = "/tmp/qon-events." + std::to_string( getpid() );
};

TEST( Events, HappenInTheirOrderAtTheirTimes ) {
   AgentWorld w;
   w.load( leaf );
   TestFile file( "# a comment, then an empty line\n\n"
                  "{\"event\": \"link\", \"port\": \"Ethernet2\", \"up\": false}\n"
                  "{\"time\": 2.5, \"event\": \"set\", \"path\": \"acsd/minIntfs\", \"value\": 1}\n"
                  "{\"event\": \"set\", \"path\": \"acsd/minIntfs\", \"value\": 2}\n"
                  "{\"time\": 3, \"event\": \"link\", \"port\": \"Ethernet77\", \"up\": true}\n"
                  "{\"time\": 4, \"event\": \"delete\", \"path\": \"interface/status/eth/lag/"
                  "intfStatus[Port-Channel2]\"}" );
   Lines said;
   auto player = EventPlayer::load( w.agent, file.name, [&]( auto & l ) { said.push_back( l ); } );
   player->start();
   EXPECT_TRUE( w.agent.entities().get( String( phy ) + "/intfStatus[Ethernet2]/linkUp" ) ==
                "True" );
   w.scheduler.runFor( 1 );
   EXPECT_EQ( w.agent.entities().get( String( phy ) + "/intfStatus[Ethernet2]/linkUp" ), "False" );
   EXPECT_EQ( w.acsd().minIntfs(), 0u );
   w.scheduler.runFor( 2.4 );
   EXPECT_EQ( w.acsd().minIntfs(), 2u );
   ASSERT_EQ( said.size(), 1u );
   EXPECT_EQ(
         said[0].rfind( "warning: " + file.name + ":6: there is no port 'Ethernet77'; there", 0 ),
         0u );
   EXPECT_FALSE( player->done() );
   w.scheduler.runToRest( 1e9 );
   EXPECT_TRUE( player->done() );
   EXPECT_FALSE( w.acsd().portToLagHas( intf( "Ethernet10" ) ) );
}

TEST( Events, AWrongLineStopsTheFileBeforeItBegins ) {
   AgentWorld w;
   String good = "{\"time\": 1, \"event\": \"set\", \"path\": \"acsd/minIntfs\", \"value\": 1}\n";
   for ( auto [line, error] :
         { std::pair( "{\"time\": 0.5, \"event\": \"insert\", \"path\": \"x\"}",
                      ":2: time goes back from 1 to 0.5" ),
           std::pair( "{\"event\": \"dance\"}", ":2: no event 'dance'; there are: " ),
           std::pair( "{\"event\": \"link\", \"port\": \"Ethernet0\"}",
                      ":2: field 'up' is missing" ),
           std::pair( "[]", ":2: expected a JSON object, found array" ),
           std::pair( "{\"event\": ", ":2: not a JSON object on one line" ) } ) {
      TestFile file( good + line );
      try {
         EventPlayer::load( w.agent, file.name, {} );
         ADD_FAILURE() << line;
      } catch ( const Velto::RangeError & e ) {
         EXPECT_EQ( String( e.what() ).substr( 0, ( file.name + error ).size() ),
                    file.name + error );
      }
   }
   EXPECT_EQ( w.acsd().minIntfs(), 0u );
}

TEST( Table, StaysWithinItsWidth ) {
   Json columns = { { { "field", "n" }, { "heading", "No" }, { "numeric", true } },
                    { { "field", "t" }, { "heading", "Text" }, { "numeric", false } },
                    { { "field", "u" }, { "heading", "U" }, { "numeric", false } } };
   Json rows = { { { "n", 7 }, { "t", { "alpha", "beta", "gamma", "delta" } }, { "u", true } },
                 { { "n", 1234 }, { "t", "Äpfel" } } };
   EXPECT_EQ( QonAgent::tableOf( columns, rows, 80 ), "  No  Text                       U\n"
                                                      "----  -------------------------  ---\n"
                                                      "   7  alpha, beta, gamma, delta  yes\n"
                                                      "1234  Äpfel\n" );
   EXPECT_EQ( QonAgent::tableOf( columns, rows, 26 ), "  No  Text             U\n"
                                                      "----  ---------------  ---\n"
                                                      "   7  alpha, beta,     yes\n"
                                                      "      gamma, delta\n"
                                                      "1234  Äpfel\n" );
}

} // namespace

} // namespace Tests
