// The simulation of this build: seeds without a failure, and the tool itself.

#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include "platform/Velto/Assert.h"

#include "simulation/Run.h"

namespace Sim {
namespace {

U32
number( const char * variable, U32 standard ) {
   const char * text = std::getenv( variable );
   return text ? U32( std::atoi( text ) ) : standard;
}

/** How many seeds this build has the time for; QON_SIM_SEEDS and QON_SIM_STEPS say otherwise. */
U32
seedsOfBuild() {
#if defined( __SANITIZE_ADDRESS__ )
   return number( "QON_SIM_SEEDS", 10 );
#else
   return number( "QON_SIM_SEEDS", sizeof( void * ) == 8 ? 200 : 40 );
#endif
}

/** Every tenth seed, so that the parts run at the same time. */
class SeedsTest : public testing::TestWithParam< U32 > {};

TEST_P( SeedsTest, Hold ) {
   Plan plan;
   for ( plan.seed = 1 + GetParam(); plan.seed <= seedsOfBuild(); plan.seed += 10 ) {
      Outcome outcome = simulate( plan, number( "QON_SIM_STEPS", 20000 ) );
      ASSERT_FALSE( outcome.finding ) << "seed " << plan.seed << ", step " << outcome.steps << ": "
                                      << outcome.finding.feature << ": " << outcome.finding.what;
   }
}

INSTANTIATE_TEST_SUITE_P( Seeds, SeedsTest, testing::Range( 0u, 10u ) );

TEST( SimulationTest, SameSeedSameTranscript ) {
   Plan plan;
   Outcome first = simulate( plan, 3000 );
   auto elsewhere = std::make_unique< char[] >( 12345 ); // other addresses
   Outcome second = simulate( plan, 3000 );
   Outcome replayed = replay( historyOf( plan, 3000 ) );
   EXPECT_EQ( first.transcript, second.transcript );
   EXPECT_EQ( first.transcript, replayed.transcript );
   plan.seed = 2;
   EXPECT_NE( first.transcript, simulate( plan, 3000 ).transcript );
}

TEST( SimulationTest, HistoryFileKeepsAll ) {
   History history = historyOf( { 5, { "verify" }, { "fail writeToHw 3" } }, 200 );
   String path = testing::TempDir() + std::to_string( getpid() ) + ".history.txt";
   history.write( path );
   History again = History::read( path );
   EXPECT_EQ( again.plan.seed, 5u );
   EXPECT_EQ( again.plan.features, history.plan.features );
   EXPECT_EQ( again.plan.faults, history.plan.faults );
   EXPECT_EQ( again.events, history.events );
}

TEST( SimulationTest, FilesThatAreNoHistorySayWhereAndWhy ) {
   String path = testing::TempDir() + std::to_string( getpid() ) + ".no-history.txt";
   struct Case {
      String text, said;
   };
   for ( auto & c : { Case{ "hello\n", ":1: expected \"qon-sim history 1\"" },
                      Case{ "qon-sim history 1\nsed 1\n", ":2: expected seed, features" },
                      Case{ "qon-sim history 1\nevents\nworld turn\n", ":3: too few numbers" },
                      Case{ "qon-sim history 1\nevents\nmac ad 1\n", ":3: no operation \"ad\"" },
                      Case{ "qon-sim history 1\nseed 1\n", "no line \"events\"" } } ) {
      std::ofstream( path ) << c.text;
      try {
         History::read( path );
         ADD_FAILURE() << c.text;
      } catch ( const Velto::RangeError & error ) {
         EXPECT_THAT( error.what(), testing::HasSubstr( c.said ) );
      }
   }
}

/** A damage that a run cannot miss, in the middle of much else. */
History
damaged() {
   History history = historyOf( { 3, { "damage", "mac", "verify" }, {} }, 300 );
   history.events.insert( history.events.begin() + 200, Event::parsed( "damage finding 0" ) );
   return history;
}

TEST( SimulationTest, MinimizesToWhatTheFailureNeeds ) {
   History history = damaged();
   Outcome outcome = judge( history );
   ASSERT_TRUE( outcome.finding );
   EXPECT_EQ( outcome.steps, 201u );
   History small = minimize( history );
   ASSERT_EQ( small.events.size(), 1u );
   EXPECT_EQ( small.events[0].text(), "damage finding 0" );
   EXPECT_EQ( replay( small ).finding.key(), outcome.finding.key() );
}

TEST( SimulationTest, DeathsAndHangsAreFindingsToo ) {
   struct Case {
      String event, key;
   };
   for ( auto & c : { Case{ "damage assertion 0", "fatal: Assertion '!\"damaged\"' failed." },
                      Case{ "damage exception 0", "exception: damaged" },
                      Case{ "damage leak 0", "world: memory" },
                      Case{ "damage endless 0", "world: no end" } } ) {
      History history{ { 1, { "damage" }, {} }, { Event::parsed( c.event ) } };
      EXPECT_EQ( judge( history ).finding.key(), c.key );
   }
}

} // namespace
} // namespace Sim
