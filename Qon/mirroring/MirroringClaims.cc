// Configured interfaces, and the ports that they lead to.

#include <algorithm>

#include "Qon/mirroring/MirroringTrace.h"

namespace Qon {

using KivMirroringSession = MirroringSm::KivMirroringSession;
using Ulnet::IntfId;

// --- What a configured interface leads to --------------------------------------------------------

bool
KivMirroringSession::KivIntf::aggregate() const {
   return LagView( session_->root_->in_.acsd.ptr() ).role( intf_ ) == LagRole::aggregate;
}

void
KivMirroringSession::KivIntf::hold( IntfId port, bool claim ) {
   if ( port == intf_ ) {
      itself_ = claim;
   } else {
      claim ? members_.portIs( port ) : members_.portDel( port );
   }
   claimIs( port, claim );
}

std::vector< IntfId >
KivMirroringSession::KivIntf::ports() const {
   std::vector< IntfId > all = itself_ ? std::vector{ intf_ } : std::vector< IntfId >();
   all.insert( all.end(), members_.begin(), members_.end() );
   return all;
}

void
KivMirroringSession::KivIntf::claimAll( bool claim, First first, Velto::FirstError & error ) {
   const bool itself = claim && !aggregate();
   if ( members_.ports() || claim != itself ) {
      claimMembers( claim && !itself, itself, first, error );
   } else if ( itself != itself_ ) {
      error.run( [&] { hold( intf_, itself ); } );
   }
   if ( std::exchange( used_, claim ) != claim ) {
      claim ? session_->root_->useIs( intf_, session_ )
            : session_->root_->useDel( intf_, session_ );
   }
}

/** All members or none, and itself or not. */
void
KivMirroringSession::KivIntf::claimMembers( bool members, bool itself, First first,
                                            Velto::FirstError & error ) {
   const LagView lags( session_->root_->in_.acsd.ptr() );
   const auto change = differenceOf< IntfId >( members_, members ? lags.membersOf( intf_ )
                                                                 : std::vector< IntfId >() );
   for ( bool missing : { first == First::missing, first != First::missing } ) {
      if ( itself == missing && itself_ != missing ) {
         error.run( [&] { hold( intf_, missing ); } );
      }
      for ( IntfId port : missing ? change.missing : change.gone ) {
         error.run( [&] { hold( port, missing ); } );
      }
   }
}

void
KivMirroringSession::KivIntf::reviewMember( IntfId port ) {
   const LagView lags( session_->root_->in_.acsd.ptr() );
   const bool member = lags.lists( intf_, port );
   // Whoever lists a port is an aggregate, unless it is a member itself.
   if ( member != holds( port ) && ( member ? !lags.lagOf( intf_ ) : aggregate() ) ) {
      hold( port, member );
   }
}

// --- Sources -------------------------------------------------------------------------------------

void
KivMirroringSession::KivSource::addOrRemoveSource( bool add ) {
   if ( mirroringFacility.hears( 5 ) && aggregate() ) {
      // fixed text
      QON_TRACE( mirroringFacility, 5, intf(),
                 ": I'm a LAG, carrying out operation for all members" );
   }
   Velto::FirstError error;
   claimAll( add, First::gone, error );
   error.pass();
}

void
KivMirroringSession::KivSource::claimIs( IntfId port, bool claim ) {
   claim ? session_->claimSource( port, this ) : session_->unclaimSource( port, this );
}

void
KivMirroringSession::Claims::add( KivSource * by ) {
   if ( !first_ ) {
      first_ = by;
      return;
   }
   const bool aggregate = by->aggregate();
   if ( aggregate && !first_->aggregate() ) {
      others_.insert( others_.begin(), std::exchange( first_, by ) );
      return;
   }
   auto own = []( const KivSource * claim ) { return !claim->aggregate(); };
   others_.insert( aggregate ? std::find_if( others_.begin(), others_.end(), own ) : others_.end(),
                   by );
}

void
KivMirroringSession::Claims::remove( KivSource * by ) {
   if ( first_ != by ) {
      std::erase( others_, by );
   } else if ( others_.empty() ) {
      first_ = nullptr;
   } else {
      first_ = others_.front();
      others_.erase( others_.begin() );
   }
}

void
KivMirroringSession::claimSource( IntfId port, KivSource * by ) {
   auto & source = *sources_.emplace( port ).first;
   source.claims.add( by );
   if ( port != by->intf() ) {
      root_->useIs( port, this );
   }
   reviewSource( port, source );
}

void
KivMirroringSession::unclaimSource( IntfId port, KivSource * by ) {
   if ( port != by->intf() ) {
      root_->useDel( port, this );
   }
   if ( auto source = sources_.find( port ) ) {
      source->claims.remove( by );
      reviewSource( port, *source );
   }
}

IntfId
KivMirroringSession::sourceOf( IntfId port ) const {
   auto source = sources_.find( port );
   return source && !source->claims.empty() ? source->claims.front()->intf() : IntfId();
}

KivMirroringSession::KivSrcIntf::KivSrcIntf( KivMirroringSession * session,
                                             Velto::Ptr< const Config > config )
    : KivSource( session, config->intf() ), config_( std::move( config ) ) {}

void
KivMirroringSession::KivSrcIntf::handleInitialized() {
   if ( !initialized() ) {
      return;
   }
   configWatch_.attach( this, config_.ptr(), handleSettings, this );
   addOrRemoveSource( true );
}

MirrorSource
KivMirroringSession::KivSrcIntf::wanted() const {
   const String & aclName = config_->aclName();
   if ( aclName.empty() ) {
      return MirrorSource( config_->direction() );
   }
   const auto aclType = config_->aclType();
   // fixed text
   VELTO_ASSERT( aclType == Acl::ip() || aclType == Acl::mac() || aclType == Acl::ipv6() );
   auto acl = session_->root_->acl( aclType, aclName );
   return { config_->direction(),
            { .aclType = aclType,
              .aclPriority = config_->aclPriority(),
              .aclVersion = acl ? acl->version() : 0,
              .aclName = aclName,
              .vnis = {} } };
}

KivMirroringSession::KivSrcVxlanIntf::KivSrcVxlanIntf( KivMirroringSession * session,
                                                       Velto::Ptr< const Config > config )
    : KivSource( session, config->intf() ), config_( std::move( config ) ) {}

void
KivMirroringSession::KivSrcVxlanIntf::handleInitialized() {
   if ( !initialized() ) {
      return;
   }
   directionWatch_.attach( this, config_.ptr() );
   vniWatch_.attach( this, config_.ptr() );
   addOrRemoveSource( true );
}

MirrorSource
KivMirroringSession::KivSrcVxlanIntf::wanted() const {
   MirrorFilter networks;
   for ( auto && [vni, none] : config_->vniIteratorConst() ) {
      networks.vnis.push_back( vni );
   }
   std::sort( networks.vnis.begin(), networks.vnis.end() );
   if ( config_->direction() != Direction::rx ) {
      QON_TRACE( mirroringFacility, 3, intf(), ": a VXLAN interface mirrors what it receives, not ",
                 config_->direction() );
   }
   return networks.vnis.empty() ? MirrorSource()
                                : MirrorSource( Direction::rx, std::move( networks ) );
}

// --- Destinations --------------------------------------------------------------------------------

void
KivMirroringSession::KivTargetIntf::handleInitialized() {
   if ( initialized() ) {
      addOrRemoveTarget( true );
   }
}

/** What comes is claimed before what goes is left: a session that has a destination keeps one. */
void
KivMirroringSession::KivTargetIntf::addOrRemoveTarget( bool add ) {
   if ( aggregate() ) {
      // fixed text
      QON_TRACE( mirroringFacility, 5, intf(),
                 " is a LAG, carrying out operation for all members" );
   }
   Velto::FirstError error;
   claimAll( add, First::missing, error );
   error.run( [&] { session_->publishTarget( intf() ); } );
   error.pass();
}

void
KivMirroringSession::KivTargetIntf::claimIs( IntfId port, bool claim ) {
   claim ? session_->claimTarget( port, this ) : session_->unclaimTarget( port, this );
}

void
KivMirroringSession::claimTarget( IntfId port, KivTargetIntf * by ) {
   targets_.emplace( port ).first->claims.push_back( by );
   if ( port != by->intf() ) {
      root_->useIs( port, this );
   }
   reviewTarget( port );
}

void
KivMirroringSession::unclaimTarget( IntfId port, KivTargetIntf * by ) {
   if ( port != by->intf() ) {
      root_->useDel( port, this );
   }
   if ( auto target = targets_.find( port ) ) {
      std::erase( target->claims, by );
      reviewTarget( port );
   }
}

} // namespace Qon
