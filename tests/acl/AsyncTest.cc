// A chip that answers later; hooks that change things; what comes while nothing is heard; watchers
// that raise or end the state machine.

#include "tests/acl/LateWorld.h"
#include "tests/harness/Sabotage.h"

namespace {

using namespace AclTests;

TEST( AclLate, PhasesWaitForAnswers ) {
   using Phase = Qon::AclApplyPhase;
   LateWorld w;
   w.start();
   w.settle();
   EXPECT_EQ( w.aclSm->phase(), Phase::prepare );
   EXPECT_EQ( w.chip(), Chip{ "not in force: a( 0, in, default ):" } );
   w.answer();
   EXPECT_EQ( w.aclSm->phase(), Phase::done );
   EXPECT_EQ( w.chip(), Chip{ "a( 0, in, default ): Ethernet1" } );
   w.rule( "a", 10 );
   w.settle();
   EXPECT_EQ( w.aclSm->phase(), Phase::uninstall );
   EXPECT_EQ( w.aclSm->outstandingOperations(), 0u ); // the block comes first
   ASSERT_EQ( w.aclSm->blockIntfsPending().size(), 1u );
   EXPECT_TRUE( w.aclSm->directionSm( ip, in )->intfRemovalWaitForBlocked().has(
         IntfPairKey( intf( "Ethernet1" ), IntfId() ) ) );
   w.table.blockCompletions().finish( 0 );
   w.settle();
   EXPECT_TRUE( w.aclSm->blockIntfsPending().empty() );
   EXPECT_EQ( w.aclSm->outstandingOperations(), 1u );
   w.answerAll();
   EXPECT_EQ( w.table.held().acls.front().rules->rules().size(), 2u );
}

TEST( AclLate, ANumberIsFreeWhenTheUninstallIsDone ) {
   LateWorld w;
   w.start();
   w.answerAll();
   w.detach( "Ethernet1" );
   w.settle();
   EXPECT_EQ( w.aclSm->outstandingOperations(), 1u );
   const auto free = [&] { return w.aclSm->directionSm( ip, in )->numbers()->free(); };
   EXPECT_EQ( free(), 12575u );
   w.list( "b" );
   w.attach( "Ethernet2", "b" ); // which has to wait for the end of the pass
   w.settle();
   EXPECT_EQ( w.table.held().acls.size(), 1u );
   w.answer();
   EXPECT_EQ( w.table.held().acls.front().number, 0u );
   w.answerAll();
   EXPECT_EQ( w.chip(), Chip{ "b( 0, in, default ): Ethernet2" } );
   // An answer that nobody waits for, and one to an older operation.
   w.aclSm->aclStatusUpdateCallback( ip, "b", portKey(), 1, {} );
   w.aclSm->aclStatusUpdateCallback( ip, "c", portKey(), 99, {} );
   EXPECT_EQ( free(), 12575u );
}

TEST( AclLate, WhateverGoesInTheMiddleThePassEnds ) {
   using Step = void ( * )( LateWorld & );
   const Step steps[] = {
         []( LateWorld & w ) { w.listDel( "a" ); },
         []( LateWorld & w ) { w.detach( "Ethernet1" ); },
         []( LateWorld & w ) { w.acsd->intfIs( intf( "Ethernet9" ), true ); },
         []( LateWorld & w ) { w.intfs->type( ip )->directionDel( in ); },
         []( LateWorld & w ) { w.intfs->typeDel( ip ), w.config->typeDel( ip ); },
         []( LateWorld & w ) {
            w.listDel( "a" );
            w.list( "a" );
         },
         []( LateWorld & w ) { w.attach( "Ethernet1", "b" ); },
   };
   for ( bool config : { true, false } ) {
      for ( Step step : steps ) {
         for ( U32 answers = 0; answers < 4; ++answers ) { // of the pass that is interrupted
            LateWorld w( config );
            w.start();
            w.answerAll();
            w.rule( "a", 10 );
            w.settle();
            for ( U32 n = 0; n < answers; ++n ) {
               auto & blocks = w.table.blockCompletions();
               auto & rest = w.table.completions();
               blocks.waiting() ? blocks.finish( 0 ) : rest.waiting() ? rest.finish( 0 ) : void();
               w.settle();
            }
            step( w );
            w.answerAll();
            auto lists = w.config->type( ip );
            const bool there =
                  lists && lists->aclHas( "a" ) && w.intfs->type( ip ) &&
                  w.intfs->type( ip )->direction( in ) &&
                  w.intfs->type( ip )->direction( in )->intf( intf( "Ethernet1" ) ) == "a" &&
                  w.acsd->intfs() == 0;
            EXPECT_EQ( w.chip(), there ? Chip{ "a( 0, in, default ): Ethernet1" } : Chip{} );
         }
      }
   }
}

TEST( AclLate, WhoLeavesWhileAPassWaitsKeepsItsListUntilItIsBlocked ) {
   LateWorld w;
   const IntfId port = intf( "Ethernet2" );
   w.list( "b" );
   w.list( "z" );
   w.attach( "Ethernet5", "z" );
   w.start();
   w.answerAll();
   w.rule( "a", 10 );
   w.settle();
   w.attach( "Ethernet2", "a" ); // the pass takes it along, and the next one looks at it
   w.rule( "z", 10 );
   auto guarded = [&] {
      bool listed = false;
      for ( auto & text : w.chip() ) {
         listed = listed || ( !text.starts_with( "not" ) && text.ends_with( "Ethernet2" ) );
      }
      return listed || w.table.held().blocked.contains( port );
   };
   for ( U32 n = 0; n < 20 && !guarded(); ++n ) {
      w.answer();
   }
   ASSERT_EQ( w.aclSm->phase(), Qon::AclApplyPhase::uninstall );
   ASSERT_EQ( w.aclSm->blockIntfsPending().size(), 1u );
   w.attach( "Ethernet2", "b" );
   while ( w.table.blockCompletions().waiting() || w.table.completions().waiting() ) {
      w.table.blockCompletions().waiting() ? w.table.blockCompletions().finish( 0 )
                                           : w.table.completions().finish( 0 );
      w.settle();
      EXPECT_TRUE( guarded() );
   }
   EXPECT_EQ( w.chip(), ( Chip{ "a( 0, in, default ): Ethernet1", "b( 0, in, default ): Ethernet2",
                                "z( 0, in, default ): Ethernet5" } ) );
}

TEST( AclLate, MembersThatJoinInTheMiddleAreDeferred ) {
   LateWorld w;
   w.attach( "Port-Channel1", "a" );
   w.start();
   w.settle();
   auto sm = w.aclSm->directionSm( ip, in );
   w.members( "Port-Channel1", { "Ethernet3", "Ethernet4" } );
   EXPECT_EQ( sm->deferredMembers(), 2u );
   w.members( "Port-Channel1", { "Ethernet4" } );
   EXPECT_EQ( sm->deferredMembers(), 1u );
   w.answerAll();
   EXPECT_EQ( sm->deferredMembers(), 0u );
   EXPECT_EQ( w.chip(), Chip{ "a( 0, in, default ): Ethernet1 Ethernet4@Port-Channel1" } );
   w.rule( "a", 1 );
   w.settle();
   w.members( "Port-Channel1", { "Ethernet4", "Ethernet5" } );
   EXPECT_EQ( sm->deferredMembers(), 1u );
   w.listDel( "a" );
   EXPECT_EQ( sm->deferredMembers(), 0u );
   w.answerAll();
   EXPECT_EQ( w.chip(), Chip{} );
}

TEST( AclLate, AMemberThatIsBackInTheMiddleStaysBlocked ) {
   LateWorld w;
   w.attach( "Port-Channel1", "a" );
   w.detach( "Ethernet1" );
   w.members( "Port-Channel1", { "Ethernet3" } );
   w.start();
   w.answerAll();
   w.rule( "a", 1 );
   w.settle();
   w.answer(); // blocked; the uninstall is under way
   w.members( "Port-Channel1", {} );
   w.members( "Port-Channel1", { "Ethernet3" } );
   EXPECT_EQ( w.aclSm->directionSm( ip, in )->deferredMembers(), 1u );
   bool open = false;
   w.helper->heard = [&]( const String & ) {
      const Qon::AclIntfUse use( IntfPairKey( intf( "Ethernet3" ), intf( "Port-Channel1" ) ), {} );
      open = open ||
             ( !w.table.blocked( intf( "Ethernet3" ) ) && w.table.deciders( ip, in, use ).empty() );
   };
   w.answerAll();
   w.helper->heard = nullptr;
   EXPECT_FALSE( open );
   EXPECT_EQ( w.chip(), Chip{ "a( 0, in, default ): Ethernet3@Port-Channel1" } );
}

TEST( AclLate, WhatTheChipTellsOfListsThatAreNotThere ) {
   LateWorld w;
   w.start();
   w.answerAll();
   const auto sm = w.sm( "a" )->aclDataSm( portKey() );
   const Qon::AclUnitResults full = { { "Chip0", Qon::AclCreateError::hwResourceFull } };
   auto tell = [&]( AclType type, const String & list, U64 operation ) {
      w.helper->aclStatusUpdateCallback( type, list, portKey(), operation, full );
   };
   tell( ip, "a", sm->operation() ); // what has become of it since
   EXPECT_EQ( w.aclSm->unitError( "Chip0" ), Qon::AclCreateError::hwResourceFull );
   EXPECT_FALSE( sm->status()->unitErrorHas( "Chip1" ) );
   EXPECT_FALSE( sm->failed() ); // it is in force all the same
   tell( ip, "a", sm->operation() - 1 );
   tell( mac, "m", 7 ); // no such list
   EXPECT_EQ( w.aclSm->callbackDataSm( mac ), nullptr );
   w.config->typeDel( ipv6 );
   tell( ipv6, "a", 7 );
   tell( ipv6, "a", 8 );
   tell( ipv6, "b", 9 );
   ASSERT_TRUE( w.aclSm->callbackDataSm( ipv6 ) );
   EXPECT_EQ( w.aclSm->callbackDataSm( ipv6 )->answers(), 2u ); // the last of each
   w.config->typeIs( ipv6 );
   EXPECT_EQ( w.aclSm->callbackDataSm( ipv6 ), nullptr );
   // The type goes while an answer is due: the pass does not wait for the type.
   w.rule( "a", 10 );
   w.settle();
   w.config->typeDel( ip );
   w.intfs->typeDel( ip );
   w.answerAll();
   EXPECT_EQ( w.chip(), Chip{} );
   EXPECT_EQ( w.aclSm->unitError( "Chip0" ), Qon::AclCreateError::success );
}

TEST( AclLate, UnitsGoAndComeBack ) {
   for ( bool late : { false, true } ) {
      LateWorld w;
      w.start();
      w.answerAll();
      const auto status = w.sm( "a" )->aclDataStatus( portKey() );
      w.faults.unitLostIs( "Chip1", true );
      EXPECT_FALSE( status->unitErrorHas( "Chip1" ) );
      w.faults.add( { "prepareAcl", SoftChip::Trouble::full } );
      if ( late ) { // while a pass works on it
         w.rule( "a", 10 );
         w.settle();
      }
      w.faults.unitLostIs( "Chip1", false );
      if ( !late ) {
         EXPECT_EQ( w.aclSm->unitError( "Chip1" ), Qon::AclCreateError::hwResourceFull );
      }
      w.answerAll();
      w.rule( "a", 20 );
      w.answerAll();
      EXPECT_TRUE( w.aclSm->unitErrors().empty() );
      EXPECT_TRUE( status->unitErrorHas( "Chip1" ) );
   }
}

TEST( AclLate, ABlockThatRaisesIsNotWaitedFor ) {
   for ( auto call : { "block Ethernet1", "unblock Ethernet1" } ) {
      LateWorld w;
      w.start();
      w.answerAll();
      bool done = false;
      w.helper->heard = [&]( const String & heard ) {
         if ( heard == call && !std::exchange( done, true ) ) {
            throw Velto::RangeError( "hook" );
         }
      };
      w.rule( "a", 10 );
      U32 raised = 0;
      auto tries = [&]( auto act ) {
         try {
            act();
         } catch ( const Velto::RangeError & ) {
            ++raised;
         }
      };
      for ( U32 n = 0; n < 10; ++n ) {
         tries( [&] { w.scheduler.settle(); } );
         tries( [&] { w.table.completions().finishAll(); } );
         tries( [&] { w.table.blockCompletions().finishAll(); } );
      }
      EXPECT_EQ( raised, 1u ) << call;
      w.answerAll();
      EXPECT_EQ( w.chip(), Chip{ "a( 0, in, default ): Ethernet1" } ) << call;
      w.rule( "a", 20 ); // nor is the next one
      w.answerAll();
      ASSERT_EQ( w.table.held().acls.size(), 1u );
      EXPECT_EQ( w.table.held().acls[0].rules->rules().size(), 3u ) << call;
   }
}

TEST( AclLate, ABlockThatRaisesWhileAnAnswerIsOutIsNotWaitedFor ) {
   LateWorld w;
   w.start();
   w.answerAll();
   w.rule( "a", 10 );
   w.settle();
   w.helper->takeCalls();
   auto unblocks = [&] {
      auto & calls = w.helper->calls;
      return std::count( calls.begin(), calls.end(), "unblock Ethernet1" );
   };
   for ( U32 n = 0; n < 10 && !unblocks(); ++n ) {
      w.answer();
   }
   ASSERT_EQ( unblocks(), 1 ); // asked, and not answered
   w.helper->heard = [&]( const String & call ) {
      if ( call == "block Ethernet1" && std::exchange( w.helper->heard, nullptr ) ) {
         throw Velto::RangeError( "hook" );
      }
   };
   w.rule( "a", 20 );
   EXPECT_THROW( w.scheduler.settle(), Velto::RangeError );
   w.answerAll();
   ASSERT_EQ( w.table.held().acls.size(), 1u );
   EXPECT_EQ( w.table.held().acls[0].rules->rules().size(), 3u ); // and what denies the rest
}

TEST( AclHooks, InterfacesJoinAndLeaveAtOnceUnlessTheChipDefersThat ) {
   for ( bool deferred : { false, true } ) {
      AclWorld w;
      auto limits = w.table.limits();
      limits.deferred = deferred;
      w.table.limitsAre( limits );
      w.list( "a" );
      w.list( "b" );
      w.attach( "Ethernet1", "a" );
      w.attach( "Ethernet2", "b" );
      w.start();
      w.settle();
      w.helper->takeCalls();
      auto calls = [&]( const Calls & expected ) {
         EXPECT_EQ( w.helper->takeCalls(), deferred ? Calls{} : expected );
         w.settle();
         EXPECT_EQ( w.helper->takeCalls(), deferred ? expected : Calls{} );
      };
      w.attach( "Ethernet3", "a" );
      calls( { "on a Ethernet3" } );
      w.attach( "Ethernet3", "b" );
      calls( { "block Ethernet3", "off a Ethernet3", "on b Ethernet3", "unblock Ethernet3" } );
      w.detach( "Ethernet3" );
      calls( { "off b Ethernet3" } );
      // What else changes makes all of it one pass.
      w.rule( "a", 1 );
      w.attach( "Ethernet3", "b" );
      EXPECT_EQ( w.helper->takeCalls(), Calls{} );
      w.settle();
      EXPECT_EQ( w.helper->takeCalls().size(), 7u );
   }
}

TEST( AclHooks, ChangeTheConfigurationInTheMiddle ) {
   for ( auto call : { "block Ethernet1", "uninstall a", "prepare a", "on a Ethernet1", "commit a",
                       "unblock Ethernet1" } ) {
      for ( U32 what = 0; what < 5; ++what ) {
         AclWorld w;
         w.list( "a" );
         w.list( "b" );
         w.attach( "Ethernet1", "a" );
         w.attach( "Ethernet2", "b" );
         w.start();
         w.settle();
         bool done = false;
         w.helper->heard = [&]( const String & heard ) {
            if ( heard != call || std::exchange( done, true ) ) {
               return;
            }
            switch ( what ) {
            case 0:
               return w.listDel( "a" );
            case 1:
               return w.attach( "Ethernet1", "b" );
            case 2:
               return w.rule( "a", 20 );
            case 3:
               return w.aclSm->doApplyAcls( true );
            case 4:
               w.aclSm = nullptr;
            }
         };
         const auto held = w.aclSm.ptr();
         w.rule( "a", 10 );
         w.settle();
         EXPECT_TRUE( done );
         EXPECT_TRUE( held );
         const Chip both = { "a( 0, in, default ): Ethernet1", "b( 0, in, default ): Ethernet2" };
         if ( what == 0 ) {
            EXPECT_EQ( w.chip(), Chip{ "b( 0, in, default ): Ethernet2" } ) << call;
         } else if ( what == 1 ) {
            EXPECT_EQ( w.chip(), Chip{ "b( 0, in, default ): Ethernet1 Ethernet2" } ) << call;
         } else {
            EXPECT_EQ( w.chip(), both ) << call;
         }
         EXPECT_TRUE( w.table.held().blocked.empty() );
      }
   }
}

/** Once in a pass, and once when an interface joins without one. */
TEST( AclHooks, OneThatRaisesLaterIsCalledAgainToo ) {
   AclWorld w;
   w.list( "a" );
   w.attach( "Ethernet1", "a" );
   std::set< String > raising = { "prepare a", "on a Ethernet2", "off a Ethernet2" };
   w.helper->heard = [&]( const String & heard ) {
      if ( raising.erase( heard ) ) {
         throw Velto::RangeError( "hook" );
      }
   };
   w.start();
   EXPECT_THROW( w.settle(), Velto::RangeError );
   w.settle();
   EXPECT_THROW( w.attach( "Ethernet2", "a" ), Velto::RangeError );
   w.settle();
   EXPECT_EQ( w.chip(), Chip{ "a( 0, in, default ): Ethernet1 Ethernet2" } );
   EXPECT_THROW( w.detach( "Ethernet2" ), Velto::RangeError );
   w.settle();
   EXPECT_EQ( w.chip(), Chip{ "a( 0, in, default ): Ethernet1" } );
   EXPECT_TRUE( raising.empty() );
}

TEST( AclHooks, OneThatRaisesIsCalledAgain ) {
   for ( auto call : { "block Ethernet1", "uninstall a", "prepare a", "on a Ethernet1", "commit a",
                       "unblock Ethernet1" } ) {
      AclWorld w;
      w.list( "a" );
      w.list( "b" );
      w.attach( "Ethernet1", "a" );
      w.attach( "Ethernet2", "b" );
      w.start();
      w.settle();
      bool done = false;
      w.helper->heard = [&]( const String & heard ) {
         if ( heard == call && !std::exchange( done, true ) ) {
            throw Velto::RangeError( "hook" );
         }
      };
      w.rule( "a", 10 );
      w.rule( "b", 10 );
      EXPECT_THROW( w.scheduler.settle(), Velto::RangeError );
      w.settle();
      EXPECT_EQ( w.chip(),
                 ( Chip{ "a( 0, in, default ): Ethernet1", "b( 0, in, default ): Ethernet2" } ) )
            << call;
      EXPECT_TRUE( w.table.held().blocked.empty() ) << call;
   }
}

TEST( AclRest, NothingIsHeardAndEverythingMadeGood ) {
   AclWorld w;
   w.list( "a" );
   w.list( "b" );
   w.attach( "Ethernet1", "a" );
   w.attach( "Ethernet2.1", "b" );
   w.vlan( "Ethernet2.1", 10 );
   w.sharing( ip, in, Acl::SharingKind::subIntf, false );
   w.start();
   w.settle();
   w.helper->takeCalls();
   w.aclSm->initializedIs( false );
   w.rule( "a", 10 );
   w.listDel( "b" );
   w.list( "b" );
   w.vlan( "Ethernet2.1", 20 );
   w.acsd->internalVlanIs( intf( "Ethernet3.1" ), 30 );
   w.attach( "Ethernet3.1", "a" );
   w.members( "Port-Channel1", { "Ethernet1" } );
   w.attach( "Port-Channel1", "b" );
   w.scheduler.settle();
   EXPECT_EQ( w.helper->takeCalls(), Calls{} );
   w.aclSm->initializedIs( true );
   w.settle();
   EXPECT_EQ( w.chip(), ( Chip{ "a( 30, in, default ): Ethernet3.1",
                                "b( 0, in, default ): Ethernet1@Port-Channel1",
                                "b( 20, in, default ): Ethernet2.1" } ) );
   EXPECT_EQ( w.table.held().acls[0].rules->rules().size() +
                    w.table.held().acls[1].rules->rules().size() +
                    w.table.held().acls[2].rules->rules().size(),
              4u );
}

TEST( AclSabotage, OfAclSm ) {
   Tests::sabotage( []( Tests::Saboteur & saboteur ) {
      AclWorld w;
      w.list( "a" );
      w.list( "b" );
      w.attach( "Ethernet1", "a" );
      w.attach( "Ethernet2.1", "a" );
      w.vlan( "Ethernet2.1", 20 );
      w.start();
      w.scheduler.settle();
      auto data = Ptr< Qon::AclData >( w.sm( "a" )->aclData( portKey() ) );
      auto status = Ptr< Qon::AclDataStatus >( w.sm( "a" )->aclDataStatus( portKey() ) );
      saboteur.watches( { data.ptr(), status.ptr() } );
      saboteur.drops( w.aclSm );
      auto step = [&]( auto act ) {
         saboteur.does( act );
         saboteur.does( [&] { w.scheduler.settle(); } );
         w.scheduler.settle();
      };
      step( [&] { w.attach( "Ethernet3", "a" ); } );
      step( [&] { w.rule( "a", 10 ); } );
      step( [&] { w.members( "Port-Channel1", { "Ethernet1" } ); } );
      step( [&] { w.attach( "Port-Channel1", "a" ); } );
      step( [&] { w.sharing( ip, in, Acl::SharingKind::subIntf, false ); } );
      step( [&] { w.listDel( "a" ); } );
      saboteur.ends(
            [&] { return !w.chip().empty() ? "something is left" : w.aclSm->checkInvariants(); } );
   } );
}

} // namespace
