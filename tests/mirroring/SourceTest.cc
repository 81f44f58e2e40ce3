// Sources: directions, aggregates, filters, and what does not fit.

#include "tests/mirroring/MirrorWorld.h"

namespace {

using namespace MirrorTests;

constexpr char full[] = "DATAPLANE_MIRROR_SOURCE_RESOURCES_FULL";
constexpr char normal[] = "DATAPLANE_MIRROR_SOURCE_RESOURCES_NORMAL";
constexpr char overlap[] = "DATAPLANE_MIRROR_INVALID_SESSION_IN_CUT_THROUGH";
constexpr char aclFull[] = "MIRRORING_ACL_HW_RESOURCE_FULL";

struct SourceWorld : MirrorWorld {
   explicit SourceWorld( U8 maxBi = 255, U8 maxUni = 255 ) {
      helper->maxBi = maxBi;
      helper->maxUni = maxUni;
      session( "s", 1 );
      start();
   }
   std::map< IntfId, Direction > & held( const String & name = "s" ) {
      return helper->held[name].sources;
   }
   Qon::MirrorOverflow overflow( U32 n ) const {
      return sm->session( "s" )->srcIntfLocal( eth( n ) )->overflowState();
   }
};

using Sources = std::map< IntfId, Direction >;

TEST( MirrorSources, AreRemovedAsTheyWereAdded ) {
   SourceWorld w;
   auto source = w.source( "s", 2, Direction::rx );
   source->directionIs( Direction::both );
   EXPECT_EQ( w.helper->taken(), ( Calls{ "+src s 0 -1 Ethernet2 rx", "-src s 0 -1 Ethernet2 rx",
                                          "+src s 0 0 Ethernet2 both" } ) );
   EXPECT_EQ( w.acsd->mirrorSessionNameToEgressId( "s" ), 0 );
   EXPECT_TRUE( w.acsd->mirrorSessionNameToEgressIdHas( "s" ) );
   source->directionIs( Direction::none ); // configured, and nothing of it is mirrored
   EXPECT_EQ( w.helper->taken(), Calls{ "-src s 0 0 Ethernet2 both" } );
   EXPECT_FALSE( w.acsd->mirrorSessionNameToEgressIdHas( "s" ) );
   source->directionIs( Direction::tx );
   w.helper->onCall = [&]( const String & call ) { // deleted and made again in one burst
      if ( call.starts_with( "-src" ) ) {
         w.helper->onCall = nullptr;
         w.config->session( "s" )->srcIntfDel( eth( 2 ) );
         w.source( "s", 2, Direction::both );
      }
   };
   w.helper->taken();
   source->directionIs( Direction::rx );
   EXPECT_EQ( w.held(), ( Sources{ { eth( 2 ), Direction::both } } ) );
   EXPECT_EQ( w.broken(), "" );
   w.helper->removalsFail = true; // and count as done
   w.config->session( "s" )->srcIntfDel( eth( 2 ) );
   EXPECT_EQ( w.sm->session( "s" )->sourcePorts().size(), 0u );
   EXPECT_EQ( w.broken(), "" );
}

TEST( MirrorSources, AnAggregateSpeaksForItsMembers ) {
   SourceWorld w;
   w.join( 1, 2 );
   w.join( 1, 3 );
   w.source( "s", 3, Direction::tx );
   w.source( "s", po( 1 ), Direction::rx );
   EXPECT_EQ( w.held(), ( Sources{ { eth( 2 ), Direction::rx }, { eth( 3 ), Direction::rx } } ) );
   w.helper->taken();
   w.source( "s", po( 1 ) )->directionIs( Direction::both );
   EXPECT_EQ( w.helper->taken(),
              ( Calls{ "-src s 0 -1 Ethernet2 rx", "+src s 0 0 Ethernet2 both",
                       "-src s 0 0 Ethernet3 rx", "+src s 0 0 Ethernet3 both" } ) );
   w.leave( 1, 3 ); // its own settings
   w.join( 1, 4 );
   EXPECT_EQ( w.held(), ( Sources{ { eth( 2 ), Direction::both },
                                   { eth( 3 ), Direction::tx },
                                   { eth( 4 ), Direction::both } } ) );
   w.acsd->lagToPortIs( po( 2 ), w.acsd->lagToPort( po( 1 ) ) ); // moves to another aggregate
   w.acsd->lagToPortDel( po( 1 ) );
   EXPECT_EQ( w.held(), ( Sources{ { eth( 3 ), Direction::tx } } ) );
   w.source( "s", po( 2 ), Direction::rx );
   EXPECT_EQ( w.held().size(), 3u );
   w.config->session( "s" )->srcIntfDelAll();
   EXPECT_EQ( w.held(), Sources() );
   EXPECT_EQ( w.broken(), "" );
}

/** Moving, a port is listed twice for a moment; it is of whom it was first, and its own at last. */
TEST( MirrorSources, AMemberOfTwoAggregates ) {
   SourceWorld w;
   w.join( 1, 2 );
   w.source( "s", po( 1 ), Direction::rx );
   w.source( "s", 2, Direction::tx );
   w.source( "s", po( 2 ), Direction::both );
   w.acsd->lagToPortIs( po( 2 ), w.acsd->lagToPort( po( 1 ) ) );
   EXPECT_EQ( w.held(), ( Sources{ { eth( 2 ), Direction::rx } } ) );
   w.acsd->lagToPortDel( po( 1 ) );
   EXPECT_EQ( w.held(), ( Sources{ { eth( 2 ), Direction::both } } ) );
   w.acsd->lagToPortDel( po( 2 ) );
   EXPECT_EQ( w.held(), ( Sources{ { eth( 2 ), Direction::tx } } ) );
   EXPECT_EQ( w.broken(), "" );
}

/** An aggregate that is usable says nothing of its members; those are heard, too. */
TEST( MirrorSources, MembersOnEitherSideAreJudgedThemselves ) {
   SourceWorld w;
   auto s = w.session( "s" );
   s->targetIntfDel( eth( 1 ) );
   w.helper->invalid = { eth( 2 ), eth( 4 ) };
   for ( U32 port : { 2, 3 } ) {
      w.join( 1, port );
   }
   w.source( "s", po( 1 ) );
   s->targetIntfIs( po( 2 ) );
   w.helper->taken();
   w.join( 2, 4 );
   w.join( 2, 5 ); // the first one that can be used makes the session
   EXPECT_EQ( w.helper->taken(),
              ( Calls{ "create s 0 -1 Ethernet5", "+src s 0 -1 Ethernet3 rx" } ) );
   auto status = w.status->session( "s" );
   EXPECT_TRUE( status->failedSrc( eth( 2 ) ) && status->failedDst( eth( 4 ) ) );
   w.helper->invalid.clear();
   w.phy->intfStatusIs( eth( 2 ) );
   w.phy->intfStatusIs( eth( 4 ) );
   EXPECT_EQ( w.helper->taken(),
              ( Calls{ "+src s 0 -1 Ethernet2 rx", "create s 0 -1 Ethernet4 update" } ) );
   s->targetIntfIs( eth( 6 ) );
   w.helper->taken();
   w.join( 3, 6 ); // an aggregate that is none of the session's
   EXPECT_EQ( w.helper->taken(), Calls{ "remove s 0 -1 Ethernet6" } );
   w.leave( 3, 6 );
   EXPECT_EQ( w.helper->taken(), Calls{ "create s 0 -1 Ethernet6 update" } );
   EXPECT_EQ( w.broken(), "" );
}

TEST( MirrorSources, RefusedAndInvalidOnesAreFailedUntilTheInterfaceChanges ) {
   SourceWorld w;
   w.phy->intfStatusIs( eth( 2 ) );
   w.phy->intfStatusIs( eth( 3 ) );
   w.helper->refusedSource = { eth( 2 ) };
   w.helper->invalid = { eth( 3 ) };
   w.source( "s", 2 );
   w.source( "s", 3 );
   auto status = w.status->session( "s" );
   EXPECT_TRUE( status->failedSrc( eth( 2 ) ) && status->failedSrc( eth( 3 ) ) );
   w.source( "s", 4 );
   w.helper->refusedSource.clear();
   w.helper->invalid.clear();
   EXPECT_EQ( w.held().size(), 1u );
   w.phy->intfStatus( eth( 2 ) )->activeIs( false );
   w.phy->intfStatus( eth( 3 ) )->linkUpIs( true );
   EXPECT_EQ( w.held().size(), 3u );
   w.helper->invalid = { eth( 4 ) };
   w.phy->intfStatusIs( eth( 4 ) );
   EXPECT_TRUE( status->failedSrc( eth( 4 ) ) );
   w.config->session( "s" )->srcIntfDel( eth( 4 ) );
   EXPECT_EQ( status->failedSrcs(), 0u );
   EXPECT_EQ( status->programmedSrcs(), 2u );
}

TEST( MirrorSources, AVxlanInterfaceMirrorsWhatItReceivesOfItsNetworks ) {
   SourceWorld w;
   const IntfId vxlan( "Vxlan1" );
   auto source = w.config->session( "s" )->srcVxlanIntfIs( vxlan );
   EXPECT_EQ( w.helper->taken(), Calls() ); // of no network
   source->vniIs( 5 );
   source->vniIs( 6 );
   source->directionIs( Direction::both ); // no matter
   EXPECT_EQ( w.helper->taken(), ( Calls{ "+src s 0 -1 Vxlan1 rx", "-src s 0 -1 Vxlan1 rx",
                                          "+src s 0 -1 Vxlan1 rx" } ) );
   EXPECT_EQ( w.sm->session( "s" )->srcIntfLocal( vxlan )->inHw().filter().vnis,
              ( std::vector< U32 >{ 5, 6 } ) );
   w.config->session( "s" )->srcVxlanIntfDel( vxlan );
   EXPECT_EQ( w.helper->taken(), Calls{ "-src s 0 -1 Vxlan1 rx" } );
}

// --- Filters -------------------------------------------------------------------------------------

TEST( MirrorFilters, FollowTheAccessList ) {
   SourceWorld w;
   w.filter( "s", 2, "list" );
   EXPECT_EQ( w.helper->taken(), // made without its filter first
              ( Calls{ "+src s 0 -1 Ethernet2 rx", "-src s 0 -1 Ethernet2 rx" } ) );
   w.config->session( "s" )->srcIntfDelAll();
   auto made = w.config->session( "s" )->srcIntfIs( eth( 2 ), Direction::none );
   made->aclNameIs( "list" );
   made->directionIs( Direction::rx );
   w.helper->taken();
   EXPECT_TRUE( w.status->session( "s" )->failedSrc( eth( 2 ) ) ); // there is no such list
   w.acl( "list" );
   const Calls add = { "+src s 0 -1 Ethernet2 rx acl list" };
   const Calls again = { "-src s 0 -1 Ethernet2 rx", add[0] };
   EXPECT_EQ( w.helper->taken(), ( Calls{ "tcam s ip", add[0] } ) );
   w.acl( "list" )->versionIs( 2 );
   EXPECT_EQ( w.helper->taken(), again );
   made->aclPriorityIs( 5 );
   EXPECT_EQ( w.helper->taken(), again );
   w.acl( "other" );
   EXPECT_EQ( w.helper->taken(), Calls() );
   made->aclNameIs( "other" );
   EXPECT_EQ( w.helper->taken(),
              ( Calls{ "-src s 0 -1 Ethernet2 rx", "+src s 0 -1 Ethernet2 rx acl other" } ) );
   auto local = w.sm->session( "s" )->srcIntfLocal( eth( 2 ) );
   EXPECT_EQ( local->aclAppliedInHw(), "other" );
   w.acls->typeDel( Acl::AclType::ip ); // all lists of the type
   EXPECT_EQ( w.helper->taken(), Calls{ "-src s 0 -1 Ethernet2 rx" } );
   made->aclNameIs( "" );
   EXPECT_EQ( w.helper->taken(), Calls{ "+src s 0 -1 Ethernet2 rx" } );
   w.acl( "m", Acl::AclType::mac );
   w.filter( "s", 2, "m", Acl::AclType::mac );
   EXPECT_EQ( w.helper->taken(), ( Calls{ "-src s 0 -1 Ethernet2 rx", "tcam s mac",
                                          "+src s 0 -1 Ethernet2 rx acl m" } ) );
   EXPECT_EQ( w.broken(), "" );
}

TEST( MirrorFiltersDeathTest, OfAnUnknownType ) {
   SourceWorld w;
   auto source = w.source( "s", 2 );
   source->aclTypeIs( Acl::AclType( 7 ) );
   EXPECT_DEATH( source->aclNameIs( "x" ),
                 "Assertion 'aclType == Acl::ip\\(\\) \\|\\| aclType == Acl::mac\\(\\) \\|\\| "
                 "aclType == Acl::ipv6\\(\\)' failed" );
}

TEST( MirrorFilters, WithoutRoomTheyAreTriedAgainWhenAnotherGoes ) {
   SourceWorld w;
   w.acl( "list" );
   for ( U32 n : { 2, 3, 4 } ) {
      w.filter( "s", n, "list" );
   }
   auto hw = w.hwStatus->sessionIs( "s" );
   auto report = [&]( U32 n, QonTypes::TableAddStatus outcome ) {
      hw->aclStatusIs( eth( n ), outcome );
   };
   using QonTypes::TableAddStatus;
   report( 3, TableAddStatus::handedOver );
   report( 3, TableAddStatus::full );
   report( 4, TableAddStatus::full );
   EXPECT_EQ( w.messages(), ( Calls{ aclFull, aclFull } ) );
   EXPECT_EQ( w.held(), ( Sources{ { eth( 2 ), Direction::rx } } ) );
   EXPECT_EQ( w.sm->session( "s" )->srcIntfLocal( eth( 3 ) )->aclAppliedInHw(), "" );
   EXPECT_TRUE( w.status->session( "s" )->failedSrc( eth( 3 ) ) );
   w.helper->taken();
   w.config->session( "s" )->srcIntfDel( eth( 2 ) );
   EXPECT_EQ( w.held().size(), 2u );
   report( 4, TableAddStatus::full ); // is heard, and was said
   EXPECT_EQ( w.held(), ( Sources{ { eth( 3 ), Direction::rx } } ) );
   report( 3, TableAddStatus::success );
   EXPECT_EQ( w.messages(), Calls() );
   w.acl( "list" )->versionIs( 9 ); // other rules, another chance
   EXPECT_EQ( w.held().size(), 2u );
   report( 4, TableAddStatus::full );
   EXPECT_EQ( w.messages(), Calls{ aclFull } );
   w.filter( "s", 4, "" );
   EXPECT_EQ( w.held().size(), 2u ); // without a filter there is room
   w.filter( "s", 4, "list" );
   report( 3, TableAddStatus::full );
   w.helper->onCall = [&]( const String & call ) {
      if ( call.starts_with( "+src s 0 -1 Ethernet3" ) ) {
         w.helper->onCall = nullptr;
         throw Velto::RangeError( "room" );
      }
   };
   EXPECT_THROW( w.config->session( "s" )->srcIntfDel( eth( 4 ) ), Velto::RangeError );
   EXPECT_EQ( w.held(), ( Sources{ { eth( 3 ), Direction::rx } } ) ); // once more
   EXPECT_EQ( w.broken(), "" );
}

TEST( MirrorFilters, AnotherOneThatFindsNoRoomEitherIsAnotherMessage ) {
   SourceWorld w;
   w.acl( "list" );
   w.acl( "other" );
   w.filter( "s", 2, "list" );
   w.filter( "s", 3, "list" );
   auto hw = w.hwStatus->sessionIs( "s" );
   hw->aclStatusIs( eth( 3 ), QonTypes::TableAddStatus::full );
   EXPECT_EQ( w.messages(), Calls{ aclFull } );
   w.config->session( "s" )->srcIntfDel( eth( 2 ) ); // it is tried again, and not answered yet
   w.filter( "s", 3, "other" );
   hw->aclStatusIs( eth( 3 ), QonTypes::TableAddStatus::handedOver );
   hw->aclStatusIs( eth( 3 ), QonTypes::TableAddStatus::full );
   EXPECT_EQ( w.messages(), Calls{ aclFull } );
   EXPECT_EQ( w.broken(), "" );
}

TEST( MirrorFilters, WhatWasSaidOfAnEarlierAttemptIsNoAnswer ) {
   SourceWorld w;
   w.acl( "list" );
   w.filter( "s", 2, "list" );
   auto hw = w.hwStatus->sessionIs( "s" );
   hw->aclStatusIs( eth( 2 ), QonTypes::TableAddStatus::full );
   EXPECT_EQ( w.messages(), Calls{ aclFull } );
   w.helper->maxUni = 0; // from now on it is this that keeps it out
   w.capability->sourceLimitsVersionIs( 1 );
   w.source( "s", 2 )->directionIs( Direction::tx );
   EXPECT_EQ( w.overflow( 2 ), Qon::MirrorOverflow::overLimit );
   w.sm->initializedIs( false );
   hw->aclStatusIs( eth( 2 ), QonTypes::TableAddStatus::failed );
   w.sm->initializedIs( true );
   EXPECT_EQ( w.overflow( 2 ), Qon::MirrorOverflow::overLimit );
   EXPECT_EQ( w.messages(), Calls{ full } );
   w.helper->maxUni = 1;
   w.helper->refusedSource = { eth( 2 ) };
   w.helper->onCall = [&]( const String & call ) { // no, and why
      if ( call.starts_with( "+src" ) ) {
         hw->aclStatusIs( eth( 2 ), QonTypes::TableAddStatus::full );
      }
   };
   w.messages();
   w.source( "s", 2 )->directionIs( Direction::rx );
   EXPECT_EQ( w.sm->session( "s" )->srcIntfLocal( eth( 2 ) )->reason(),
              Qon::MirrorReason::aclResources );
   EXPECT_EQ( w.broken(), "" );
}

TEST( MirrorFilters, WhatTheChipSaysIsHeardWhenever ) {
   SourceWorld w;
   using QonTypes::TableAddStatus;
   w.acl( "list" );
   auto hw = w.hwStatus->sessionIs( "t" ); // before there is such a session
   w.session( "t", 9 );
   w.config->session( "s" )->srcIntfIs( eth( 2 ), Direction::none );
   w.filter( "s", 2, "list" );
   w.source( "s", 2 )->directionIs( Direction::rx );
   for ( U32 n : { 3, 4 } ) {
      w.filter( "t", n, "list" );
   }
   hw->aclStatusIs( eth( 3 ), TableAddStatus::full );
   EXPECT_EQ( w.messages(), Calls{ aclFull } );
   EXPECT_EQ( w.held( "t" ).size(), 1u );
   w.config->sessionDel( "s" ); // its filter is room for those of others
   EXPECT_EQ( w.held( "t" ).size(), 2u );
   hw->aclStatusIs( eth( 3 ), TableAddStatus::success );
   hw->aclStatusIs( eth( 3 ), TableAddStatus::full ); // after all
   EXPECT_EQ( w.messages(), Calls{ aclFull } );
   hw->aclStatusIs( eth( 4 ), TableAddStatus::failed ); // for another reason
   EXPECT_EQ( w.messages(), Calls() );
   EXPECT_TRUE( w.status->session( "t" )->failedSrc( eth( 4 ) ) );
   EXPECT_EQ( w.broken(), "" );
}

// --- What fits -----------------------------------------------------------------------------------

TEST( MirrorLimits, OverAndBackByEveryWay ) {
   using Way = std::function< void( SourceWorld & ) >;
   const std::map< String, Way > ways = {
         { "removal", []( SourceWorld & w ) { w.config->session( "s" )->srcIntfDel( eth( 2 ) ); } },
         { "direction",
           []( SourceWorld & w ) { w.source( "s", 2 )->directionIs( Direction::none ); } },
         { "member leaves", []( SourceWorld & w ) { w.leave( 1, 3 ); } },
         { "limit",
           []( SourceWorld & w ) {
              w.helper->maxUni = 3;
              w.capability->sourceLimitsVersionIs( 1 );
           } },
   };
   for ( auto & [how, way] : ways ) {
      SCOPED_TRACE( how );
      SourceWorld w( 2, 2 );
      w.join( 1, 3 );
      w.source( "s", 2 );
      w.source( "s", po( 1 ) );
      w.source( "s", 4 );
      EXPECT_EQ( w.logs.records().back().text,
                 "Insufficient hardware resources are available to add interface Ethernet4 as a "
                 "source to session s. There is a maximum of 2 bidirectional sources or 2 "
                 "unidirectional sources available for a mirror session." );
      EXPECT_EQ( w.messages(), Calls{ full } );
      EXPECT_EQ( w.overflow( 4 ), Qon::MirrorOverflow::overLimit );
      w.source( "s", 4 )->directionIs( Direction::tx ); // still over it
      EXPECT_EQ( w.messages(), Calls() );
      way( w );
      EXPECT_EQ( w.held().count( eth( 4 ) ), 1u );
      EXPECT_EQ( w.overflow( 4 ), Qon::MirrorOverflow::normal );
      EXPECT_EQ( w.messages(), Calls{ normal } );
      EXPECT_EQ( w.broken(), "" );
   }
}

TEST( MirrorLimits, BothDirectionsShareTheRoom ) {
   SourceWorld w( 2, 4 );
   w.source( "s", 2, Direction::both );
   w.source( "s", 3, Direction::rx );
   w.source( "s", 4, Direction::tx );
   EXPECT_EQ( w.held().size(), 3u );
   w.source( "s", 5, Direction::rx ); // half of one limit leaves half of the other
   w.source( "s", 6, Direction::rx );
   EXPECT_EQ( w.messages(), ( Calls{ full, full } ) );
   w.config->session( "s" )->srcIntfDel( eth( 2 ) );
   EXPECT_EQ( w.held().size(), 4u );
   EXPECT_EQ( w.messages(), Calls{ normal } );
   w.helper->maxUni = 1; // those behind go
   w.capability->sourceLimitsVersionIs( 1 );
   EXPECT_EQ( w.held(), ( Sources{ { eth( 3 ), Direction::rx } } ) );
   EXPECT_EQ( w.messages(), ( Calls{ full, full, full } ) );
   EXPECT_EQ( w.broken(), "" );
}

TEST( MirrorLimits, OneRecoveryForAllSessions ) {
   SourceWorld w( 1, 1 );
   w.session( "t", 9 );
   for ( const char * name : { "s", "t" } ) {
      w.source( name, 2 );
      w.source( name, 3 );
   }
   EXPECT_EQ( w.messages(), ( Calls{ full, full } ) );
   w.config->session( "s" )->srcIntfDel( eth( 3 ) ); // itself over the limit
   EXPECT_EQ( w.messages(), Calls() );
   w.config->sessionDel( "t" );
   EXPECT_EQ( w.messages(), Calls{ normal } );
   EXPECT_EQ( w.sm->session( "s" )->overflowLogged(), 0u );
   w.source( "s", 3 );
   w.messages();
   w.config->session( "s" )->targetIntfDel( eth( 1 ) ); // nothing is in hardware: not well
   EXPECT_EQ( w.overflow( 3 ), Qon::MirrorOverflow::normal );
   EXPECT_EQ( w.messages(), Calls() );
   w.helper->maxUni = 2;
   w.session( "s", 1 ); // all of them fit
   EXPECT_EQ( w.messages(), Calls{ normal } );
   EXPECT_EQ( w.broken(), "" );
}

TEST( MirrorLimits, OneReasonAfterTheOtherIsNoRecovery ) {
   SourceWorld w( 1, 1 );
   w.mode->forwardingModeIs( Bridging::ForwardingMode::cutThrough );
   w.source( "s", 3, Direction::rx );
   w.source( "s", 2, Direction::tx );
   EXPECT_EQ( w.messages(), Calls{ overlap } );
   w.helper->taken();
   w.mode->forwardingModeIs( Bridging::ForwardingMode::storeAndForward ); // nobody goes for it
   EXPECT_EQ( w.messages(), Calls{ full } );
   EXPECT_EQ( w.helper->taken(), Calls() );
   w.capability->sourceLimitsVersionIs( 1 ); // as before: who is in hardware stays
   EXPECT_EQ( w.helper->taken(), Calls() );
   w.session( "t", 9 );
   w.config->session( "s" )->targetIntfDel( eth( 1 ) );
   w.config->sessionDel( "t" ); // others do not speak for a session that is not in hardware
   EXPECT_EQ( w.messages(), Calls() );
   w.sm->initializedIs( false );
   w.session( "s", 1 );
   w.helper->maxUni = 2;
   w.capability->sourceLimitsVersionIs( 2 );
   w.sm->initializedIs( true );
   EXPECT_EQ( w.messages(), Calls{ normal } );
   w.sm->initializedIs( false );
   w.helper->maxUni = 1;
   w.capability->sourceLimitsVersionIs( 3 ); // not heard, and asked
   w.sm->initializedIs( true );
   EXPECT_EQ( w.held(), ( Sources{ { eth( 2 ), Direction::tx } } ) );
   EXPECT_EQ( w.messages(), Calls{ full } );
   EXPECT_EQ( w.broken(), "" );
}

TEST( MirrorLimits, AStopIsNoRecovery ) {
   SourceWorld w( 1, 1 );
   w.session( "t", 9 );
   for ( const char * name : { "s", "t" } ) {
      w.source( name, 2 );
      w.source( name, 3 );
   }
   w.config->session( "t" )->srcIntfDel( eth( 3 ) ); // not yet: the other one's
   w.messages();
   w.sm->doCleanup();
   EXPECT_EQ( w.messages(), Calls() );
}

TEST( MirrorLimits, CutThroughKeepsBothDirectionsApart ) {
   SourceWorld w( 4, 4 );
   w.source( "s", 2, Direction::both );
   w.source( "s", 5, Direction::tx );
   w.source( "s", 4, Direction::rx );
   w.source( "s", 3, Direction::rx );
   EXPECT_EQ( w.messages(), Calls() );
   w.helper->taken();
   w.mode->forwardingModeIs( Bridging::ForwardingMode::cutThrough );
   EXPECT_EQ( w.held(), ( Sources{ { eth( 3 ), Direction::rx }, { eth( 4 ), Direction::rx } } ) );
   EXPECT_EQ( w.logs.records()[0].text,
              "Attempt to add mirror source Ethernet2 in mirror session s has failed. " );
   EXPECT_EQ( w.messages(), ( Calls{ overlap, overlap } ) );
   EXPECT_EQ( w.sm->session( "s" )->invalidOverlapLogged(), 2u );
   w.helper->maxUni = 2;
   w.helper->maxBi = 2;
   w.capability->sourceLimitsVersionIs( 1 );
   w.mode->forwardingModeIs( Bridging::ForwardingMode::storeAndForward ); // over the limit now
   EXPECT_EQ( w.messages(), ( Calls{ full, full } ) );
   EXPECT_EQ( w.sm->session( "s" )->invalidOverlapLogged(), 0u );
   EXPECT_EQ( w.sm->session( "s" )->overflowLogged(), 2u );
   w.config->session( "s" )->srcIntfDel( eth( 3 ) );
   EXPECT_EQ( w.held(), ( Sources{ { eth( 2 ), Direction::both }, { eth( 4 ), Direction::rx } } ) );
   EXPECT_EQ( w.messages(), Calls() );
   w.config->session( "s" )->srcIntfDel( eth( 4 ) );
   EXPECT_EQ( w.messages(), Calls{ normal } );
   EXPECT_EQ( w.broken(), "" );
}

TEST( MirrorLimits, AnotherModeJudgesThoseThatWaitInTheirTurn ) {
   SourceWorld w( 1, 1 );
   w.source( "s", 3, Direction::rx );
   w.source( "s", 2, Direction::tx ); // there is no room left
   EXPECT_EQ( w.messages(), Calls{ full } );
   w.helper->taken();
   w.mode->forwardingModeIs( Bridging::ForwardingMode::cutThrough );
   EXPECT_EQ( w.held(), ( Sources{ { eth( 2 ), Direction::tx } } ) );
   EXPECT_EQ( w.messages(), Calls{ overlap } );
   EXPECT_EQ( w.sm->session( "s" )->overflowLogged(), 0u );
   EXPECT_EQ( w.sm->session( "s" )->invalidOverlapLogged(), 1u );
   EXPECT_EQ( w.broken(), "" );
}

TEST( MirrorLimits, ATunnelHasNoOverlap ) {
   SourceWorld w;
   w.hwStatus->reconciledIs( true );
   w.mode->forwardingModeIs( Bridging::ForwardingMode::cutThrough );
   w.resolve( "10.0.0.1", 5 );
   w.source( "s", 2, Direction::both );
   EXPECT_EQ( w.messages(), Calls{ overlap } );
   w.config->session( "s" )->tunnelIs( w.gre() );
   EXPECT_EQ( w.held().size(), 1u );
   EXPECT_EQ( w.messages(), Calls{ normal } );
}

} // namespace
