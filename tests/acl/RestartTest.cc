// The end of a life, and what the next one finds in the chip.

#include "tests/acl/LateWorld.h"

namespace {

using namespace AclTests;

TEST( AclEnd, CleanUpEmptiesTheChipUnlessARestartIsTested ) {
   for ( bool hitless : { false, true } ) {
      AclWorld w;
      Tests::Env env;
      w.list( "a" );
      w.attach( "Ethernet1", "a" );
      w.start();
      w.settle();
      if ( hitless ) {
         env.set( "HITLESS_RESTART_TEST", "" );
      }
      w.aclSm->doCleanup();
      EXPECT_EQ( w.chip().empty(), !hitless );
      w.aclSm = nullptr;
      w.helper = nullptr; // and another agent takes over what is left
      w.helper = Velto::make< Helper >( w.table );
      EXPECT_EQ( w.table.held().acls.size(), hitless ? 1u : 0u );
      w.start();
      w.settle();
      EXPECT_EQ( w.chip(), Chip{ "a( 0, in, default ): Ethernet1" } );
   }
}

TEST( AclEnd, WhatAFormerLifeLeftDecidesUntilNothingWaits ) {
   LateWorld w;
   w.list( "b" );
   w.start();
   w.answerAll();
   w.crash();
   w.start();
   w.settle();
   w.attach( "Ethernet1", "b" ); // in the middle of the first pass
   const Qon::AclIntfUse use( IntfPairKey( intf( "Ethernet1" ), {} ), {} );
   for ( U32 n = 0; n < 12; ++n ) {
      w.settle();
      EXPECT_TRUE( w.table.blocked( intf( "Ethernet1" ) ) ||
                   !w.table.deciders( ip, in, use ).empty() )
            << n;
      auto & blocks = w.table.blockCompletions();
      auto & rest = w.table.completions();
      blocks.waiting() ? blocks.finish( 0 ) : rest.waiting() ? rest.finish( 0 ) : void();
   }
   w.answerAll();
   EXPECT_EQ( w.chip(), Chip{ "b( 0, in, default ): Ethernet1" } );
}

TEST( AclEnd, RestartOverAFullTable ) {
   for ( bool async : { false, true } ) {
      LateWorld w( async );
      const std::map< String, String > lists = {
            { "Ethernet1", "a" }, { "Ethernet2", "b" }, { "Ethernet3", "c" } };
      for ( auto & [port, list] : lists ) {
         w.rule( list, 10 );
         w.rule( list, 20 );
         w.attach( port, list );
      }
      w.start();
      w.answerAll();
      const Chip whole = w.chip();
      EXPECT_EQ( whole.size(), 3u );
      auto limits = w.table.limits();
      limits.entries = w.table.entriesUsed();
      w.table.limitsAre( limits );
      w.crash();
      w.logs.clear();
      w.start();
      for ( U32 n = 0; n < 40; ++n ) { // what is left decides until what is new fits
         w.scheduler.turn();
         for ( auto & [port, list] : lists ) {
            const Qon::AclIntfUse use( IntfPairKey( intf( port ), {} ), {} );
            EXPECT_TRUE( w.table.blocked( intf( port ) ) ||
                         !w.table.deciders( ip, in, use ).empty() )
                  << port << " at " << n;
         }
         auto & rest = w.table.completions();
         rest.waiting() ? rest.finish( 0 ) : w.table.blockCompletions().finishAll();
      }
      w.answerAll();
      EXPECT_EQ( w.chip(), whole );
      EXPECT_EQ( w.table.entriesUsed(), limits.entries );
      EXPECT_EQ( w.aclSm->unitError( "Chip0" ), Qon::AclCreateError::success );
      std::map< String, int > said;
      for ( auto & record : w.logs.records() ) {
         ++said[record.text];
      }
      for ( String chip : { "(Chip0)", "(Chip1)" } ) {
         EXPECT_EQ( said["Hardware resources are insufficient to program all ACLs " + chip], 1 );
         EXPECT_EQ( said["All ACLs are programmed in hardware " + chip], 1 );
      }
      EXPECT_EQ( said.size(), 4u );
   }
}

/** While what is left is about to go, a list that was refused is mended, or its interface gets one that
    is in force: until then that which is left decides. */
TEST( AclEnd, ChangesInTheMiddleOfARestartOverAFullTable ) {
   U32 decided[2] = {};
   for ( U32 run = 0; run < 80; ++run ) {
      const U32 when = run / 4;
      const bool mends = run % 2, late = run & 2;
      LateWorld w( late );
      w.rule( "a", 10 );
      w.rule( "b", 10 );
      w.attach( "Ethernet2", "b" );
      w.start();
      w.answerAll();
      auto limits = w.table.limits();
      limits.asyncBlock = late;
      const U32 used = w.table.entriesUsed();
      limits.entries = mends ? used : used / 2 * 3; // list a fits
      w.table.limitsAre( limits );
      w.crash();
      if ( mends ) {
         w.faults.add( { "prepareAcl", SoftChip::Trouble::fail, 3, 2 } ); // of list b
      }
      w.start();
      const Qon::AclIntfUse use( IntfPairKey( intf( "Ethernet2" ), {} ), {} );
      auto decides = [&] {
         return w.table.blocked( intf( "Ethernet2" ) ) || !w.table.deciders( ip, in, use ).empty();
      };
      bool must = false;
      w.table.changeHeardBy( [&] { EXPECT_TRUE( decides() || !must ) << run; } );
      for ( U32 n = 0; n < 40; ++n ) {
         if ( auto sm = w.sm( "b" )->aclDataSm( portKey() ); n == when && sm->failed() ) {
            must = decides();
            decided[mends] += must;
            mends ? void( w.rule( "b", 10, Acl::RuleAction::deny ) ) : w.attach( "Ethernet2", "a" );
         }
         w.scheduler.turn();
         auto & rest = w.table.completions();
         rest.waiting() ? rest.finish( 0 ) : w.table.blockCompletions().finishAll();
      }
      w.answerAll();
      w.table.changeHeardBy( nullptr );
   }
   EXPECT_GT( decided[0], 2u );
   EXPECT_GT( decided[1], 2u );
}

} // namespace
