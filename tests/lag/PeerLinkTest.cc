// What the MLAG peer link lends to aggregates, and takes back.

#include "tests/lag/LagWorld.h"

namespace {

using namespace LagTests;

/** Port-Channel1 shares; Port-Channel10 (ports 20, 21) is the peer link. */
class PeerLinkFlow : public ::testing::Test, public LagWorld {
 protected:
   PeerLinkFlow() {
      hardwarePorts( 1, 32 );
      join( 1, 1 );
      join( 2, 2 );
      join( 10, 20 );
      join( 10, 21, true, false );
      start();
      lagSm->sharePeerLinkWithLagIs( po( 1 ), true );
   }
   /** The maps hold own members, whatever is lent. */
   void TearDown() override {
      EXPECT_EQ( acsd->portToLag( eth( 20 ) ), po( 10 ) );
      checkAll();
   }
   const Ports lent{ eth( 20 ), eth( 21 ) }, none;
};

TEST_F( PeerLinkFlow, SharingFollowsStatePeerLinkAndRedirection ) {
   EXPECT_EQ( hardware( 1, true ), none );
   mlagUp( po( 10 ) );
   EXPECT_EQ( hardware( 1, true ), lent );
   EXPECT_EQ( hardware( 1 ), Ports{ eth( 1 ) } );
   EXPECT_EQ( hardware( 2, true ), none ); // not asked for
   EXPECT_EQ( hardware( 10 ), lent );      // keeps them itself
   EXPECT_EQ( members( 1 ), Ports{ eth( 1 ) } );
   EXPECT_EQ( config->lag( po( 1 ) )->member( eth( 21 ) ),
              Hardware::Lag::Member( Qon::FapIdPort( 0, 21 ), true, false, true ) );

   for ( auto state :
         { Mlag::MlagState::disabled, Mlag::MlagState::inactive, Mlag::MlagState::connecting } ) {
      mlag->mlagStateIs( state );
      EXPECT_EQ( hardware( 1, true ), none ) << int( state );
      mlag->mlagStateIs( Mlag::MlagState::secondary );
      EXPECT_EQ( hardware( 1, true ), lent );
   }
   mlag->fastMacRedirectionIs( false );
   EXPECT_EQ( hardware( 1, true ), none );
   mlag->fastMacRedirectionIs( true );
   mlag->peerLinkIntfIs( IntfId() );
   EXPECT_EQ( hardware( 1, true ), none );
   mlag->peerLinkIntfIs( po( 2 ) ); // another aggregate
   EXPECT_EQ( hardware( 1, true ), Ports{ eth( 2 ) } );
   mlag->peerLinkIntfIs( eth( 30 ) ); // a plain port
   EXPECT_EQ( hardware( 1, true ), Ports{ eth( 30 ) } );
   mlag->peerLinkIntfIs( po( 1 ) ); // itself
   EXPECT_EQ( hardware( 1, true ), none );
   EXPECT_FALSE( lagSm->sharedPeerLink( po( 1 ) ) );
   mlag->peerLinkIntfIs( eth( 1 ) ); // its own member
   join( 1, 1, true, false );
   EXPECT_EQ( hardware( 1, true ), none );
   EXPECT_EQ( hardware( 1 ), Ports{ eth( 1 ) } );
   mlag->peerLinkIntfIs( po( 10 ) );
   lagSm->sharePeerLinkWithLagIs( po( 2 ), true );
   EXPECT_EQ( hardware( 2, true ), lent );
   lagSm->sharePeerLinkWithLagDelAll();
   EXPECT_EQ( hardware( 1, true ), none );
   EXPECT_EQ( hardware( 2, true ), none );
   lagSm->sharePeerLinkWithLagIs( po( 1 ), true );
   EXPECT_EQ( hardware( 1, true ), lent );
   lagSm->sharePeerLinkWithLagDel( po( 1 ) );
   EXPECT_EQ( hardware( 1, true ), none );
   EXPECT_EQ( hardware( 1 ), Ports{ eth( 1 ) } );
}

TEST_F( PeerLinkFlow, MembersOfThePeerLinkComeAndGo ) {
   mlagUp( po( 10 ) );
   join( 10, 22 );
   leave( 10, 21 );
   EXPECT_EQ( hardware( 1, true ), ( Ports{ eth( 20 ), eth( 22 ) } ) );
   join( 10, 22, false, false ); // flags only
   EXPECT_FALSE( config->lag( po( 1 ) )->member( eth( 22 ) ).collecting() );
   dir->intfStatusDel( po( 10 ) );
   EXPECT_EQ( hardware( 1, true ), none );
   join( 10, 20 );
   EXPECT_EQ( hardware( 1, true ), Ports{ eth( 20 ) } );
}

TEST_F( PeerLinkFlow, APlainPortIsLentWhileItIsManaged ) {
   mlagUp( eth( 30 ) );
   const auto table = { true, false, true };
   for ( bool managed : table ) {
      acsd->intfDelAll();
      EXPECT_EQ( hardware( 1, true ), Ports{ eth( 30 ) } );
      acsd->intfIs( eth( managed ? 30 : 1 ), true ); // the first entry: all others are nobody's
      EXPECT_EQ( hardware( 1, true ), managed ? Ports{ eth( 30 ) } : none );
   }
   acsd->intfIs( eth( 1 ), true );
   acsd->intfDel( eth( 30 ) );
   EXPECT_EQ( hardware( 1, true ), none );
   acsd->intfIs( eth( 30 ), true );
   EXPECT_EQ( hardware( 1, true ), Ports{ eth( 30 ) } );
   acsd->intfDelAll();
}

TEST_F( PeerLinkFlow, AnAggregateMayLiveOnLentMembersAlone ) {
   mlagUp( po( 10 ) );
   leave( 1, 1 );
   EXPECT_EQ( hardware( 1, true ), lent );
   EXPECT_EQ( hardware( 1 ), none );
   dir->intfStatusDel( po( 1 ) );
   EXPECT_FALSE( config->lagHas( po( 1 ) ) );
   join( 1, 3 ); // a new one: the wish to share is kept
   EXPECT_EQ( hardware( 1, true ), lent );
}

TEST( HardwareGroups, WhoBorrowsAPortDoesNotOwnIt ) {
   LagWorld w;
   w.hardwarePorts( 1, 2 );
   w.config->lagIs( po( 1 ), 1 )->memberIs( eth( 2 ), { Qon::FapIdPort(), true, true, true } );
   auto prog = Qon::LagProgSmIs( w.config, w.status, w.fapIdPorts );
   prog->initializedIs( true );
   const Qon::QonLagPort both( true, true );
   // What an earlier incarnation borrowed stays, whoever has it himself.
   prog->memberIs( po( 2 ), eth( 2 ), both, false );
   EXPECT_EQ( w.hardware( 1, true ), Ports{ eth( 2 ) } );
   // An own member becomes a lent one.
   prog->memberIs( po( 1 ), eth( 1 ), both, false );
   for ( U32 port : { 1, 2 } ) {
      prog->memberIs( po( 1 ), eth( port ), both, true );
      prog->memberIs( po( 2 ), eth( port ), both, false );
   }
   EXPECT_EQ( w.hardware( 1, true ), ( Ports{ eth( 1 ), eth( 2 ) } ) );
   EXPECT_EQ( w.hardware( 2 ), ( Ports{ eth( 1 ), eth( 2 ) } ) );
   prog->memberDel( po( 1 ), eth( 1 ) ); // lent no more, and then another's
   prog->memberIs( po( 3 ), eth( 1 ), both, false );
   EXPECT_EQ( w.hardware( 2 ), Ports{ eth( 2 ) } );
   EXPECT_EQ( w.hardware( 3 ), Ports{ eth( 1 ) } );
}

TEST_F( PeerLinkFlow, APortMovesBetweenOwnAndLent ) {
   mlagUp( po( 10 ) );
   join( 1, 21 ); // from the peer link into the aggregate that it is lent to
   EXPECT_EQ( hardware( 1 ), ( Ports{ eth( 1 ), eth( 21 ) } ) );
   EXPECT_EQ( hardware( 1, true ), Ports{ eth( 20 ) } );
   EXPECT_EQ( hardware( 10 ), Ports{ eth( 20 ) } );
   leave( 1, 21 ); // the peer link takes it back, and lends it
   EXPECT_EQ( hardware( 10 ), lent );
   EXPECT_EQ( hardware( 1, true ), lent );
   EXPECT_EQ( hardware( 1 ), Ports{ eth( 1 ) } );
}

} // namespace
