// qon-agent --record and --replay: a whole agent on real time, with a slow chip that has troubles.

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "agent/AgentRun.h"
#include "agent/SoftChips.h"
#include "agent/record/Replay.h"
#include "platform/Kiv/EventLoop.h"
#include "tests/conformance/Programs.h"

namespace {

using namespace QonAgent;

class AgentRecording : public ::testing::Test {
 protected:
   AgentRecording() {
      std::ofstream events( base + ".jsonl" );
      for ( int n = 0; n < 300; ++n ) {
         String time = R"({"time": )" + Kiv::toText( 0.0005 * n );
         String host = R"("mac": "02:11:22:00:00:)" + std::to_string( 10 + n % 40 ) +
                       R"(", "vlan": 10, "intf": "Ethernet)" + std::to_string( n % 8 ) + "\"}\n";
         events << time + R"(, "event": "mac", "op": ")" + ( n % 3 ? "add" : "remove" ) + "\", " +
                         host;
         if ( n % 50 == 7 ) {
            events
                  << time +
                           R"(, "event": "fault", "hook": "writeToHw", "trouble": "busy", "times": 5})"
                           "\n";
            events << time + R"(, "event": "mac", "op": "flushVlan", "vlan": 10})"
                             "\n";
            events << time + R"(, "event": "set", "path": "acsd/minIntfs", "value": )" +
                            std::to_string( n ) + "}\n";
         }
      }
   }
   ~AgentRecording() override {
      for ( auto end : { ".jsonl", ".rec", ".other" } ) {
         std::remove( ( base + end ).c_str() );
      }
   }
   String content() const {
      std::ostringstream all;
      all << std::ifstream( base + ".rec" ).rdbuf();
      return all.str();
   }
   std::vector< String > hooks() const {
      std::vector< String > calls;
      RecordReader reader( "rec", content() );
      while ( auto record = reader.peek() ) {
         if ( record->kind == Record::Kind::hook ) {
            calls.push_back( record->text );
         }
         reader.take();
      }
      return calls;
   }

   bool called( const String & beginning ) const {
      for ( const String & call : hooks() ) {
         if ( call.starts_with( beginning ) ) {
            return true;
         }
      }
      return false;
   }

   String base = ::testing::TempDir() + "agent." + std::to_string( getpid() );
   String options = "--config examples/leaf.json --events " + base + ".jsonl --once --record " +
                    base + ".rec ";
   String text;
};

TEST_F( AgentRecording, ARunOnRealTimeIsReplayed ) {
   for ( auto more : { "", "--virtual-time" } ) {
      std::remove( ( base + ".rec" ).c_str() ); // no recording takes the place of another
      ASSERT_EQ( Tests::runProgram( "qon-agent " + options + more, text ), 0 ) << text;
      EXPECT_GT( hooks().size(), 200u );
      for ( const String call : {
                  "TopoHelper::hwInit()",
                  "StpSm::configureBpduTrapping( False, False )",
                  "VlanHelper::doCreateHwVlan( 10 )",
                  "VlanHelper::doUpdateVlan( 10, {Ethernet",
                  "VlanHelper::doAddPortToVlan( Ethernet",
                  "Hardware::Lag::memberIs( Port-Channel",
                  "QonMacProgrammer::writeToHw( addHost 02:11:22:00:00:",
            } ) {
         EXPECT_TRUE( called( call ) ) << call;
      }
      ASSERT_EQ( Tests::runProgram( "qon-agent --replay " + base + ".rec", text ), 0 ) << text;
      EXPECT_NE( text.find( "all the same" ), String::npos ) << text;
   }
}

TEST_F( AgentRecording, WhatClientsDoIsReplayed ) {
   {
      Kiv::EventLoop loop;
      FileRecorder recorder( loop, base + ".rec" );
      AgentRun run(
            loop, &recorder, []( const String & ) {}, softChips() );
      run.begin();
      run.config( "examples/leaf.json" );
      run.events( base + ".jsonl" );
      run.play();
      for ( int n = 0; n < 200; ++n ) {
         run.change( "set", "acsd/thresholdForFlushVplsVlan\n" + std::to_string( n ) );
         EXPECT_THROW( run.change( "delete", "nowhere/at all" ), Velto::RangeError );
         if ( n == 40 ) {
            String lag = "interface/status/eth/lag/intfStatus[Port-Channel77]";
            run.change( "insert", lag );
            run.change( "set", lag + "/intf[Ethernet1]\n{collecting: True}" );
         }
         if ( n % 50 == 30 ) {
            EXPECT_FALSE( run.change( "verify", "VTS#qon-agent#" ).empty() );
         }
         loop.runOnce( 0.001 );
         EXPECT_EQ( run.agent().entities().get( "acsd/thresholdForFlushVplsVlan" ),
                    std::to_string( n ) );
      }
   }
   EXPECT_EQ( replayFile(
                    base + ".rec", [this]( const String & line ) { text = line; }, softChips() ),
              0 )
         << text;
}

TEST_F( AgentRecording, ExitCodesTellWhatIsWrong ) {
   ASSERT_EQ( Tests::runProgram( "qon-agent " + options + "--virtual-time", text ), 0 ) << text;
   String whole = content();
   auto replay = [&]( const String & recording ) {
      std::ofstream( base + ".other" ) << recording;
      return Tests::runProgram( "qon-agent --replay " + base + ".other", text );
   };
   EXPECT_EQ( replay( whole.substr( 0, whole.size() - 1000 ) ), 0 );
   EXPECT_NE( text.find( "the file ends in the middle of record" ), String::npos ) << text;
   EXPECT_EQ( replay( whole.substr( 0, 7 ) ), 2 );
   EXPECT_EQ( replay( whole + "x\n" ), 2 );
   EXPECT_EQ( Tests::runProgram( "qon-agent --replay /nowhere", text ), 2 );
   // Another chip: one call less.
   std::remove( ( base + ".other" ).c_str() ); // no recording takes the place of another
   RecordWriter writer( base + ".other" );
   RecordReader reader( "rec", whole );
   bool left = false;
   while ( auto record = reader.peek() ) {
      bool leave = !left && record->kind == Record::Kind::hook;
      left |= leave;
      if ( !leave ) {
         writer.write( *record );
      }
      reader.take();
   }
   writer.flush();
   EXPECT_EQ( Tests::runProgram( "qon-agent --replay " + base + ".other", text ), 1 );
   EXPECT_NE( text.find( " differs: recorded '" ), String::npos ) << text;
   // An agent with other features.
   std::remove( ( base + ".other" ).c_str() );
   RecordWriter( base + ".other" ).write( { Record::Kind::input, "start ports elephants" } );
   EXPECT_EQ( Tests::runProgram( "qon-agent --replay " + base + ".other", text ), 2 );
   EXPECT_NE( text.find( "recorded with the features ports elephants" ), String::npos ) << text;
}

} // namespace
