// A session's life, and what is configured in it.

#include "Qon/include/mirroring/MirroringSession.h"

#include "Qon/mirroring/MirroringTrace.h"
#include "platform/Kiv/Restart.h"

namespace Qon {

using Mirroring::mirrorGroupInvalid;
using KivMirroringSession = MirroringSm::KivMirroringSession;

KivMirroringSession::KivMirroringSession( MirroringSm * mirroringSm, const String & name,
                                          Velto::Ptr< const Config > config )
    : root_( mirroringSm ), name_( name ), config_( std::move( config ) ), srcIntf_( this ),
      srcVxlanIntf_( this ), targetIntf_( this ) {}

KivMirroringSession::~KivMirroringSession() = default;

void
KivMirroringSession::kivDoZombieReactors() {
   srcIntf_.kivDoZombieReactors();
   srcVxlanIntf_.kivDoZombieReactors();
   targetIntf_.kivDoZombieReactors();
   QonBaseSm::kivDoZombieReactors();
}

void
KivMirroringSession::mirrorGroupIs( S32 mg ) {
   VELTO_ASSERT( mg != mirrorGroupInvalid() );            // fixed text
   VELTO_ASSERT( mirrorGroup() == mirrorGroupInvalid() ); // fixed text
   mirrorGroup_ = mg;
}

void
KivMirroringSession::handleInitialized() {
   if ( !initialized() ) {
      srcIntf_.rest();
      srcVxlanIntf_.rest();
      targetIntf_.rest();
      return;
   }
   live_ = true;
   srcIntfWatch_.attach( this, config() );
   srcVxlanIntfWatch_.attach( this, config() );
   targetIntfWatch_.attach( this, config() );
   tunnelWatch_.attach( this, config() );
   truncateWatch_.attach( this, config() );
   truncationSizeWatch_.attach( this, config() );
   headerRemovalWatch_.attach( this, config() );
   rxSampleRateWatch_.attach( this, config() );
   grePayloadTypeWatch_.attach( this, config() );
   greTimestampingWatch_.attach( this, config() );
   txGreMetadataWatch_.attach( this, config() );
   rateLimitWatch_.attach( this, config() );
   disabledWatch_.attach( this, config() );
   rateLimitSetWatch_.attach( this, config() );
   program();
}

/** The interfaces first: until there is a group their claims are only noted. */
void
KivMirroringSession::program() {
   unfinished_ = true;
   Velto::FirstError error;
   error.run( [&] { root_->in_.status->sessionIs( name_ ); } );
   status_ = root_->in_.status->session( name_ );
   error.run( [&] {
      starting_ = true;
      const Velto::AtEnd done( [this] { starting_ = false; } );
      reviewConfigured();
   } );
   error.run( [&] { reviewHwSession(); } );
   if ( takeGroup( error ) ) {
      error.run( [&] { root_->in_.acsd->mirrorSessionNameToIdIs( name_, U32( mirrorGroup_ ) ); } );
      error.run( [&] {
         if ( auto published = status() ) {
            published->mirrorGroupIs( mirrorGroup_ );
            published->createdInHwIs( createdInHw_ ); // by an earlier life, perhaps
         }
      } );
   }
   error.run( [&] { reviewDestinations(); } );
   error.run( [&] { reviewSources(); } );
   error.pass();
   unfinished_ = false;
}

void
KivMirroringSession::reviewConfigured() {
   Velto::FirstError error;
   error.run( [&] {
      srcIntf_.reviewAll( config_->srcIntfIteratorConst(),
                          [&]( IntfId i ) { return config_->srcIntf( i ); } );
   } );
   error.run( [&] {
      srcVxlanIntf_.reviewAll( config_->srcVxlanIntfIteratorConst(),
                               [&]( IntfId i ) { return config_->srcVxlanIntf( i ); } );
   } );
   error.run( [&] {
      targetIntf_.reviewAll( config_->targetIntfIteratorConst(),
                             [&]( IntfId i ) { return config_->targetIntf( i ); } );
   } );
   error.pass();
}

/** Whether the session has a group now. */
bool
KivMirroringSession::takeGroup( Velto::FirstError & error ) {
   if ( hasGroup() ) {
      return true;
   }
   auto & pool = *root_->in_.acsd;
   if ( pool.freeMirrorSessions() == 0 ) {
      // fixed text
      QON_TRACE( mirroringFacility, 2, name_,
                 ": HW mirroring session not available to program session" );
      if ( !std::exchange( waitLogged_, true ) ) {
         error.run( [&] { mirrorLog( mirrorSessionResourcesFull, name_ ); } );
      }
      return false;
   }
   mirrorGroupIs( pool.freeMirrorSessionFront() );
   error.run( [&] { pool.freeMirrorSessionDeq(); } );
   return true;
}

/** Runs before program(): what an earlier life left is in hardware. */
void
KivMirroringSession::takeKept( const Kept & kept ) {
   mirrorGroupIs( kept.mirrorGroup );
   for ( auto & [port, direction] : kept.sources ) {
      sources_.emplace( port ).first->local.left_ = direction;
   }
   if ( kept.tunnelType == TunnelType::none ) {
      for ( IntfId port : kept.targets ) {
         auto & local = targets_.emplace( port ).first->local;
         local.programmed_ = true;
         local.attributes_ = config_->attributes();
      }
      targetsInHw_ = targets_.size();
      createdInHw_ = targetsInHw_ != 0;
      return;
   }
   makeTunnel( kept.tunnelType );
   tunnel_->leftIs();
}

MirroringSm::Kept
KivMirroringSession::left() const {
   Kept kept = { mirrorGroup_,
                 tunnel_ && tunnel_->held() ? tunnel_->type() : TunnelType::none,
                 programmedTargets(),
                 {} };
   for ( auto && [port, source] : sources_ ) {
      const auto & local = source.local;
      const Direction direction = local.programmed() ? local.direction() : local.left_;
      if ( direction != Direction::none ) {
         kept.sources.emplace_back( port, direction );
      }
   }
   return kept;
}

void
KivMirroringSession::prepareToDie() {
   live_ = false;
   Velto::FirstError error;
   const bool restarts = Kiv::agentRestarting();
   if ( restarts ) {
      QON_TRACE( mirroringFacility, 2, "Cleanup disabled during restart, returning" ); // fixed text
      if ( hasGroup() ) {
         root_->kept_.emplace_back( name_, left() ); // should it come back
      }
   } else {
      leaving_ = true;
      for ( IntfId port : sourcePorts() ) {
         auto & local = sources_.find( port )->local;
         if ( local.programmed() || local.left_ != Direction::none ) {
            removeSource( port, local, local.programmed() ? local.direction() : local.left_, true,
                          error );
         }
      }
      removeTunnel( error );
      removeTargets( programmedTargets(), error );
      createdInHw_ = false;
   }
   root_->overflowsAre( -S32( overflowLogged_ + invalidOverlapLogged_ ) );
   overflowLogged_ = invalidOverlapLogged_ = 0;
   resourceMessageLogged_ = false;
   for ( auto removeAll : { +[]( KivMirroringSession & s ) { s.srcIntf_.removeAll(); },
                            +[]( KivMirroringSession & s ) { s.srcVxlanIntf_.removeAll(); },
                            +[]( KivMirroringSession & s ) { s.targetIntf_.removeAll(); } } ) {
      error.run( [&] { removeAll( *this ); } );
   }
   if ( !restarts ) {
      auto & in = root_->in_;
      error.run( [&] { in.acsd->mirrorSessionNameToEgressIdDel( name_ ); } );
      error.run( [&] { in.acsd->mirrorSessionNameToIdDel( name_ ); } );
      error.run( [&] { in.status->sessionDel( name_ ); } );
      if ( hasGroup() ) {
         error.run( [&] { root_->groupFree( mirrorGroup_, this ); } );
      }
      error.run( [&] { root_->reviewInvalidSources(); } );
   }
   error.pass();
}

Mirroring::SessionStatus *
KivMirroringSession::status() const {
   return live_ ? status_.ptr() : nullptr;
}

// --- What is configured --------------------------------------------------------------------------

void
KivMirroringSession::ask( What what, IntfId intf ) {
   root_->ask( { what, this, intf } );
}

Velto::Ptr< KivMirroringSession::KivSrcIntf >
KivMirroringSession::makeSrcIntf( const IntfId &,
                                  const Velto::Ptr< const Mirroring::SrcIntfConfig > & config ) {
   return smIs< KivSrcIntf >( this, config );
}

void
KivMirroringSession::cleanUpSrcIntf( const IntfId &, KivSrcIntf * sm ) {
   sm->addOrRemoveSource( false );
}

Velto::Ptr< KivMirroringSession::KivSrcVxlanIntf >
KivMirroringSession::makeSrcVxlanIntf(
      const IntfId &, const Velto::Ptr< const Mirroring::SrcVxlanIntfConfig > & config ) {
   return smIs< KivSrcVxlanIntf >( this, config );
}

void
KivMirroringSession::cleanUpSrcVxlanIntf( const IntfId &, KivSrcVxlanIntf * sm ) {
   sm->addOrRemoveSource( false );
}

Velto::Ptr< KivMirroringSession::KivTargetIntf >
KivMirroringSession::makeTargetIntf( const IntfId & intf, const bool & ) {
   return smIs< KivTargetIntf >( this, intf );
}

void
KivMirroringSession::cleanUpTargetIntf( const IntfId &, KivTargetIntf * sm ) {
   sm->addOrRemoveTarget( false );
}

void
KivMirroringSession::reviewSrcIntf( IntfId intf ) {
   srcIntf_.review( intf, config_->srcIntf( intf ) );
}

void
KivMirroringSession::reviewSrcVxlanIntf( IntfId intf ) {
   srcVxlanIntf_.review( intf, config_->srcVxlanIntf( intf ) );
}

void
KivMirroringSession::reviewTargetIntf( IntfId intf ) {
   thenSources( [&] { targetIntf_.review( intf, config_->targetIntf( intf ) ); } );
}

void
KivMirroringSession::reviewMember( IntfId lag, IntfId port ) {
   Velto::FirstError error;
   if ( auto target = targetIntf_.sm( lag ) ) {
      error.run( [&] { thenSources( [&] { target->reviewMember( port ); } ); } );
   }
   if ( auto source = srcIntf_.sm( lag ) ) {
      error.run( [&] { source->reviewMember( port ); } );
   }
   error.pass();
}

template< class Act >
void
KivMirroringSession::forEachOther( const KivIntf * configured, Act && act ) {
   Velto::FirstError error;
   for ( IntfId port : configured ? configured->ports() : std::vector< IntfId >() ) {
      if ( port != configured->intf() ) {
         error.run( [&] { act( port ); } );
      }
   }
   error.pass();
}

/** An aggregate stands for its ports. */
void
KivMirroringSession::revaluate( IntfId intf ) {
   Velto::FirstError error;
   if ( targets_.has( intf ) || targetIntf_.has( intf ) ) {
      error.run( [&] {
         thenSources( [&] {
            reviewTarget( intf );
            forEachOther( targetIntf_.sm( intf ), [&]( IntfId port ) { reviewTarget( port ); } );
         } );
      } );
   }
   error.run( [&] { reviewSource( intf ); } );
   error.run( [&] {
      forEachOther( srcIntf_.sm( intf ), [&]( IntfId port ) { reviewSource( port ); } );
   } );
   error.pass();
}

void
KivMirroringSession::reviewSettings( IntfId intf ) {
   Velto::FirstError error;
   const KivSource * const all[] = { srcIntf_.sm( intf ), srcVxlanIntf_.sm( intf ) };
   for ( auto source : all ) {
      if ( source ) {
         for ( IntfId port : source->ports() ) {
            error.run( [&] { reviewSource( port ); } );
         }
      }
   }
   error.pass();
}

void
KivMirroringSession::reviewAcl( Acl::AclType type, const String & acl ) {
   Velto::FirstError error;
   for ( IntfId port : sourcePorts() ) {
      auto source = sources_.find( port );
      auto is = [&]( const MirrorSource & s ) {
         return s.aclName() == acl && s.filter().aclType == type;
      };
      if ( source && ( is( source->local.inHw_ ) || is( source->local.wanted_ ) ) ) {
         error.run( [&] { reviewSource( port ); } );
      }
   }
   error.pass();
}

// --- Attributes ----------------------------------------------------------------------------------

void
KivMirroringSession::handleTruncation() {
   handleAttribute( "handleTruncation" );
}

void
KivMirroringSession::handleHeaderRemoval() {
   handleAttribute( "handleHeaderRemoval" );
}

void
KivMirroringSession::handleRxSampleRate() {
   handleAttribute( "handleRxSampleRate" );
}

void
KivMirroringSession::handleGrePayloadType() {
   handleAttribute( "handleGrePayloadType" );
}

void
KivMirroringSession::handleGreTimestamping() {
   handleAttribute( "handleGreTimestamping" );
}

void
KivMirroringSession::handleTxGreMetadata() {
   handleAttribute( "handleTxGreMetadata" );
}

void
KivMirroringSession::handleRateLimit() {
   if ( initialized() && config_->mirrorSessRateLimitSets() > 0 ) {
      qonAssert( "Unexpected mirrorSessRateLimitSets() > 0" ); // fixed text
   }
   handleAttribute( "handleRateLimit" );
}

void
KivMirroringSession::handleRateLimitSet( const String & ) {
   handleRateLimit();
}

void
KivMirroringSession::handlePortMirroringDisabled() {
   handleAttribute( "handlePortMirroringDisabled" );
}

void
KivMirroringSession::handleAttribute( const char * handler ) {
   if ( !initialized() ) {
      return;
   }
   if ( !hasGroup() ) {
      // fixed text
      QON_TRACE( mirroringFacility, 5, handler, " ", name_, ": No mirror group set. Return" );
      return;
   }
   if ( !createdInHw() ) {
      // fixed text
      QON_TRACE( mirroringFacility, 5, handler, " ", name_,
                 ": Session not created in Hw yet. Return" );
      return;
   }
   ask( What::attributes );
}

/** Whoever has others in hardware is told. */
void
KivMirroringSession::reviewAttributes() {
   if ( !createdInHw() ) {
      return;
   }
   Velto::FirstError error;
   for ( IntfId port : programmedTargets() ) {
      error.run( [&] { reviewTarget( port ); } );
   }
   if ( tunnel_ ) {
      error.run( [&] { tunnel_->review(); } );
   }
   error.pass();
}

// --- What there is -------------------------------------------------------------------------------

namespace {

template< class Map >
std::vector< Ulnet::IntfId >
keysIn( const Map & map ) {
   std::vector< Ulnet::IntfId > keys;
   for ( auto && [key, value] : map ) {
      keys.push_back( key );
   }
   return keys;
}

} // namespace

std::vector< Ulnet::IntfId >
KivMirroringSession::sourcePorts() const {
   return keysIn( sources_ );
}

std::vector< Ulnet::IntfId >
KivMirroringSession::targetPorts() const {
   return keysIn( targets_ );
}

const MirrorSrcIntfLocal *
KivMirroringSession::srcIntfLocal( IntfId port ) const {
   auto source = sources_.find( port );
   return source ? &source->local : nullptr;
}

const MirrorDstIntfLocal *
KivMirroringSession::dstIntfLocal( IntfId port ) const {
   auto target = targets_.find( port );
   return target ? &target->local : nullptr;
}

} // namespace Qon
