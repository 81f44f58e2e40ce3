// Watchers of what the MAC programmer writes, hooks, and messages that end it, or raise.

#include "tests/harness/Sabotage.h"
#include "tests/mac/FakeChip.h"

namespace {

using namespace Tests;
using enum Qon::MacProgramStatus;

TEST( MacSabotage, OfTheProgrammer ) {
   Tests::sabotage( []( Saboteur & saboteur ) {
      MacWorld w;
      std::vector< MacCmdPtr > commands = { addHost( 1 ), addHost( 2 ), flushAll(), addHost( 1 ) };
      for ( auto & cmd : commands ) {
         saboteur.watches( { cmd.ptr() } );
      }
      saboteur.drops( w.chip );
      auto step = [&]( auto && act ) {
         saboteur.does( [&] {
            if ( const auto chip = w.chip ) { // whoever calls it holds it
               act( *chip );
            }
         } );
      };
      step( [&]( FakeChip & chip ) { chip.handleAddrOp( commands[0] ); } );
      step( [&]( FakeChip & chip ) { chip.handleFlushOp( commands[2] ); } );
      step( [&]( FakeChip & chip ) { chip.handleAddrOp( commands[1] ); } );
      saboteur.does( [&] { w.scheduler.settle(); } );
      step( [&]( FakeChip & chip ) { chip.handleAddrOp( commands[3] ); } ); // a newer wish
      for ( auto status : { macProgramBusy, macProgramFull, macProgramSuccess } ) {
         for ( auto & cmd : commands ) {
            step( [&]( FakeChip & chip ) { chip.answer( cmd, status ); } );
         }
         saboteur.does( [&] { w.scheduler.runFor( 0.11 ); } ); // the clocks call it
         saboteur.does( [&] { w.scheduler.runFor( 5 ); } );
      }
      saboteur.ends( [&] {
         for ( U32 i = 0; i < 20 && !w.chip->atRest(); ++i ) { // the chip does all of it now
            for ( auto walk = w.chip->inProgMacOpIteratorConst(); walk; ++walk ) {
               w.chip->answer( MacCmdPtr( walk.value() ), macProgramSuccess );
            }
            w.scheduler.runFor( 6 );
         }
         const String broken = w.chip->checkInvariants();
         return !broken.empty() || w.chip->atRest() ? broken : String( "it does not come to rest" );
      } );
   } );
}

} // namespace
