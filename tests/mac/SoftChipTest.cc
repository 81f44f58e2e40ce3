// The MAC programmer on the chip in software: collisions, a finite queue, faults by plan, and the
// agent's way of feeding and showing it all.

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>

#include "agent/Agent.h"
#include "agent/features/FaultFeature.h"
#include "agent/features/MacFeature.h"
#include "agent/player/EventPlayer.h"
#include "agent/server/Console.h"
#include "agent/softchip/Chip.h"
#include "agent/softchip/MacPart.h"
#include "platform/Kiv/Rng.h"
#include "tests/mac/FakeChip.h"

namespace {

using namespace Tests;
using SoftChip::Trouble;
using Words = std::vector< String >;

/** An agent with a small chip; streams come from files. */
class SoftMac : public ::testing::Test {
 protected:
   explicit SoftMac( const SoftChip::HostTableShape & shape = { 4, 2, 8, 0.001 } )
       : chip_( scheduler_, { .hosts = shape } ) {
      start();
   }
   void start() {
      const QonAgent::Features features = { QonAgent::feature< QonAgent::FaultFeature >( "faults" ),
                                            QonAgent::feature< QonAgent::MacFeature >( "mac" ) };
      agent_.emplace( scheduler_, chip_, features );
   }
   Qon::QonMacProgrammer & programmer() {
      return *static_cast< QonAgent::MacFeature & >( *agent_->features()[1] ).programmer();
   }
   const SoftChip::HostTable & table() { return chip_.of< SoftChip::MacPart >().table(); }

   /** Plays lines, without their common parts: an event a line. */
   void play( const std::vector< String > & lines ) {
      String name = ::testing::TempDir() + std::to_string( getpid() ) + ".events.jsonl";
      {
         std::ofstream file( name );
         for ( auto & line : lines ) {
            file << "{" << line << "}\n";
         }
      }
      auto player = QonAgent::EventPlayer::load( *agent_, name, []( const String & ) {} );
      player->start();
      while ( !player->done() ) {
         scheduler_.runFor( 0.1 );
      }
      std::remove( name.c_str() );
   }
   static String mac( const String & op, U32 n, const String & more = "" ) {
      char text[200];
      std::snprintf( text, sizeof text,
                     R"("event": "mac", "op": "%s", "mac": "02:11:22:00:00:%02x", "vlan": 10%s)",
                     op.c_str(), n, more.c_str() );
      return text;
   }
   static String add( U32 n, const String & intf = "Ethernet1", const String & more = "" ) {
      return mac( "add", n, R"(, "intf": ")" + intf + "\"" + more );
   }
   QonAgent::Json show( const String & name ) {
      return QonAgent::Console( *agent_ )
            .answer( { { "do", "show" },
                       { "words", QonAgent::Json( name == "mac" ? Words{ "mac" }
                                                                : Words{ "hw", "mac" } ) } } )
            .at( "rows" );
   }
   std::map< String, U32 > states() {
      std::map< String, U32 > count;
      for ( auto & row : show( "mac" ) ) {
         ++count[row["state"]];
      }
      return count;
   }

   Kiv::VirtualScheduler scheduler_;
   Kiv::LogRecorder logs_;
   SoftChip::Chip chip_;
   std::optional< QonAgent::Agent > agent_;
};

TEST_F( SoftMac, BucketsFillUpAndOverflowComesInWhenThereIsRoom ) {
   std::vector< String > lines;
   for ( U32 n = 0; n < 12; ++n ) {
      lines.push_back( add( n ) );
   }
   play( lines );
   scheduler_.runFor( 1 );
   U32 overflow = programmer().overflowAddrOps();
   ASSERT_GE( overflow, 4u ); // eight places for twelve
   EXPECT_EQ( table().entries().size() + overflow, 12u );
   EXPECT_EQ( states(), ( std::map< String, U32 >{ { "overflow", overflow },
                                                   { "programmed", 12 - overflow } } ) );
   for ( auto & row : show( "mac" ) ) {
      if ( row["state"] == "overflow" ) {
         EXPECT_NEAR( row["nextRetry"].get< double >(), 4.5, 0.6 );
         EXPECT_EQ( row["reason"], "no room in the chip's table" );
      }
   }
   play( { R"("event": "mac", "op": "flushAll")" } );
   scheduler_.runFor( 100 );
   EXPECT_EQ( table().entries().size(), overflow - programmer().overflowAddrOps() );
   for ( auto && [key, cmd] : programmer().overflowAddrOp() ) {
      EXPECT_FALSE( table().hasRoom( key ) );
   }
}

class SoftMacFlush : public SoftMac {
 protected:
   SoftMacFlush() : SoftMac( { 64, 8, 8, 0.001 } ) {}
};

