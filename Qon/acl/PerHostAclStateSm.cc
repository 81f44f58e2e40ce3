#include "Qon/include/acl/PerHostAclStateSm.h"

#include "Qon/acl/AclTrace.h"
#include "Qon/include/acl/QonAclSm.h"

namespace Qon {

using Acl::AclDirection;
using Acl::AclType;
using Acl::HostAcl;
using Acl::HostKey;
using Ulnet::IntfId;

// One host

PerHostAclStateSm::PerHostAclStateSm( AclSm * aclSm, const HostKey & host, const HostAcl & acl )
    : aclSm_( aclSm ), host_( host ), acl_( acl ) {}

void
PerHostAclStateSm::handleInitialized() {
   if ( initialized() ) {
      aclSm_->hostLater( host_ );
      aclSm_->settle();
   }
}

void
PerHostAclStateSm::doCleanup() {
   cleanedUp_ = true;
   review();
}

KeySet< IntfPairKey >
PerHostAclStateSm::wantedPairs() const {
   auto direction = aclSm_->directionSm( acl_.type(), AclDirection::in );
   const IntfId intf = host_.intf();
   const bool port = Ulnet::EthIntfId::isEthIntfId( intf ) && !intf.sub();
   const bool lag = Ulnet::PortChannelIntfId::isPortChannelIntfId( intf ) && !intf.sub();
   if ( cleanedUp_ || !direction || !direction->live() || !( port || lag ) ||
        host_.host().isZero() ) {
      return {};
   }
   KeySet< IntfPairKey > pairs;
   for ( auto && [pair, other] : direction->wantedPairs( intf ) ) {
      if ( !other ) {
         pairs.emplace( pair );
      }
   }
   return pairs;
}

void
PerHostAclStateSm::review() {
   const Velto::Hold alive( this );
   const Velto::Ptr< AclConfigSm > configSm =
         cleanedUp_ ? nullptr : aclSm_->aclConfigSm( acl_.type(), acl_.acl() );
   const KeySet< IntfPairKey > wanted = configSm ? wantedPairs() : KeySet< IntfPairKey >();
   const Velto::Ptr< AclConfigSm > former = std::exchange( configSm_, configSm );
   const KeySet< IntfPairKey > before = std::exchange( bound_, wanted );
   Velto::FirstError error;
   for ( auto && entry : before ) {
      if ( former->live() && ( former != configSm || !wanted.has( entry.key ) ) ) {
         error.run( [&] { former->hostActiveIs( entry.key, host_.host(), false ); } );
      }
   }
   for ( auto && entry : wanted ) {
      error.run( [&] { configSm->hostActiveIs( entry.key, host_.host(), true ); } );
   }
   error.pass();
}

// All of them

Velto::Ptr< PerHostAclStateSm >
AclSm::makeHost( const HostKey & host, const std::optional< HostAcl > & acl ) {
   hostsOf_.emplace( host.intf() ).first->emplace( host );
   return smIs< PerHostAclStateSm >( this, host, *acl );
}

void
AclSm::cleanUpHost( const HostKey & host, PerHostAclStateSm * sm ) {
   if ( auto hosts = hostsOf_.find( host.intf() ) ) {
      hosts->erase( host );
      if ( hosts->empty() ) {
         hostsOf_.erase( host.intf() );
      }
   }
   sm->doCleanup();
}

void
AclSm::handleHost( const HostKey & host ) {
   const Velto::Hold alive( this );
   hosts_.review( host, in_.perHostConfig->hostHas( host )
                              ? std::optional( in_.perHostConfig->host( host ) )
                              : std::nullopt );
   settle();
}

void
AclSm::reviewHosts() {
   if ( in_.perHostConfig && aclHelper()->perHostAclSupported() ) {
      hosts_.reviewAll( in_.perHostConfig->hostIteratorConst(), [this]( const HostKey & host ) {
         return in_.perHostConfig->hostHas( host )
                      ? std::optional( in_.perHostConfig->host( host ) )
                      : std::nullopt;
      } );
   }
}

bool
AclSm::hostBound( AclType type, IntfId port, const Ulnet::EthAddr & host ) const {
   for ( IntfId intf : { port, LagView( acsd() ).lagOf( port ) } ) {
      auto sm = hosts_.sm( HostKey( intf, host ) );
      if ( sm && sm->bound() && sm->acl().type() == type ) {
         return true;
      }
   }
   return false;
}

void
AclSm::hostsLaterAt( IntfId intf ) {
   if ( auto hosts = hostsOf_.find( intf ) ) {
      for ( auto && entry : *hosts ) {
         hostLater( entry.key );
      }
   }
}

void
AclSm::hostsLaterOf( AclType type, const String & aclName ) {
   hosts_.forEach( [&]( const HostKey & host, PerHostAclStateSm & sm ) {
      if ( sm.acl().type() == type && ( aclName.empty() || sm.acl().acl() == aclName ) ) {
         hostLater( host );
      }
   } );
}

} // namespace Qon
