// Which interface has which list: instances, numbers, passes.

#include "tests/acl/AclWorld.h"

#include "platform/Kiv/Rng.h"

namespace {

using namespace AclTests;
using Acl::SharingKind;

TEST( AclNumbers, BlocksAndTheOrderOfNumbers ) {
   AclWorld w;
   w.direction( ipv6, out );
   w.direction( ip, out );
   w.direction( ip, in );
   w.start();
   auto start = [&]( AclType type, AclDirection d ) {
      return w.aclSm->directionSm( type, d )->numbers()->start();
   };
   EXPECT_EQ( start( ip, in ), 0u );
   EXPECT_EQ( start( ip, out ), 12576u );
   EXPECT_EQ( start( ipv6, out ), 2 * 12576u );
   auto sm = w.aclSm->directionSm( ip, in );
   auto data = [] { return Velto::make< Qon::AclData >( AclKey() ); };
   std::vector< Ptr< Qon::AclData > > all;
   for ( U32 n = 0; n < 12576; ++n ) {
      all.push_back( data() );
      ASSERT_EQ( sm->allocateAclNumber( "a", all.back().ptr() ), Qon::AclCreateError::success );
      ASSERT_EQ( all.back()->aclNumber(), n );
   }
   auto late = data();
   EXPECT_EQ( sm->allocateAclNumber( "a", late.ptr() ), Qon::AclCreateError::aclLimit );
   sm->freeAclPush( 5 );
   sm->freeAclPush( 7 );
   EXPECT_EQ( sm->allocateAclNumber( "a", late.ptr() ), Qon::AclCreateError::success );
   EXPECT_EQ( late->aclNumber(), 7u );
   EXPECT_EQ( sm->allocateAclNumber( "a", late.ptr() ), Qon::AclCreateError::success );
   EXPECT_EQ( late->aclNumber(), 7u );
}

TEST( AclNumbers, NoneIsUsedTwiceOrLostInAMillionOperations ) {
   auto numbers = Velto::make< Qon::AclNumbers >( 12576 );
   Kiv::Rng rng( 4 );
   std::vector< U32 > held;
   std::vector< bool > used( 12576 );
   for ( U32 n = 0; n < 1000000; ++n ) {
      const bool take = numbers->empty() ? false : held.empty() || rng.percent( 51 );
      if ( take ) {
         held.push_back( numbers->take() );
         ASSERT_FALSE( used[held.back() - 12576] );
         used[held.back() - 12576] = true;
      } else {
         std::swap( held[rng.below( U32( held.size() ) )], held.back() );
         used[held.back() - 12576] = false;
         numbers->push( held.back() );
         held.pop_back();
      }
   }
   EXPECT_EQ( numbers->free() + held.size(), 12576u );
}

TEST( AclNumbers, TheSixthDirectionIsOneTooMany ) {
   AclWorld w;
   w.start();
   for ( U32 n = 0; n < 5; ++n ) {
      w.intfs->typeIs( ip )->directionDel( in );
      w.direction( ip );
   }
   w.attach( "Ethernet1", "a" );
   w.list( "a" );
   w.settle();
   EXPECT_EQ( w.table.held().acls.front().number, 4 * 12576u );
   w.intfs->typeIs( ip )->directionDel( in );
   EXPECT_DEATH( w.direction( ip ), "aclNumberRangeStart < aclSm\\(\\)->aclNumbersUsed\\(\\)" );
}

TEST( AclNumbers, WhoWaitsForOneGetsItWhenItIsGivenBack ) {
   AclWorld w;
   w.sharing( ip, in, SharingKind::port, false );
   w.list( "a" );
   w.start();
   for ( U32 n = 1; n <= 12578; ++n ) {
      w.direction( ip )->intfIs( Ulnet::EthIntfId::intfId( n ), "a" );
   }
   w.settle();
   EXPECT_EQ( w.table.held().acls.size(), 12576u );
   auto waiting = [&] {
      U32 count = 0;
      for ( auto && [key, instance] : w.sm( "a" )->aclDataSmIteratorConst() ) {
         count += instance->waitsForNumber();
         EXPECT_EQ( instance->waitsForNumber(),
                    instance->status()->unitError( "" ) == Qon::AclCreateError::aclLimit );
      }
      return count;
   };
   EXPECT_EQ( waiting(), 2u );
   w.detach( "Ethernet77" );
   w.settle();
   EXPECT_EQ( waiting(), 1u );
   w.detach( "Ethernet78" );
   w.detach( "Ethernet79" );
   w.settle();
   EXPECT_EQ( waiting(), 0u );
   EXPECT_EQ( w.table.held().acls.size(), 12575u );
}

TEST( AclAttach, BeforeTheListDuringAndAgain ) {
   AclWorld w;
   w.attach( "Ethernet1", "a" );
   w.start();
   w.settle();
   EXPECT_EQ( w.chip(), Chip{} );
   w.list( "a" );
   w.settle();
   EXPECT_EQ( w.chip(), Chip{ "a( 0, in, default ): Ethernet1" } );
   w.helper->takeCalls();
   w.attach( "Ethernet2", "a" ); // joins what is there
   w.settle();
   EXPECT_EQ( w.helper->takeCalls(), Calls{ "on a Ethernet2" } );
   w.listDel( "a" );
   w.settle();
   EXPECT_EQ( w.chip(), Chip{} );
   w.list( "a" );
   w.settle();
   EXPECT_EQ( w.chip(), Chip{ "a( 0, in, default ): Ethernet1 Ethernet2" } );
   w.helper->takeCalls();
   w.listDel( "a" ); // and again in one burst: another list, one pass
   w.rule( "a", 10 );
   w.settle();
   EXPECT_EQ( w.helper->takeCalls(),
              ( Calls{ "block Ethernet1", "block Ethernet2", "uninstall a", "prepare a",
                       "on a Ethernet1", "on a Ethernet2", "commit a", "unblock Ethernet1",
                       "unblock Ethernet2" } ) );
}

TEST( AclAttach, AnotherListInOnePass ) {
   AclWorld w;
   w.list( "a" );
   w.list( "b" );
   w.attach( "Ethernet1", "a" );
   w.attach( "Ethernet2", "a" );
   w.attach( "Ethernet3", "b" );
   w.start();
   w.settle();
   w.helper->takeCalls();
   w.attach( "Ethernet1", "b" );
   w.settle();
   EXPECT_EQ( w.helper->takeCalls(), ( Calls{ "block Ethernet1", "off a Ethernet1",
                                              "on b Ethernet1", "unblock Ethernet1" } ) );
   w.attach( "Ethernet1", "a" );
   w.attach( "Ethernet1", "b" );
   w.settle(); // there and back
   EXPECT_EQ( w.chip(), ( Chip{ "a( 0, in, default ): Ethernet2",
                                "b( 0, in, default ): Ethernet1 Ethernet3" } ) );
}

TEST( AclRules, AnEditIsOnePassAndNoneIfItChangesNothing ) {
   AclWorld w;
   w.rule( "a", 10 );
   w.attach( "Ethernet1", "a" );
   w.start();
   w.settle();
   w.helper->takeCalls();
   const U32 number = w.sm( "a" )->aclData( portKey() )->aclNumber();
   for ( U32 seq = 20; seq < 30; ++seq ) {
      w.rule( "a", seq );
   }
   w.settle();
   EXPECT_EQ( w.helper->takeCalls(),
              ( Calls{ "block Ethernet1", "uninstall a", "prepare a", "on a Ethernet1", "commit a",
                       "unblock Ethernet1" } ) );
   EXPECT_EQ( w.table.held().acls.front().rules->rules().size(), 12u );
   EXPECT_EQ( w.sm( "a" )->aclData( portKey() )->aclNumber(), number );
   w.rule( "a", 30 );
   w.list( "a" )->ruleDel( 30 );
   w.settle();
   EXPECT_EQ( w.helper->takeCalls(), Calls{} );
}

Acl::IpFilter
web( U8 protocol = Acl::Protocol::tcp ) {
   Acl::IpFilter filter;
   filter.protocolIs( protocol );
   filter.dstPortIs( Acl::PortRange( 80, 90 ) );
   return filter;
}

TEST( AclRules, FragmentsAndImplicitRules ) {
   AclWorld w;
   w.start();
   using Action = Acl::RuleAction;
   for ( AclType type : { ip, ipv6, mac } ) {
      w.rule( "a", 10, Action::permit, web(), type );
      w.rule( "a", 20, Action::deny, web( Acl::Protocol::udp ), type );
      w.rule( "a", 30, Action::permit, web(), type ); // the fragments of rule 10's
      w.rule( "a", 40, Action::permit, {}, type );
   }
   auto shape = [&]( AclType type ) {
      String text;
      for ( auto & rule : w.sm( "a", type )->ruleSet()->rules() ) {
         text += rule.origin == Qon::AclRule::Origin::configured ? "c"
                 : rule.origin == Qon::AclRule::Origin::fragment ? "f"
                                                                 : "i";
      }
      return text;
   };
   EXPECT_EQ( shape( ip ), "cfccci" );
   EXPECT_EQ( shape( ipv6 ), "cfccciii" );
   EXPECT_EQ( shape( mac ), "cccci" );
   auto & fragment = w.sm( "a" )->ruleSet()->rules()[1];
   EXPECT_TRUE( fragment.rule.ip().fragments() && fragment.rule.ip().dstPort().any() );
   EXPECT_EQ( fragment.rule.ip().protocol(), Acl::Protocol::tcp );
   auto last = [&] { return w.sm( "a", ipv6 )->ruleSet()->rules().back().id; };
   const U32 id = last();
   w.list( "a", ipv6 )->ruleDel( 10 );
   EXPECT_EQ( last(), id ); // whatever rules there are
   EXPECT_EQ( shape( ipv6 ), "ccfciii" );
}

TEST( AclSharing, EveryKindBothWays ) {
   AclWorld w;
   w.list( "a" );
   w.vlan( "Ethernet4.1", 40 );
   w.vlan( "Ethernet4.2", 50 );
   for ( auto name : { "Ethernet1", "Ethernet2", "Ethernet4.1", "Ethernet4.2", "Vlan40", "Vlan60",
                       "Tunnel1" } ) {
      w.attach( name, "a" );
   }
   w.members( "Port-Channel1", { "Ethernet7", "Ethernet8" } );
   w.attach( "Port-Channel1", "a" );
   w.start();
   w.settle();
   EXPECT_EQ( w.chip(),
              ( Chip{ "a( 0, in, default ): Ethernet1 Ethernet2 Ethernet4.1 Ethernet4.2"
                      " Ethernet7@Port-Channel1 Ethernet8@Port-Channel1 Tunnel1",
                      "a( 40, in, default ): Vlan40", "a( 60, in, default ): Vlan60" } ) );
   w.sharing( ip, in, SharingKind::port, false );
   w.sharing( ip, in, SharingKind::subIntf, false );
   w.settle();
   EXPECT_EQ( w.chip(),
              ( Chip{ "a( 0, in, Ethernet1 ): Ethernet1", "a( 0, in, Ethernet2 ): Ethernet2",
                      "a( 0, in, Port-Channel1 ): Ethernet7@Port-Channel1 Ethernet8@Port-Channel1",
                      "a( 0, in, Tunnel1 ): Tunnel1", "a( 40, in, default ): Ethernet4.1 Vlan40",
                      "a( 50, in, default ): Ethernet4.2", "a( 60, in, default ): Vlan60" } ) );
   EXPECT_EQ( w.sm( "a" )->aclData( vlanKey( 40 ) )->activeIntfs(), 2u );
   w.sharing( ip, in, SharingKind::vlan, true );
   w.settle();
   EXPECT_EQ( w.chip().count( "a( 0, in, vlan ): Vlan40 Vlan60" ), 1u );
   EXPECT_EQ( w.chip().count( "a( 40, in, default ): Ethernet4.1" ), 1u );
   w.params->sharedModeDelAll();
   w.settle();
   EXPECT_EQ( w.chip().size(), 3u );
}

TEST( AclSharing, UnsharedEgressOnSubInterfacesWaits ) {
   AclWorld w;
   w.list( "a" );
   w.list( "a", ipv6 );
   w.vlan( "Ethernet1.1", 10 );
   w.sharing( ip, out, SharingKind::subIntf, false );
   w.sharing( ipv6, out, SharingKind::subIntf, false );
   w.attach( "Ethernet1.1", "a", ip, out );
   w.attach( "Ethernet1.1", "a", ipv6, out );
   w.start();
   w.settle();
   auto messages = [&] {
      U32 count = 0;
      for ( auto & record : w.logs.records() ) {
         count += record.name == "ACL_SUBINTF_UNSHARED_NOT_SUPPORTED";
         EXPECT_NE( record.text.find( "Ethernet1.1" ), String::npos );
      }
      return count;
   };
   EXPECT_EQ( messages(), 1u );
   EXPECT_EQ( w.chip(), Chip{ "a( 10, out, default ): Ethernet1.1" } ); // of IPv6
   w.vlan( "Ethernet1.1", 11 );                                         // nothing that it waits for
   w.settle();
   w.scheduler.runFor( 20 );
   EXPECT_EQ( messages(), 1u );
   w.sharing( ip, out, SharingKind::subIntf, true );
   w.settle();
   EXPECT_EQ( w.chip().size(), 2u );
   w.sharing( ip, out, SharingKind::subIntf, false );
   w.settle();
   EXPECT_EQ( w.chip(), Chip{ "a( 11, out, default ): Ethernet1.1" } );
   EXPECT_EQ( messages(), 2u );
}

TEST( AclLag, MembersComeAndGo ) {
   AclWorld w;
   w.list( "po" );
   w.list( "own" );
   w.list( "sub" );
   w.attach( "Port-Channel1", "po" );
   w.attach( "Port-Channel1.5", "sub" );
   w.attach( "Ethernet1", "own" );
   w.attach( "Ethernet1.1", "sub" );
   w.start();
   w.settle();
   EXPECT_EQ( w.chip(), ( Chip{ "own( 0, in, default ): Ethernet1",
                                "sub( 0, in, default ): Ethernet1.1" } ) );
   w.members( "Port-Channel1", { "Ethernet1", "Ethernet2" } );
   w.settle();
   EXPECT_EQ( w.chip(), ( Chip{ "po( 0, in, default ): Ethernet1@Port-Channel1"
                                " Ethernet2@Port-Channel1",
                                "sub( 0, in, default ): Port-Channel1.5/Ethernet1"
                                " Port-Channel1.5/Ethernet2" } ) );
   EXPECT_EQ( w.sm( "sub" )->aclData( portKey() )->activeLagSubIntfMemberss(), 2u );
   EXPECT_TRUE(
         w.aclSm->lagToSubIntfMap( intf( "Port-Channel1" ) ).has( intf( "Port-Channel1.5" ) ) );
   w.members( "Port-Channel1", { "Ethernet2" } );
   w.settle();
   EXPECT_EQ( w.chip().count( "own( 0, in, default ): Ethernet1" ), 1u );
   EXPECT_EQ( w.chip().count( "sub( 0, in, default ): Ethernet1.1 Port-Channel1.5/Ethernet2" ),
              1u );
   w.detach( "Ethernet1.1" );
   w.members( "Port-Channel1", {} );
   w.settle(); // the list of the sub-interface stays, on no port
   EXPECT_EQ( w.chip(), ( Chip{ "own( 0, in, default ): Ethernet1", "sub( 0, in, default ):" } ) );
}

TEST( AclLag, OnlyManagedPortsAndTheirOwnAuthorities ) {
   AclWorld w;
   w.list( "a" );
   w.attach( "Ethernet1", "a" );
   w.attach( "Port-Channel1", "a" );
   w.members( "Port-Channel1", { "Ethernet2", "Ethernet3" } );
   w.acsd->intfIs( intf( "Ethernet2" ), true );
   w.start();
   w.settle();
   EXPECT_EQ( w.chip(), Chip{ "a( 0, in, default ): Ethernet2@Port-Channel1" } );
   w.acsd->intfIs( intf( "Ethernet1" ), true );
   w.acsd->intfIs( intf( "Ethernet3" ), true );
   w.acsd->intfDel( intf( "Ethernet2" ) );
   w.settle();
   EXPECT_EQ( w.chip(), Chip{ "a( 0, in, default ): Ethernet1 Ethernet3@Port-Channel1" } );
   w.acsd->intfDelAll(); // everything is managed
   w.acsd->portToLagDelAll();
   w.settle();
   EXPECT_EQ( w.chip(), Chip{ "a( 0, in, default ): Ethernet1 Ethernet2@Port-Channel1"
                              " Ethernet3@Port-Channel1" } );
}

TEST( AclSubIntf, VlansConfiguredAndInternal ) {
   AclWorld w;
   w.list( "a" );
   w.sharing( ip, in, SharingKind::subIntf, false );
   w.attach( "Ethernet1.1", "a" );
   w.attach( "Ethernet1.2", "a" );
   w.start();
   w.settle();
   EXPECT_EQ( w.chip(), Chip{} ); // no VLAN
   w.vlan( "Ethernet1.1", 10 );
   w.vlan( "Ethernet1.2", 20 );
   w.settle();
   w.helper->takeCalls();
   w.vlan( "Ethernet1.1", 20 ); // they swap
   w.vlan( "Ethernet1.2", 10 );
   w.settle();
   EXPECT_EQ( w.chip(), ( Chip{ "a( 10, in, default ): Ethernet1.2",
                                "a( 20, in, default ): Ethernet1.1" } ) );
   w.helper->takeCalls();
   w.vlan( "Ethernet1.1", 20 );
   w.settle();
   EXPECT_EQ( w.helper->takeCalls(), Calls{} );
   const IntfId first = intf( "Ethernet1.1" );
   w.acsd->internalVlanIs( first, 1000 );
   w.acsd->internalVlanIs( intf( "Ethernet1.2" ), 4095 );
   w.settle();
   EXPECT_EQ( w.chip(), ( Chip{ "a( 10, in, default ): Ethernet1.2",
                                "a( 1000, in, default ): Ethernet1.1" } ) );
   EXPECT_EQ( w.aclSm->internalVlanIdSubIntfMap( Bridging::VlanIdOrNone( 1000u ) ), first );
   w.acsd->internalVlanIs( first, 0 ); // as if nothing had been said
   w.settle();
   EXPECT_EQ( w.chip().count( "a( 1000, in, default ): Ethernet1.1" ), 1u );
   w.acsd->internalVlanDel( first );
   w.vlan( "Ethernet1.2", 0 );
   w.settle();
   EXPECT_EQ( w.chip(), Chip{ "a( 20, in, default ): Ethernet1.1" } );
}

TEST( AclMode, ARoutedPortThatCannotShareKeepsItsOldState ) {
   using Mode = Bridging::SwitchportMode;
   AclWorld w;
   auto limits = w.table.limits();
   limits.raclSharing = false;
   w.table.limitsAre( limits );
   w.list( "a" );
   w.attach( "Ethernet1", "a" );
   w.attach( "Ethernet1", "m", mac );
   auto port = w.bridging->switchIntfConfigIs( intf( "Ethernet1" ) );
   w.start();
   w.settle();
   w.helper->takeCalls();
   auto mode = [&] {
      return w.aclSm->directionSm( ip, in )->aclSwitchportModeConfigSm( intf( "Ethernet1" ) );
   };
   EXPECT_FALSE(
         w.aclSm->directionSm( mac, in )->aclSwitchportModeConfigSm( intf( "Ethernet1" ) ) );
   port->switchportModeIs( Mode::routed );
   w.settle();
   EXPECT_EQ( w.helper->takeCalls(), Calls{} );
   EXPECT_EQ( mode()->mode(), Mode::trunk );
   w.sharing( ip, in, SharingKind::port, false ); // nothing to be shared: it can be
   w.settle();
   EXPECT_EQ( mode()->mode(), Mode::routed );
   w.helper->takeCalls();
   port->switchportModeIs( Mode::access );
   w.settle();
   EXPECT_EQ( w.helper->takeCalls(), ( Calls{ "block Ethernet1", "off a Ethernet1",
                                              "on a Ethernet1", "unblock Ethernet1" } ) );
   w.bridging->switchIntfConfigDel( intf( "Ethernet1" ) );
   EXPECT_FALSE( mode() );
   w.bridging->switchIntfConfigIs( intf( "Ethernet1" ) )->switchportModeIs( Mode::access );
   w.settle();
   EXPECT_EQ( w.helper->takeCalls(), Calls{} );
}

TEST( AclBlock, NotWhereTrafficIsToPassAndUntilTheLastTypeIsDone ) {
   AclWorld w;
   w.list( "a" );
   w.attach( "Ethernet1", "a" );
   w.attach( "Ethernet1", "b", ipv6 );
   w.list( "b", ipv6 );
   w.params->defaultActionDuringAclUpdatePermitIs( true );
   w.params->permitDuringAclUpdateConfigIs( ipv6, false );
   w.start();
   w.settle();
   w.helper->takeCalls();
   w.rule( "a", 1 );
   w.settle();
   EXPECT_EQ( w.helper->takeCalls().front(), "uninstall a" );
   w.params->permitDuringAclUpdateConfigIs( ip, false );
   w.rule( "a", 2 );
   w.rule( "b", 2, Acl::RuleAction::deny, {}, ipv6 );
   w.settle();
   EXPECT_EQ( w.helper->takeCalls(),
              ( Calls{ "block Ethernet1", "uninstall a", "uninstall b", "prepare a", "prepare b",
                       "on a Ethernet1", "commit a", "on b Ethernet1", "commit b",
                       "unblock Ethernet1" } ) );
}

TEST( AclCounters, ARequestIsOneReading ) {
   AclWorld w;
   w.list( "a" )->counterRequestIs( 3 );
   w.start();
   w.settle();
   EXPECT_EQ( w.table.counterReads(), 0u );
   w.list( "a" )->counterRequestIs( 4 );
   w.list( "a" )->counterRequestIs( 5 );
   EXPECT_EQ( w.table.counterReads(), 0u );
   w.settle();
   EXPECT_EQ( w.table.counterReads(), 1u );
}

} // namespace
