// The worked example: a TCAM that answers late, twice, out of order, never.

#include "tests/async/SoftTcam.h"
#include "platform/Kiv/Listener.h"
#include "platform/Kiv/Rng.h"
#include "tests/harness/World.h"

namespace {

using namespace Tests;
using SoftChip::Route;
using SoftChip::SoftTcam;
using SoftChip::SoftTcamHelper;
using SoftChip::SoftTcamSm;

Ulnet::IpGenPrefix
prefix( U32 n ) {
   return Ulnet::IpGenPrefix( "10.0." + std::to_string( n ) + ".0/24" );
}

Route
version( U32 n, U64 id, bool remove = false ) {
   Route route;
   route.prefixIs( prefix( n ) );
   route.qonVersionIdIs( Qon::QonPdVersionId( id ) );
   route.removeIs( remove );
   return route;
}

/** Writes acknowledgements down: "1" was handed over, "1!" failed, "(1)" was skipped. */
class AckEar {
 public:
   explicit AckEar( Qon::Ack::QonRouteAckSmConfig * acks ) {
      passed_.attach( acks, [=, this] {
         auto & route = acks->nextRouteToPassToPd();
         heard.push_back( route.qonVersionId().stringValue() + ( route.nack() ? "!" : "" ) );
      } );
      skipped_.attach( acks, [=, this] {
         heard.push_back( "(" + acks->skippedPdRoute().qonVersionId().stringValue() + ")" );
      } );
   }
   std::vector< String > heard;

 private:
   using Acks = Qon::Ack::QonRouteAckSmConfig;
   Kiv::Listener< Acks::nextRouteToPassToPdAttr > passed_;
   Kiv::Listener< Acks::skippedPdRouteAttr > skipped_;
};

class Tcam : public ::testing::Test {
 protected:
   Tcam() {
      tcam->latencyIs( Kiv::never );
      sm->initializedIs( true );
   }
   ~Tcam() override { sm->checkInvariants(); }
   /** Lets what is due happen. */
   void pace() { world.scheduler.runFor( 0.02 ); }
   using Heard = std::vector< String >;

