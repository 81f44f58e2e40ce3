#pragma once
// A switch with access lists: what operators configure, AclSm, and the chip in software.

#include "Qon/include/acl/QonAclSm.h"
#include "agent/softchip/SoftAclHelper.h"
#include "tests/harness/World.h"

namespace AclTests {

using Acl::AclDirection;
using Acl::AclType;
using Qon::AclKey;
using Qon::IntfPairKey;
using Tests::intf;
using Ulnet::IntfId;
using Velto::Ptr;
using Velto::String;

constexpr AclType ip = AclType::ip, mac = AclType::mac, ipv6 = AclType::ipv6;
constexpr AclDirection in = AclDirection::in, out = AclDirection::out;

inline AclKey
portKey( AclDirection direction = in, const String & group = "default" ) {
   return AclKey( Qon::AclVlanIdOrNone(), direction, group );
}
inline AclKey
vlanKey( U32 vlan, AclDirection direction = in ) {
   return AclKey( Qon::AclVlanIdOrNone( vlan ), direction, "default" );
}

/** The soft chip's hooks, and what was called, a line each. */
class Helper : public SoftChip::SoftAclHelper {
 public:
   using SoftAclHelper::SoftAclHelper;
   void uninstallAcl( const Qon::AclOperation & acl ) override {
      note( "uninstall " + acl.aclName );
      SoftAclHelper::uninstallAcl( acl );
   }
   Qon::AclUnitResults prepareAcl( const Qon::AclOperation & acl ) override {
      note( "prepare " + acl.aclName );
      return SoftAclHelper::prepareAcl( acl );
   }
   Qon::AclUnitResults commitAcl( const Qon::AclOperation & acl ) override {
      note( "commit " + acl.aclName );
      return SoftAclHelper::commitAcl( acl );
   }
   void aclIntfIs( const Qon::AclOperation & acl, const Qon::AclIntfUse & use,
                   bool active ) override {
      note( ( active ? "on " : "off " ) + acl.aclName + " " + use.pair().intfId().stringValue() );
      SoftAclHelper::aclIntfIs( acl, use, active );
   }
   void blockIntf( IntfId intf, bool block ) override {
      note( ( block ? "block " : "unblock " ) + intf.stringValue() );
      SoftAclHelper::blockIntf( intf, block );
   }
   void note( const String & call ) {
      calls.push_back( call );
      if ( heard ) {
         heard( call );
      }
   }
   std::vector< String > takeCalls() { return std::exchange( calls, {} ); }

   std::vector< String > calls;
   std::function< void( const String & ) > heard;
};

class AclWorld : public Tests::World {
 public:
   AclWorld() {
      for ( AclType type : Acl::aclTypes ) {
         config->typeIs( type );
      }
   }
   ~AclWorld() { aclSm = nullptr; }

