// Sums over slices, the log of drops, and interfaces that are disabled for them.

#include "platform/Kiv/Listener.h"
#include "tests/stormcontrol/StormWorld.h"

namespace {

using namespace StormTests;
using Qon::StormControl::Drops;

class StormDrops : public testing::Test, public FirstWorld {
 protected:
   void SetUp() override {
      config->counterPeriodIs( 1 );
      dropSm = Qon::StormControlDropSmIs(
            { config, status, slices, drops, acsd, scheduler.timerWheel() } );
      errdisable = Qon::StormControlErrdisableSmIs( { config, status, causes, disabled, acsd } );
   }
   void go() {
      dropSm->initializedIs( true );
      start();
      errdisable->initializedIs( true );
   }
   void dropped( const char * slice, U32 port, U64 broadcasts, U64 all = 0 ) {
      Drops d;
      d.broadcastDropIs( broadcasts );
      d.allDropIs( all );
      d.allDropOctsIs( 64 * all );
      d.uucastCpuDropIs( broadcasts / 2 );
      slices->sliceIs( slice )->intfStatusIs( eth( port ) )->dropsIs( d );
   }
   U64 sum( U32 port ) const { return drops->allIntfStatus( eth( port ) ).drops().broadcastDrop(); }
   Calls logged() {
      Calls texts;
      for ( auto & record : logs.records() ) {
         texts.push_back( record.text );
      }
      logs.clear();
      return texts;
   }
   bool isDisabled( U32 port ) const { return disabled->intfStatusHas( eth( port ) ); }
   void TearDown() override { EXPECT_EQ( dropSm ? dropSm->checkInvariants() : "", "" ); }

