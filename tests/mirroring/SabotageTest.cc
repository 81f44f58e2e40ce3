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
      saboteur.drops( [&] { w.sm = nullptr; } );
      flow( w, [&]( auto & step ) {
         if ( w.sm ) {
            saboteur.does( step );
         }
      } );
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

} // namespace
