// What an earlier life left in hardware, pauses, tunnels that do not come, and verification.

#include "platform/Flintlog/TraceRecorder.h"
#include "platform/Kiv/Listener.h"
#include "tests/mirroring/MirrorWorld.h"

namespace {

using namespace MirrorTests;
using Ids = std::vector< int >;

struct RestartWorld : MirrorWorld {
   /** The chip holds a session to Ethernet`to`, or to a tunnel. */
   void hold( const String & name, S32 group, U32 to, const std::map< U32, Direction > & sources,
              TunnelType type = TunnelType::none ) {
      auto hw = hwStatus->sessionIs( name );
      hw->mirrorGroupIs( group );
      hw->tunnelTypeIs( type );
      auto & held = helper->held[name];
      held.group = group;
      held.tunnel = type != TunnelType::none;
      if ( to ) {
         hw->targetIntfIs( eth( to ) );
         held.targets.insert( eth( to ) );
      }
      for ( auto & [port, direction] : sources ) {
         hw->srcIntfIs( eth( port ), direction );
         held.sources[eth( port )] = direction;
      }
   }
   /** As start(), and what the chip is told. */
   Calls restart() {
      sm = Qon::MirroringSmIs( { acsd, config, capability, status, helper, hwStatus, acls, tunnels,
                                 mode, phy, acsd->verifyData() } );
      sm->initializedIs( true );
      return helper->taken();
   }
};

TEST( MirrorRestart, WhatIsWantedIsNotTouched ) {
   RestartWorld w;
   w.hold( "s", 1, 1, { { 11, Direction::rx }, { 12, Direction::rx }, { 13, Direction::rx } } );
   auto s = w.session( "s", 1 );
   s->truncateIs( true );
   s->rxSampleRateIs( 1000 );
   for ( U32 port : { 11, 12, 13 } ) {
      w.source( "s", port );
   }
   w.helper->invalid = { eth( 11 ) }; // not usable any more
   w.helper->maxUni = 1;              // less room than before
   w.acsd->mirrorSessionNameToIdIs( "s", 1 );
   w.acsd->mirrorSessionNameToIdIs( "former", 0 );
   U32 changes = 0; // that those who build on the group hear
   Kiv::Listener< Qon::QonCommonSmData::mirrorSessionNameToIdAttr > names;
   names.attach( w.acsd.ptr(), [&]( const String & name ) { changes += name == "s"; } );
   const Calls calls = w.restart();
   EXPECT_EQ( calls, ( Calls{ "hwInit", "-src s 1 -1 Ethernet11 rx", "+src s 1 -1 Ethernet12 rx",
                              "-src s 1 -1 Ethernet13 rx" } ) );
   EXPECT_EQ( changes, 0u );
   EXPECT_FALSE( w.acsd->mirrorSessionNameToIdHas( "former" ) );
   EXPECT_EQ( w.messages(), Calls{ "DATAPLANE_MIRROR_SOURCE_RESOURCES_FULL" } );
   EXPECT_EQ( w.broken(), "" );
}

/** Groups that are no groups, or somebody else's: such sessions begin anew. */
TEST( MirrorRestart, AChipThatSaysNonsense ) {
   RestartWorld w;
   w.hold( "first", 2, 1, {} );
   for ( auto & [name, group] : std::map< String, S32 >{ { "far", 258 }, { "none", -1 } } ) {
      w.hwStatus->sessionIs( name )->mirrorGroupIs( group );
      w.session( name, 5 );
   }
   w.hwStatus->sessionIs( "second" )->mirrorGroupIs( 2 );
   w.session( "first", 1 );
   w.session( "second", 6 );
   w.restart();
   EXPECT_EQ( w.group( "first" ), 2 );
   EXPECT_EQ( std::set< S32 >( { w.group( "far" ), w.group( "none" ), w.group( "second" ) } ),
              ( std::set< S32 >{ 0, 1, 3 } ) );
   EXPECT_EQ( w.broken(), "" );
}

TEST( MirrorRestart, ATunnelThatIsLeftGoesWhenItIsNotWanted ) {
   RestartWorld w;
   w.hold( "unresolved", 0, 0, { { 11, Direction::rx } }, TunnelType::gre );
   w.session( "unresolved" )->tunnelIs( w.gre() );
   w.source( "unresolved", 11 );
   EXPECT_EQ( w.restart(), Calls{ "hwInit" } );
   w.hwStatus->reconciledIs( true );
   EXPECT_EQ( w.helper->taken(),
              ( Calls{ "-src unresolved 0 -1 Ethernet11 rx", "-tunnel unresolved 0 -1 " } ) );
   EXPECT_EQ( w.broken(), "" );
}

TEST( MirrorRestart, OverAPoolOfTheHostingAgent ) {
   RestartWorld w;
   w.capability->agentFillsPoolIs( true );
   for ( U8 id : { 7, 3 } ) {
      w.acsd->freeMirrorSessionEnq( id );
   }
   w.hold( "stale", 5, 1, {} );
   w.hold( "listed", 3, 2, {} );
   w.restart();
   EXPECT_EQ( w.free(), ( Ids{ 7, 3, 5 } ) ); // each once
}

TEST( MirrorRestart, WithoutSessionsNothingIsLeftOfAnEarlierLife ) {
   RestartWorld w;
   w.capability->maxSupportedSessionsIs( 0 );
   w.acsd->freeMirrorSessionEnq( 9 );
   w.acsd->mirrorSessionNameToIdIs( "former", 1 );
   w.acsd->mirrorSessionNameToEgressIdIs( "former", 1 );
   w.status->sessionIs( "former" );
   EXPECT_EQ( w.restart(), Calls() );
   EXPECT_EQ( w.free(), Ids() );
   EXPECT_EQ( w.acsd->mirrorSessionNameToIds() + w.acsd->mirrorSessionNameToEgressIds() +
                    w.status->sessions(),
              0u );
   w.capability->maxSupportedSessionsIs( 3 );
   for ( U32 n : { 1, 2, 3 } ) {
      w.session( "s" + std::to_string( n ), n );
   }
   w.capability->maxSupportedSessionsIs( 1 );
   w.config->sessionDel( "s2" );
   w.capability->maxSupportedSessionsIs( 4 ); // s3 lives on with its group
   EXPECT_EQ( w.free(), ( Ids{ 1, 3 } ) );
   EXPECT_EQ( w.broken(), "" );
}

TEST( MirrorRestart, EachRecordOfAFormerSessionGoes ) {
   RestartWorld w;
   w.acsd->mirrorSessionNameToIdIs( "id", 1 );
   w.acsd->mirrorSessionNameToEgressIdIs( "egress", 1 );
   w.status->sessionIs( "status" );
   w.restart();
   EXPECT_EQ( w.acsd->mirrorSessionNameToIds(), 0u );
   EXPECT_EQ( w.acsd->mirrorSessionNameToEgressIds(), 0u );
   EXPECT_EQ( w.status->sessions(), 0u );
}

TEST( MirrorRestart, ACleanUpInAPauseIsOne ) {
   RestartWorld w;
   w.session( "s", 1 );
   w.source( "s", 2 );
   w.restart();
   w.sm->initializedIs( false );
   w.sm->doCleanup();
   EXPECT_TRUE( w.helper->held.empty() );
   EXPECT_EQ( w.free().size(), 4u );
}

// --- Tunnels and attributes that the chip refuses -----------------------------------------------

TEST( MirrorRefusals, AreForgottenWithTheirCause ) {
   RestartWorld w;
   w.hwStatus->reconciledIs( true );
   auto s = w.session( "s", 1 );
   w.helper->refusesTunnels = true;
   auto info = w.gre();
   info.vrfIs( "red" );
   s->tunnelIs( info );
   w.resolve( "10.0.0.1", 5 ); // of another VRF
   w.restart();
   auto status = w.status->session( "s" );
   const Tunnel::Endpoint end( info.dst(), "red" );
   const Tunnel::Resolution way( eth( 6 ), Ulnet::EthAddr(), {} );
   EXPECT_EQ( w.helper->taken(), Calls() );
   w.tunnels->resolutionIs( end, way );
   EXPECT_EQ( w.helper->taken(), Calls{ "+tunnel s 0 -1 gre Ethernet6" } );
   EXPECT_TRUE( status->tunnelFailed() );
   w.tunnels->resolutionDel( end );
   EXPECT_FALSE( status->tunnelFailed() );
   w.tunnels->resolutionIs( end, way );
   EXPECT_TRUE( status->tunnelFailed() );
   s->tunnelIs( {} );
   EXPECT_FALSE( status->tunnelFailed() );
   w.helper->refusedTarget = { eth( 1 ) };
   s->truncateIs( true );
   EXPECT_TRUE( status->failedDst( eth( 1 ) ) );
   w.helper->refusedTarget.clear();
   w.helper->taken();
   w.phy->intfStatusIs( eth( 1 ) ); // the attributes are still owed
   EXPECT_EQ( w.helper->taken(), Calls{ "create s 0 -1 Ethernet1 update" } );
   EXPECT_EQ( status->failedDsts(), 0u );
   EXPECT_EQ( w.broken(), "" );
}

TEST( MirrorStatus, CountsWhatChangesOfTheSessionInHardware ) {
   Flintlog::TraceRecorder traces;
   RestartWorld w;
   w.restart();
   auto s = w.session( "s", 1 );
   auto published = w.status->session( "s" );
   U32 last = 0;
   auto changes = [&] {
      return published->generation() - std::exchange( last, published->generation() );
   };
   EXPECT_EQ( changes(), 1u );
   s->targetIntfIs( eth( 2 ) );
   EXPECT_EQ( changes(), 1u );
   s->truncateIs( true ); // of both
   EXPECT_EQ( changes(), 2u );
   w.source( "s", 9 );
   w.config->session( "s" )->srcIntfDel( eth( 9 ) );
   EXPECT_EQ( changes(), 0u );
   s->targetIntfDel( eth( 1 ) );
   s->targetIntfDel( eth( 2 ) );
   EXPECT_EQ( changes(), 2u );
   for ( auto & record : traces.records() ) {
      EXPECT_FALSE( record.text.starts_with( "Failed to " ) ) << record.text;
   }
}

TEST( MirrorRefusals, AVerificationLooksAtTunnelsToo ) {
   Tests::Env enabled( "ENABLE_VERIFY", "1" );
   RestartWorld w;
   w.hwStatus->reconciledIs( true );
   w.resolve( "10.0.0.1", 5 );
   w.session( "s" )->tunnelIs( w.gre() );
   w.restart();
   auto findings = [&] {
      w.acsd->verifyData()->resetVerifyData();
      w.acsd->verifyData()->runChecks();
      return w.acsd->verifyData()->verifyInc();
   };
   EXPECT_EQ( findings(), 0u );
   w.helper->held["s"].tunnel = false;
   EXPECT_EQ( findings(), 1u );
   w.sm->initializedIs( false ); // in a pause nothing is known
   EXPECT_EQ( findings(), 0u );
   w.helper->held["s"].tunnel = true;
}

} // namespace
