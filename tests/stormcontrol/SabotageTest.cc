// Watchers of what the state machines of storm control write that end them, or raise.

#include "tests/harness/Disturbance.h"
#include "tests/stormcontrol/StormWorld.h"

namespace {

using namespace StormTests;
using Tests::Saboteur;

/** Every kind of change, with both planes; the ports end with what they were last told. */
template< class World >
void
flow( Saboteur & saboteur, const Tests::Ends & ends, World & w,
      std::initializer_list< const Kiv::Entity * > entities ) {
   Tests::Bell bell;
   auto before = w.notes().during;
   w.notes().during = [&]( const String & call ) {
      bell.ring();
      if ( before ) {
         before( call );
      }
   };
   w.config->counterPeriodIs( 1 );
   w.config->aggregateTcIs( 1 )->thresholdIs( kbps( 1 ) );
   w.broadcast( eth( 1 ), 100 );
   w.broadcast( po( 1 ), 500 );
   w.broadcast( intf( "Ethernet1.5" ), 5 );
   w.member( 2, 1 );
   w.status->intfStatusIs( eth( 9 ) );
   saboteur.watches( entities );
   saboteur.watches( { bell.rope() } );
   saboteur.drops( w.sm );
   saboteur.does( [&] { w.start(); } );
   Tests::does( saboteur, [&] { w.phy( 1 ); } );
   Tests::does( saboteur, [&] { w.config->aggregateTcIs( 2 )->thresholdIs( kbps( 2 ) ); } );
   Tests::does( saboteur, [&] { w.of( eth( 1 ) )->multicastLevelIs( kbps( 3 ) ); } );
   Tests::does( saboteur, [&] { w.broadcast( po( 1 ), 600 ); } );
   Tests::does( saboteur, [&] { w.member( 1, 1 ); } );
   Tests::does( saboteur, [&] { w.member( 2, 0 ); } );
   Tests::does( saboteur, [&] { w.phys->intfStatus( eth( 1 ) )->activeIs( false ); } );
   Tests::does( saboteur, [&] { w.phys->intfStatus( eth( 1 ) )->activeIs( true ); } );
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
   if ( w.sm ) {
      EXPECT_EQ( w.sm->checkInvariants(), "" );
   }
   String told;
   for ( auto & [what, how] : w.notes().told ) {
      told += what + ": " + how + "\n";
   }
   for ( U32 port = 1; port <= 3; ++port ) {
      told += w.sm && w.sm->bcastSkipped( eth( port ) ) ? "skipped\n" : "not skipped\n";
   }
   for ( auto entity : entities ) {
      told += Tests::held( { entity } );
   }
   EXPECT_TRUE( !w.sm || w.told( 1 ) == "600 kbps at 10000000 of Port-Channel1" ) << told;
   saboteur.does( [&] {
      if ( w.sm ) {
         w.sm->doCleanup();
      }
   } );
   EXPECT_TRUE( !w.sm || w.free( 1 ) );
   for ( auto entity : entities ) {
      told += Tests::held( { entity } );
   }
   ends( told );
   w.notes().during = nullptr;
}

TEST( StormSabotage, OfTheFirstGeneration ) {
   Tests::disturb( []( Saboteur & saboteur, const Tests::Ends & ends ) {
      FirstWorld w;
      flow( saboteur, ends, w, { w.status.ptr() } );
   } );
}

TEST( StormSabotage, OfTheSecondGeneration ) {
   Tests::disturb( []( Saboteur & saboteur, const Tests::Ends & ends ) {
      SecondWorld w;
      // A chip that answers at once.
      w.notes().during = [&]( const String & call ) {
         if ( call.starts_with( "Ethernet" ) && call.find( ": " ) != String::npos ) {
            const U32 port = U32( call[8] - '0' );
            w.answer( port, w.version( port ) );
         }
      };
      flow( saboteur, ends, w, { w.status.ptr(), w.platformConfig.ptr() } );
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
      saboteur.drops( sm );
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
      saboteur.drops( sm );
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
