// The destinations of a session: ports, or a tunnel.

#include "Qon/mirroring/MirroringTrace.h"

namespace Qon {

using KivMirroringSession = MirroringSm::KivMirroringSession;
using Mirroring::TunnelType;
using Ulnet::IntfId;

/** What is of the other kind goes first. */
void
KivMirroringSession::reviewDestinations() {
   const TunnelType type = config_->tunnel().type();
   Velto::FirstError error;
   if ( tunnel_ && tunnel_->type() != type ) {
      removeTunnel( error );
   }
   if ( type != TunnelType::none ) {
      removeTargets( programmedTargets(), error );
   }
   // Those that are configured before what an earlier life left: the session stays.
   for ( bool claimed : { true, false } ) {
      for ( IntfId port : targetPorts() ) {
         auto target = targets_.find( port );
         if ( target && target->claims.empty() != claimed ) {
            error.run( [&] { reviewTarget( port ); } );
         }
      }
   }
   error.run( [&] { reviewTunnel(); } );
   error.pass();
}

/** The port's claim counts, an aggregate's before its own. */
MirrorReason
KivMirroringSession::targetWanted( IntfId port, const TargetPort & target ) const {
   if ( !live_ || leaving_ || target.claims.empty() || tunnelWanted() ) {
      return MirrorReason::notWanted;
   }
   bool byAggregate = false, valid = false;
   for ( auto claim : target.claims ) {
      if ( claim->intf() != port ) {
         byAggregate = true;
         valid = valid || root_->isValid( claim->intf(), true );
      }
   }
   if ( !byAggregate && LagView( root_->in_.acsd.ptr() ).lagOf( port ) ) {
      return MirrorReason::lagMember;
   }
   if ( ( byAggregate && !valid ) || !root_->isValid( port, true ) ) {
      // fixed text
      QON_TRACE( mirroringFacility, 2, "Adding ", port, " to failed ports due to invalid intf" );
      return MirrorReason::invalidIntf;
   }
   return MirrorReason::none;
}

void
KivMirroringSession::reviewTarget( IntfId port ) {
   auto target = targets_.find( port );
   if ( starting_ ) {
      return; // everything is looked at when all claims are made
   }
   if ( !target || !hasGroup() || !live_ ) {
      if ( target && target->claims.empty() ) {
         targets_.erase( port );
      }
      publishTarget( port );
      return;
   }
   auto & local = target->local;
   Velto::FirstError error;
   MirrorReason reason = MirrorReason::refused;
   error.run( [&] { reason = targetWanted( port, *target ); } );
   local.reason_ = reason;
   if ( reason != MirrorReason::none ) {
      if ( local.programmed_ ) {
         removeTargets( { port }, error );
      }
      local.overflowLogged_ = false;
   } else if ( !local.programmed_ || !( local.attributes_ == config_->attributes() ) ) {
      addTarget( port, *target, error );
   }
   if ( target->claims.empty() && !local.programmed_ ) {
      targets_.erase( port );
   }
   error.run( [&] { publishTarget( port ); } );
   error.pass();
}

/** Creates the session with its first destination, adds one, or hands over its attributes. */
void
KivMirroringSession::addTarget( IntfId port, TargetPort & target, Velto::FirstError & error ) {
   auto & local = target.local;
   const auto attributes = config_->attributes();
   bool done = false;
   error.run( [&] {
      done = QON_HOOK( MirroringSmHelper, root_->in_.helper, createMirror, name_, mirrorGroup_,
                       egressId(), port, createdInHw_ );
   } );
   if ( done ) {
      targetsInHw_ += !local.programmed_;
      local.programmed_ = true;
      local.attributes_ = attributes;
   } else {
      // fixed text
      QON_TRACE( mirroringFacility, 1, "Failed to create/update mirror session in hw for ", port );
      local.reason_ = MirrorReason::refused;
   }
   error.run( [&] { target.claims.front()->checkOverflow( port, !done ); } );
   if ( done ) {
      error.run( [&] { changedInHw(); } );
      error.run( [&] { createdInHwIs( true ); } );
   }
}

void
KivMirroringSession::KivTargetIntf::checkOverflow( IntfId port, bool failed ) {
   auto & logged = session_->targets_.find( port )->local.overflowLogged_;
   if ( !failed ) {
      logged = false;
   } else if ( session_->config()->internal() && !std::exchange( logged, true ) ) {
      QON_TRACE( mirroringFacility, 1, session_->name(),
                 ": Internal session overflow" ); // fixed text
      mirrorLog( mirrorInternalSessionResourcesUnavailable, session_->name(), port );
   }
}

/** The sources go before the last destination. */
void
KivMirroringSession::removeTargets( const std::vector< IntfId > & ports,
                                    Velto::FirstError & error ) {
   if ( ports.empty() ) {
      return;
   }
   const bool last = ports.size() == targetsInHw_;
   if ( last && live_ ) {
      leaving_ = true;
      error.run( [&] { reviewSources(); } );
   }
   QonPortList list;
   for ( IntfId port : ports ) {
      list.portIs( port );
   }
   bool done = false;
   error.run( [&] {
      done = QON_HOOK( MirroringSmHelper, root_->in_.helper, removeMirror, name_, mirrorGroup_,
                       egressId(), list );
   } );
   if ( !done ) {
      // fixed text
      QON_TRACE( mirroringFacility, 1, "Failed to remove mirror session in hw for ", list );
   }
   for ( IntfId port : ports ) {
      targets_.find( port )->local.programmed_ = false;
   }
   targetsInHw_ -= U32( ports.size() );
   error.run( [&] { changedInHw(); } );
   if ( last ) {
      leaving_ = !live_;
      error.run( [&] { createdInHwIs( false ); } );
   }
}

std::vector< IntfId >
KivMirroringSession::programmedTargets() const {
   std::vector< IntfId > ports;
   for ( auto && [port, target] : targets_ ) {
      if ( target.local.programmed_ ) {
         ports.push_back( port );
      }
   }
   return ports;
}

void
KivMirroringSession::createdInHwIs( bool v ) {
   if ( v && !createdInHw_ ) {
      ++creations_;
      ask( What::attributes ); // those that changed while it was being made
   }
   createdInHw_ = v;
   if ( auto published = status() ) {
      published->createdInHwIs( v );
   }
}

/** For those whose own entries stand on the session. */
void
KivMirroringSession::changedInHw() {
   if ( auto published = status() ) {
      published->generationIs( published->generation() + 1 );
   }
}

/** Of a port, or of an aggregate that has failed as a whole. */
void
KivMirroringSession::publishTarget( IntfId port ) {
   auto published = status();
   if ( !published ) {
      return;
   }
   const auto local = dstIntfLocal( port );
   const bool programmed = local && local->programmed();
   bool failed = local && ( local->reason() == MirrorReason::invalidIntf ||
                            local->reason() == MirrorReason::refused );
   auto configured = config_->targetIntf( port ) ? targetIntf_.sm( port ) : nullptr;
   if ( configured && configured->aggregate() ) {
      failed = hasGroup() && !tunnelWanted() && !root_->isValid( port, true );
   }
   programmed ? published->programmedDstIs( port ) : published->programmedDstDel( port );
   failed ? published->failedDstIs( port ) : published->failedDstDel( port );
}

// --- Tunnels -------------------------------------------------------------------------------------

void
KivMirroringSession::makeTunnel( TunnelType type ) {
   if ( type == TunnelType::gre ) {
      tunnel_ = smIs< KivGreTunnel >( this );
   } else {
      tunnel_ = smIs< KivVxlanTunnel >( this );
   }
   tunnel_->initializedIs( true );
}

void
KivMirroringSession::reviewTunnel() {
   const TunnelType type = config_->tunnel().type();
   if ( !hasGroup() || type == TunnelType::none ) {
      return;
   }
   if ( !tunnel_ ) {
      makeTunnel( type );
   }
   tunnel_->review();
}

/** Sources first. */
void
KivMirroringSession::removeTunnel( Velto::FirstError & error ) {
   if ( !tunnel_ ) {
      return;
   }
   tunnel_->remove( error );
   tunnel_ = nullptr;
   error.run( [&] {
      if ( auto published = status() ) {
         published->tunnelFailedIs( false );
      }
   } );
}

namespace {

/** Its copies go nowhere, and need no way. */
bool
drops( const Mirroring::TunnelInfo & info ) {
   return info.type() == TunnelType::gre && info.forwardDrop();
}

} // namespace

bool
KivMirroringSession::KivTunnel::ready() const {
   const auto & info = session_->config()->tunnel();
   const auto & root = *session_->root_;
   return session_->live_ && session_->hasGroup() && info.type() == type() && root.reconciled() &&
          ( drops( info ) || ( root.in_.tunnelStatus && root.in_.tunnelStatus->resolutionHas(
                                                              { info.dst(), info.vrf() } ) ) );
}

Tunnel::Resolution
KivMirroringSession::KivTunnel::wantedResolution() const {
   const auto & info = session_->config()->tunnel();
   auto status = session_->root_->in_.tunnelStatus.ptr();
   return drops( info ) || !status ? Tunnel::Resolution()
                                   : status->resolution( { info.dst(), info.vrf() } );
}

void
KivMirroringSession::KivTunnel::review() {
   Velto::FirstError error;
   if ( !ready() ) {
      // What an earlier life left is touched when that may be, or when it is not wanted.
      if ( programmed_ || ( left_ && session_->root_->reconciled() ) ) {
         remove( error );
      }
      failed_ = false;
   } else if ( !programmed_ ) {
      error.run( [&] { create(); } );
   } else if ( !( info_ == session_->config()->tunnel() && resolution_ == wantedResolution() &&
                  attributes_ == session_->config()->attributes() ) ) {
      error.run( [&] { update(); } );
   } else {
      failed_ = false;
   }
   error.run( [&] {
      if ( auto published = session_->status() ) {
         published->tunnelFailedIs( failed_ );
      }
   } );
   error.pass();
}

void
KivMirroringSession::KivTunnel::create() {
   const auto info = session_->config()->tunnel();
   const auto resolution = wantedResolution();
   const auto attributes = session_->config()->attributes();
   failed_ = true;
   if ( QON_HOOK( MirroringSmHelper, session_->root_->in_.helper, createGreTunnelMirror,
                  session_->name(), session_->mirrorGroup(), session_->egressId(), info,
                  resolution ) ) {
      failed_ = left_ = false;
      programmed_ = true;
      info_ = info;
      resolution_ = resolution;
      attributes_ = attributes;
      Velto::FirstError error;
      error.run( [&] { session_->changedInHw(); } );
      error.run( [&] { session_->createdInHwIs( true ); } );
      error.pass();
   } else {
      // fixed text
      QON_TRACE( mirroringFacility, 1, "Failed to create/update mirror session in hw for ",
                 session_->name() );
   }
}

void
KivMirroringSession::KivTunnel::update() {
   const auto info = session_->config()->tunnel();
   const auto resolution = wantedResolution();
   const auto attributes = session_->config()->attributes();
   failed_ = true;
   if ( QON_HOOK( MirroringSmHelper, session_->root_->in_.helper, updateGreTunnelMirror,
                  session_->name(), session_->mirrorGroup(), session_->egressId(), info,
                  resolution ) ) {
      failed_ = false;
      info_ = info;
      resolution_ = resolution;
      attributes_ = attributes;
      session_->changedInHw();
   } else {
      // fixed text
      QON_TRACE( mirroringFacility, 1, "Failed to create/update mirror session in hw for ",
                 session_->name() );
   }
}

void
KivMirroringSession::KivTunnel::remove( Velto::FirstError & error ) {
   if ( !held() ) {
      return;
   }
   if ( session_->live_ ) {
      session_->leaving_ = true;
      error.run( [&] { session_->reviewSources(); } );
   }
   bool done = false;
   error.run( [&] {
      done = QON_HOOK( MirroringSmHelper, session_->root_->in_.helper, removeGreTunnelMirror,
                       session_->name(), session_->mirrorGroup(), session_->egressId() );
   } );
   if ( !done ) {
      // fixed text
      QON_TRACE( mirroringFacility, 1, "Failed to remove mirror session in hw for ",
                 session_->name() );
   }
   programmed_ = left_ = false;
   session_->leaving_ = !session_->live_;
   error.run( [&] { session_->changedInHw(); } );
   error.run( [&] { session_->createdInHwIs( false ); } );
}

} // namespace Qon
