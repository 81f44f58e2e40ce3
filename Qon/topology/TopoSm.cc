#include "Qon/include/topology/QonStpSm.h"

#include "Qon/include/framework/HookTap.h"
#include "Qon/topology/StpTrace.h"

namespace Qon {

TopoSm::TopoSm( const String & name, const StpSm::TopoInput & input, StpSm * stpSm )
    : name_( name ), input_( input ), stpSm_( stpSm ), topoPortSm_( this ) {}

TopoHelper *
TopoSm::topoHelper() const {
   return stpSm_->topoHelper();
}

void
TopoSm::handleInitialized() {
   if ( !initialized() ) {
      return;
   }
   if ( !QON_HOOK( TopoHelper, topoHelper(), allocTopo, name_ ) ) {
      STP_TRACE( "handleInitialized no room for topo ", name_ );
   }
   stpSm_->topoIdIs( topoId(), this );
   portWatch_.attach( this, config() );
   tapAggWatch_.attach( this, stpSm_->tapAggIntf() );
   handleTopoPortChange();
   if ( auto mapped = stpSm_->topoToVlanMap( name_ ) ) {
      for ( auto && entry : keysOf< Bridging::VlanId >( mapped->vlanIteratorConst() ) ) {
         stpSm_->handleVidToTopoMap( entry.key );
      }
   }
}

void
TopoSm::kivDoZombieReactors() {
   QonBaseSm::kivDoZombieReactors();
   topoPortSm_.kivDoZombieReactors();
}

Velto::Ptr< TopoPortSm >
TopoSm::makePort( const Ulnet::IntfId & intf, const Velto::Ptr< const PortConfig > & config ) {
   STP_TRACE( " Creating topoPortSm for ", intf ); // fixed text
   return smIs< TopoPortSm >( intf, config, this );
}

void
TopoSm::cleanUpPort( const Ulnet::IntfId & intf, TopoPortSm * port ) {
   STP_TRACE( " Deleting topoPortSm for ", intf ); // fixed text
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
   Velto::Ptr< TopoSm > keep( this );
   topoPortSm_.review( intf, wanted );
   if ( !config()->topoPortConfigHas( intf ) ) {
      status()->topoPortStatusDel( intf );
   }
}

void
TopoSm::handleTopoPortChange() {
   auto intfs = keysOf< Ulnet::IntfId >( config()->topoPortConfigIteratorConst() );
   for ( const auto & intf : topoPortSm_.heldKeys() ) {
      intfs.emplace( intf );
   }
   for ( auto && [intf, portStatus] : status()->topoPortStatusIteratorConst() ) {
      intfs.emplace( intf );
   }
   for ( auto && entry : intfs ) {
      handleTopoPortChange( entry.key );
   }
}

void
TopoSm::handlePortToLag( const Ulnet::IntfId & intf, Ulnet::IntfId from ) {
   if ( !works() ) {
      return;
   }
   Velto::Ptr< TopoSm > keep( this );
   // A member's own state is done at once, that of a port that left is requested.
   if ( auto port = topoPortSm( intf ) ) {
      port->handleState();
   }
   const LagView lags = stpSm_->lagView();
   if ( from && lags.membersOf( from ).empty() ) {
      // An aggregate that has lost its last member carries its state itself.
      setLagState( from, from );
   }
   const Ulnet::IntfId lag = lags.lagOf( intf );
   if ( !lag ) {
      STP_TRACE( intf, " leaving lag ", from );
      return;
   }
   STP_TRACE( intf, " joining lag ", lag,
              topoPortSm( lag ) ? ", lag in this stg" : ", but lag is not in this stg" );
   setLagState( lag, intf );
}

/** Hands over the aggregate's state for one port of it, if the aggregate is in this topology. */
void
TopoSm::setLagState( Ulnet::IntfId lag, Ulnet::IntfId port ) {
   auto aggregate = topoPortSm( lag );
   if ( aggregate && !aggregate->inTapOrTool() ) {
      setStpState( port, aggregate->config()->state() );
   }
}

void
TopoSm::handleTapAggIntf( const Ulnet::IntfId & intf ) {
   if ( Velto::Ptr< TopoPortSm > port = topoPortSm( intf ) ) {
      port->handleState();
      port->handleFdbFlush();
   }
}

void
TopoSm::setStpState( Ulnet::IntfId intf, PortState state ) {
   QON_HOOK( TopoHelper, topoHelper(), setStpState, S32( topoId() ), name_, intf, state );
}

bool
TopoSm::doSetStpState( Ulnet::IntfId intf, bool isLag, Ulnet::IntfId lagIntf, PortState state ) {
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
   // A chip that completes inside the first call has not been told of the other members yet: only
   // what it reports from the last call on counts.
   Velto::Ptr< TopoSm > keep( this );
   ++fanOut_;
   for ( Ulnet::IntfId member : members ) {
      if ( zombie() ) {
         break;
      }
      doneInFanOut_ = false;
      setStpState( member, state );
   }
   if ( --fanOut_ == 0 && doneInFanOut_ ) {
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
   const Velto::Ptr< PendingStpStateTopo > pending( pending_ );
   if ( !pending || pending->pendingIntfStates() == 0 ) {
      return;
   }
   Velto::Ptr< TopoSm > keep( this );
   // Watchers of the status may request anew: what is requested from now on is not done.
   const U64 last = stpSm_->lastRequest();
   for ( auto i = pending->pendingIntfStateIteratorConst(); i; ++i ) {
      if ( i.value().request() > last ) {
         continue;
      }
      const Ulnet::IntfId intf = i.key();
      const PortState state = i.value().state();
      pending->pendingIntfStateDel( intf );
      auto port = topoPortSm( intf );
      if ( port && !port->inTapOrTool() ) {
         STP_TRACE( " setting intf ", intf, " to state ", state ); // fixed text
         port->stateDone( state );
      }
   }
}

void
TopoSm::pendingIs( Ulnet::IntfId intf, PortState state ) {
   if ( !pending_ ) {
      pending_ = stpSm_->pendingStpStateTopoIs( name_ );
   }
   pending_->pendingIntfStateIs( intf, TopoPortState( state, stpSm_->nextRequest() ) );
}

void
TopoSm::pendingDel( Ulnet::IntfId intf ) {
   if ( pending_ ) {
      pending_->pendingIntfStateDel( intf );
   }
}

bool
TopoSm::pendingHas( Ulnet::IntfId intf ) const {
   return pending_ && pending_->pendingIntfStateHas( intf );
}

void
TopoSm::doCleanup() {
   portWatch_.detach();
   tapAggWatch_.detach();
   struct Former {
      Ulnet::IntfId intf;
      bool isLag;
      PortState state;
   };
   std::vector< Former > former;
   forEachPort( [&]( const Ulnet::IntfId & intf, TopoPortSm & port ) {
      if ( !port.inTapOrTool() ) {
         former.push_back( { intf, port.isLag(), port.config()->state() } );
      }
   } );
   topoPortSm_.removeAll();
   for ( auto & [intf, isLag, state] : former ) {
      doSetStpState( intf, isLag, intf, state );
   }
   stpSm_->pendingStpStateTopoDel( name_ );
   pending_ = nullptr;
   stpSm_->topoIdDel( topoId(), this );
   QON_HOOK( TopoHelper, topoHelper(), freeTopo, name_ );
}

} // namespace Qon
