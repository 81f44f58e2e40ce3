// The simulation of this build: seeds without a failure, and the tool itself.

#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/simulation/Run.h"

namespace Sim {
namespace {

U32
number( const char * variable, U32 standard ) {
   const char * text = std::getenv( variable );
   return text ? U32( std::atoi( text ) ) : standard;
}

TEST( SimulationTest, SeedsHold ) {
   Plan plan;
   U32 seeds = number( "QON_SIM_SEEDS", 200 );
   for ( ; plan.seed <= seeds; ++plan.seed ) {
      Outcome outcome = simulate( plan, number( "QON_SIM_STEPS", 20000 ) );
      ASSERT_FALSE( outcome.finding ) << "seed " << plan.seed << ", step " << outcome.steps << ": "
                                      << outcome.finding.key() << ": " << outcome.finding.what;
   }
}

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
   String path = testing::TempDir() + "history.txt";
   history.write( path );
   History again = History::read( path );
   EXPECT_EQ( again.plan.seed, 5u );
   EXPECT_EQ( again.plan.features, history.plan.features );
   EXPECT_EQ( again.plan.faults, history.plan.faults );
   EXPECT_EQ( again.events, history.events );
}

} // namespace
} // namespace Sim
