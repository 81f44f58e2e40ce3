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
   later( { What::member, nullptr, lag, port } );
   settle();
}

void
MirroringSm::handlePort( IntfId port, IntfId, IntfId ) {
   later( { What::intf, nullptr, port } );
   settle();
}

void
MirroringSm::handleIntfStatus( const IntfId & intf ) {
   intfStatus_.review( intf, in_.phyStatus->intfStatus( intf ) );
   later( { What::intf, nullptr, intf } );
   settle();
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

void
MirroringSm::useIs( IntfId intf, KivMirroringSession * session ) {
   auto & users = *users_.emplace( intf ).first;
   auto user = std::find_if( users.begin(), users.end(),
                             [&]( auto & entry ) { return entry.first == session; } );
   if ( user == users.end() ) {
      users.emplace_back( session, 1 );
   } else {
      ++user->second;
   }
}

void
MirroringSm::useDel( IntfId intf, KivMirroringSession * session ) {
   auto & users = *users_.find( intf );
   auto user = std::find_if( users.begin(), users.end(),
                             [&]( auto & entry ) { return entry.first == session; } );
   VELTO_ASSERT( user != users.end() );
   if ( --user->second == 0 ) {
      users.erase( user );
   }
   if ( users.empty() ) {
      users_.erase( intf );
   }
}

std::vector< MirroringSm::SessionPtr >
MirroringSm::usersOf( IntfId intf ) const {
   std::vector< SessionPtr > sessions;
   if ( auto users = users_.find( intf ) ) {
      for ( auto & [session, uses] : *users ) {
         sessions.push_back( session );
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
   Work work = { What::acl };
   work.aclType = type;
   work.name = name;
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
   Work work = { What::tunnels };
   work.name = endpoint.stringValue();
   later( std::move( work ) );
   settle();
}

void
MirroringSm::handleReconciled() {
   later( { What::tunnels } );
   settle();
}

bool
MirroringSm::cutThrough() const {
   return in_.forwardingMode &&
          in_.forwardingMode->forwardingMode() == Bridging::ForwardingMode::cutThrough;
}

void
MirroringSm::handleForwardingMode() {
   later( { What::judge } );
   settle();
}

void
MirroringSm::handleSourceLimits() {
   later( { What::judge } );
   settle();
}

void
MirroringSm::handleHwSession( const String & name ) {
   Work work = { What::hwSession };
   work.name = name;
   later( std::move( work ) );
   settle();
}

} // namespace Qon