   void start() {
      aclSm = Qon::AclSmIs( { acsd, config, intfs, params, bridging, subIntfs, helper, sessions,
                              errdisable, epoch, cards, dpRequest, dpStatus, hosts } );
      const auto sm = aclSm; // which may end meanwhile
      sm->initializedIs( true );
   }
   /** The agent ends without a word; another one finds the chip as it is. */
   void crash() {
      aclSm = nullptr;
      helper = nullptr; // one at a time
      helper = Velto::make< Helper >( table );
   }
   void settle() {
      scheduler.settle();
      EXPECT_EQ( table.misuse(), "" );
      if ( aclSm ) {
         EXPECT_EQ( aclSm->checkInvariants(), "" );
      }
   }
   Ptr< Acl::DirectionIntfConfig > direction( AclType type, AclDirection d = in ) {
      return intfs->typeIs( type )->directionIs( d );
   }
   void attach( const String & name, const String & list, AclType type = ip, AclDirection d = in ) {
      direction( type, d )->intfIs( intf( name ), list );
   }
   void detach( const String & name, AclType type = ip, AclDirection d = in ) {
      direction( type, d )->intfDel( intf( name ) );
   }
   Ptr< Acl::AclConfig > list( const String & name, AclType type = ip ) {
      return config->type( type )->aclIs( name );
   }
   void listDel( const String & name, AclType type = ip ) { config->type( type )->aclDel( name ); }
   void rule( const String & name, U32 seq, Acl::RuleAction action = Acl::RuleAction::permit,
              const Acl::IpFilter & filter = {}, AclType type = ip ) {
      Acl::Rule rule;
      rule.seqIs( seq );
      rule.actionIs( action );
      rule.ipIs( filter );
      list( name, type )->ruleIs( seq, rule );
   }
   void members( const String & lag, std::initializer_list< const char * > ports ) {
      Qon::QonLagPortList l;
      for ( auto & [port, flags] : Qon::QonLagPortList( acsd->lagToPort( intf( lag ) ) ) ) {
         acsd->portToLagDel( port );
      }
      for ( auto port : ports ) {
         l.portIs( intf( port ), {} );
      }
      acsd->lagToPortIs( intf( lag ), l );
      for ( auto port : ports ) {
         acsd->portToLagIs( intf( port ), intf( lag ) );
      }
   }
   void sharing( AclType type, AclDirection d, Acl::SharingKind kind, bool shared ) {
      params->sharedModeIs( { type, d, kind }, shared );
   }
   void vlan( const String & subIntf, U32 number ) {
      subIntfs->vlanIs( intf( subIntf ), Bridging::VlanIdOrNone( number ) );
   }

   /** "list( 20, in, default ): Ethernet1 Ethernet2@Port-Channel1" of each instance that decides. */
   std::set< String > chip() const {
      std::set< String > all;
      for ( auto & acl : table.held().acls ) {
         String text = acl.name + "( " + acl.key.vlan().stringValue() + ", " +
                       Kiv::toText( acl.key.direction() ) + ", " + acl.key.group() + " ):";
         for ( auto & use : acl.uses ) {
            text += " " + use.pair().intfId().stringValue();
            text += use.pair().lagIntf() ? "@" + use.pair().lagIntf().stringValue() : "";
            text += use.lagMember() ? "/" + use.lagMember().stringValue() : "";
         }
         all.insert( acl.committed && !acl.stale ? text : "not in force: " + text );
      }
      return all;
   }
   Qon::AclConfigSm * sm( const String & name, AclType type = ip ) const {
      return aclSm->aclConfigSm( type, name );
   }

   SoftChip::FaultPlan faults;
   SoftChip::AclTable table{ faults, {} };
   Ptr< Acl::Config > config = Velto::make< Acl::Config >( "acl" );
   Ptr< Acl::IntfConfig > intfs = Velto::make< Acl::IntfConfig >( "intf" );
   Ptr< Acl::ParamConfig > params = Velto::make< Acl::ParamConfig >( "param" );
   Ptr< Bridging::Config > bridging = Velto::make< Bridging::Config >( "bridging" );
   Ptr< Interface::SubIntfConfigDir > subIntfs =
         Velto::make< Interface::SubIntfConfigDir >( "subIntf" );
   Ptr< Mirroring::Status > sessions = Velto::make< Mirroring::Status >( "mirroring" );
   Ptr< Errdisable::CauseStatus > errdisable = Velto::make< Errdisable::CauseStatus >( "acl" );
   Ptr< Qon::QonEpochStatus > epoch;
   Ptr< Acl::IntfCardConfig > cards = Velto::make< Acl::IntfCardConfig >( "cards" );
   Ptr< Acl::DpAclUpdateRequest > dpRequest = Velto::make< Acl::DpAclUpdateRequest >( "request" );
   Ptr< Acl::DpAclUpdateStatus > dpStatus = Velto::make< Acl::DpAclUpdateStatus >( "status" );
   Ptr< Acl::PerHostConfig > hosts = Velto::make< Acl::PerHostConfig >( "hosts" );
   Ptr< Helper > helper = Velto::make< Helper >( table );
   Ptr< Qon::AclSm > aclSm;
};

using Chip = std::set< String >;
using Calls = std::vector< String >;

} // namespace AclTests
