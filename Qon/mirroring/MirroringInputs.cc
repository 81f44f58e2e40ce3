// What is heard of ports, aggregates, access lists, tunnels and the hardware; and who uses what.

#include "Qon/mirroring/MirroringInputs.h"

#include <algorithm>

#include "Qon/mirroring/MirroringTrace.h"

namespace Qon {

using KivMirroringSession = MirroringSm::KivMirroringSession;
using Ulnet::IntfId;

/** The followers of all inputs; what they follow is asked of the inputs themselves. */
void
MirroringSm::reviewInputs() {
   if ( auto phy = in_.phyStatus.ptr() ) {
      intfStatus_.reviewAll( phy->intfStatusIteratorConst(),
                             [&]( IntfId intf ) { return phy->intfStatus( intf ); } );
   }
   if ( auto acls = in_.aclConfig.ptr() ) {
      aclTypes_.reviewAll( acls->typeIteratorConst(),
                           [&]( Acl::AclType type ) { return acls->type( type ); } );
   }
}

// --- Ports and aggregates ------------------------------------------------------------------------

void
MirroringSm::handleMember( IntfId lag, IntfId port ) {
   ask( { What::member, nullptr, lag, port } );
}

void
MirroringSm::handlePort( IntfId port, IntfId, IntfId ) {
   ask( { What::intf, nullptr, port } );
}

void
MirroringSm::handleIntfStatus( const IntfId & intf ) {
   intfStatus_.review( intf, in_.phyStatus->intfStatus( intf ) );
   ask( { What::intf, nullptr, intf } );
}

Velto::Ptr< MirroringSm::KivIntfStatus >
MirroringSm::makeIntfStatus( const IntfId &,
                             const Velto::Ptr< const Interface::EthPhyIntfStatus > & status ) {
   return smIs< KivIntfStatus >( this, status );
}

bool
MirroringSm::isValid( IntfId intf, bool isDestination ) const {
   QON_TELL_HOOK( MirroringSmHelper, isValidIntf, intf, isDestination );
   return in_.helper->isValidIntf( in_.phyStatus ? in_.phyStatus->intfStatus( intf ) : nullptr,
                                   intf, isDestination );
}

MirroringSm::Users::Use &
MirroringSm::Users::of( KivMirroringSession * session ) {
   if ( first.times == 0 || first.session == session ) {
      first.session = session;
      return first;
   }
   auto use = std::find_if( others.begin(), others.end(),
                            [&]( auto & other ) { return other.session == session; } );
   return use == others.end() ? others.emplace_back( session ) : *use;
}

void
MirroringSm::Users::leave( KivMirroringSession * session ) {
   if ( first.session != session ) {
      std::erase_if( others, [&]( auto & other ) { return other.session == session; } );
   } else if ( others.empty() ) {
      first = Use();
   } else {
      first = others.front();
      others.erase( others.begin() );
   }
}

void
MirroringSm::useIs( IntfId intf, KivMirroringSession * session ) {
   ++users_.emplace( intf ).first->of( session ).times;
}

void
MirroringSm::useDel( IntfId intf, KivMirroringSession * session ) {
   users_.eraseIf( intf, [&]( Users & users ) {
      auto & use = users.of( session );
      VELTO_ASSERT( use.times );
      if ( --use.times == 0 ) {
         users.leave( session );
      }
      return users.first.times == 0;
   } );
}

std::vector< MirroringSm::SessionPtr >
MirroringSm::usersOf( IntfId intf ) const {
   std::vector< SessionPtr > sessions;
   if ( auto users = users_.find( intf ) ) {
      sessions.push_back( users->first.session );
      for ( auto & other : users->others ) {
         sessions.push_back( other.session );
      }
   }
   return sessions;
}

// --- Access lists --------------------------------------------------------------------------------

void
MirroringSm::handleAclType( const Acl::AclType & type ) {
   // Gone with all of its lists, perhaps.
   if ( auto held = aclTypes_.sm( type ) ) {
      for ( const String & name : held->names() ) {
         laterAcl( type, name );
      }
   }
   aclTypes_.review( type, in_.aclConfig->type( type ) );
   settle();
}

Velto::Ptr< MirroringSm::KivAclType >
MirroringSm::makeAclType( const Acl::AclType &,
                          const Velto::Ptr< const Acl::TypeConfig > & config ) {
   return smIs< KivAclType >( this, config );
}

void
MirroringSm::cleanUpAclType( const Acl::AclType &, KivAclType * ) {}

void
MirroringSm::laterAcl( Acl::AclType type, const String & name ) {
   Work work = Work::of( What::acl, name );
   work.aclType = type;
   later( std::move( work ) );
}

void
MirroringSm::aclChanged( Acl::AclType type, const String & name ) {
   laterAcl( type, name );
   settle();
}

const Acl::AclConfig *
MirroringSm::acl( Acl::AclType type, const String & name ) const {
   auto lists = in_.aclConfig ? in_.aclConfig->type( type ) : nullptr;
   return lists ? lists->acl( name ) : nullptr;
}

// --- Tunnels, modes, and the hardware ------------------------------------------------------------

void
MirroringSm::handleResolution( const Tunnel::Endpoint & endpoint ) {
   ask( Work::of( What::tunnels, endpoint.stringValue() ) );
}

void
MirroringSm::handleReconciled() {
   ask( { What::tunnels } );
}

bool
MirroringSm::cutThrough() const {
   return in_.forwardingMode &&
          in_.forwardingMode->forwardingMode() == Bridging::ForwardingMode::cutThrough;
}

void
MirroringSm::handleForwardingMode() {
   ask( { What::judge } );
}

void
MirroringSm::handleSourceLimits() {
   ask( { What::judge } );
}

void
MirroringSm::handleHwSession( const String & name ) {
   ask( Work::of( What::hwSession, name ) );
}

} // namespace Qon
