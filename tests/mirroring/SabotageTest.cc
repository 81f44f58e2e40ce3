// Watchers that raise or drop the last reference, hooks that raise, and hooks that change what they
// were called for.

#include "tests/harness/Sabotage.h"
#include "tests/mirroring/MirrorWorld.h"

namespace {

using namespace MirrorTests;
using Tests::Saboteur;

/** A flow through every part of a session. */
void
flow( MirrorWorld & w, const std::function< void( const std::function< void() > & ) > & does ) {
   does( [&] { w.sm->initializedIs( true ); } );
   does( [&] { w.hwStatus->reconciledIs( true ); } );
   does( [&] { w.source( "a", 13, Direction::both ); } );
   does( [&] { w.join( 1, 5 ); } );
   does( [&] { w.acl( "list" )->versionIs( 3 ); } );
   does( [&] { w.hwStatus->sessionIs( "a" )->aclStatusIs( eth( 12 ), {} ); } );
   does( [&] {
      w.hwStatus->sessionIs( "a" )->aclStatusIs( eth( 12 ), QonTypes::TableAddStatus::full );
   } );
   does( [&] { w.mode->forwardingModeIs( Bridging::ForwardingMode::cutThrough ); } );
   does( [&] { w.session( "a" )->truncateIs( true ); } );
   does( [&] { w.session( "t" )->tunnelIs( {} ); } );
   does( [&] { w.session( "t", 7 ); } );
   does( [&] { w.leave( 1, 5 ); } );
   does( [&] { w.config->sessionDel( "a" ); } );
   does( [&] { w.capability->maxSupportedSessionsIs( 3 ); } );
   does( [&] { w.session( "d" )->targetIntfDel( eth( 4 ) ); } );
   does( [&] { w.config->sessionDel( "t" ); } );
   does( [&] { w.session( "c", 3 ); } );
   does( [&] { w.session( "d", 4 ); } );
}

void
prepare( MirrorWorld & w ) {
   w.capability->maxSupportedSessionsIs( 2 );
   w.helper->maxUni = 2;
   w.acl( "list" );
   w.join( 1, 6 );
   w.resolve( "10.0.0.1", 20 );
   w.session( "a", 1 )->targetIntfIs( po( 1 ) );
   w.source( "a", 11, Direction::tx );
   w.filter( "a", 12, "list" );
   w.session( "t" )->tunnelIs( w.gre() );
   w.source( "t", 14 );
   w.session( "c", 3 );
   w.session( "d", 4 );
   w.source( "d", 15, Direction::both );
   w.sm = Qon::MirroringSmIs( { w.acsd, w.config, w.capability, w.status, w.helper, w.hwStatus,
                                w.acls, w.tunnels, w.mode, w.phy, nullptr } );
}

/** Sessions and ports in hardware are those of a run that nobody disturbed. */
String
differs( MirrorWorld & w ) {
   if ( String broken = w.broken(); !broken.empty() ) {
      return broken;
   }
   auto & held = w.helper->held;
   for ( auto & [name, port] : std::map< String, U32 >{ { "c", 3 }, { "d", 4 } } ) {
      auto status = w.status->session( name );
      if ( held[name].targets != std::set{ eth( port ) } || !status || !status->createdInHw() ||
           status->programmedSrcs() != held[name].sources.size() ) {
         return name + " is wrong";
      }
   }
   return held.size() == 2 ? "" : "a session is left";
}

TEST( MirrorSabotage, OfMirroringSm ) {
   Tests::sabotage( []( Saboteur & saboteur ) {
      MirrorWorld w;
      prepare( w );
      saboteur.watches( { w.acsd.ptr(), w.status.ptr() } );
      saboteur.drops( w.sm );
      flow( w, [&]( auto & step ) { saboteur.does( step ); } );
      saboteur.ends( [&] { return differs( w ); } );
   } );
}

/** Each call of the flow raises once. */
TEST( MirrorSabotage, OfHooks ) {
   for ( U32 at = 1, calls = at; calls >= at; ++at ) {
      MirrorWorld w;
      prepare( w );
      calls = 0;
      w.helper->onCall = [&]( const String & ) {
         if ( ++calls == at ) {
            throw Velto::RangeError( "hook" );
         }
      };
      flow( w, []( auto & step ) {
         try {
            step();
         } catch ( const Velto::RangeError & ) {
         }
      } );
      EXPECT_EQ( w.broken(), "" ) << "call " << at;
      w.helper->onCall = nullptr;
      w.sm->doCleanup();
      EXPECT_EQ( w.acsd->freeMirrorSessions(), 3u ) << "call " << at;
      EXPECT_EQ( w.status->sessions(), 0u );
      w.helper->misuse.clear(); // a removal that raised counts as done
      ASSERT_GT( calls, 20u );
   }
}

/** A hook that takes everything away, and puts it back, in whatever call. */
TEST( MirrorSabotage, HooksThatChangeWhatTheyWereCalledFor ) {
   U32 at = 1;
   for ( U32 calls = at; calls >= at; ++at ) {
      MirrorWorld w;
      prepare( w );
      calls = 0;
      w.helper->onCall = [&]( const String & ) {
         if ( ++calls == at ) {
            w.config->sessionDelAll();
            w.leave( 1, 6 );
            w.sm->initializedIs( false );
            w.sm->initializedIs( true );
            w.session( "d", 4 );
            w.source( "d", 15, Direction::both );
            w.join( 1, 6 );
            w.session( "c", 3 );
         }
      };
      flow( w, []( auto & step ) { step(); } );
      w.helper->onCall = nullptr;
      w.config->sessionDel( "a" );
      w.config->sessionDel( "t" );
      EXPECT_EQ( differs( w ), "" ) << "call " << at;
   }
   EXPECT_GT( at, 20u );
}

/** The last reference goes in whatever call, or question. */
TEST( MirrorSabotage, HooksThatEndTheStateMachine ) {
   for ( bool asked : { false, true } ) {
      U32 at = 0, calls = 0;
      do {
         ++at;
         MirrorWorld w;
         prepare( w );
         calls = 0;
         auto drop = [&] {
            if ( ++calls == at ) {
               w.sm = nullptr;
            }
         };
         if ( asked ) {
            w.helper->onAsked = drop;
         } else {
            w.helper->onCall = [&]( const String & ) { drop(); };
         }
         flow( w, [&]( auto & step ) {
            if ( w.sm ) {
               step();
            }
         } );
         EXPECT_EQ( w.helper->mirroringSm() == nullptr, !w.sm );
      } while ( calls >= at );
      EXPECT_GT( at, 20u );
   }
}

/** Each question that the chip is asked raises once; nothing that is over a limit stays. */
TEST( MirrorSabotage, OfQuestions ) {
   for ( U32 at = 1, calls = at; calls >= at; ++at ) {
      MirrorWorld w;
      prepare( w );
      w.source( "d", 16, Direction::both );
      calls = 0;
      w.helper->onAsked = [&] {
         if ( ++calls == at ) {
            throw Velto::RangeError( "question" );
         }
      };
      auto quietly = []( const std::function< void() > & step ) {
         try {
            step();
         } catch ( const Velto::RangeError & ) {
         }
      };
      flow( w, quietly );
      quietly( [&] { // at once with a beginning
         w.sm->initializedIs( false );
         w.helper->maxBi = 1;
         w.capability->sourceLimitsVersionIs( 1 );
         w.sm->initializedIs( true );
      } );
      quietly( [&] { w.mode->forwardingModeIs( Bridging::ForwardingMode::storeAndForward ); } );
      EXPECT_LE( w.helper->held["d"].sources.size(), 1u ) << "question " << at;
      EXPECT_EQ( w.broken(), "" ) << "question " << at;
      ASSERT_GT( calls, 20u );
   }
}

/** A hook that raises at the worst moment is called once more for itself. */
TEST( MirrorSabotage, WhatRaisedIsDoneInTheEnd ) {
   MirrorWorld w;
   w.capability->maxSupportedSessionsIs( 1 );
   w.session( "a", 1 );
   w.session( "b", 2 );
   w.start();
   auto raiseIn = [&]( const String & which ) {
      w.helper->taken();
      w.helper->onCall = [&w, which]( const String & call ) {
         if ( call.starts_with( which ) ) {
            w.helper->onCall = nullptr;
            throw Velto::RangeError( "hook" );
         }
      };
   };
   raiseIn( "create b" ); // to whom the group is handed
   EXPECT_THROW( w.config->sessionDel( "a" ), Velto::RangeError );
   EXPECT_EQ( w.helper->held["b"].targets, std::set{ eth( 2 ) } );
   w.source( "b", 3, Direction::none );
   w.filter( "b", 3, "list" );
   w.source( "b", 3 )->directionIs( Direction::rx );
   raiseIn( "tcam" );
   EXPECT_THROW( w.acl( "list" ), Velto::RangeError );
   EXPECT_EQ( w.helper->taken(),
              ( Calls{ "tcam b ip", "tcam b ip", "+src b 0 -1 Ethernet3 rx acl list" } ) );
   w.helper->onAsked = [&] { // over a limit that has just shrunk
      w.helper->onAsked = nullptr;
      throw Velto::RangeError( "limit" );
   };
   w.helper->maxUni = 0;
   EXPECT_THROW( w.capability->sourceLimitsVersionIs( 1 ), Velto::RangeError );
   EXPECT_EQ( w.helper->taken(), Calls{ "-src b 0 -1 Ethernet3 rx" } );
   w.helper->maxUni = 1;
   raiseIn( "+src" ); // room again for who waits
   EXPECT_THROW( w.capability->sourceLimitsVersionIs( 2 ), Velto::RangeError );
   const Calls twice( 2, "+src b 0 -1 Ethernet3 rx acl list" );
   EXPECT_EQ( w.helper->taken(), twice );
   w.source( "b", 4 ); // waits
   raiseIn( "+src" );
   EXPECT_THROW( w.config->session( "b" )->srcIntfDel( eth( 3 ) ), Velto::RangeError );
   EXPECT_EQ( w.helper->held["b"].sources.size(), 1u );
   w.source( "b", 3, Direction::tx ); // waits behind it, and comes first by cut-through
   raiseIn( "+src" );
   EXPECT_THROW( w.mode->forwardingModeIs( Bridging::ForwardingMode::cutThrough ),
                 Velto::RangeError );
   EXPECT_EQ( w.helper->held["b"].sources,
              ( std::map< IntfId, Direction >{ { eth( 3 ), Direction::tx } } ) );
   EXPECT_EQ( w.broken(), "" );
}

// --- Hooks that change what they were called for, by name ----------------------------------------

/** What a hook is told is what counts as done; what it changes comes after. */
TEST( MirrorHooks, WhatChangesInsideIsHandedOverAfterwards ) {
   MirrorWorld w;
   w.hwStatus->reconciledIs( true );
   w.resolve( "10.0.0.1", 5 );
   auto s = w.session( "s" );
   w.start();
   auto inside = [&]( const String & which, std::function< void() > change ) {
      w.helper->taken();
      w.helper->onCall = [&w, which, change]( const String & call ) {
         if ( call.starts_with( which ) ) {
            w.helper->onCall = nullptr;
            change();
         }
      };
   };
   auto info = w.gre();
   info.ttlIs( 7 );
   inside( "create", [&] { s->truncateIs( true ); } );
   s->targetIntfIs( eth( 1 ) );
   EXPECT_EQ( w.helper->taken(),
              ( Calls{ "create s 0 -1 Ethernet1", "create s 0 -1 Ethernet1 update" } ) );
   s->targetIntfDel( eth( 1 ) );
   s->truncateIs( false );
   inside( "create", [&] { s->srcIntfIs( eth( 9 ), Direction::rx ); } );
   s->targetIntfIs( eth( 1 ) );
   EXPECT_EQ( w.helper->taken(),
              ( Calls{ "create s 0 -1 Ethernet1", "+src s 0 -1 Ethernet9 rx" } ) );
   w.config->session( "s" )->srcIntfDelAll();
   s->targetIntfDel( eth( 1 ) );
   inside( "+tunnel", [&] { s->tunnelIs( info ); } );
   s->tunnelIs( w.gre() );
   EXPECT_EQ( w.helper->taken(),
              ( Calls{ "+tunnel s 0 -1 gre Ethernet5", "=tunnel s 0 -1 ttl 7 Ethernet5" } ) );
   s->truncateIs( true );
   inside( "=tunnel", [&] { s->truncateIs( false ); } );
   s->rateLimitIs( 5 );
   EXPECT_EQ( w.helper->taken(), Calls( 2, "=tunnel s 0 -1 ttl 7 Ethernet5" ) );
   inside( "=tunnel", [&] { w.resolve( "10.0.0.1", 6 ); } );
   info.ttlIs( 8 );
   s->tunnelIs( info );
   EXPECT_EQ( w.helper->taken(),
              ( Calls{ "=tunnel s 0 -1 ttl 8 Ethernet5", "=tunnel s 0 -1 ttl 8 Ethernet6" } ) );
   EXPECT_EQ( w.broken(), "" );
}

TEST( MirrorHooks, WhatChangesInAVerificationOrACounterComesAfterIt ) {
   Tests::Env enabled( "ENABLE_VERIFY", "1" );
   MirrorWorld w;
   w.hwStatus->reconciledIs( true );
   w.resolve( "10.0.0.1", 5 );
   w.session( "s" )->tunnelIs( w.gre() );
   w.session( "t", 1 );
   w.start();
   auto gone = [&] {
      w.helper->onAsked = [&] {
         w.helper->onAsked = nullptr;
         w.config->sessionDel( "s" ); // its tunnel is being looked at
         w.config->sessionDel( "t" );
         EXPECT_EQ( w.helper->held.size(), 2u );
      };
   };
   gone();
   w.acsd->verifyData()->runChecks();
   EXPECT_EQ( w.acsd->verifyData()->verifyInc(), 0u );
   EXPECT_TRUE( w.helper->held.empty() );
   w.helper->taken();
   w.helper->onCall = [&]( const String & ) {
      w.helper->onCall = nullptr;
      w.session( "s", 1 );
      EXPECT_TRUE( w.helper->held.empty() );
      throw Velto::RangeError( "counters" );
   };
   EXPECT_THROW( w.sm->updateCounters(), Velto::RangeError );
   EXPECT_EQ( w.helper->taken(), ( Calls{ "counters", "create s 2 -1 Ethernet1" } ) );
}

/** Whoever still holds the configuration of a session that has gone may change it. */
TEST( MirrorHooks, ASessionThatHasGoneHearsNothing ) {
   MirrorWorld w;
   w.start();
   const Ptr< Mirroring::SessionConfig > s = w.session( "s", 1 );
   w.helper->onCall = [&]( const String & ) {
      w.helper->onCall = nullptr;
      w.config->sessionDel( "s" );
      s->targetIntfIs( eth( 8 ) );
      s->srcIntfIs( eth( 9 ) );
      s->truncateIs( true );
   };
   s->targetIntfIs( eth( 7 ) );
   w.helper->onAsked = [&] { ADD_FAILURE() << "somebody uses it"; };
   w.phy->intfStatusIs( eth( 8 ) );
   w.phy->intfStatusIs( eth( 9 ) );
   EXPECT_TRUE( w.helper->held.empty() );
   EXPECT_EQ( w.free(), ( std::vector< int >{ 1, 2, 3, 0 } ) );
}

/** One that waits, and is made anew in the same burst, is another one. */
TEST( MirrorHooks, AGroupIsNotHandedToOneThatGoes ) {
   MirrorWorld w;
   w.capability->maxSupportedSessionsIs( 1 );
   w.session( "a", 1 );
   w.session( "b", 2 );
   w.start();
   w.helper->onCall = [&]( const String & ) {
      w.helper->onCall = nullptr;
      w.config->sessionDel( "a" );
      w.config->sessionDel( "b" );
      w.session( "b", 5 );
   };
   w.config->session( "a" )->targetIntfIs( eth( 8 ) );
   EXPECT_EQ( w.helper->taken(),
              ( Calls{ "create a 0 -1 Ethernet8 update", "remove a 0 -1 Ethernet1,Ethernet8",
                       "create b 0 -1 Ethernet5" } ) );
   EXPECT_EQ( w.broken(), "" );
}

} // namespace
