#include "Qon/include/topology/QonStpSm.h"

#include "Qon/include/framework/HookTap.h"
#include "Qon/topology/StpTrace.h"
#include "platform/Kiv/Describe.h"
#include "platform/Velto/Scope.h"

KIV_DEFINE( Qon::TopoSm )

namespace Qon {

TopoSm::TopoSm( const String & name, const StpSm::TopoInput & input, StpSm * stpSm )
    : name_( name ), topoId_( input.topoId ), config_( input.config ), status_( input.status ),
      topoHelper_( Velto::Ptr< TopoHelper >( stpSm->topoHelper() ) ), input_( input ),
      stpSm_( stpSm ), topoPortSm_( this ) {}

void
TopoSm::handleInitialized() {
   if ( !initialized() ) {
      return;
   }
   Velto::FirstError error;
   error.run( [&] { stpSm_->topoInUse( name() ); } );
   stpSm_->portsChanged();
   stpSm_->topoIdIs( topoId(), this );
   portWatch_.attach( this, config() );
   tapAggWatch_.attach( this, stpSm_->tapAggIntf() );
   error.run( [&] { handleTopoPortChange(); } );
   if ( auto mapped = stpSm_->topoToVlanMap( name() ) ) {
      for ( auto && entry : keysOf< Bridging::VlanId >( mapped->vlanIteratorConst() ) ) {
         error.run( [&] { stpSm_->handleVidToTopoMap( entry.key ); } );
      }
   }
   error.pass();
}

void
TopoSm::kivDoZombieReactors() {
   QonBaseSm::kivDoZombieReactors();
   topoPortSm_.kivDoZombieReactors();
}

Velto::Ptr< TopoPortSm >
TopoSm::makePort( const Ulnet::IntfId & intf, const Velto::Ptr< const PortConfig > & config ) {
   STP_TRACE( " Creating topoPortSm for ", intf ); // fixed text
   stpSm_->portsChanged();
   return smIs< TopoPortSm >( intf, config, this );
}

void
TopoSm::cleanUpPort( const Ulnet::IntfId & intf, TopoPortSm * port ) {
   STP_TRACE( " Deleting topoPortSm for ", intf ); // fixed text
   stpSm_->portsChanged();
   port->doCleanup();
}

void
TopoSm::handleTopoPortChange( const Ulnet::IntfId & intf ) {
   if ( !works() ) {
      return;
   }
   const Velto::Ptr< const PortConfig > wanted( config()->topoPortConfig( intf ) );
   const auto held = topoPortSm( intf );
   if ( held ? held->config() == wanted : !wanted ) {
      STP_TRACE( " Nothing to do " ); // fixed text
   }
   const Velto::Hold stpAlive( stpSm_ ), alive( this );
   Velto::FirstError error;
   error.run( [&] { topoPortSm_.review( intf, wanted ); } );
   if ( !config()->topoPortConfigHas( intf ) ) {
      error.run( [&] { status()->topoPortStatusDel( intf ); } );
   }
   error.pass();
}

void
TopoSm::handleTopoPortChange() {
   const Velto::Hold stpAlive( stpSm_ ), alive( this );
   auto intfs = keysOf< Ulnet::IntfId >( config()->topoPortConfigIteratorConst() );
   for ( const auto & intf : topoPortSm_.heldKeys() ) {
      intfs.emplace( intf );
   }
   for ( auto && [intf, portStatus] : status()->topoPortStatusIteratorConst() ) {
      intfs.emplace( intf );
   }
   Velto::FirstError error;
   for ( auto && entry : intfs ) {
      error.run( [&] { handleTopoPortChange( entry.key ); } );
   }
   error.pass();
}

void
TopoSm::refresh() {
   const Velto::Hold stpAlive( stpSm_ ), alive( this );
   const auto held = topoPortSm_.heldKeys();
   Velto::FirstError error;
   error.run( [&] { handleTopoPortChange(); } );
   for ( const Ulnet::IntfId & intf : held ) {
      error.run( [&] { refreshPort( intf ); } );
   }
   error.pass();
}

void
TopoSm::refreshPort( const Ulnet::IntfId & intf ) {
   if ( const Velto::Ptr< TopoPortSm > port = topoPortSm( intf ) ) {
      Velto::FirstError error;
      error.run( [&] { port->handleState(); } );
      error.run( [&] { port->handleFdbFlush(); } );
      error.pass();
   }
}

void
TopoSm::handlePortToLag( const Ulnet::IntfId & intf, Ulnet::IntfId from ) {
   if ( !works() ) {
      return;
   }
   const Velto::Hold stpAlive( stpSm_ ), alive( this );
   Velto::FirstError error;
   // A member's own state is done at once, that of a port that left is requested.
   if ( auto port = topoPortSm( intf ) ) {
      error.run( [&] { port->handleState(); } );
   }
   const Ulnet::IntfId lag = stpSm_->lagView().lagOf( intf );
   if ( !lag ) {
      STP_TRACE( intf, " leaving lag ", from );
   } else {
      STP_TRACE( intf, " joining lag ", lag,
                 topoPortSm( lag ) ? ", lag in this stg" : ", but lag is not in this stg" );
      error.run( [&] { setLagState( lag, intf ); } );
   }
   error.pass();
}

/** The list decides to whom an aggregate's state is handed over: who came to be in it when it was a
    member already may have missed one, who left it when it was none any more may have got one. */
void
TopoSm::handleLagToPort( const Ulnet::IntfId & lag, const Ulnet::IntfId & intf ) {
   const LagView lags = stpSm_->lagView();
   const bool listed = lags.lists( lag, intf ), member = lags.lagOf( intf ) == lag;
   if ( !works() || listed != member ) {
      return;
   }
   const Velto::Hold stpAlive( stpSm_ ), alive( this );
   if ( !member ) {
      if ( auto port = topoPortSm( intf ) ) {
         port->handleState();
      }
   }
   if ( const Ulnet::IntfId now = stpSm_->lagView().lagOf( intf ) ) {
      setLagState( now, intf );
   }
}

/** Hands over the aggregate's state for one port of it, if the aggregate is in this topology. */
void
TopoSm::setLagState( Ulnet::IntfId lag, Ulnet::IntfId port ) {
   auto aggregate = works() ? topoPortSm( lag ) : nullptr;
   if ( aggregate && !aggregate->inTapOrTool() ) {
      setStpState( port, aggregate->config()->state() );
   }
}

void
TopoSm::handleTapAggIntf( const Ulnet::IntfId & intf ) {
   const Velto::Hold stpAlive( stpSm_ ), alive( this );
   refreshPort( intf );
}

void
TopoSm::setStpState( Ulnet::IntfId intf, PortState state ) {
   doneInFanOut_ = false;
   QON_HOOK( TopoHelper, topoHelper(), setStpState, S32( topoId() ), name(), intf, state );
}

bool
TopoSm::doSetStpState( Ulnet::IntfId intf, bool isLag, Ulnet::IntfId lagIntf, PortState state ) {
   const Velto::Hold stpAlive( stpSm_ ), alive( this );
   const LagView lags = stpSm_->lagView();
   if ( !isLag ) {
      if ( lags.lagOf( intf ) ) {
         STP_TRACE( intf, " part of a LAG, not updating" );
         return false;
      }
      setStpState( intf, state );
      return true;
   }
   const auto members = lags.membersOf( lagIntf );
   if ( members.empty() ) {
      setStpState( lagIntf, state );
      return true;
   }
   {
      // What the chip reports as done meanwhile waits: it has not been told of the others yet.
      ++fanOut_;
      const Velto::AtEnd fannedOut( [this] { --fanOut_; } );
      // A hook may request another state, which has been handed over to all by then, or take a
      // member out.
      const U64 request = pendingRequest( lagIntf );
      for ( Ulnet::IntfId member : members ) {
         if ( zombie() || pendingRequest( lagIntf ) != request ) {
            break;
         }
         if ( lags.lists( lagIntf, member ) ) {
            setStpState( member, state );
         }
      }
   }
   if ( fanOut_ == 0 && doneInFanOut_ ) {
      stateDone();
   }
   return true;
}

void
TopoSm::stateDone() {
   if ( fanOut_ ) {
      doneInFanOut_ = true;
      return;
   }
   doneInFanOut_ = false;
   const Velto::Ptr< PendingStpStateTopo > pending( pending_ );
   if ( !pending || pending->pendingIntfStates() == 0 || !works() ||
        !( stpSm_->topoInput( name() ) == input_ ) ) {
      return;
   }
   const Velto::Hold stpAlive( stpSm_ ), alive( this );
   // Watchers of the status may request anew: what is requested from now on is not done.
   const U64 last = stpSm_->lastRequest();
   Velto::FirstError error;
   for ( auto i = pending->pendingIntfStateIteratorConst(); i && works(); ++i ) {
      if ( i.value().request() > last ) {
         continue;
      }
      const Ulnet::IntfId intf = i.key();
      const PortState state = i.value().state();
      const Velto::Ptr< TopoPortSm > port( topoPortSm( intf ) );
      const U32 writes = port ? port->writes_ : 0;
      error.run( [&] { pending->pendingIntfStateDel( intf ); } );
      if ( port && port->works() && port->writes_ == writes && !port->inTapOrTool() ) {
         STP_TRACE( " setting intf ", intf, " to state ", state ); // fixed text
         error.run( [&] { port->stateDone( state ); } );
      }
   }
   error.pass();
}

U64
TopoSm::pendingIs( Ulnet::IntfId intf, PortState state ) {
   if ( !pending_ ) {
      pending_ = stpSm_->pendingStpStateTopoIs( name() );
   }
   const U64 request = stpSm_->nextRequest();
   pending_->pendingIntfStateIs( intf, TopoPortState( state, request ) );
   return request;
}

void
TopoSm::pendingDel( Ulnet::IntfId intf ) {
   if ( const Velto::Ptr< PendingStpStateTopo > pending = pending_ ) {
      pending->pendingIntfStateDel( intf );
   }
}

bool
TopoSm::pendingHas( Ulnet::IntfId intf ) const {
   return pending_ && pending_->pendingIntfStateHas( intf );
}

U64
TopoSm::pendingRequest( Ulnet::IntfId intf ) const {
   return pending_ ? pending_->pendingIntfState( intf ).request() : 0;
}

void
TopoSm::doCleanup() {
   const Velto::Hold stpAlive( stpSm_ ), alive( this );
   portWatch_.detach();
   tapAggWatch_.detach();
   initializedIs( false );
   std::vector< Velto::Ptr< TopoPortSm > > former;
   forEachPort( [&]( const Ulnet::IntfId &, TopoPortSm & port ) {
      if ( !port.inTapOrTool() ) {
         former.push_back( &port );
      }
   } );
   Velto::FirstError error;
   error.run( [&] { topoPortSm_.removeAll(); } );
   for ( auto & port : former ) {
      error.run( [&] {
         doSetStpState( port->intf(), port->isLag(), port->intf(), port->config()->state() );
      } );
   }
   error.run( [&] { stpSm_->pendingStpStateTopoDel( name() ); } );
   pending_ = nullptr;
   stpSm_->topoIdDel( topoId(), this );
   error.run( [&] { stpSm_->topoNotInUse( name() ); } );
   error.pass();
}

} // namespace Qon