TEST_F( SoftMacFlush, EveryKindOfFlushTakesItsOwn ) {
   struct {
      const char * flush;
      std::vector< U32 > left;
   } cases[] = {
         { R"("op": "flushAll")", { 4 } },
         { R"("op": "flushPort", "intf": "Ethernet1")", { 2, 3, 4 } },
         { R"("op": "flushLag", "intf": "Port-Channel3")", { 1, 2, 4, 5 } },
         { R"("op": "flushVlan", "vlan": 10)", { 4, 5 } },
         { R"("op": "flushVlan", "vlan": 11)", { 1, 2, 3, 4 } },
         { R"("op": "flushVlanPort", "vlan": 11, "intf": "Ethernet1")", { 1, 2, 3, 4 } },
         { R"("op": "flushVlanLag", "vlan": 10, "intf": "Port-Channel3")", { 1, 2, 4, 5 } },
         { R"("op": "flushPortType", "intf": "Ethernet1", "type": "configuredStatic")",
           { 1, 2, 3, 5 } },
         { R"("op": "flushVlanPortType", "vlan": 10, "intf": "Ethernet2", "type": "drop")",
           { 1, 2, 3, 4, 5 } },
   };
   for ( auto & c : cases ) {
      play( { add( 1 ), add( 2, "Ethernet2" ), add( 3, "Port-Channel3" ),
              add( 4, "Ethernet1", R"(, "type": "configuredStatic")" ),
              R"("event": "mac", "op": "add", "mac": "02:11:22:00:00:05", "vlan": 11, )"
              R"("intf": "Ethernet1")" } );
      scheduler_.runFor( 0.5 );
      play( { String( R"("event": "mac", )" ) + c.flush } );
      scheduler_.runFor( 0.5 );
      std::vector< U32 > left;
      for ( auto & row : show( "hw mac" ) ) {
         left.push_back( row["mac"].get< String >().back() - '0' );
      }
      std::sort( left.begin(), left.end() );
      EXPECT_EQ( left, c.left ) << c.flush;
   }
}

TEST_F( SoftMac, TroubleByPlanIsGotOverOrShown ) {
   play( { R"("event": "fault", "hook": "writeToHw", "trouble": "busy", "call": 2, "times": 2)",
           R"("event": "fault", "hook": "writeToHw", "trouble": "parity", "call": 5)",
           R"("event": "fault", "hook": "writeToHw", "trouble": "lose", "call": 8)",
           R"("event": "fault", "table": "hostTable", "limit": 3)", add( 1 ), add( 2 ),
           add( 3 ) } );
   scheduler_.runFor( 2 );
   std::set< String > places;
   for ( auto & row : show( "hw mac" ) ) {
      places.insert( row["place"].get< String >() );
   }
   EXPECT_EQ( places.size(), 3u ) << "each entry has a place of its own";
   play( { add( 4 ) } ); // full by the plan's limit
   scheduler_.runFor( 1 );
   EXPECT_EQ( states()["overflow"], 1u );
   play( { mac( "remove", 4 ) } ); // the eighth call
   scheduler_.runFor( 3 );
   EXPECT_EQ( states()["in flight"], 1u ); // and stays so
   play( { mac( "remove", 4 ), R"("event": "fault", "clear": true)" } );
   scheduler_.runFor( 1 );
   EXPECT_EQ( programmer().inProgAddrOps(), 0u );
   EXPECT_EQ( programmer().checkInvariants(), "" );
}

TEST_F( SoftMac, EveryFractionOfASecondComesToItsLine ) {
   std::vector< String > lines;
   for ( U32 n = 0; n < 200; ++n ) {
      lines.push_back( "\"time\": " + Kiv::toText( 0.00007 * n ) + ", " + add( 1 ) );
   }
   play( lines ); // must end
   EXPECT_EQ( table().entries().size(), 1u );
}

TEST_F( SoftMac, ALineThatIsWrongIsRefusedBeforeAnythingHappens ) {
   struct {
      const char * line;
      const char * error;
   } cases[] = {
         { R"("event": "mac")", "field 'op' is missing" },
         { R"("event": "mac", "op": "learn")", "no operation 'learn'; there are: add, remove, " },
         { R"("event": "mac", "op": "remove", "mac": "02:11:22:00:00:01")",
           "field 'vlan' is missing" },
         { R"("event": "mac", "op": "flushVlan", "vlan": 4095)",
           "field 'vlan': expected a VLAN from 1 to 4094, found 4095" },
         { R"("event": "mac", "op": "flushVlan", "vlan": "ten")",
           "field 'vlan': expected a whole" },
         { R"("event": "mac", "op": "remove", "mac": "zz", "vlan": 1)", "zz" },
         { R"("event": "fault", "trouble": "busy")", "expected one of the fields hook, table" },
         { R"("event": "fault", "hook": "writeToHw", "trouble": "fire")", "fire" },
   };
   for ( auto & c : cases ) {
      try {
         play( { add( 1 ), c.line } );
         ADD_FAILURE() << "accepted: " << c.line;
      } catch ( const Velto::RangeError & e ) {
         EXPECT_NE( String( e.what() ).find( "events.jsonl:2: " ), String::npos ) << e.what();
         EXPECT_NE( String( e.what() ).find( c.error ), String::npos ) << e.what();
      }
   }
   scheduler_.runFor( 1 );
   EXPECT_EQ( show( "mac" ).size(), 0u );
}

