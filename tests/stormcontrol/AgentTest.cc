// Storm control of a whole agent over the chip in software: limiters that are few, traffic that
// storms, both generations.

#include <nlohmann/json.hpp>

#include "agent/Agent.h"
#include "agent/ConfigReader.h"
#include "agent/softchip/Chip.h"
#include "agent/softchip/StormControlPart.h"
#include "tests/stormcontrol/StormWorld.h"

namespace {

using namespace StormTests;

const char configuration[] = R"({
   "PORT": { "Ethernet0": { "speed": "10000" }, "Ethernet4": { "speed": "10000" },
             "Ethernet8": { "speed": "56" } },
   "PORTCHANNEL": { "PortChannel1": {} },
   "PORTCHANNEL_MEMBER": { "PortChannel1|Ethernet4": {} },
   "PORT_STORM_CONTROL": {
      "Ethernet0": { "drop_logging": "true" },
      "Ethernet0|broadcast": { "kbps": "1000" },
      "Ethernet0|multicast": { "cpu_pps": "0" },
      "Ethernet4|broadcast": { "kbps": "5" },
      "PortChannel1|unknown-unicast": { "percent": "1" },
      "Ethernet8|broadcast": { "kbps": "1", "pps": "2" },
      "Ethernet8|turtles": { "kbps": "1" },
      "Ethernet8|all": {}
   },
   "STORM_CONTROL": {
      "GLOBAL": { "drop_logging_interval": "10", "counter_period": "2", "errdisable": "true" },
      "TC|3": { "pps": "77" },
      "TC|9": { "pps": "77" }
   }
})";

class StormAgent : public testing::TestWithParam< const char * > {
 protected:
   void SetUp() override {
      SoftChip::Shape shape;
      shape.storm.limiters = 3;
      chip.emplace( scheduler, shape );
      agent.emplace( scheduler, *chip, QonAgent::agentFeatures(),
                     QonAgent::Settings{ { "storm-control", GetParam() } } );
      auto db = QonAgent::ConfigDb::parse( "x.json", configuration );
      report = QonAgent::ConfigReader( *agent, db ).load();
      scheduler.settle();
   }
   SoftChip::StormControlPart & part() { return chip->of< SoftChip::StormControlPart >(); }
   /** "Ethernet4 uUcast 1 percent 10000000" of each limiter. */
   Calls limiters() {
      Calls all;
      for ( auto & [key, limit] : part().table().held() ) {
         all.push_back( key.first.stringValue() + " " + Kiv::toText( key.second ) + " " +
                        shown( limit.threshold ) + " " + Kiv::toText( limit.speedKbps ) );
      }
      return all;
   }
   void event( const String & line ) {
      auto json = QonAgent::Json::parse( line );
      for ( auto & kind : agent->eventKinds() ) {
         if ( kind.name == json["event"] ) {
            kind.parse( json )();
         }
      }
      scheduler.settle();
   }
   /** Field -> text of the row of an interface and level. */
   std::map< String, String > show( const String & intf, const String & level ) {
      auto all = agent->showCommands();
      auto rows = QonAgent::runShow( *agent, *QonAgent::findShow( all, { "storm-control" } ),
                                     { "storm-control", intf } );
      while ( const QonAgent::Row * row = rows.next() ) {
         std::map< String, String > fields;
         for ( auto & [name, value] : row->fields() ) {
            auto text = std::get_if< String >( &value.held() );
            auto number = std::get_if< U64 >( &value.held() );
            fields[name] = text ? *text : number ? Kiv::toText( *number ) : "";
         }
         if ( fields["level"] == level ) {
            return fields;
         }
      }
      return {};
   }
   bool second() const { return GetParam()[0] == '2'; }

   Kiv::VirtualScheduler scheduler;
   Kiv::LogRecorder logs;
   std::optional< SoftChip::Chip > chip;
   std::optional< QonAgent::Agent > agent;
   QonAgent::ConfigReport report;
};

TEST_P( StormAgent, TheConfigurationReachesTheChip ) {
   EXPECT_EQ( limiters(), ( Calls{ "Ethernet0 broadcast 1000 kbps 10000000",
                                   "Ethernet4 uUcast 1 percent 10000000" } ) );
   EXPECT_EQ( part().table().classes().at( 3 ), Threshold( Unit::pps, 77 ) );
   EXPECT_EQ( report.warnings.size(), 5u ); // a speed, two units, a kind, no level, a class
   auto row = show( "Ethernet4", "uUcast" );
   EXPECT_EQ( row["effective"] + " from " + row["from"], "1 percent from PortChannel1" );
   EXPECT_EQ( row["programmed"], "1 percent" );
   EXPECT_EQ( show( "Ethernet4", "broadcast" )["configured"], "5 kbps" );
   EXPECT_EQ( show( "Ethernet4", "broadcast" )["effective"], "" );
   EXPECT_EQ( show( "Ethernet0", "multicastCpu" )["reason"],
              second() ? "not supported" : "zero rate is not supported" );
}

