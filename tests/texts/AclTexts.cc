// Texts of access lists that operators and tools search for: reports of missing hooks, failed
// assertions, errors, traces. They stay as they are, blanks and all.

#include "tests/acl/AclWorld.h"
#include "tests/texts/Traced.h"

namespace {

using namespace AclTests;

TEST( AclTexts, HooksThatNobodyOverridesReport ) {
   Tests::Env env;
   env.unset( "QON_NOOP_AGENT" );
   auto bare = Velto::make< QonHelper::AclHelper >( "bare" );
   const String text = "Call to unimplemented function AclHelper::";
   EXPECT_DEATH( bare->uninstallAcl( {} ), text + "uninstallAcl" );
   EXPECT_DEATH( bare->prepareAcl( {} ), text + "prepareAcl" );
   EXPECT_DEATH( bare->commitAcl( {} ), text + "commitAcl" );
   EXPECT_DEATH( bare->aclIntfIs( {}, {}, true ), text + "aclIntfIs" );
   EXPECT_DEATH( bare->blockIntf( {}, true ), text + "blockIntf" );
   EXPECT_DEATH( bare->perHostAclIs( {}, {}, {}, true ), text + "perHostAclIs" );
   EXPECT_DEATH( bare->readAclCounters( ip, "a" ), text + "readAclCounters" );
   env.set( "QON_NOOP_AGENT", "" );
   EXPECT_TRUE( bare->prepareAcl( {} ).empty() );
   bare->staleAclsDel();
}

TEST( AclTexts, WhatAPairCannotBe ) {
   const IntfId eth = intf( "Ethernet1" ), po = intf( "Port-Channel1" );
   auto check = []( IntfId a, IntfId b ) { IntfPairKey( a, b ).check(); };
   EXPECT_DEATH( check( {}, {} ), "Both intf and lag shouldn't be null together" );
   EXPECT_DEATH( check( po, po ), "intfPair.intfId shouldn't be a lag" );
   EXPECT_DEATH( check( eth, eth ), "intfPair.lagIntf should be a LAG" );
   for ( auto name : { "Vlan1", "Ethernet1.1", "Tunnel1" } ) {
      EXPECT_DEATH( check( intf( name ), po ),
                    "When intf is an SVI or SubIntf or Tunnel-Intf, lag should be null" );
   }
   check( {}, po );
   check( eth, po );
}

TEST( AclTexts, VlansOutOfRange ) {
   auto raised = []( auto act ) {
      try {
         act();
      } catch ( const Velto::RangeError & e ) {
         return String( e.what() );
      }
      return String();
   };
   EXPECT_EQ( raised( [] { Qon::AclVlanIdOrNone( 4095u ); } ),
              "Qon::AclVlanIdOrNone::value > _max not allowed" );
   EXPECT_EQ( raised( [] { Qon::AclVlanIdOrNone().vlanId(); } ),
              "Bridging::VlanId::value < 1 or > 4094 not allowed" );
   EXPECT_EQ( Qon::AclVlanIdOrNone( 4094u ).vlanId(), Bridging::VlanId( 4094 ) );
}

TEST( AclTexts, WhatTheProgramGuarantees ) {
   AclWorld w;
   w.list( "a" );
   w.direction( ip );
   w.start();
   w.settle();
   EXPECT_DEATH( w.attach( "Loopback1", "a" ),
                 "Assertion 'Ulnet::EthIntfId::isEthIntfId\\( intf \\) \\|\\| "
                 "Ulnet::PortChannelIntfId::isPortChannelIntfId\\( intf \\) \\|\\| "
                 "Ulnet::TunnelIntfId::isTunnelIntfId\\( intf \\) \\|\\| "
                 "Ulnet::SubIntfId::isSubIntfId\\( intf \\) \\|\\| "
                 "Ulnet::InternalRecircIntfId::isInternalRecircIntfId\\( intf \\) \\|\\| "
                 "Ulnet::GenericIntfId::typeId\\( intf \\) == 109' failed" );
   w.attach( "Internal3", "a" );
   w.attach( "InternalRecirc0", "a" );
   w.settle();
   auto limits = w.table.limits();
   limits.async = true;
   w.table.limitsAre( limits );
   EXPECT_DEATH( w.aclSm->aclTypeConfigSm( ip )->blockedIntfIs( intf( "Ethernet1" ), true ),
                 "Assertion '!aclHelper\\(\\)->asyncAclConfig\\(\\)' failed" );
}

TEST( AclTexts, Traces ) {
   auto flow = [] {
      AclWorld w;
      w.list( "a" );
      w.attach( "Ethernet1", "a" );
      w.attach( "Vlan10", "a" );
      w.attach( "Port-Channel1", "a" );
      w.attach( "Ethernet2.1", "a", ip, out );
      w.sharing( ip, out, Acl::SharingKind::subIntf, true );
      w.start();
      w.settle();
      w.sharing( ip, in, Acl::SharingKind::subIntf, false );
      w.attach( "Ethernet2.1", "a" );
      w.vlan( "Ethernet2.1", 10 );
      w.vlan( "Ethernet2.1", 10 );
      w.aclSm->handleSubIntfCfgVlan( intf( "Ethernet2.1" ) );
      w.acsd->internalVlanIs( intf( "Ethernet2.1" ), 5000 );
      w.rule( "a", 1 );
      w.settle();
      w.params->defaultActionDuringAclUpdatePermitIs( true );
      w.rule( "a", 2 );
      w.settle();
      auto sm = w.sm( "a" );
      sm->intfActiveIs( { intf( "Port-Channel1" ), {} }, in, true, false );
      sm->intfActiveIs( { intf( "Port-Channel1" ), {} }, in, false, false );
      sm->intfActiveIs( { intf( "Ethernet7" ), {} }, in, false, true );
      auto mode = w.bridging->switchIntfConfigIs( intf( "Ethernet1" ) );
      mode->switchportModeIs( Bridging::SwitchportMode::routed );
      w.detach( "Ethernet1" );
      w.detach( "Vlan10" );
      w.detach( "Ethernet2.1" );
      w.settle();
   };
   Tests::expectTraced(
         flow,
         { "Applying ACLs", "Added first port to a", "Added first vlan to a",
           "Removed last port from a", "Removed last intf from a",
           "No active ports found for port-channel Port-Channel1",
           "Ethernet2.1: vlanId is 0. Cannot create aclData and block traffic",
           "Returning - configured vlan unchanged", "Returning - invalid internal vlan",
           "Blocking intf Ethernet1", "Unblocking intf Ethernet1",
           "Not blocking intf because of cli configuration",
           "Port-Channel1 fed to intfActiveIs. Probably an empty LAG or linecard removal.",
           "Port-Channel1 fed to intfActiveIs. Probably an empty LAG or linecard removal. but "
           "allowing cleanup",
           "Not the owner of Ethernet7; will not deactivate",
           "Interface switchport mode changing from trunk to routed", "Succeeded install on Chip0",
           "Creating ACL interface state machine for Ethernet1",
           "Deleting ACL interface state machine for Ethernet1" } );
}

} // namespace
