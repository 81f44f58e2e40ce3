// Watchers of what the state machines of storm control write that end them, or raise.

#include "tests/harness/Sabotage.h"
#include "tests/stormcontrol/StormWorld.h"

namespace {

using namespace StormTests;
using Tests::Saboteur;

/** Every kind of change, with both planes; the ports end with what they were last told. */
template< class World >
void
flow( Saboteur & saboteur, World & w, std::initializer_list< const Kiv::Entity * > entities ) {
   w.config->counterPeriodIs( 1 );
   w.config->aggregateTcIs( 1 )->thresholdIs( kbps( 1 ) );
   w.broadcast( eth( 1 ), 100 );
   w.broadcast( po( 1 ), 500 );
   w.broadcast( intf( "Ethernet1.5" ), 5 );
   w.member( 2, 1 );
   w.status->intfStatusIs( eth( 9 ) );
   saboteur.watches( entities );
   saboteur.drops( [&] { w.sm = nullptr; } );
   saboteur.does( [&] { w.start(); } );
   saboteur.does( [&] { w.phy( 1 ); } );
   saboteur.does( [&] { w.of( eth( 1 ) )->multicastLevelIs( kbps( 3 ) ); } );
   saboteur.does( [&] { w.broadcast( po( 1 ), 600 ); } );
   saboteur.does( [&] { w.member( 1, 1 ); } );
   saboteur.does( [&] { w.member( 2, 0 ); } );
   saboteur.does( [&] { w.phys->intfStatus( eth( 1 ) )->activeIs( false ); } );
   saboteur.does( [&] { w.phys->intfStatus( eth( 1 ) )->activeIs( true ); } );
   Qon::StormControl::Drops dropped;
   dropped.allDropIs( 3 );
   dropped.multicastCpuDropIs( 4 );
   w.drops->allIntfStatusIs( eth( 1 ), Qon::StormControl::AllDrops( dropped, 1 ) );
   saboteur.does( [&] { w.scheduler.runFor( 1 ); } );
   saboteur.does( [&] { w.scheduler.runFor( 2 ); } );
   saboteur.does( [&] { w.config->aggregateTcDel( 1 ); } );
   saboteur.does( [&] { w.broadcast( eth( 3 ), 300 ); } );
   saboteur.does( [&] { w.noConfig( intf( "Ethernet1.5" ) ); } );
   saboteur.does( [&] { w.noConfig( eth( 3 ) ); } );
   saboteur.ends( [&] {
      String wrong = w.sm->checkInvariants();
      return !wrong.empty()                                           ? wrong
             : w.told( 1 ) != "600 kbps at 10000000 of Port-Channel1" ? "level: " + w.told( 1 )
             : !w.free( 2 ) || !w.free( 3 )                           ? "limits are left"
             : w.status->aggregateTcStatuss()                         ? "a class is left"
             : w.statusOf( eth( 9 ) )                                 ? "an orphan is left"
                                                                      : "";
   } );
   saboteur.does( [&] {
      if ( w.sm ) {
         w.sm->doCleanup();
      }
   } );
   EXPECT_TRUE( w.free( 1 ) || !w.sm );
}

TEST( StormSabotage, OfTheFirstGeneration ) {
   Tests::sabotage( []( Saboteur & saboteur ) {
      FirstWorld w;
      flow( saboteur, w, { w.status.ptr() } );
   } );
}

TEST( StormSabotage, OfTheSecondGeneration ) {
   Tests::sabotage( []( Saboteur & saboteur ) {
      SecondWorld w;
      // A chip that answers at once.
      w.notes().during = [&]( const String & call ) {
         if ( call.find( " Broadcast: " ) != String::npos ) {
            const U32 port = U32( call[8] - '0' );
            w.answer( port, w.version( port ) );
         }
      };
      flow( saboteur, w, { w.status.ptr(), w.platformConfig.ptr() } );
   } );
}

TEST( StormSabotage, OfDropSums ) {
   Tests::sabotage( []( Saboteur & saboteur ) {
      FirstWorld w;
      auto drop = [&]( const char * slice, U32 port, U64 count ) {
         Qon::StormControl::Drops d;
         d.allDropIs( count );
         w.slices->sliceIs( slice )->intfStatusIs( eth( port ) )->dropsIs( d );
      };
      drop( "A", 1, 1 );
      w.drops->allIntfStatusIs( eth( 9 ), Qon::StormControl::AllDrops() );
      auto sm = Qon::StormControlDropSmIs(
            { w.config, w.status, w.slices, w.drops, w.acsd, w.scheduler.timerWheel() } );
      saboteur.watches( { w.drops.ptr() } );
      saboteur.drops( [&] { sm = nullptr; } );
      saboteur.does( [&] { sm->initializedIs( true ); } );
      saboteur.does( [&] { drop( "B", 1, 5 ); } );
      saboteur.does( [&] { drop( "A", 1, 2 ); } );
      saboteur.does( [&] { drop( "A", 2, 7 ); } );
      saboteur.does( [&] { w.slices->slice( "A" )->intfStatusDel( eth( 1 ) ); } );
      saboteur.does( [&] { w.slices->sliceDel( "A" ); } );
      saboteur.ends( [&] { return sm->checkInvariants(); } );
   } );
}

TEST( StormSabotage, OfErrdisable ) {
   Tests::sabotage( []( Saboteur & saboteur ) {
      FirstWorld w;
      auto causes = Velto::make< Errdisable::CauseConfig >( "causes" );
      auto disabled = Velto::make< Errdisable::CauseStatus >( "storm-control" );
      causes->enabledIs( "storm-control" );
      auto sm = Qon::StormControlErrdisableSmIs( { w.config, w.status, causes, disabled, w.acsd } );
      for ( U32 port = 1; port <= 4; ++port ) {
         w.of( eth( port ) );
         w.status->intfStatusIs( eth( port ) )->dropsComparableIs( true );
      }
      saboteur.watches( { disabled.ptr() } );
      saboteur.drops( [&] { sm = nullptr; } );
      sm->initializedIs( true );
      for ( U32 port = 1; port <= 4; ++port ) {
         saboteur.does( [&] { w.statusOf( eth( port ) )->allDropIs( 1 ); } );
      }
      saboteur.ends( [&] {
         return disabled->intfStatuss() == 4 ? String() : "not all of them are disabled";
      } );
   } );
}

} // namespace
