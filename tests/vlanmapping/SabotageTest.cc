// Watchers of what both generations write that end them, or raise; and hooks that raise.

#include "tests/harness/Disturbance.h"
#include "tests/vlanmapping/PipelineWorld.h"

namespace {

using namespace VlanMappingTests;
using Tests::Saboteur;

void
change( Saboteur & saboteur, VlanMappingWorld & w, const std::function< void() > & settle ) {
   auto does = [&]( const std::function< void() > & step ) {
      Tests::does( saboteur, [&] {
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
   Tests::disturb( [=]( Saboteur & saboteur, const Tests::Ends & ends ) {
      VlanMappingWorld w;
      Tests::Bell bell;
      w.chip.graceful = graceful;
      w.chip.duringCall = [&] { bell.ring(); };
      w.chip.answers["ingress Ethernet1 40"] = Status::full;
      w.wants( cli, eth( 1 ), in, 5, 105 );
      w.member( 1, 1 );
      saboteur.watches( { w.acsd.ptr(), w.ingConfig.ptr(), w.egrConfig.ptr(), w.intfSets.ptr(),
                          w.lagMemberStatus.ptr(), bell.rope() } );
      saboteur.drops( w.sm );
      saboteur.does( [&] { w.start(); } );
      Tests::does( saboteur,
                   [&] { w.wants( cli, eth( 2 ), in, 10, 111 ); } ); // the same as its group's
      change( saboteur, w, [] {} );
      saboteur.does( [&] {
         w.ingStatus->vlanMappingStatusIs( PortVlanKey( eth( 1 ), 10, 0 ), { Status::success, 0 } );
      } );
      Tests::does( saboteur, [&] { w.wants( flow, po( 1 ), in, 10, 210 ); } );
      saboteur.does( [&] {
         w.ingStatus->vlanMappingStatusIs( PortVlanKey( eth( 1 ), 10, 0 ), { Status::full, 0 } );
      } );
      Tests::does( saboteur, [&] { w.wants( cli, po( 1 ), in, 40, 140 ); } );
      Tests::does( saboteur, [&] { w.member( 1, 1, false ); } );
      const Ptr< ChipSm > sm = w.sm;
      if ( sm ) {
         w.checkAll();
         sm->handleVerify();
         EXPECT_EQ( w.acsd->verifyData()->verifyInc(), 0u ) << "the directories differ";
      }
      String held;
      for ( auto & [name, mapped] : w.chip.held ) {
         held += name + " -> " + Kiv::toText( mapped ) + "\n";
      }
      ends( held + Tests::held( { w.ingConfig.ptr(), w.egrConfig.ptr(), w.intfSets.ptr(),
                                  w.lagMemberStatus.ptr(), w.acsd.ptr() } ) );
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
      Tests::disturb( [&]( Saboteur & saboteur, const Tests::Ends & ends ) {
         PipelineWorld w;
         Tests::Bell bell;
         w.wants( cli, eth( 1 ), in, 5, 105 );
         saboteur.watches( { w.platform.ptr(), w.sourceStatus.ptr(), w.interlock.ptr(),
                             w.merged.ptr(), w.sources.ptr(), w.acsd.ptr(), bell.rope() } );
         saboteur.drops( w.sm2 );
         saboteur.does( [&] { w.startPipeline( slices ); } );
         saboteur.does( [&] { w.scheduler.settle(); } );
         w.scheduler.settle();
         saboteur.does( [&] { w.status->readyIs( true ); } );
         Tests::does( saboteur, [&] { w.native( po( 1 ), in, 10 ); } );
         auto follow = [&] {
            for ( U32 n : { 1, 2 } ) {
               const IntfId lag = w.acsd->portToLag( eth( n ) );
               lag ? w.portToLag->portToLagIs( eth( n ), lag )
                   : w.portToLag->portToLagDel( eth( n ) );
            }
         };
         change( saboteur, w, follow );
         follow();
         Tests::does( saboteur, [&] { w.native( po( 1 ), in, 0 ); } );
         Tests::does( saboteur, [&] { w.joins( 1, 1 ); } );
         follow();
         if ( w.platform->intfVlanMappingConfig( eth( 1 ) ) ) {
            Tests::does( saboteur, [&] { w.answers( eth( 1 ), key( in, 10 ), Status::full ); } );
         }
         Tests::does( saboteur, [&] { w.mode( po( 1 ), Mode::flow ); } );
         Tests::does( saboteur, [&] { w.leaves( 1, 1 ); } );
         follow();
         const String state =
               Tests::held( { w.platform.ptr(), w.sourceStatus.ptr(), w.interlock.ptr(),
                              w.merged.ptr(), w.sources.ptr(), w.acsd.ptr() } );
         if ( w.sm2 ) {
            w.checkPipeline();
         }
         // Three stages watch this: who comes after one that raises hears nothing of it.
         saboteur.does( [&] { w.config->switchIntfConfigDel( po( 1 ) ); } );
         ends( slices ? String() : state );
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

TEST( VlanMappingSabotage, APortWhoseHookAlwaysRaisesCostsNoOtherPort ) {
   VlanMappingWorld w;
   for ( U32 n : { 1, 2, 3 } ) {
      w.member( 1, n );
   }
   w.start();
   auto & chip = w.chip;
   chip.duringCall = [&] {
      if ( chip.calls.back().find( "Ethernet1" ) != String::npos ) {
         throw Velto::RangeError( "chip" );
      }
   };
   EXPECT_THROW( w.wants( cli, po( 1 ), in, 10, 110 ), Velto::RangeError );
   EXPECT_EQ( chip.held,
              ( Held{ { "ingress Ethernet2 10", 110 }, { "ingress Ethernet3 10", 110 } } ) );
   chip.duringCall = nullptr;
   w.wants( cli, po( 1 ), in, 10, 111 );
   EXPECT_EQ( chip.held.size(), 3u );
   w.checkAll();
}

} // namespace