   World world;
   Velto::Ptr< SoftTcamHelper > helper = Velto::make< SoftTcamHelper >();
   Velto::Ptr< SoftTcam > tcam = SoftChip::SoftTcamIs( helper, 100 );
   Velto::Ptr< Qon::Ack::QonRouteAckSmConfig > acks =
         Velto::make< Qon::Ack::QonRouteAckSmConfig >( 0, Ulnet::AddressFamily::ipv4 );
   AckEar ear{ acks.ptr() };
   Velto::Ptr< SoftTcamSm > sm = SoftChip::SoftTcamSmIs( world.acsd, tcam, helper, acks );
};

TEST_F( Tcam, OneAtATimeByPriorityAndPacedByTheClock ) {
   for ( U32 n : { 1, 2, 3 } ) {
      sm->routeIs( version( n, n ) );
   }
   EXPECT_EQ( 0u, tcam->pending().size() ); // not inside the request
   world.scheduler.settle();
   ASSERT_EQ( 1u, tcam->pending().size() );
   EXPECT_EQ( "10.0.1.0/24", sm->reqKey() );
   EXPECT_EQ( Qon::AsyncOperationState::asyncWaiting, sm->asyncState() );
   tcam->finish( 0 );
   world.scheduler.settle();
   EXPECT_EQ( 0u, tcam->pending().size() ); // the next has its time
   for ( U32 n : { 2, 3 } ) {
      pace();
      ASSERT_EQ( prefix( n ), tcam->pending()[0].route.prefix() );
      tcam->finish( 0 );
   }
   EXPECT_EQ( ear.heard, ( Heard{ "1", "2", "3" } ) );
   EXPECT_EQ( 0u, helper->sequences() );
}

TEST_F( Tcam, CompletionInsideTheCallAndAfterALatency ) {
   tcam->latencyIs( 0 );
   EXPECT_FALSE( helper->asyncTcamOperationsSupported() );
   sm->routeIs( version( 1, 1 ) );
   world.scheduler.settle();
   EXPECT_EQ( ear.heard, Heard{ "1" } );
   tcam->latencyIs( 0.5 );
   for ( U32 n : { 2, 3, 4 } ) {
      sm->routeIs( version( n, n ) );
   }
   world.scheduler.runFor( 1.5 + 0.02 );
   EXPECT_EQ( ear.heard, ( Heard{ "1", "2", "3", "4" } ) );
   EXPECT_EQ( 4u, tcam->entries() );
}

TEST_F( Tcam, AWaitingVersionIsReplacedAndReportedAsSkipped ) {
   sm->routeIs( version( 1, 1 ) );
   pace(); // version 1 is in flight
   for ( U64 id : { 2, 3, 3, 4 } ) {
      sm->routeIs( version( 1, id ) );
   }
   sm->routeIs( version( 2, 9 ) );
   EXPECT_EQ( 2u, sm->waiting() );
   tcam->finish( 0 );
   pace();
   tcam->finish( 0 );
   EXPECT_EQ( ear.heard, ( Heard{ "1", "(2)", "(3)", "(3)", "4" } ) );
   EXPECT_EQ( Qon::QonPdVersionId( 4 ), tcam->version( prefix( 1 ) ) );
   pace();
   tcam->finish( 0 );
   EXPECT_EQ( "9", ear.heard.back() );
}

TEST_F( Tcam, AFailureIsANackAndTheNextGoesOn ) {
   sm->routeIs( version( 1, 1 ) );
   sm->routeIs( version( 2, 2 ) );
   pace();
   tcam->finish( 0, "parity" );
   pace();
   tcam->finish( 0 );
   EXPECT_EQ( ear.heard, ( Heard{ "1!", "2" } ) );
   EXPECT_FALSE( tcam->has( prefix( 1 ) ) );
}

TEST_F( Tcam, AFullTableRefusesUntilARouteGoes ) {
   auto small = SoftChip::SoftTcamIs( helper, 1 );
   auto other = SoftChip::SoftTcamSmIs( world.acsd, small, helper, acks );
   other->initializedIs( true );
   other->routeIs( version( 1, 1 ) );
   other->routeIs( version( 2, 2 ) );
   other->routeIs( version( 1, 3 ) );
   world.scheduler.runFor( 1 );
   other->routeIs( version( 1, 4, true ) );
   other->routeIs( version( 2, 5 ) );
   world.scheduler.runFor( 1 );
   EXPECT_EQ( ear.heard, ( Heard{ "(1)", "3", "2!", "4", "5" } ) );
   EXPECT_EQ( 1u, small->entries() );
   other->checkInvariants();
}

TEST_F( Tcam, NoAnswerIsTriedAgainAndGivenUpAtLast ) {
   sm->routeIs( version( 1, 1 ) );
   pace();
   U32 firstPriority = tcam->pending()[0].priority;
   world.scheduler.runFor( 59.0 );
   EXPECT_EQ( 1u, tcam->pending().size() );
   world.scheduler.runFor( 1.5 );
   ASSERT_EQ( 2u, tcam->pending().size() ); // tried again, with numbers of its own
   EXPECT_LT( tcam->pending()[1].priority, firstPriority );
   EXPECT_EQ( 65534, tcam->pending()[1].sequence );
   EXPECT_TRUE( ear.heard.empty() );
   world.scheduler.runFor( 200 );
   EXPECT_EQ( 3u, tcam->pending().size() );
   EXPECT_EQ( ear.heard, Heard{ "1!" } );
   EXPECT_EQ( Qon::AsyncOperationState::asyncNone, sm->asyncState() );
}

TEST_F( Tcam, ResultsThatComeLateOrTwiceOrInAnotherOrderCountOnce ) {
   sm->routeIs( version( 1, 1 ) );
   pace();
   world.scheduler.runFor( 60.5 ); // the first try is late
   ASSERT_EQ( 2u, tcam->pending().size() );
   auto first = tcam->pending()[0], second = tcam->pending()[1];
   tcam->finish( 0 ); // late, while the second try is in flight
   EXPECT_TRUE( ear.heard.empty() );
   EXPECT_EQ( Qon::AsyncOperationState::asyncWaiting, sm->asyncState() );
   tcam->finish( 0 );
   EXPECT_EQ( ear.heard, Heard{ "1" } );

   sm->routeIs( version( 1, 2 ) ); // the key starts its numbers again
   pace();
   ASSERT_EQ( first.sequence, tcam->pending()[0].sequence );
   helper->report( first, "late" ); // same key and number, another operation
   helper->report( second, "" );
   EXPECT_EQ( ear.heard, Heard{ "1" } );
   tcam->finish( 0 );
   helper->report( second, "" ); // with nothing in flight
   EXPECT_EQ( ear.heard, ( Heard{ "1", "2" } ) );
}

TEST_F( Tcam, AnOldOperationThatTheChipAppliesLateChangesNothing ) {
   sm->routeIs( version( 1, 1 ) );
   pace();
   sm->routeIs( version( 1, 2, true ) );
   world.scheduler.runFor( 60.5 ); // version 1 timed out; the removal took its place
   ASSERT_EQ( 2u, tcam->pending().size() );
   tcam->finish( 1 );
   EXPECT_EQ( ear.heard, ( Heard{ "(1)", "2" } ) );
   tcam->finish( 0 );
   EXPECT_FALSE( tcam->has( prefix( 1 ) ) );
   EXPECT_EQ( ear.heard, ( Heard{ "(1)", "2" } ) );
}

TEST_F( Tcam, ResultsOfOneMomentAreAllHeard ) {
   tcam->latencyIs( 0 );
   sm->requestIntervalIs( 0 );
   for ( U32 n = 1; n <= 50; ++n ) {
      sm->routeIs( version( n, n ) );
   }
   world.scheduler.settle();
   EXPECT_EQ( 50u, ear.heard.size() );
}

TEST_F( Tcam, UnderRandomFaultsEveryVersionIsAcknowledgedOnceInOrder ) {
   Kiv::Rng random( 7 );
   auto below = [&]( U32 n ) { return U32( random() ) % n; };
   std::map< U32, U64 > asked;
   U64 id = 0;
   for ( int step = 0; step < 3000; ++step ) {
      U32 what = below( 10 );
      U32 started = U32( tcam->pending().size() );
      if ( what < 4 ) {
         U32 n = 1 + below( 6 );
         asked[n] = ++id;
         sm->routeIs( version( n, id, below( 4 ) == 0 ) );
      } else if ( what < 7 && started ) {
         tcam->finish( below( started ), below( 5 ) ? "" : "fault" );
      } else if ( what == 7 && started ) {
         below( 2 ) ? tcam->lose( below( started ) )
                    : helper->report( tcam->pending()[below( started )], "" );
      } else {
         world.scheduler.runFor( below( 10 ) ? 0.02 : 61 );
      }
      sm->checkInvariants();
   }
   while ( world.scheduler.runFor( 1 ), sm->waiting() || !sm->reqKey().empty() ) {
      while ( !tcam->pending().empty() ) {
         tcam->finish( 0 );
      }
   }
   EXPECT_EQ( id, ear.heard.size() );
   std::map< String, int > times;
   for ( String text : ear.heard ) {
      std::erase_if( text, []( char c ) { return c < '0' || c > '9'; } );
      EXPECT_EQ( 1, ++times[text] );
   }
   EXPECT_EQ( id, times.size() );
}

} // namespace
