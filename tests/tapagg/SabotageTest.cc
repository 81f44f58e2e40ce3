// Watchers that raise or drop the last reference; hooks that raise, end the state machine, or change
// what they were called for.

#include "tests/harness/Sabotage.h"
#include "tests/tapagg/TapAggWorld.h"

namespace {

using namespace TapAggTests;
using Tests::Saboteur;

/** Every kind of change; at its end two taps reach two tools. Of a step in which something raised the
    rest is done, too: what was done is the same again, and silent. */
template< class Does >
void
flow( TapAggWorld & w, Does && does ) {
   auto step = [&]( const std::function< void() > & act ) {
      does( [&] {
         try {
            act();
         } catch ( const Velto::RangeError & ) {
            act();
            throw;
         }
      } );
   };
   step( [&] {
      if ( w.sm ) {
         w.sm->initializedIs( true );
      }
   } );
   step( [&] { w.mode(); } );
   step( [&] { w.config->tcamProfileIs( "short" ); } );
   step( [&] { w.tap( eth( 1 ), "a" )->truncationSizeIs( 5000 ); } );
   step( [&] { w.tool( eth( 11 ), "a" ); } );
   step( [&] { w.pmapGroups->groupIs( "p" ); } );
   step( [&] { w.classMap( "map", "class", "a,c" ); } );
   step( [&] { w.tap( eth( 2 ), "b,a" )->mplsPopIs( true ); } );
   step( [&] { w.join( 1, 5 ); } );
   step( [&] { w.toolPorts->activeIs( eth( 11 ), false ); } );
   step( [&] { w.pmapGroups->groupDel( "p" ); } );
   step( [&] { w.wait( 1.1 ); } );
   step( [&] { w.pmapGroups->groupIs( "q" ); } );
   step( [&] { w.otherMode(); } );
   step( [&] { w.wait( 5.1 ); } );
   step( [&] { w.mode(); } );
   step( [&] { w.join( 1, 6 ); } );
   step( [&] { w.policyMaps->policyMapDel( "map" ); } );
   step( [&] { w.toolPorts->activeDel( eth( 11 ) ); } );
   step( [&] { w.leave( 1, 5 ); } );
   step( [&] { w.wait( 1.1 ); } );
}

void
prepare( TapAggWorld & w ) {
   w.tool( po( 1 ), "b" );
   w.join( 2, 7 );
   w.join( 2, 8 );
   w.pmapStatus->groupNameToIdIs( "stale", 3 );
   w.sm = Qon::smIs< Qon::TapAggSm >( w.inputs() );
}

String
differs( TapAggWorld & w ) {
   if ( String broken = w.broken(); !broken.empty() ) {
      return broken;
   }
   return w.reached( eth( 1 ) ) != "Ethernet11"                            ? "way of Ethernet1"
          : w.reached( eth( 2 ) ) != "Ethernet11 Port-Channel1(Ethernet6)" ? "way of Ethernet2"
          : !w.table.held().taps.at( eth( 2 ) ).mplsPop                    ? "a setting"
          : w.table.held().taps.at( eth( 1 ) ).truncationSize != 1000      ? "a bound"
          : w.sm->portToLags() != 3                                        ? "members"
          : w.table.held().groups.size() != 4                              ? "groups"
          : w.pmapStatus->groupNameToIds() != 1                            ? "published ids"
                                                                           : "";
}

TEST( TapAggSabotage, OfWhatIsPublished ) {
   Tests::sabotage( []( Saboteur & saboteur ) {
      TapAggWorld w;
      prepare( w );
      saboteur.watches( { w.pmapStatus.ptr(), w.requests.ptr() } );
      saboteur.drops( w.sm );
      flow( w, [&]( auto step ) { saboteur.does( step ); } );
      saboteur.ends( [&] { return differs( w ); } );
      w.table.takeRefused();
   } );
}

/** Runs the flow with `act` at each call of it, one after the other. */
template< class Act, class End >
void
atEachCall( U32 groups, Act && act, End && end ) {
   U32 at = 1;
   for ( bool struck = true; struck && !testing::Test::HasFailure(); ++at ) {
      TapAggWorld w( groups );
      prepare( w );
      struck = false;
      U32 calls = 0;
      w.log.during = [&]( const String & ) {
         if ( ++calls == at ) {
            struck = true;
            act( w );
         }
      };
      flow( w, []( auto step ) {
         try {
            step();
         } catch ( const Velto::RangeError & error ) {
            EXPECT_STREQ( error.what(), "hook" );
         }
      } );
      w.log.during = nullptr;
      SCOPED_TRACE( "call " + std::to_string( at ) );
      end( w );
   }
   EXPECT_GT( at, 40u );
}

TEST( TapAggSabotage, HooksThatRaise ) {
   atEachCall(
         64, []( TapAggWorld & ) { throw Velto::RangeError( "hook" ); },
         []( TapAggWorld & w ) {
            EXPECT_EQ( differs( w ), "" );
            w.sm->doCleanup();
            EXPECT_TRUE( w.empty() );
         } );
}

/** Everything goes nevertheless. */
TEST( TapAggSabotage, HooksThatRaiseInTheCleanUp ) {
   bool struck = true;
   for ( U32 at = 1; struck && !testing::Test::HasFailure(); ++at ) {
      TapAggWorld w;
      prepare( w );
      w.join( 1, 5 );
      w.tap( eth( 1 ), "a" )->mplsPopIs( true );
      w.mode();
      w.sm->initializedIs( true );
      struck = false;
      U32 calls = 0;
      w.log.during = [&]( const String & ) {
         if ( ++calls == at ) {
            struck = true;
            throw Velto::RangeError( "hook" );
         }
      };
      SCOPED_TRACE( "call " + std::to_string( at ) );
      try {
         w.sm->doCleanup();
         EXPECT_FALSE( struck );
      } catch ( const Velto::RangeError & ) {
         EXPECT_TRUE( struck );
      }
      EXPECT_TRUE( w.empty() );
      EXPECT_FALSE( w.sm->initialized() );
      EXPECT_TRUE( !struck || at < calls );
   }
}

TEST( TapAggSabotage, HooksThatEndTheStateMachine ) {
   atEachCall(
         64, []( TapAggWorld & w ) { w.sm = nullptr; },
         []( TapAggWorld & w ) {
            w.sm = nullptr; // by the last run, which comes to no call
            w.start();
            EXPECT_EQ( w.reached( eth( 1 ) ), "Ethernet11" );
         } );
}

/** With fewer groups than names, too. */
TEST( TapAggSabotage, HooksThatChangeWhatTheyWereCalledFor ) {
   const std::vector< std::function< void( TapAggWorld & ) > > changes = {
         []( TapAggWorld & w ) {
            w.config->tapPortDel( eth( 2 ) );
            w.tap( eth( 2 ), "b,a" )->mplsPopIs( true );
         },
         []( TapAggWorld & w ) {
            w.otherMode();
            w.mode();
         },
         []( TapAggWorld & w ) {
            w.sm->doCleanup();
            w.sm->initializedIs( false );
            w.sm->initializedIs( true );
         },
         []( TapAggWorld & w ) {
            w.join( 2, 11 );
            w.pmapGroups->groupIs( "q" );
            w.leave( 2, 11 );
         } };
   for ( U32 groups : { 64u, 3u } ) {
      for ( auto & change : changes ) {
         atEachCall( groups, change, [&]( TapAggWorld & w ) {
            if ( !w.sm->initialized() ) {
               w.sm->initializedIs( true );
            }
            if ( w.acsd->operationalMode() != HwOperationalMode::tapAgg ) {
               w.mode();
            }
            w.tap( eth( 2 ), "b,a" )->mplsPopIs( true );
            w.tool( eth( 11 ), "a" );
            w.pmapGroups->groupDel( "q" );
            w.tap( eth( 1 ), "" );
            w.wait( 1.1 );
            w.config->toolPort( eth( 11 ) )->groupDel( "a" );
            w.wait( 1.1 );
            w.tool( eth( 11 ), "a" );
            EXPECT_EQ( w.broken(), "" );
            EXPECT_EQ( w.reached( eth( 2 ) ), "Ethernet11 Port-Channel1(Ethernet6)" );
         } );
      }
   }
}

} // namespace
