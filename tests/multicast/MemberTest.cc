// Members: ports that come late, aggregates, routers.

#include "tests/multicast/McastWorld.h"

namespace {

using namespace McastTests;

struct Members : testing::Test, McastWorld {};

TEST_F( Members, CountWhileTheirPortIsThere ) {
   start();
   join( 1, eth( 1 ) );
   join( 1, eth( 20 ) );
   run();
   EXPECT_EQ( out( 1 ), Ports{ eth( 1 ) } );
   EXPECT_TRUE( helper->unresolvedPortGroupMembership().has( eth( 20 ) ) );
   acsd->intfIs( eth( 20 ), true );
   run();
   EXPECT_EQ( out( 1 ), ( Ports{ eth( 1 ), eth( 20 ) } ) );
   EXPECT_TRUE( helper->portGroupMembership().has( eth( 20 ) ) );
   const U32 bit = helper->bitOf( eth( 20 ) );
   acsd->intfDel( eth( 20 ) );
   acsd->intfIs( eth( 30 ), true );
   run();
   EXPECT_EQ( out( 1 ), Ports{ eth( 1 ) } );
   leave( 1, eth( 20 ) );
   acsd->intfIs( eth( 20 ), true );
   run();
   EXPECT_EQ( out( 1 ), Ports{ eth( 1 ) } );
   EXPECT_EQ( helper->bitOf( eth( 20 ) ), bit );
}

TEST_F( Members, OfAnAggregateAreItsPorts ) {
   lag( 1, { 1, 2 } );
   start();
   join( 1, po( 1 ) );
   join( 1, eth( 5 ) );
   join( 2, po( 1 ) );
   join( 3, po( 2 ) ); // nobody knows it yet
   run();
   EXPECT_EQ( out( 1 ), ( Ports{ eth( 1 ), eth( 2 ), eth( 5 ) } ) );
   EXPECT_EQ( out( 3 ), Ports() );
   lag( 2, { 3, 40 } );
   run();
   EXPECT_EQ( out( 3 ), Ports{ eth( 3 ) } );
   EXPECT_EQ( helper->unresolvedHardwarePortToLag( eth( 40 ) ), po( 2 ) );
   acsd->intfIs( eth( 40 ), true );
   run();
   EXPECT_EQ( out( 3 ), ( Ports{ eth( 3 ), eth( 40 ) } ) );
   EXPECT_EQ( helper->hardwarePortToLag( eth( 40 ) ), po( 2 ) );
   // A port moves: the groups of both are reviewed, each once.
   chip->updates.clear();
   lag( 2, { 3, 40, 2 } );
   lag( 1, { 1 } );
   EXPECT_EQ( helper->groupList().size(), 3u );
   run();
   EXPECT_EQ( out( 2 ), Ports{ eth( 1 ) } );
   EXPECT_EQ( out( 3 ), ( Ports{ eth( 2 ), eth( 3 ), eth( 40 ) } ) );
   EXPECT_EQ( chip->updates.size(), 3u );
   EXPECT_EQ( helper->hardwarePortToLag( eth( 2 ) ), po( 2 ) );
   // Other flags are no other ports.
   const U32 calls = chip->calls;
   auto list = acsd->lagToPort( po( 1 ) );
   list.portIs( eth( 1 ), Qon::QonLagPort( true, false ) );
   acsd->lagToPortIs( po( 1 ), list );
   run();
   EXPECT_EQ( chip->calls, calls );
   acsd->lagToPortDel( po( 1 ) );
   run();
   EXPECT_EQ( out( 2 ), Ports() );
   EXPECT_EQ( out( 1 ), Ports{ eth( 5 ) } );
   leave( 2, po( 1 ) );
   leave( 1, po( 1 ) );
   run();
   EXPECT_FALSE( helper->lagGroupMembership( po( 1 ) ) );
}

TEST_F( Members, OfAnAggregateThatComesBackAreWrittenAgain ) {
   lag( 1, { 1, 2 } );
   start();
   join( 1, po( 1 ) );
   run();
   join( 2, eth( 1 ) ); // stays on the set while the aggregate is gone
   join( 2, eth( 2 ) );
   run();
   EXPECT_EQ( bitmap( 1 ), bitmap( 2 ) );
   acsd->lagToPortDel( po( 1 ) );
   run();
   EXPECT_TRUE( bitmap( 2 )->lagRemoved() );
   lag( 1, { 1, 2 } );
   run();
   EXPECT_EQ( bitmap( 1 ), bitmap( 2 ) );
   EXPECT_FALSE( bitmap( 2 )->stale() );
   EXPECT_EQ( chip->modifies, 1u );
   EXPECT_TRUE( bitmap( 1 )->lagList().portHas( po( 1 ) ) );
   // Whoever came to a set that was there, or came by the aggregate to what it had, counts as well.
   lag( 2, { 3, 4 } );
   for ( U32 n : { 3, 4 } ) {
      join( 5, eth( n ) );
   }
   join( 6, po( 2 ) );
   run();
   acsd->lagToPortDel( po( 2 ) );
   lag( 2, { 3, 4 } );
   run();
   EXPECT_EQ( chip->modifies, 2u );
   leave( 6, po( 2 ) );
   join( 5, po( 2 ) );
   leave( 5, eth( 3 ) );
   leave( 5, eth( 4 ) );
   run();
   acsd->lagToPortDel( po( 2 ) );
   lag( 2, { 3, 4 } );
   run();
   EXPECT_EQ( chip->modifies, 3u );
}

TEST_F( Members, AMemberOfAnAggregateInItsOwnRight ) {
   lag( 1, { 1, 2 } );
   start();
   join( 1, po( 1 ) );
   join( 1, eth( 1 ) );
   run();
   leave( 1, po( 1 ) );
   run();
   EXPECT_EQ( out( 1 ), Ports{ eth( 1 ) } );
   lag( 1, { 2 } );
   run();
   EXPECT_EQ( out( 1 ), Ports{ eth( 1 ) } );
}

TEST_F( Members, StayForTheirRouter ) {
   start();
   join( 1, eth( 1 ) );
   join( 1, eth( 2 ) );
   join( 1, eth( 2 ), 20 );
   run();
   router( eth( 2 ), true );
   router( eth( 3 ), true );
   leave( 1, eth( 2 ) );
   leave( 1, eth( 2 ), 20 ); // it is no router's port there
   run();
   EXPECT_EQ( out( 1 ), ( Ports{ eth( 1 ), eth( 2 ) } ) ) << "being a router's makes no member";
   EXPECT_EQ( out( 1, 20 ), Ports() );
   acsd->verifyData()->runChecks();
   EXPECT_EQ( acsd->verifyData()->verifyInc(), 0u );
   router( eth( 2 ), false );
   run();
   EXPECT_EQ( out( 1 ), Ports{ eth( 1 ) } );
   // What was never in hardware does not stay there.
   join( 1, eth( 3 ) );
   leave( 1, eth( 3 ) );
   run();
   EXPECT_EQ( out( 1 ), Ports{ eth( 1 ) } );
   // Static groups know no routers.
   fixed( 2 )->intfIs( eth( 3 ) );
   run();
   fixed( 2 )->intfDel( eth( 3 ) );
   run();
   EXPECT_EQ( out( 2 ), Ports() );
}

TEST_F( Members, OfMlagAreLookedAtAndStay ) {
   lag( 1, { 1, 2 } );
   start();
   join( 1, po( 1 ) );
   join( 2, eth( 3 ) );
   run();
   acsd->mlagIntfPortIs( eth( 1 ), true );
   acsd->mlagIntfPortIs( eth( 3 ), true );
   EXPECT_EQ( helper->groupList().size(), 2u );
   run();
   EXPECT_EQ( out( 1 ), ( Ports{ eth( 1 ), eth( 2 ) } ) );
   EXPECT_EQ( out( 2 ), Ports{ eth( 3 ) } );
}

// --- Memory that goes bad, and what a verification run finds ---------------------------------------

TEST_F( Members, AreWrittenAgainAfterAParityError ) {
   acsd->parityEventIs( Qon::ParityEvent::Key( "multicast", 1 ), Qon::ParityEvent() );
   start();
   join( 1, eth( 1 ) );
   join( 2, eth( 2 ) );
   group( 3 );
   run();
   EXPECT_EQ( chip->modifies, 0u ) << "the event was there before everything";
   const Qon::ParityEvent::Key bad( "multicast", 2 );
   chip->group[0] = {};
   for ( auto & [index, ports] : chip->group ) {
      ports = {};
   }
   acsd->parityEventIs( bad, Qon::ParityEvent( bad, 1, false ) );
   EXPECT_EQ( chip->modifies, 1u ) << "the set that floods at once";
   run();
   EXPECT_EQ( out( 1 ), Ports{ eth( 1 ) } );
   EXPECT_EQ( out( 2 ), Ports{ eth( 2 ) } );
   EXPECT_EQ( chip->modifies, 3u );
   chip->macs.clear();
   const Qon::ParityEvent::Key mac( "mac", 0 );
   sm->initializedIs( false );
   acsd->parityEventIs( mac, Qon::ParityEvent( mac, 1, false ) );
   run();
   EXPECT_TRUE( chip->macs.empty() );
   sm->initializedIs( true );
   run();
   EXPECT_EQ( chip->forgotten, 2u );
   EXPECT_EQ( chip->macs.size(), 2u );
   const U32 calls = chip->calls;
   acsd->parityEventIs( Qon::ParityEvent::Key( "other", 0 ), Qon::ParityEvent() );
   acsd->parityEventDel( mac );
   run();
   EXPECT_EQ( chip->calls, calls );
   chip->macs.clear();
   acsd->parityEventIs( mac, Qon::ParityEvent( mac, 1, false ) ); // as before, and a new one
   run();
   EXPECT_EQ( chip->macs.size(), 2u );
}

TEST_F( Members, AreWrittenAgainAfterAParityErrorWhileTheyAreWritten ) {
   start();
   run();
   // Of a group the chip is asked for the entry, the bitmap, its group, the write and the MAC entry.
   for ( U32 n : { 4, 5 } ) {
      const char * table = n == 4 ? "multicast" : "mac";
      chip->during = [&, at = chip->calls + n]( U32 call ) {
         if ( call == at ) {
            acsd->parityEventIs( Qon::ParityEvent::Key( table, 1 ), Qon::ParityEvent() );
         }
      };
      join( n, eth( n ) );
      run();
      EXPECT_EQ( out( n ), Ports{ eth( n ) } );
   }
   EXPECT_EQ( chip->modifies, 2u ) << "the set that floods, too";
   EXPECT_EQ( chip->forgotten, 2u );
   EXPECT_EQ( chip->updates, ( std::vector{ key( 4 ), key( 5 ), key( 4 ), key( 5 ) } ) );
}

TEST_F( Members, AreWrittenAgainAfterAParityErrorThoughAHookRaises ) {
   join( 1, eth( 1 ) );
   start();
   run();
   // The chip's agent is told to forget the MAC entry, and then asked for it.
   for ( U32 n : { 1, 2 } ) {
      chip->macs.clear();
      chip->during = [&, at = chip->calls + n]( U32 call ) {
         if ( call == at ) {
            throw Velto::RangeError( "sabotage" );
         }
      };
      acsd->parityEventIs( Qon::ParityEvent::Key( "mac", n ), Qon::ParityEvent() );
      EXPECT_THROW( scheduler.runFor( 1 ), Velto::RangeError );
      scheduler.runFor( 20 ); // it waits as one without room does
      EXPECT_EQ( chip->macs.size(), 1u ) << "call " << n;
   }
}

TEST_F( Members, AreVerified ) {
   start();
   join( 1, eth( 1 ) );
   auto findings = acsd->verifyData();
   findings->runChecks(); // too early: it tries again by itself
   EXPECT_TRUE( helper->waitToVerify() );
   run( 2 );
   EXPECT_FALSE( helper->waitToVerify() );
   EXPECT_EQ( findings->verifyInc(), 0u );
   // A member that configuration knows nothing of is found, and looked at four times in all.
   helper->addIntf( eth( 2 ), entry( 1 )->vGroup() );
   run( 2 );
   findings->runChecks();
   EXPECT_EQ( findings->verifyInc(), 1u );
   run( 20 );
   EXPECT_EQ( findings->verifyInc(), 4u );
   EXPECT_NE(
         findings->verifyOutput().description().find( "Orvane doesn't match what's in our entry" ),
         String::npos );
   helper->removeIntf( eth( 2 ), entry( 1 )->vGroup() );
   run();
   EXPECT_TRUE( helper->handleVerify( sm->vlan( VlanId( 10 ) )->group( mac( 1 ) ) ) );
}

// --- What else the CPU gets ------------------------------------------------------------------------

struct TestUpdater : Qon::MulticastCopyUpdater {
   using MulticastCopyUpdater::MulticastCopyUpdater;
   void updateCopyRequest( bool enabled, Qon::PacketType type ) override {
      if ( auto act = std::exchange( during, nullptr ) ) {
         act();
      }
      told[type] = enabled;
   }
   void updateCopyAndDropRequest( bool enabled, Qon::PacketType type ) override {
      told[type] = enabled;
   }
   std::map< Qon::PacketType, bool > told;
   std::function< void() > during;
};

TEST( CopyRequests, HoldWhileAnybodyAsks ) {
   using Qon::PacketType;
   using Told = std::map< PacketType, bool >;
   auto config = Velto::make< Bridging::Multicast::CopyRequestConfig >( "copies" );
   config->linkLocalCopyRequestIs( "lldp" );
   auto updater = Qon::smIs< TestUpdater >( config );
   updater->initializedIs( true );
   Told wanted = { { PacketType::igmpPacket, false }, { PacketType::linkLocalPacket, true } };
   EXPECT_EQ( updater->told, wanted );
   config->linkLocalCopyRequestIs( "ptp" );
   config->igmpCopyAndDropRequestIs( "snooping" );
   config->linkLocalCopyRequestDel( "lldp" );
   wanted[PacketType::igmpPacket] = true;
   EXPECT_EQ( updater->told, wanted ) << "one still asks";
   updater->initializedIs( false );
   config->linkLocalCopyRequestDel( "ptp" );
   EXPECT_EQ( updater->told, wanted );
   updater->initializedIs( true );
   wanted[PacketType::linkLocalPacket] = false;
   EXPECT_EQ( updater->told, wanted );
   // Who asks no more while the chip is being told is not forgotten; nor is one whose hook raised.
   updater->during = [&] { config->linkLocalCopyRequestDel( "lldp" ); };
   config->linkLocalCopyRequestIs( "lldp" );
   EXPECT_EQ( updater->told, wanted );
   updater->during = [] { throw Velto::RangeError( "sabotage" ); };
   EXPECT_THROW( config->linkLocalCopyRequestIs( "ptp" ), Velto::RangeError );
   wanted[PacketType::linkLocalPacket] = true;
   EXPECT_EQ( updater->told, wanted );
}

} // namespace
