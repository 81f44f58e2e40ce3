// Lists of single hosts.

#include "tests/acl/AclWorld.h"
#include "tests/harness/Sabotage.h"

namespace {

using namespace AclTests;

struct HostWorld : AclWorld {
   HostWorld() {
      direction( ip );
      list( "a" );
   }
   void host( const String & name, U64 address, const String & list ) {
      hosts->hostIs( { intf( name ), Ulnet::EthAddr( address ) }, { ip, list } );
   }
   void hostDel( const String & name, U64 address ) {
      hosts->hostDel( { intf( name ), Ulnet::EthAddr( address ) } );
   }
   /** "a Ethernet1/2" of each list, port and host. */
   Chip bound() const {
      Chip all;
      for ( auto & acl : table.held().acls ) {
         for ( auto & use : acl.uses ) {
            all.insert( acl.name + " " + use.pair().intfId().stringValue() +
                        ( use.host().isZero() ? "" : "/" + Kiv::toText( use.host().value() ) ) );
         }
      }
      return all;
   }
   /** What is done with what a host sends. */
   QonChip::AclVerdict verdict( U64 address, const String & port = "Ethernet1" ) const {
      QonChip::AclPacket packet;
      packet.ethSrc = Ulnet::EthAddr( address );
      packet.src = packet.dst = Ulnet::IpGenAddr( "10.0.0.1" );
      return table.lookup( intf( port ), {}, in, packet ).verdict;
   }
};

TEST( AclHosts, HaveTheirListsBesideThatOfThePort ) {
   using QonChip::AclVerdict;
   HostWorld w;
   w.rule( "open", 1 );
   w.attach( "Ethernet1", "open" );
   w.host( "Ethernet1", 2, "a" ); // which denies everything
   w.host( "Ethernet1", 3, "b" ); // and is not there
   w.start();
   w.settle();
   EXPECT_EQ( w.bound(), ( Chip{ "a Ethernet1/2", "open Ethernet1" } ) );
   EXPECT_EQ( w.verdict( 2 ), AclVerdict::deny );
   EXPECT_EQ( w.verdict( 4 ), AclVerdict::permit );
   auto data = w.sm( "a" )->aclData( portKey() );
   EXPECT_TRUE( data->perHostAcl() == w.list( "a" ).ptr() );
   EXPECT_EQ( data->activeIntfs(), 1u );
   w.attach( "Ethernet1", "a" ); // the port as a whole, too
   w.list( "b" );
   w.settle();
   EXPECT_EQ( w.bound(), ( Chip{ "a Ethernet1", "a Ethernet1/2", "b Ethernet1/3" } ) );
   EXPECT_EQ( data->activeIntfs(), 1u );
   w.detach( "Ethernet1" );
   w.host( "Ethernet1", 2, "b" );
   w.settle();
   EXPECT_EQ( w.bound(), ( Chip{ "b Ethernet1/2", "b Ethernet1/3" } ) );
   w.helper->takeCalls();
   w.hostDel( "Ethernet1", 2 ); // for which nothing is made anew
   w.settle();
   EXPECT_EQ( w.helper->takeCalls().size(), 0u );
   EXPECT_EQ( w.bound(), Chip{ "b Ethernet1/3" } );
   w.hostDel( "Ethernet1", 3 );
   w.settle();
   EXPECT_EQ( w.bound(), Chip{} );
   EXPECT_EQ( w.aclSm->aclIntfSm( intf( "Ethernet1" ) ), nullptr );
}

TEST( AclHosts, ComeAndGoWithListsPortsDirectionsAndModes ) {
   HostWorld w;
   w.host( "Ethernet1", 2, "a" );
   w.host( "Port-Channel1", 3, "a" );
   w.host( "Ethernet1", 0, "a" ); // nobody has that address
   w.host( "Vlan10", 2, "a" );    // only ports have hosts
   w.start();
   w.settle();
   const Chip one = { "a Ethernet1/2" };
   EXPECT_EQ( w.bound(), one );
   w.rule( "a", 10 ); // in the pass of the list
   w.settle();
   EXPECT_EQ( w.bound(), one );
   w.listDel( "a" );
   w.settle();
   EXPECT_EQ( w.bound(), Chip{} );
   w.list( "a" );
   w.settle();
   EXPECT_EQ( w.bound(), one );
   w.sharing( ip, in, Acl::SharingKind::port, false );
   w.settle();
   EXPECT_NE( w.sm( "a" )->aclDataSm( portKey( in, "Ethernet1" ) ), nullptr );
   EXPECT_EQ( w.sm( "a" )->aclDataSm( portKey() ), nullptr );
   w.members( "Port-Channel1", { "Ethernet1", "Ethernet2" } );
   w.settle();
   EXPECT_EQ( w.bound(), ( Chip{ "a Ethernet1/3", "a Ethernet2/3" } ) );
   w.members( "Port-Channel1", {} );
   w.intfs->type( ip )->directionDel( in );
   w.settle();
   EXPECT_EQ( w.bound(), Chip{} );
   w.direction( ip );
   w.settle();
   EXPECT_EQ( w.bound(), one );
   w.acsd->intfIs( intf( "Ethernet2" ), true ); // and Ethernet1 is nobody's
   w.settle();
   EXPECT_EQ( w.bound(), Chip{} );
   w.acsd->intfDelAll();
   w.aclSm->initializedIs( false );
   w.host( "Ethernet3", 5, "a" );
   w.hostDel( "Ethernet1", 2 );
   w.aclSm->initializedIs( true );
   w.settle();
   EXPECT_EQ( w.bound(), Chip{ "a Ethernet3/5" } );
   w.aclSm->doCleanup();
   EXPECT_EQ( w.bound(), Chip{} );
}

TEST( AclHosts, AreNoneWhereTheChipHasNone ) {
   HostWorld w;
   auto limits = w.table.limits();
   limits.perHost = false;
   w.table.limitsAre( limits );
   w.host( "Ethernet1", 2, "a" );
   w.start();
   w.settle();
   EXPECT_EQ( w.bound(), Chip{} );
}

TEST( AclSabotage, OfHosts ) {
   Tests::sabotage( []( Tests::Saboteur & saboteur ) {
      HostWorld w;
      w.attach( "Ethernet9", "a" );
      w.start();
      w.scheduler.settle();
      auto data = Ptr< Qon::AclData >( w.sm( "a" )->aclData( portKey() ) );
      saboteur.watches( { data.ptr() } );
      saboteur.drops( w.aclSm );
      auto step = [&]( auto act ) {
         saboteur.does( act );
         saboteur.does( [&] { w.scheduler.settle(); } );
         w.scheduler.settle();
      };
      step( [&] { w.host( "Ethernet1", 2, "a" ); } );
      step( [&] { w.host( "Ethernet1", 3, "a" ); } );
      step( [&] { w.members( "Port-Channel1", { "Ethernet1" } ); } );
      step( [&] { w.host( "Port-Channel1", 2, "a" ); } );
      step( [&] { w.listDel( "a" ); } );
      saboteur.ends(
            [&] { return !w.bound().empty() ? "something is left" : w.aclSm->checkInvariants(); } );
   } );
}

} // namespace