TEST_F( SoftMac, ALearningStormEndsWithWhatFits ) {
   Kiv::Rng random( 5 );
   auto & plan = chip_.faults();
   plan.add( { "writeToHw", Trouble::busy, 0, 0, 100 } );
   plan.add( { "writeToHw", Trouble::parity, 0, 0, 50 } );
   std::map< MacEntryKey, MacCmdPtr > newest;
   for ( U32 i = 0; i < 20000; ++i ) {
      auto key = macKey( random() % 60, 1 + random() % 3, Qon::MacHwType( random() % 2 ) );
      auto type = random() % 3 ? CmdType::addHost : CmdType::removeHost;
      programmer().handleAddrOp( newest[key] = macCmd( type, key ) );
      if ( random() % 50 == 0 ) {
         scheduler_.runFor( random() % 100 * 0.001 );
         ASSERT_EQ( programmer().checkInvariants(), "" );
      }
   }
   scheduler_.runFor( 200 );
   plan.clear();
   scheduler_.runFor( 100.3 );
   U32 held = 0;
   for ( auto & [key, cmd] : newest ) {
      bool in = table().entry( key );
      held += in;
      bool wanted = cmd->type() == CmdType::addHost;
      bool waits = programmer().overflowAddrOpHas( key ) || programmer().inProgAddrOpHas( key );
      EXPECT_EQ( in || waits, wanted ) << cmd->stringValue();
      EXPECT_FALSE( waits && table().hasRoom( key ) ) << cmd->stringValue();
   }
   EXPECT_EQ( held, table().entries().size() );
   EXPECT_FALSE( programmer().suspendPending() );
}

// A full queue is the chip's last defence: this class paces itself before that.
TEST( HostTable, AFullQueueAnswersBusyLater ) {
   Kiv::VirtualScheduler scheduler;
   SoftChip::FaultPlan plan;
   struct : SoftChip::HostTable::Hook {
      void done( U64 id, U32, Status status ) override { answers.push_back( { id, status } ); }
      std::vector< std::pair< U64, Status > > answers;
   } hook;
   auto & answers = hook.answers;
   auto table = Velto::make< SoftChip::HostTable >(
         scheduler.timerWheel(), SoftChip::HostTableShape{ 4, 2, 2, 0.5 }, plan );
   table->hook.is( &hook );
   for ( U64 id : { 1, 2, 3 } ) {
      table->start( { id, CmdType::addHost, macKey( id ), {}, {} } );
   }
   EXPECT_TRUE( answers.empty() );
   scheduler.runFor( 2 );
   std::pair< U64, Status > first( 1, Status::macProgramSuccess ),
         refused( 3, Status::macProgramBusy ), second( 2, Status::macProgramSuccess );
   EXPECT_EQ( answers, ( std::vector{ first, refused, second } ) );
}

// The chip goes on with what an agent handed over that has gone, and the next agent is no wiser.
TEST_F( SoftMac, AnAgentThatComesUpOverTheSameChipFindsItAsItWas ) {
   std::vector< String > lines;
   for ( U32 n = 0; n < 8; ++n ) {
      lines.push_back( add( n ) ); // as many as the queue takes
   }
   play( lines );
   programmer().handleAddrOp( macCmd( CmdType::addHost, macKey( 100 ) ) );
   scheduler_.runFor( 0.0001 );
   ASSERT_GT( table().queued(), 0u );
   agent_.reset();
   start();
   programmer().handleAddrOp( macCmd( CmdType::addHost, macKey( 101 ) ) );
   scheduler_.runFor( 1 );
   EXPECT_TRUE( table().entry( macKey( 100 ) ) || !table().hasRoom( macKey( 100 ) ) );
   EXPECT_TRUE( table().entry( macKey( 101 ) ) || !table().hasRoom( macKey( 101 ) ) );
   EXPECT_EQ( programmer().inProgAddrOps(), 0u );
   EXPECT_EQ( programmer().checkInvariants(), "" );
}

TEST( FaultPlan, CountsCallsOfEachHookAndRepeatsItself ) {
   auto run = []( U32 seed ) {
      SoftChip::FaultPlan plan;
      plan.hookIs( "a" );
      plan.hookIs( "b" );
      plan.seedIs( seed );
      plan.add( { "a", Trouble::fail, 3, 2 } );
      plan.add( { "a", Trouble::busy, 0, 0, 300 } );
      String told;
      for ( U32 i = 0; i < 40; ++i ) {
         EXPECT_FALSE( plan.next( "b" ) );
         auto trouble = plan.next( "a" );
         told += !trouble ? '.' : *trouble == Trouble::fail ? 'F' : 'b';
      }
      return told;
   };
   EXPECT_EQ( run( 1 ).substr( 2, 2 ), "FF" );
   EXPECT_EQ( run( 1 ).find( 'F', 4 ), String::npos );
   EXPECT_NE( run( 1 ).find( 'b' ), String::npos );
   EXPECT_EQ( run( 1 ), run( 1 ) );
   EXPECT_NE( run( 1 ), run( 2 ) );
}

} // namespace
