// Watchers of what both generations write that end them, or raise; and hooks that raise.

#include "tests/harness/Sabotage.h"
#include "tests/vlanmapping/PipelineWorld.h"

namespace {

using namespace VlanMappingTests;
using Tests::Saboteur;

void
change( Saboteur & saboteur, VlanMappingWorld & w, const std::function< void() > & settle ) {
   auto does = [&]( const std::function< void() > & step ) {
      saboteur.does( [&] {
         step();
         settle();
      } );
   };
   for ( Direction d : { in, out } ) {
      does( [&] { w.wants( flow, po( 1 ), d, 10, 210 ); } );
      does( [&] { w.wants( cli, po( 1 ), d, 10, 110 ); } );
      does( [&] { w.wants( cli, eth( 2 ), d, 20, 120 ); } );
      does( [&] {
         w.config->switchIntfConfigIs( po( 1 ) )->nativeVlanIs( d, Bridging::VlanIdOrNone( 7 ) );
      } );
   }
   does( [&] { w.member( 1, 2 ); } );
   does( [&] { w.flowConfig->vlanXlateIntfConfigDel( po( 1 ) ); } );
   does( [&] { w.wants( cli, po( 1 ), in, 10, 111 ); } );
   does( [&] { w.moves( 1, 2, 2 ); } );
   does( [&] { w.member( 2, 2, false ); } );
}

/** Of the first generation, by directories or by hooks. */
void
sabotageFirst( bool graceful ) {
   Tests::sabotage( [=]( Saboteur & saboteur ) {
      VlanMappingWorld w;
      w.chip.graceful = graceful;
      w.wants( cli, eth( 1 ), in, 5, 105 );
      w.member( 1, 1 );
      saboteur.watches( { w.acsd.ptr(), w.ingConfig.ptr(), w.egrConfig.ptr(), w.intfSets.ptr(),
                          w.lagMemberStatus.ptr() } );
      saboteur.drops( [&] { w.sm = nullptr; } );
      saboteur.does( [&] { w.start(); } );
      change( saboteur, w, [] {} );
      saboteur.does( [&] {
         w.ingStatus->vlanMappingStatusIs( PortVlanKey( eth( 1 ), 10, 0 ), { Status::success, 0 } );
      } );
      saboteur.does( [&] { w.config->switchIntfConfigDel( po( 1 ) ); } );
      saboteur.ends( [&] {
         w.sm->handleVerify();
         return w.acsd->verifyData()->verifyInc() ? String( "the directories differ" )
                                                  : w.sm->checkInvariants();
      } );
   } );
}

TEST( VlanMappingSabotage, OfTheDirectories ) {
   sabotageFirst( true );
}

TEST( VlanMappingSabotage, OfWhatGoesWithTheHooks ) {
   sabotageFirst( false );
}

TEST( VlanMappingSabotage, OfThePipeline ) {
   for ( bool slices : { false, true } ) {
      Tests::sabotage( [&]( Saboteur & saboteur ) {
         PipelineWorld w;
         w.wants( cli, eth( 1 ), in, 5, 105 );
         saboteur.watches( { w.platform.ptr(), w.sourceStatus.ptr(), w.interlock.ptr() } );
         saboteur.drops( [&] { w.sm2 = nullptr; } );
         saboteur.does( [&] { w.startPipeline( slices ); } );
         saboteur.does( [&] { w.scheduler.settle(); } );
         saboteur.does( [&] { w.status->readyIs( true ); } );
         change( saboteur, w, [&] {
            for ( U32 n : { 1, 2 } ) {
               const IntfId lag = w.acsd->portToLag( eth( n ) );
               lag ? w.portToLag->portToLagIs( eth( n ), lag )
                   : w.portToLag->portToLagDel( eth( n ) );
            }
         } );
         saboteur.does( [&] { w.mode( po( 1 ), Mode::flow ); } );
         saboteur.does( [&] { w.config->switchIntfConfigDel( po( 1 ) ); } );
         saboteur.ends( [&] { return w.sm2->checkInvariants(); } );
      } );
   }
}

TEST( VlanMappingSabotage, AHookThatRaisesIsAskedAgain ) {
   VlanMappingWorld w;
   w.member( 1, 1 );
   w.member( 1, 2 );
   w.start();
   w.chip.duringAdd = [] { throw Velto::RangeError( "chip" ); };
   EXPECT_THROW( w.wants( cli, po( 1 ), in, 10, 110 ), Velto::RangeError );
   EXPECT_EQ( w.chip.held.size(), 2u );
   w.checkAll();
   w.chip.duringAdd = [&] {
      w.sm = nullptr; // the owner ends inside its own hook
   };
   w.wants( cli, po( 1 ), in, 20, 120 );
   EXPECT_EQ( w.sm, nullptr );
}

} // namespace