TEST_P( StormAgent, WhatExceedsTheLevelIsDroppedCountedLoggedAndDisables ) {
   event( R"({"event": "stormTraffic", "port": "Ethernet0", "kind": "broadcast",
              "kbps": 1512, "octets": 64})" );
   scheduler.runFor( 10.5 );
   // 512 kbps too much: 1000 packets a second, over two slices
   auto row = show( "Ethernet0", "broadcast" );
   EXPECT_GE( std::stoul( row["drops"] ), 9000u );
   EXPECT_LE( std::stoul( row["drops"] ), 10500u );
   EXPECT_EQ( row["disabled"], "yes" );
   ASSERT_EQ( logs.records().size(), 1u );
   EXPECT_EQ( logs.records()[0].text.substr( 0, 66 ),
              "Storm Control discarded packets on Interface Ethernet0: UUcast 0, " );
   event( R"({"event": "stormTraffic", "port": "Ethernet0", "kind": "broadcast", "kbps": 0})" );
   scheduler.runFor( 3 );
   event( R"({"event": "errdisableRecover", "port": "Ethernet0"})" );
   scheduler.runFor( 5 );
   EXPECT_EQ( show( "Ethernet0", "broadcast" )["disabled"], "no" );
   event( R"({"event": "fault", "unit": "Slice1", "lost": true})" );
   event( R"({"event": "stormTraffic", "port": "Ethernet0", "kind": "broadcast", "kbps": 1000})" );
   scheduler.runFor( 3 );
   row = show( "Ethernet0", "broadcast" );
   EXPECT_LE( std::stoul( row["drops"] ), 5500u ) << "one slice took its part along";
   EXPECT_EQ( row["disabled"], "no" ) << "what is under the level is not dropped";
}

TEST_P( StormAgent, LevelsWaitForALimiter ) {
   auto config = agent->entities().mount< Bridging::StormControl::Config >(
         "bridging/stormcontrol/config" );
   config->intf( eth( 0 ) )->multicastLevelIs( kbps( 3 ) );
   config->intf( eth( 0 ) )->allLevelIs( kbps( 4 ) );
   scheduler.settle();
   EXPECT_EQ( limiters().size(), 3u );
   EXPECT_EQ( show( "Ethernet0", "all" )["reason"], "no limiter" );
   agent->acsd()->verifyData()->runChecks();
   EXPECT_EQ( agent->acsd()->verifyData()->verifyInc(), 0u ) << "what waits is no difference";
   config->intf( eth( 0 ) )->broadcastLevelIs( OptionalThreshold() );
   scheduler.settle();
   EXPECT_EQ( show( "Ethernet0", "all" )["reason"], "" );
   EXPECT_EQ( show( "Ethernet0", "all" )["programmed"], "4 kbps" );
}

INSTANTIATE_TEST_SUITE_P( Generations, StormAgent, testing::Values( "1", "2" ) );

TEST( StormLimiters, ALimitIsPassedByWhatItAllowsOnly ) {
   Kiv::VirtualScheduler scheduler;
   SoftChip::Chip chip( scheduler );
   auto & part = chip.of< SoftChip::StormControlPart >();
   auto dir = Velto::make< Qon::StormControl::DropSliceDir >( "slices" );
   auto counter = part.makeDropCounter( dir );
   part.table().set( eth( 1 ), Level::broadcast, { Threshold( Unit::percent, 10 ), 10'000 } );
   part.table().set( eth( 1 ), Level::all, { Threshold( Unit::pps, 1'500 ), 10'000 } );
   part.table().set( eth( 1 ), Level::uUcastCpu, { kbps( 125 ), 10'000 } );
   for ( auto kind : { LevelType::levelTypeBroadcast, LevelType::levelTypeMulticast } ) {
      part.trafficIs( eth( 1 ), kind, false, { 2'000, 125 } ); // 2,000 packets a second each
   }
   part.trafficIs( eth( 1 ), LevelType::levelTypeUUcast, true, { 250, 125 } );
   scheduler.runFor( 10 );
   Qon::StormControl::Drops sum;
   for ( auto && [name, slice] : dir->sliceIteratorConst() ) {
      sum = Qon::StormControl::plus( sum, slice->intfStatus( eth( 1 ) )->drops() );
   }
   EXPECT_EQ( sum.broadcastDrop(), 10'000u );     // half of them pass
   EXPECT_EQ( sum.multicastDrop(), 0u );          // no level of their own
   EXPECT_EQ( sum.allDrop(), 15'000u );           // 3,000 a second pass, 1,500 may
   EXPECT_EQ( sum.allDropOcts(), 15'000u * 125 ); // and their octets
   EXPECT_EQ( sum.uucastCpuDrop(), 1'250u );
   EXPECT_EQ( sum.uucastDrop(), 0u );
}

} // namespace