   Ptr< Errdisable::CauseConfig > causes = Velto::make< Errdisable::CauseConfig >( "causes" );
   Ptr< Errdisable::CauseStatus > disabled =
         Velto::make< Errdisable::CauseStatus >( "storm-control" );
   Ptr< Qon::StormControlDropSm > dropSm;
   Ptr< Qon::StormControlErrdisableSm > errdisable;
};

constexpr U64 large = U64( 5 ) << 32;
const char discards[] = "Storm Control discarded packets on Interface ";

TEST_F( StormDrops, SumsFollowSlicesThatComeAndGo ) {
   dropped( "A", 1, 10 );
   drops->allIntfStatusIs( eth( 1 ), Qon::StormControl::AllDrops( Drops(), 7 ) ); // left behind
   drops->allIntfStatusIs( eth( 9 ), Qon::StormControl::AllDrops( Drops(), 8 ) );
   go();
   EXPECT_FALSE( drops->allIntfStatusHas( eth( 9 ) ) );
   dropped( "B", 1, large );
   dropped( "A", 1, 12 );
   dropped( "A", 2, 3 );
   EXPECT_EQ( sum( 1 ), large + 12 );
   slices->slice( "A" )->intfStatusDel( eth( 1 ) );
   EXPECT_EQ( sum( 1 ), large );
   dropped( "A", 1, 1 );
   slices->sliceDel( "B" );
   EXPECT_EQ( sum( 1 ), 1u );
   dropped( "B", 1, 5 ); // counts afresh
   EXPECT_EQ( sum( 1 ), 6u );
   dropped( "B", 1, 2 ); // and was cleared
   EXPECT_EQ( sum( 1 ), 3u );
   slices->sliceDel( "A" );
   slices->sliceDel( "B" );
   EXPECT_EQ( drops->allIntfStatuss(), 0u );
}

TEST_F( StormDrops, ASliceThatIsAnotherOneAndARestCountOnce ) {
   go();
   dropped( "A", 1, 10 );
   dropSm->initializedIs( false );
   dropped( "A", 1, 11 );
   dropped( "B", 1, 5 );
   slices->sliceDel( "A" );
   dropped( "A", 1, 100 );
   dropped( "A", 2, 1 );
   EXPECT_EQ( sum( 1 ), 10u );
   dropSm->initializedIs( true );
   EXPECT_EQ( sum( 1 ), 105u );
   EXPECT_EQ( sum( 2 ), 1u );
}

TEST_F( StormDrops, CountersReachTheStatusEveryPeriod ) {
   go();
   broadcast( eth( 1 ), 100 );
   dropped( "A", 1, large, 3 );
   EXPECT_EQ( statusOf( eth( 1 ) )->broadcastDrop(), 0u );
   scheduler.runFor( 1 );
   EXPECT_EQ( statusOf( eth( 1 ) )->broadcastDrop(), large );
   EXPECT_EQ( statusOf( eth( 1 ) )->allDropOcts(), 192u );
   EXPECT_EQ( statusOf( eth( 1 ) )->uucastCpuDrop(), large / 2 );
   config->counterPeriodIs( 0 );
   dropped( "A", 1, large + 1 );
   EXPECT_EQ( scheduler.nextTime(), Kiv::never );
   config->counterPeriodIs( 10 );
   status->intfStatusDel( eth( 1 ) ); // by somebody else: the clock goes on
   scheduler.runFor( 10 );
   EXPECT_NE( scheduler.nextTime(), Kiv::never );
   status->intfStatusIs( eth( 1 ) );
   scheduler.runFor( 10 );
   EXPECT_EQ( statusOf( eth( 1 ) )->broadcastDrop(), large + 1 );
}

TEST_F( StormDrops, DropsAreLoggedEveryIntervalWhereLoggingIsEnabled ) {
   of( eth( 10 ) )->dropLoggingIs( true );
   of( eth( 2 ) )->dropLoggingIs( true );
   of( eth( 5 ) )->dropLoggingIs( true ); // without drops
   of( eth( 6 ) );                        // without logging
   of( po( 1 ) )->dropLoggingIs( true );
   member( 3, 1 );
   config->dropLoggingIntervalIs( 5 );
   go();
   dropped( "A", 10, large );
   dropped( "B", 10, 1, 4 );
   dropped( "A", 2, 0, 7 );
   dropped( "A", 3, 8 );
   dropped( "A", 5, 0 );
   dropped( "A", 6, 6 );
   scheduler.runFor( 4.9 );
   EXPECT_EQ( logged(), Calls{} );
   const Calls expected = {
         String( discards ) + "Ethernet2: UUcast 0, Broadcast 0, Multicast 0, All 7",
         String( discards ) + "Ethernet3: UUcast 0, Broadcast 8, Multicast 0, All 0",
         String( discards ) + "Ethernet10: UUcast 0, Broadcast 21474836481, Multicast 0, All 4" };
   scheduler.runFor( 0.2 );
   EXPECT_EQ( logged(), expected );
   scheduler.runFor( 5 );
   EXPECT_EQ( logged(), expected ) << "as long as there are drops";
   config->dropLoggingIs( true ); // of all that have a machine
   dropped( "A", 7, 1 );
   scheduler.runFor( 5 );
   EXPECT_EQ( logged().size(), 4u );
   config->intfDelAll(); // nobody has one
   scheduler.runFor( 5 );
   EXPECT_EQ( logged(), Calls{} );
}

TEST_F( StormDrops, TheIntervalCountsFromTheNextFiring ) {
   config->dropLoggingIntervalIs( 5 );
   go();
   EXPECT_EQ( dropSm->syslogTime(), Kiv::never ) << "nobody asks for it";
   of( eth( 1 ) )->dropLoggingIs( true );
   EXPECT_EQ( dropSm->syslogTime(), scheduler.time() + 5 );
   scheduler.runFor( 1 );
   config->dropLoggingIntervalIs( 20 );
   EXPECT_EQ( dropSm->syslogTime(), scheduler.time() + 4 );
   scheduler.runFor( 4 );
   EXPECT_EQ( dropSm->syslogTime(), scheduler.time() + 20 );
   config->dropLoggingIntervalIs( 0 );
   EXPECT_EQ( dropSm->syslogTime(), Kiv::never );
   config->dropLoggingIntervalIs( 3 );
   noConfig( eth( 1 ) );
   EXPECT_EQ( dropSm->syslogTime(), Kiv::never );
   config->dropLoggingIs( true );
   EXPECT_EQ( dropSm->syslogTime(), scheduler.time() + 3 );
}

TEST_F( StormDrops, ALogThatRaisesCostsNoOtherInterfaceItsMessage ) {
   struct Sink : Kiv::LogSink {
      void message( const Kiv::LogDescriptor &, const String & text ) override {
         texts.push_back( text );
         if ( texts.size() == 1 ) {
            throw Velto::RangeError( "log" );
         }
      }
      Calls texts;
   } sink;
   config->dropLoggingIntervalIs( 5 );
   for ( U32 port : { 1, 2 } ) {
      of( eth( port ) )->dropLoggingIs( true );
      dropped( "A", port, 1 );
   }
   go();
   auto former = Kiv::logSinkIs( &sink );
   EXPECT_THROW( scheduler.runFor( 5 ), Velto::RangeError );
   EXPECT_EQ( sink.texts.size(), 2u );
   EXPECT_EQ( dropSm->syslogTime(), scheduler.time() + 5 );
   Kiv::logSinkIs( former );
}

// --- Errdisable ----------------------------------------------------------------------------------

TEST_F( StormDrops, ARiseDisablesAnInterfaceOnce ) {
   causes->enabledIs( "storm-control" );
   broadcast( eth( 1 ), 100 );
   dropped( "A", 1, 50 );
   go();
   scheduler.runFor( 3 );
   EXPECT_FALSE( isDisabled( 1 ) ) << "what was dropped before is no rise";
   dropped( "A", 1, 51 );
   scheduler.runFor( 1 );
   EXPECT_TRUE( isDisabled( 1 ) );
   const double since = disabled->intfStatus( eth( 1 ) );
   dropped( "A", 1, 52 );
   scheduler.runFor( 1 );
   EXPECT_EQ( disabled->intfStatus( eth( 1 ) ), since );
   disabled->intfStatusDel( eth( 1 ) ); // recovered
   scheduler.runFor( 3 );
   EXPECT_FALSE( isDisabled( 1 ) );
   dropped( "A", 1, 0 ); // cleared
   scheduler.runFor( 1 );
   EXPECT_FALSE( isDisabled( 1 ) );
   dropped( "A", 1, 0, 1 ); // of another kind
   scheduler.runFor( 1 );
   EXPECT_TRUE( isDisabled( 1 ) );
}

TEST_F( StormDrops, OtherSlicesAreNoRise ) {
   causes->enabledIs( "storm-control" );
   broadcast( eth( 1 ), 100 );
   go();
   dropped( "A", 1, 10 );
   scheduler.runFor( 2 );
   dropped( "B", 1, 100 ); // comes with what it counted
   scheduler.runFor( 2 );
   slices->sliceDel( "B" );
   scheduler.runFor( 2 );
   dropped( "B", 1, 100 );
   scheduler.runFor( 2 );
   slices->sliceDel( "A" );
   slices->sliceDel( "B" );
   dropped( "B", 1, 300 ); // within one period
   scheduler.runFor( 2 );
   EXPECT_FALSE( isDisabled( 1 ) );
   dropped( "B", 1, 301 );
   scheduler.runFor( 1 );
   EXPECT_TRUE( isDisabled( 1 ) );
}

TEST_F( StormDrops, ItTakesTheCauseAndAConfiguration ) {
   broadcast( po( 1 ), 500 );
   member( 1, 1 );
   go();
   dropped( "A", 1, 1 );
   scheduler.runFor( 2 );
   dropped( "A", 1, 2 );
   scheduler.runFor( 2 );
   EXPECT_FALSE( isDisabled( 1 ) ) << "the cause is not enabled";
   causes->enabledIs( "storm-control" );
   scheduler.runFor( 2 );
   EXPECT_FALSE( isDisabled( 1 ) ) << "the past does not count";
   dropped( "A", 1, 3 );
   scheduler.runFor( 2 );
   EXPECT_TRUE( isDisabled( 1 ) ) << "by its port-channel's configuration";
   disabled->intfStatusDelAll();
   auto kept = status->intfStatusIs( eth( 2 ) ); // a status without one
   kept->dropsComparableIs( true );
   kept->uucastDropIs( 5 );
   EXPECT_FALSE( isDisabled( 2 ) );
   errdisable->initializedIs( false );
   dropped( "A", 1, 9 );
   scheduler.runFor( 2 );
   errdisable->initializedIs( true );
   scheduler.runFor( 2 );
   EXPECT_FALSE( isDisabled( 1 ) );
}

TEST_F( StormDrops, ASliceThatGoesWhileAnotherBeginsTakesItsPart ) {
   go();
   dropped( "A", 1, 10 );
   dropped( "B", 1, 5 );
   Kiv::Listener< Qon::StormControl::DropStatus::lastReportersAttr > watch(
         drops.ptr(), [&] { slices->sliceDel( "A" ); } );
   dropped( "C", 1, 1 );
   EXPECT_EQ( sum( 1 ), 6u );
}

} // namespace
