#include "Qon/include/topology/VlanTopoHelper.h"

#include <algorithm>

#include "Qon/include/framework/HookTap.h"
#include "Qon/include/topology/QonStpSm.h"
#include "Qon/topology/StpTrace.h"
#include "platform/Kiv/Describe.h"
#include "platform/Velto/Scope.h"

KIV_DEFINE( Qon::TopoUpdate )
KIV_DEFINE( Qon::TopoPendingVlans )
KIV_DEFINE( Qon::VlanTopoHelper )

namespace Qon {

using Bridging::VlanId;
using Ulnet::IntfId;

VlanTopoHelper::VlanTopoHelper( Velto::Ptr< VlanHelper > vlanHelper,
                                Kiv::TaskScheduler * taskScheduler, U32 taskPriority,
                                const String & taskName )
    : TopoHelper( taskName ), task_( *this, taskScheduler, taskPriority, taskName ),
      waiting_( 4095 ), told_( 4095 ) {
   vlanHelperIs( std::move( vlanHelper ) );
}

VlanTopoHelper::~VlanTopoHelper() = default;

Velto::Ptr< VlanTopoHelper >
VlanTopoHelperIs( Velto::Ptr< VlanHelper > vlanHelper, Kiv::TaskScheduler * taskScheduler,
                  U32 taskPriority, const String & taskName ) {
   auto helper = Velto::make< VlanTopoHelper >( std::move( vlanHelper ), taskScheduler,
                                                taskPriority, taskName );
   helper->hasNotificationActiveIs( true );
   return helper;
}

/** Another helper knows nothing yet: every VLAN of a topology is added to it. */
void
VlanTopoHelper::vlanHelperIs( Velto::Ptr< VlanHelper > vlanHelper ) {
   vlanHelper_ = std::move( vlanHelper );
   completedVlanUpdateStatus_.attach( this, vlanHelper_.ptr() );
   told_.assign( told_.size(), 0 );
   for ( U16 vlan = 1; vlan < waiting_.size(); ++vlan ) {
      waitNoMore( vlan );
      if ( vlanHelper_ ) { // what it was told before, by a predecessor too, may still be under way
         told_[vlan] = vlanHelper_->updateState( VlanId( vlan ) ).requested;
      }
   }
   if ( !vlanHelper_ || !stpSm() ) {
      return;
   }
   for ( auto && [vlan, name] : stpSm()->vlanToTopoSmMapIteratorConst() ) {
      if ( !topoVlanOpHas( vlan ) &&
           ( stpSm()->topoSm( name ) || name == stpSm()->tapAggTopoName() ) ) {
         topoVlanOpAdd( vlan, name );
      }
   }
}

// --- Hooks ---------------------------------------------------------------------------------------

void
VlanTopoHelper::setStpState( S32, const String & topoName, IntfId intf, PortState state ) {
   const bool queued = topoUpdateMapHas( topoName );
   const Velto::Ptr< TopoUpdate > update = topoUpdateMapIs( topoName );
   if ( !queued ) {
      topoUpdateQueue_.enq( update );
   }
   update->stpStateChangeIs( intf, state );
   task_.wake();
}

void
VlanTopoHelper::addVlanToTopo( const String & topoName, U16 vlan ) {
   topoVlanOpAdd( vlan, topoName );
}

void
VlanTopoHelper::delVlanFromTopo( const String & topoName, U16 vlan ) {
   topoVlanOpAdd( vlan, "" );
   if ( vlan < waiting_.size() ) {
      waitNoMore( vlan );
   }
   review( topoName );
}

/** An operation that has not begun is replaced; whom it kept waiting may be done. */
void
VlanTopoHelper::topoVlanOpAdd( U16 vlan, const String & topoName ) {
   if ( const String * former = topoVlanOp_.find( vlan ) ) {
      review( *former );
   }
   topoVlanOpIs( vlan, topoName );
   task_.wake();
}

/** Who comes under the name next does not wait for what this one was given. */
void
VlanTopoHelper::freeTopo( const String & topoName ) {
   if ( auto pending = topoPendingVlans( topoName ) ) {
      for ( auto && [vlan, genId] : pending->pendingVlanUpdateGenIdIteratorConst() ) {
         waiting_[vlan] = nullptr;
      }
      topoPendingVlansDel( topoName );
   }
}

// --- The task ------------------------------------------------------------------------------------

bool
VlanTopoHelper::WalkTask::run() {
   if ( !helper_.stpSm() ) {
      helper_.dropAll(); // the state machine has gone, and with it whoever wants anything
      return false;
   }
   const Velto::Ptr< VlanTopoHelper > keep( &helper_ );
   helper_.performVlanTopoOperations();
   return helper_.remainingWorkUnits() != 0;
}

void
VlanTopoHelper::performVlanTopoOperations() {
   auto stpSm = this->stpSm();
   VELTO_ASSERT( stpSm ); // fixed text
   if ( working_ ) {
      return; // from within a hook or a watcher
   }
   const Velto::Hold alive( this ), stpAlive( stpSm );
   working_ = true;
   const Velto::AtEnd done( [this] { working_ = false; } );
   workOff();
}

void
VlanTopoHelper::workOff() {
   reviewAll();
   while ( remainingWorkUnits() ) {
      if ( !stpSm()->started() ) {
         dropStates();
      }
      if ( currentTopoUpdate() ) {
         if ( !deferredSetStpState() ) {
            return;
         }
         if ( const Velto::Ptr< TopoUpdate > done = currentTopoUpdate() ) {
            currentTopoUpdateDel();
            review( done->topoName() );
            reviewAll();
         }
         if ( task_.shouldYield() ) {
            return;
         }
      }
      while ( !topoVlanOp_.empty() ) {
         const U16 vlan = topoVlanOp_.front().key;
         const String name = topoVlanOp_.front().value;
         topoVlanOpDel( vlan );
         review( name );
         if ( name.empty() ) {
            deferredDelVlanFromTopo( vlan );
         } else {
            deferredAddVlanToTopo( name, vlan );
         }
         reviewAll();
         if ( task_.shouldYield() ) {
            return;
         }
      }
      nextUpdate();
   }
}

/** Makes the first update of the queue the current one. */
void
VlanTopoHelper::nextUpdate() {
   if ( topoUpdateQueue_.empty() || currentTopoUpdate() ) {
      return;
   }
   const Velto::Ptr< TopoUpdate > topoUpdate = topoUpdateQueue_.front();
   topoUpdateQueue_.deq();
   const String & topoName = topoUpdate->topoName();
   VELTO_ASSERT( topoUpdate->stpStateChanges() > 0 ); // fixed text
   VELTO_ASSERT( topoUpdateMapHas( topoName ) );      // fixed text
   topoUpdateMapDel( topoName );
   currentTopoUpdateIs( topoUpdate );
   currentPorts_ = {};
   if ( !vlanHelper_ ) {
      STP_TRACE( "No Vlan helper" );
   }
   if ( auto mapped = stpSm()->topoToVlanMap( topoName ); !mapped ) {
      STP_TRACE( " Mapped vlan NULL for topo ", topoName ); // fixed text
   } else if ( vlanHelper_ ) {
      for ( auto && [vlan, present] : mapped->vlanIteratorConst() ) {
         topoUpdate->vlanToUpdateEnq( vlan );
      }
   }
}

/** Walks the VLANs that are left; true when there are none. */
bool
VlanTopoHelper::deferredSetStpState() {
   const Velto::Ptr< TopoUpdate > update( currentTopoUpdate() );
   const String & name = update->topoName();
   while ( update->vlanToUpdates() ) {
      const VlanId vlan = update->vlanToUpdateFront();
      update->vlanToUpdateDeq();
      auto mapped = stpSm()->topoToVlanMap( name );
      if ( mapped && mapped->vlanHas( vlan ) && vlanHelper_ ) {
         handlePortStates( vlan, portsOfUpdate( *update ) );
      }
      if ( task_.shouldYield() ) {
         break;
      }
   }
   return update->vlanToUpdates() == 0;
}

/** Blocks the VLAN everywhere, then lets it carry the states of its new topology. */
void
VlanTopoHelper::deferredAddVlanToTopo( const String & topoName, U16 vlan ) {
   const VlanId id( vlan );
   const Velto::Ptr< VlanHelper > helper = vlanHelper_;
   if ( !helper ) {
      STP_TRACE( "No Vlan helper" );
      return;
   }
   if ( const String & in = stpSm()->vlanToTopoSmMap( vlan ); !in.empty() && in != topoName ) {
      return;
   }
   told( id, helper->setPortsBlocked( id ) );
   // What it was told before may still be under way, and is the ground on which this stands.
   waitFor( topoName, id, told_[id] );
   handlePortStates( id, portsOf( topoName ) );
}

void
VlanTopoHelper::deferredDelVlanFromTopo( U16 vlan ) {
   const VlanId id( vlan );
   if ( const Velto::Ptr< VlanHelper > helper = vlanHelper_ ) {
      told( id, helper->setPortsBlocked( id ) );
   }
}

/** Hands the states over for one VLAN. One that raises does not keep the others back. */
void
VlanTopoHelper::handlePortStates( VlanId vlan, const Ports & ports ) {
   const Velto::Ptr< VlanHelper > helper = vlanHelper_;
   std::exception_ptr raised;
   U64 last = 0;
   for ( const PortForwarding & port : ports.list ) {
      try {
         if ( U64 genId = helper->doHandlePortState( port.intf, vlan, port.forwarding ) ) {
            last = genId;
         }
      } catch ( ... ) {
         raised = raised ? raised : std::current_exception();
      }
   }
   if ( helper == vlanHelper_ ) {
      told( vlan, last );
      waitFor( ports.topoName, vlan, last );
   }
   if ( raised ) {
      std::rethrow_exception( raised );
   }
}

// --- Ports ---------------------------------------------------------------------------------------

/** Whether anything has happened to ports since the list was made: by whoever hears of an
    acknowledgement, or by a hook. */
bool
VlanTopoHelper::isStale( const Ports & ports, const String & topoName ) const {
   return ports.topoName != topoName || ports.changes != stpSm()->portChanges();
}

/** The states of the update, without what must not forward any more. */
const VlanTopoHelper::Ports &
VlanTopoHelper::portsOfUpdate( const TopoUpdate & update ) {
   const String & name = update.topoName();
   if ( isStale( currentPorts_, name ) ) {
      currentPorts_ = { name, stpSm()->portChanges(), {} };
      for ( auto && [intf, state] : update.stpStateChangeIteratorConst() ) {
         const bool forwarding = state == PortState::forwarding;
         if ( !forwarding || stillThere( name, intf ) ) {
            currentPorts_.list.push_back( { intf, forwarding } );
         }
      }
   }
   return currentPorts_;
}

/** Whether the interface is a port of the topology, or a member of one: one that left it while the
    update waited must not forward on its behalf. */
bool
VlanTopoHelper::stillThere( const String & topoName, IntfId intf ) const {
   const IntfId lag = stpSm()->lagView().lagOf( intf );
   const IntfId port = lag ? lag : intf;
   if ( topoName == stpSm()->tapAggTopoName() && stpSm()->tapAggIntf()->intfInfoHas( port ) ) {
      return true;
   }
   auto topo = stpSm()->topoSm( topoName );
   return topo ? topo->topoPortSm( port ) != nullptr : topoName != stpSm()->tapAggTopoName();
}

/** The states that a VLAN of the topology carries, aggregates by their members. */
const VlanTopoHelper::Ports &
VlanTopoHelper::portsOf( const String & topoName ) {
   if ( !isStale( ports_, topoName ) ) {
      return ports_;
   }
   ports_ = { topoName, stpSm()->portChanges(), {} };
   const LagView lags = stpSm()->lagView();
   auto put = [&]( IntfId intf, bool forwarding ) {
      if ( lags.lagOf( intf ) ) {
         STP_TRACE( intf, " part of a LAG, not updating" );
         return;
      }
      lags.forEachTarget( intf, EmptyAggregate::itself, [&]( IntfId target ) {
         ports_.list.push_back( { target, forwarding } );
      } );
   };
   if ( auto topo = stpSm()->topoSm( topoName ) ) {
      topo->forEachPort( [&]( IntfId intf, TopoPortSm & port ) {
         put( intf, port.wantedState() == PortState::forwarding );
      } );
   }
   if ( topoName == stpSm()->tapAggTopoName() ) {
      for ( auto && [intf, info] : stpSm()->tapAggIntf()->intfInfoIteratorConst() ) {
         put( intf, true );
      }
   }
   return ports_;
}

// --- Acknowledgement -----------------------------------------------------------------------------

void
VlanTopoHelper::told( VlanId vlan, U64 genId ) {
   told_[vlan] = genId ? genId : told_[vlan];
}

/** Nothing for generation 0, and for what the VLAN has completed already. */
void
VlanTopoHelper::waitFor( const String & topoName, VlanId vlan, U64 genId ) {
   if ( !genId || vlanHelper_->completedVlanUpdateStatus( vlan ) >= genId ) {
      return;
   }
   if ( const String & in = stpSm()->vlanToTopoSmMap( vlan ); !in.empty() && in != topoName ) {
      return; // it has left meanwhile
   }
   if ( !waiting_[vlan] || waiting_[vlan]->topoName() != topoName ) {
      waitNoMore( vlan );
      waiting_[vlan] = topoPendingVlansIs( topoName );
   }
   waiting_[vlan]->pendingVlanUpdateGenIdIs( vlan, TopoPendingVlans::VlanUpdateGenId( genId ) );
   STP_TRACE( topoName, " needs to wait for vlan ", vlan, " genId ", genId );
}

/** The VLAN's completion does not matter any more; its topology may be done without it. */
void
VlanTopoHelper::waitNoMore( U16 vlan ) {
   if ( const auto pending = std::exchange( waiting_[vlan], nullptr ) ) {
      pending->pendingVlanUpdateGenIdDel( VlanId( vlan ) );
      review( pending->topoName() );
      task_.wake();
   }
}

void
VlanTopoHelper::handleCompletedVlanUpdateStatus( const VlanId & vlan ) {
   QON_HOOK( TopoHelper, this, handleVlanUpdateCompletion, vlan,
             vlanHelper_->completedVlanUpdateStatus( vlan ) );
}

void
VlanTopoHelper::handleVlanUpdateCompletion( U16 vlan, U64 generation ) {
   const auto pending = vlan < waiting_.size() ? waiting_[vlan] : nullptr;
   if ( !pending || generation < pending->pendingVlanUpdateGenId( VlanId( vlan ) ).genId() ) {
      return;
   }
   const Velto::Ptr< VlanTopoHelper > keep( this );
   waiting_[vlan] = nullptr;
   pending->pendingVlanUpdateGenIdDel( VlanId( vlan ) );
   STP_TRACE( pending->topoName(), " vlan ", vlan, " completed" );
   if ( const U32 left = pending->pendingVlanUpdateGenIds() ) {
      STP_TRACE( pending->topoName(), " still waiting for ", left, " vlans" );
      return;
   }
   review( pending->topoName() );
   reviewAll();
}

void
VlanTopoHelper::review( const String & topoName ) {
   toReview_.emplace( topoName );
}

void
VlanTopoHelper::reviewAll() {
   while ( !toReview_.empty() ) {
      const String name = toReview_.front().key;
      toReview_.erase( name );
      acknowledge( name );
   }
}

bool
VlanTopoHelper::vlanEnters( const String & topoName ) const {
   for ( auto && [vlan, name] : topoVlanOp_ ) {
      if ( name == topoName ) {
         return true;
      }
   }
   return false;
}

void
VlanTopoHelper::acknowledge( const String & topoName ) {
   if ( topoUpdateMapHas( topoName ) || vlanEnters( topoName ) ||
        ( currentTopoUpdate() && currentTopoUpdate()->topoName() == topoName ) ) {
      return;
   }
   if ( auto pending = topoPendingVlans( topoName ) ) {
      if ( const U32 left = pending->pendingVlanUpdateGenIds() ) {
         STP_TRACE( topoName, " still waiting for ", left, " vlans" );
         return;
      }
      topoPendingVlansDel( topoName );
   }
   if ( stpSm() ) {
      setStpStateDoneTopoName( topoName );
   }
}

/** Nobody waits for port states any more, and no VLAN is in a topology. What left one is still to
    be blocked. */
void
VlanTopoHelper::dropStates() {
   topoUpdateQueue_ = {};
   topoUpdateMapDelAll();
   currentTopoUpdateDel();
   topoPendingVlansDelAll();
   waiting_.assign( waiting_.size(), nullptr );
   toReview_.clear();
   for ( auto && entry : keysOf< U16 >( topoVlanOp_ ) ) {
      if ( !topoVlanOp( entry.key ).empty() ) {
         topoVlanOpDel( entry.key );
      }
   }
}

void
VlanTopoHelper::dropAll() {
   dropStates();
   topoVlanOpDelAll();
}

String
VlanTopoHelper::checkInvariants() const {
   if ( stpSm() && !stpSm()->started() ) {
      return ""; // what was left by a clean-up goes with the next slice
   }
   if ( topoUpdateQueue_.size() != topoUpdateMap_.size() ) {
      return "the queue and the map of updates differ";
   }
   if ( remainingWorkUnits() && !task_.awake() ) {
      return "there is work and the task sleeps";
   }
   U32 waits = 0;
   for ( auto && [name, pending] : topoPendingVlansIteratorConst() ) {
      for ( auto && [vlan, genId] : pending->pendingVlanUpdateGenIdIteratorConst() ) {
         ++waits;
         const auto mapped = stpSm() ? stpSm()->topoToVlanMap( name ) : nullptr;
         if ( waiting_[vlan] != pending || !mapped || !mapped->vlanHas( vlan ) ) {
            return name + " waits for VLAN " + vlan.stringValue() + ", which is not in it";
         }
         if ( vlanHelper_->updateState( vlan ).completed >= genId.genId() ) {
            return name + " waits for VLAN " + vlan.stringValue() + ", which is done";
         }
      }
   }
   if ( waits !=
        U32( waiting_.size() - std::count( waiting_.begin(), waiting_.end(), nullptr ) ) ) {
      return "a VLAN waits for a topology that does not know";
   }
   if ( !stpSm() || remainingWorkUnits() || !toReview_.empty() ) {
      return "";
   }
   for ( auto && [name, pending] : stpSm()->pendingStpStateTopoIteratorConst() ) {
      auto vlans = topoPendingVlans( name );
      if ( pending->pendingIntfStates() && ( !vlans || !vlans->pendingVlanUpdateGenIds() ) ) {
         return name + " waits for nothing";
      }
   }
   return "";
}

} // namespace Qon
