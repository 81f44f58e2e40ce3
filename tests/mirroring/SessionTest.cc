// Groups, destinations, and the life of a session.

#include "tests/mirroring/MirrorWorld.h"

#include "platform/Kiv/Listener.h"
#include "platform/Kiv/Restart.h"

namespace {

using namespace MirrorTests;
using Ids = std::vector< int >;

TEST( MirrorGroups, WaitingSessionsGetFreedGroupsPastTheQueue ) {
   MirrorWorld w;
   for ( U32 n = 1; n <= 4; ++n ) {
      w.session( "s" + std::to_string( n ), n );
   }
   w.start();
   EXPECT_EQ( w.messages(), Calls() );
   w.session( "s5", 5 );
   w.session( "s6", 6 );
   EXPECT_EQ( w.messages(), Calls( 2, "DATAPLANE_MIRROR_SESSION_RESOURCES_FULL" ) );
   EXPECT_EQ( w.group( "s5" ), Mirroring::mirrorGroupInvalid() );
   EXPECT_EQ( w.sm->placeInQueue( "s6" ), 2u );
   w.config->session( "s5" )->rateLimitIs( 5 ); // waits on, and says nothing
   Kiv::Listener< Qon::QonCommonSmData::freeMirrorSessionAttr > pool;
   U32 changes = 0;
   pool.attach( w.acsd.ptr(), [&] { ++changes; } );
   w.helper->taken();
   w.config->sessionDel( "s3" );
   EXPECT_EQ( w.helper->taken(),
              ( Calls{ "remove s3 2 -1 Ethernet3", "create s5 2 -1 Ethernet5" } ) );
   EXPECT_EQ( w.acsd->mirrorSessionNameToId( "s5" ), 2u );
   EXPECT_FALSE( w.acsd->mirrorSessionNameToIdHas( "s3" ) );
   w.config->sessionDel( "s5" ); // deleted before the one behind it
   EXPECT_EQ( w.group( "s6" ), 2 );
   EXPECT_EQ( changes, 0u );
   w.config->sessionDel( "s6" );
   w.config->sessionDel( "s1" );
   w.config->sessionDel( "s4" );
   EXPECT_EQ( w.free(), ( Ids{ 2, 0, 3 } ) ); // in the order in which they came free
   w.session( "s7", 7 );
   EXPECT_EQ( w.group( "s7" ), 2 );
   EXPECT_EQ( w.messages(), Calls() );
   EXPECT_EQ( w.broken(), "" );
}

TEST( MirrorGroups, AWaitingSessionThatIsDeletedReturnsNothing ) {
   MirrorWorld w;
   w.capability->maxSupportedSessionsIs( 1 );
   w.session( "a", 1 );
   w.session( "b", 2 );
   w.session( "c", 3 );
   w.start();
   w.config->sessionDel( "b" );
   EXPECT_EQ( w.free(), Ids() );
   w.session( "b", 2 ); // behind c now
   w.config->sessionDel( "a" );
   EXPECT_EQ( w.group( "c" ), 0 );
   EXPECT_EQ( w.group( "b" ), -1 );
   EXPECT_EQ( w.broken(), "" );
}

/** Deleted and made again while a hook of it runs: another session, last in the queue. */
TEST( MirrorGroups, DeletedAndMadeAgainInsideAHook ) {
   MirrorWorld w;
   w.capability->maxSupportedSessionsIs( 1 );
   w.session( "a", 1 );
   w.start();
   w.session( "b", 2 );
   w.helper->onCall = [&]( const String & call ) {
      if ( call.starts_with( "create a" ) ) {
         w.helper->onCall = nullptr;
         w.config->sessionDel( "a" );
         w.session( "a", 9 );
      }
   };
   w.config->session( "a" )->targetIntfIs( eth( 8 ) );
   EXPECT_EQ( w.helper->taken(),
              ( Calls{ "create a 0 -1 Ethernet8 update", "remove a 0 -1 Ethernet1,Ethernet8",
                       "create b 0 -1 Ethernet2" } ) );
   EXPECT_EQ( w.group( "a" ), -1 );
   EXPECT_EQ( w.broken(), "" );
}

TEST( MirrorGroups, NumberOfSessionsChanges ) {
   MirrorWorld w;
   w.capability->maxSupportedSessionsIs( 0 );
   w.session( "a", 1 );
   w.session( "b", 2 );
   w.session( "c", 3 );
   w.start();
   EXPECT_EQ( w.helper->calls, Calls() );
   EXPECT_EQ( w.sm->sessions(), 0u );
   EXPECT_EQ( w.messages(), Calls() );
   w.capability->maxSupportedSessionsIs( 1 );
   EXPECT_EQ( w.helper->taken(), ( Calls{ "hwInit", "create a 0 -1 Ethernet1" } ) );
   EXPECT_EQ( w.messages().size(), 2u );
   w.capability->maxSupportedSessionsIs( 4 ); // the waiting ones first, the rest is free
   EXPECT_EQ( w.group( "b" ), 1 );
   EXPECT_EQ( w.group( "c" ), 2 );
   EXPECT_EQ( w.free(), Ids{ 3 } );
   w.capability->maxSupportedSessionsIs( 2 ); // c lives on, beyond the number
   EXPECT_EQ( w.free(), Ids() );
   w.session( "d", 4 );
   w.config->sessionDel( "c" );
   EXPECT_EQ( w.group( "d" ), -1 );
   w.capability->maxSupportedSessionsIs( 3 );
   EXPECT_EQ( w.group( "d" ), 2 );
   w.helper->taken();
   w.capability->maxSupportedSessionsIs( 0 );
   EXPECT_EQ( w.helper->held.size(), 0u );
   EXPECT_EQ( w.free(), Ids() );
   EXPECT_EQ( w.status->sessions(), 0u );
   w.capability->maxSupportedSessionsIs( 1000 );
   EXPECT_EQ( w.free().size(), 253u );
   EXPECT_EQ( w.broken(), "" );
}

TEST( MirrorGroups, WhatTheHostingAgentFilledInStays ) {
   MirrorWorld w;
   w.capability->agentFillsPoolIs( true );
   for ( U8 id : { 7, 3, 5 } ) {
      w.acsd->freeMirrorSessionEnq( id );
   }
   w.session( "kept", 1 );
   auto hw = w.hwStatus->sessionIs( "kept" );
   hw->mirrorGroupIs( 3 );
   hw->targetIntfIs( eth( 1 ) );
   w.helper->held["kept"] = { 3, false, { eth( 1 ) }, {} };
   w.start();
   EXPECT_EQ( w.group( "kept" ), 3 );
   EXPECT_EQ( w.free(), ( Ids{ 7, 5 } ) );
   w.capability->maxSupportedSessionsIs( 1 ); // is the agent's business
   EXPECT_EQ( w.free(), ( Ids{ 7, 5 } ) );
   w.config->sessionDel( "kept" );
   EXPECT_EQ( w.free(), ( Ids{ 7, 5, 3 } ) );
}

TEST( MirrorGroupsDeathTest, AGroupIsSetOnce ) {
   MirrorWorld w;
   w.session( "a", 1 );
   w.start();
   auto session = w.sm->session( "a" );
   EXPECT_DEATH( session->mirrorGroupIs( -1 ),
                 "Assertion 'mg != mirrorGroupInvalid\\(\\)' failed" );
   EXPECT_DEATH( session->mirrorGroupIs( 1 ),
                 "Assertion 'mirrorGroup\\(\\) == mirrorGroupInvalid\\(\\)' failed" );
}

// --- Destinations --------------------------------------------------------------------------------

TEST( MirrorDestinations, PortsOfAnAggregateComeAndGo ) {
   MirrorWorld w;
   w.join( 1, 1 );
   w.join( 1, 2 );
   auto s = w.session( "s" );
   w.start();
   w.source( "s", 9 );
   s->targetIntfIs( po( 1 ) );
   s->targetIntfIs( eth( 2 ) ); // by its aggregate only
   EXPECT_EQ( w.helper->taken(),
              ( Calls{ "create s 0 -1 Ethernet1", "create s 0 -1 Ethernet2 update",
                       "+src s 0 -1 Ethernet9 rx" } ) );
   w.join( 1, 3 );
   w.leave( 1, 1 );
   EXPECT_EQ( w.helper->taken(),
              ( Calls{ "create s 0 -1 Ethernet3 update", "remove s 0 -1 Ethernet1" } ) );
   w.leave( 1, 2 ); // and is one of its own now
   EXPECT_EQ( w.helper->held["s"].targets, ( std::set{ eth( 2 ), eth( 3 ) } ) );
   s->targetIntfDel( po( 1 ) );
   EXPECT_EQ( w.helper->held["s"].targets, ( std::set{ eth( 2 ) } ) );
   w.helper->taken();
   s->targetIntfDel( eth( 2 ) ); // the last one: sources first, the group stays
   EXPECT_EQ( w.helper->taken(),
              ( Calls{ "-src s 0 -1 Ethernet9 rx", "remove s 0 -1 Ethernet2" } ) );
   EXPECT_EQ( w.group( "s" ), 0 );
   EXPECT_FALSE( w.status->session( "s" )->createdInHw() );
   s->targetIntfIs( eth( 4 ) );
   EXPECT_EQ( w.helper->taken(),
              ( Calls{ "create s 0 -1 Ethernet4", "+src s 0 -1 Ethernet9 rx" } ) );
   EXPECT_EQ( w.broken(), "" );
}

TEST( MirrorDestinations, RejectedAndRefusedOnesAreTriedAgainWhenTheInterfaceChanges ) {
   MirrorWorld w;
   auto port = w.phy->intfStatusIs( eth( 1 ) );
   w.phy->intfStatusIs( eth( 2 ) );
   w.helper->invalid = { eth( 1 ) };
   w.helper->refusedTarget = { eth( 2 ) };
   auto s = w.session( "s", 1 );
   s->targetIntfIs( eth( 2 ) );
   w.start();
   auto status = w.status->session( "s" );
   EXPECT_TRUE( status->failedDst( eth( 1 ) ) && status->failedDst( eth( 2 ) ) );
   EXPECT_FALSE( status->createdInHw() );
   w.helper->invalid.clear();
   port->linkUpIs( true );
   w.helper->refusedTarget.clear();
   w.phy->intfStatusDel( eth( 2 ) );
   EXPECT_EQ( w.helper->taken(),
              ( Calls{ "create s 0 -1 Ethernet1", "create s 0 -1 Ethernet2 update" } ) );
   EXPECT_EQ( status->failedDsts(), 0u );
   w.helper->invalid = { eth( 1 ), po( 3 ) };
   port->speedIs( Interface::EthSpeed::speed5Gbps ); // in hardware, and not usable any more
   EXPECT_EQ( w.helper->taken(), Calls{ "remove s 0 -1 Ethernet1" } );
   s->targetIntfIs( po( 3 ) );
   EXPECT_TRUE( status->failedDst( po( 3 ) ) && status->failedDst( eth( 1 ) ) );
   w.join( 3, 7 );
   w.source( "s", po( 3 ) ); // on both sides: refused as a whole, and taken as a whole
   EXPECT_EQ( w.helper->taken(), Calls() );
   w.helper->invalid.erase( po( 3 ) );
   w.phy->intfStatusIs( po( 3 ) );
   EXPECT_EQ( w.helper->taken(),
              ( Calls{ "create s 0 -1 Ethernet7 update", "+src s 0 -1 Ethernet7 rx" } ) );
   EXPECT_FALSE( status->failedDst( po( 3 ) ) );
   w.config->session( "s" )->srcIntfDelAll();
   s->targetIntfDel( po( 3 ) );
   s->targetIntfDel( eth( 1 ) );
   EXPECT_EQ( status->failedDsts(), 0u );
   EXPECT_EQ( w.broken(), "" );
}

TEST( MirrorDestinations, OnlyInternalSessionsSayThatOneDoesNotFit ) {
   MirrorWorld w;
   auto port = w.phy->intfStatusIs( eth( 1 ) );
   w.helper->refusedTarget = { eth( 1 ) };
   w.session( "plain", 1 );
   w.config->sessionIs( "internal" )->internalIs( true );
   w.start();
   w.session( "internal", 1 );
   EXPECT_EQ( w.logs.records().back().text,
              "Insufficient hardware resources are available to program the internal session "
              "internal with destination interface Ethernet1." );
   EXPECT_EQ( w.messages().size(), 1u );
   port->linkUpIs( true ); // refused once more, and said already
   EXPECT_EQ( w.messages(), Calls() );
   w.helper->refusedTarget.clear();
   port->linkUpIs( false );
   w.helper->refusedTarget = { eth( 1 ) };
   w.config->session( "internal" )->targetIntfDel( eth( 1 ) );
   w.session( "internal", 1 );
   const Calls unavailable{ "DATAPLANE_MIRROR_INTERNAL_SESSION_RESOURCES_UNAVAILABLE" };
   EXPECT_EQ( w.messages(), unavailable );
   w.helper->invalid = { eth( 1 ) };
   port->linkUpIs( true ); // is none for a while
   EXPECT_EQ( w.messages(), Calls() );
   w.helper->invalid.clear();
   port->linkUpIs( false );
   EXPECT_EQ( w.messages(), unavailable );
}

// --- Tunnels -------------------------------------------------------------------------------------

TEST( MirrorTunnels, FollowTheirWayAndAreNeverRemovedForAChange ) {
   MirrorWorld w;
   auto s = w.session( "s" );
   s->tunnelIs( w.gre() );
   s->targetIntfIs( eth( 1 ) ); // does not count beside it
   w.start();
   w.source( "s", 9, Direction::both );
   w.resolve( "10.0.0.1", 5 );
   EXPECT_EQ( w.helper->taken(), Calls() ); // not before the hardware is reconciled
   w.hwStatus->reconciledIs( true );
   EXPECT_EQ( w.helper->taken(),
              ( Calls{ "+tunnel s 0 -1 gre Ethernet5", "+src s 0 0 Ethernet9 both" } ) );
   auto info = w.gre();
   info.ttlIs( 7 );
   s->tunnelIs( info );
   w.resolve( "10.0.0.1", 6 );
   s->greTimestampingIs( true );
   EXPECT_EQ( w.helper->taken(),
              ( Calls{ "=tunnel s 0 0 ttl 7 Ethernet5", "=tunnel s 0 0 ttl 7 Ethernet6",
                       "=tunnel s 0 0 ttl 7 Ethernet6" } ) );
   w.unresolve( "10.0.0.1" );
   EXPECT_EQ( w.helper->taken(), ( Calls{ "-src s 0 0 Ethernet9 both", "-tunnel s 0 -1 " } ) );
   info.forwardDropIs( true ); // needs no way
   s->tunnelIs( info );
   EXPECT_EQ( w.helper->taken(), ( Calls{ "+tunnel s 0 -1 gre ", "+src s 0 0 Ethernet9 both" } ) );
   EXPECT_EQ( w.broken(), "" );
   info.forwardDropIs( false );
   info.typeIs( TunnelType::vxlan );
   w.resolve( "10.0.0.1", 6 );
   w.helper->taken();
   s->tunnelIs( info ); // another kind: gone first
   EXPECT_EQ( w.helper->taken(),
              ( Calls{ "-src s 0 0 Ethernet9 both", "-tunnel s 0 -1 ",
                       "+tunnel s 0 -1 vxlan Ethernet6", "+src s 0 0 Ethernet9 both" } ) );
   info.forwardDropIs( true ); // says nothing of this kind
   s->tunnelIs( info );
   EXPECT_EQ( w.helper->taken(), Calls{ "=tunnel s 0 0 ttl 7 Ethernet6" } );
   s->tunnelIs( {} ); // to the port
   EXPECT_EQ( w.helper->taken(),
              ( Calls{ "-src s 0 0 Ethernet9 both", "-tunnel s 0 -1 ", "create s 0 -1 Ethernet1",
                       "+src s 0 0 Ethernet9 both" } ) );
   s->tunnelIs( info ); // and back
   EXPECT_EQ( w.helper->taken(),
              ( Calls{ "-src s 0 0 Ethernet9 both", "remove s 0 -1 Ethernet1",
                       "+tunnel s 0 -1 vxlan Ethernet6", "+src s 0 0 Ethernet9 both" } ) );
   w.config->sessionDel( "s" );
   EXPECT_EQ( w.helper->taken(),
              ( Calls{ "-src s 0 0 Ethernet9 both going", "-tunnel s 0 -1 " } ) );
}

TEST( MirrorTunnels, WhatTheChipRefusesIsTriedWhenTheTunnelChanges ) {
   MirrorWorld w;
   w.hwStatus->reconciledIs( true );
   w.resolve( "10.0.0.1", 5 );
   auto s = w.session( "s" );
   s->tunnelIs( w.gre() );
   w.helper->refusesTunnels = true;
   w.start();
   EXPECT_TRUE( w.status->session( "s" )->tunnelFailed() );
   EXPECT_FALSE( w.status->session( "s" )->createdInHw() );
   w.helper->refusesTunnels = false;
   w.resolve( "10.0.0.1", 6 );
   EXPECT_EQ( w.helper->taken(), Calls{ "+tunnel s 0 -1 gre Ethernet6" } );
   w.helper->refusesTunnels = true;
   w.resolve( "10.0.0.1", 7 ); // stays as it is in hardware
   EXPECT_TRUE( w.status->session( "s" )->tunnelFailed() );
   EXPECT_TRUE( w.status->session( "s" )->createdInHw() );
   w.resolve( "10.0.0.1", 6 ); // as it is there
   EXPECT_FALSE( w.status->session( "s" )->tunnelFailed() );
}

// --- Attributes ----------------------------------------------------------------------------------

TEST( MirrorAttributes, ArePassedOnOnceTheSessionIsInHardware ) {
   MirrorWorld w;
   w.capability->maxSupportedSessionsIs( 1 );
   auto s = w.session( "s", 1 );
   s->truncationSizeIs( 64 );
   auto waits = w.session( "waits", 2 );
   w.start();
   waits->rateLimitIs( 5 );
   EXPECT_EQ( w.helper->taken(), Calls() );
   auto passed = [&]( const std::function< void() > & change ) {
      change();
      EXPECT_EQ( w.helper->taken(), Calls{ "create s 0 -1 Ethernet1 update" } );
   };
   passed( [&] { s->truncateIs( true ); } );
   passed( [&] { s->truncationSizeIs( 128 ); } );
   passed( [&] { s->headerRemovalSizeIs( 14 ); } );
   passed( [&] { s->rxSampleRateIs( 1000 ); } );
   passed( [&] { s->grePayloadTypeIs( 0x88be ); } );
   passed( [&] { s->greTimestampingIs( true ); } );
   passed( [&] { s->txGreMetadataIs( true ); } );
   passed( [&] { s->rateLimitIs( 1000000 ); } );
   passed( [&] { s->portMirroringDisabledIs( true ); } );
   const U32 generation = w.status->session( "s" )->generation();
   w.helper->refusedTarget = { eth( 1 ) };
   s->truncateIs( false );
   EXPECT_TRUE( w.status->session( "s" )->failedDst( eth( 1 ) ) );
   EXPECT_EQ( w.status->session( "s" )->generation(), generation );
   EXPECT_EQ( w.broken(), "" );
}

TEST( MirrorAttributesDeathTest, RateLimitSetsAreNotServed ) {
   MirrorWorld w;
   auto s = w.session( "s", 1 );
   w.start();
   EXPECT_DEATH( s->mirrorSessRateLimitSetIs( "set", 5 ),
                 "Unexpected mirrorSessRateLimitSets\\(\\) > 0" );
   Tests::Env quiet( "QON_NOOP_AGENT", "1" );
   s->mirrorSessRateLimitSetIs( "set", 5 );
}

// --- Life and restart ----------------------------------------------------------------------------

TEST( MirrorLife, CleanUpReturnsEveryGroupAndDestructionCallsNothing ) {
   MirrorWorld w;
   w.capability->maxSupportedSessionsIs( 2 );
   for ( U32 n : { 1, 2, 3 } ) {
      w.session( "s" + std::to_string( n ), n );
      w.source( "s" + std::to_string( n ), 10 + n, Direction::both );
   }
   w.start();
   w.sm->doCleanup();
   EXPECT_TRUE( w.helper->held.empty() );
   EXPECT_EQ( w.free(), ( Ids{ 0, 1 } ) );
   EXPECT_EQ( w.acsd->mirrorSessionNameToIds() + w.acsd->mirrorSessionNameToEgressIds(), 0u );
   w.helper->taken();
   w.sm->initializedIs( true ); // begins anew
   EXPECT_EQ( w.helper->held.size(), 2u );
   EXPECT_EQ( w.broken(), "" );
   w.helper->taken();
   w.sm = nullptr;
   EXPECT_EQ( w.helper->taken(), Calls() );
}

TEST( MirrorLife, WhileTheAgentRestartsTheHardwareStaysAsItIs ) {
   MirrorWorld w;
   w.session( "s", 1 );
   w.source( "s", 2 );
   w.start();
   Kiv::agentRestartingIs( true );
   w.config->sessionDel( "s" );
   w.sm->doCleanup();
   Kiv::agentRestartingIs( false );
   EXPECT_EQ( w.helper->taken(), Calls() );
   EXPECT_EQ( w.helper->held.size(), 1u );
}

TEST( MirrorLife, ASessionThatComesBackAfterARestartFlagIsTheOneInHardware ) {
   MirrorWorld w;
   for ( U32 n : { 1, 2 } ) {
      w.session( "s" + std::to_string( n ), n );
      w.source( "s" + std::to_string( n ), 10 + n, Direction::tx );
   }
   w.start();
   Kiv::agentRestartingIs( true );
   w.config->sessionDelAll();
   w.capability->maxSupportedSessionsIs( 3 );
   Kiv::agentRestartingIs( false );
   EXPECT_EQ( w.helper->taken(), Calls() );
   w.sm->initializedIs( false );
   w.session( "s2", 2 );
   w.source( "s2", 12, Direction::tx );
   w.sm->initializedIs( true ); // the other one does not come back
   EXPECT_EQ( w.group( "s2" ), 1 );
   EXPECT_EQ( w.helper->taken(),
              ( Calls{ "+src s2 1 1 Ethernet12 tx", "-src s1 0 0 Ethernet11 tx going",
                       "remove s1 0 -1 Ethernet1" } ) );
   EXPECT_EQ( w.free(), ( Ids{ 2, 0 } ) );
   EXPECT_FALSE( w.acsd->mirrorSessionNameToIdHas( "s1" ) || w.status->sessionHas( "s1" ) );
   EXPECT_EQ( w.broken(), "" );
}

TEST( MirrorLife, AStartTakesOverWhatTheHardwareHolds ) {
   MirrorWorld w;
   auto hold = [&]( const String & name, S32 group, std::initializer_list< U32 > targets,
                    std::map< U32, Direction > sources, TunnelType type = TunnelType::none ) {
      auto hw = w.hwStatus->sessionIs( name );
      hw->mirrorGroupIs( group );
      hw->tunnelTypeIs( type );
      auto & held = w.helper->held[name];
      held.group = group;
      held.tunnel = type != TunnelType::none;
      for ( U32 port : targets ) {
         hw->targetIntfIs( eth( port ) );
         held.targets.insert( eth( port ) );
      }
      for ( auto & [port, direction] : sources ) {
         hw->srcIntfIs( eth( port ), direction );
         held.sources[eth( port )] = direction;
      }
   };
   hold( "stays", 2, { 1, 2 },
         { { 11, Direction::rx }, { 12, Direction::rx }, { 13, Direction::rx } } );
   hold( "moves", 3, { 3 }, { { 14, Direction::tx } } );
   hold( "stale", 0, { 4 }, { { 15, Direction::both } } );
   hold( "staleTunnel", 1, {}, {}, TunnelType::gre );
   hold( "gre", 7, {}, { { 16, Direction::rx }, { 17, Direction::rx } }, TunnelType::gre );
   w.capability->maxSupportedSessionsIs( 8 );
   w.session( "new", 8 );
   w.session( "stays", 1 );
   w.source( "stays", 11 );
   w.source( "stays", 12, Direction::both );
   w.session( "moves", 5 );
   w.session( "gre" )->tunnelIs( w.gre() );
   w.source( "gre", 17 );
   w.resolve( "10.0.0.1", 20 );
   w.sm = Qon::MirroringSmIs( { w.acsd, w.config, w.capability, w.status, w.helper, w.hwStatus,
                                w.acls, w.tunnels, w.mode, w.phy, nullptr } );
   w.sm->initializedIs( true );
   EXPECT_EQ( w.helper->taken(),
              ( Calls{
                    "hwInit",
                    "-src stale 0 0 Ethernet15 both going",
                    "remove stale 0 -1 Ethernet4",
                    "-tunnel staleTunnel 1 -1 ",
                    "create new 0 -1 Ethernet8", // the first of the groups that nobody holds
                    "remove stays 2 -1 Ethernet2",
                    "+src stays 2 -1 Ethernet11 rx", // not removed first
                    "-src stays 2 -1 Ethernet12 rx",
                    "+src stays 2 2 Ethernet12 both",
                    "-src stays 2 2 Ethernet13 rx",
                    "create moves 3 -1 Ethernet5 update",
                    "remove moves 3 -1 Ethernet3",
                    "-src moves 3 -1 Ethernet14 tx",
              } ) );
   EXPECT_EQ( w.free(), ( Ids{ 1, 4, 5, 6 } ) );
   EXPECT_TRUE( w.status->session( "stays" )->createdInHw() );
   EXPECT_FALSE( w.status->session( "gre" )->createdInHw() ); // until it is made anew
   w.hwStatus->reconciledIs( true );
   EXPECT_EQ( w.helper->taken(),
              ( Calls{ "+tunnel gre 7 -1 gre Ethernet20", "-src gre 7 -1 Ethernet16 rx",
                       "+src gre 7 -1 Ethernet17 rx" } ) );
   EXPECT_EQ( w.broken(), "" );
}

/** Still configured when the hardware was read, and not any more when its turn comes. */
TEST( MirrorLife, WhatIsTakenBackDuringTheStartLeavesNothing ) {
   MirrorWorld w;
   w.session( "kept", 1 );
   auto hw = w.hwStatus->sessionIs( "kept" );
   hw->mirrorGroupIs( 2 );
   hw->targetIntfIs( eth( 1 ) );
   w.helper->held["kept"] = { 2, false, { eth( 1 ) }, {} };
   w.acsd->mirrorSessionNameToIdIs( "kept", 2 );
   w.acsd->mirrorSessionNameToEgressIdIs( "kept", 2 );
   w.helper->onCall = [&]( const String & call ) {
      if ( call == "hwInit" ) {
         w.config->sessionDel( "kept" );
      }
   };
   w.start();
   EXPECT_TRUE( w.helper->held.empty() );
   EXPECT_EQ( w.acsd->mirrorSessionNameToIds() + w.acsd->mirrorSessionNameToEgressIds(), 0u );
   EXPECT_EQ( w.free(), ( Ids{ 0, 1, 3, 2 } ) );
}

TEST( MirrorLife, WhatHappenedDuringAPauseIsMadeGood ) {
   MirrorWorld w;
   w.acl( "list" );
   w.phy->intfStatusIs( eth( 1 ) );
   w.session( "a", 1 );
   w.source( "a", 11 );
   w.filter( "a", 12, "list" );
   w.session( "gone", 2 );
   w.start();
   w.sm->initializedIs( false );
   w.config->sessionDel( "gone" );
   w.session( "b", 3 );
   w.source( "a", 11 )->directionIs( Direction::both );
   w.config->session( "a" )->truncateIs( true );
   w.config->session( "a" )->targetIntfIs( po( 1 ) );
   w.join( 1, 5 );
   w.acl( "list" )->versionIs( 7 );
   w.helper->invalid = { eth( 1 ) };
   w.phy->intfStatus( eth( 1 ) )->linkUpIs( true );
   w.capability->maxSupportedSessionsIs( 1 );
   EXPECT_EQ( w.helper->taken(), Calls() );
   w.sm->initializedIs( true );
   EXPECT_EQ( w.helper->held["a"].targets, std::set{ eth( 5 ) } );
   EXPECT_EQ( w.helper->held["a"].sources[eth( 11 )], Direction::both );
   EXPECT_EQ( w.sm->session( "a" )->srcIntfLocal( eth( 12 ) )->inHw().filter().aclVersion, 7u );
   EXPECT_FALSE( w.helper->held.contains( "gone" ) );
   EXPECT_EQ( w.group( "b" ), -1 );
   EXPECT_EQ( w.broken(), "" );
}

TEST( MirrorLife, VerificationFindsWhatTheHardwareLost ) {
   Tests::Env enabled( "ENABLE_VERIFY", "1" );
   MirrorWorld w;
   w.session( "s", 1 );
   w.start();
   w.acsd->verifyData()->runChecks();
   EXPECT_EQ( w.acsd->verifyData()->verifyInc(), 0u );
   w.helper->held["s"].targets.clear();
   w.acsd->verifyData()->runChecks();
   EXPECT_EQ( w.acsd->verifyData()->verifyInc(), 1u );
   w.helper->held["s"].targets = { eth( 1 ) };
}

} // namespace
