#include "Qon/include/topology/VlanTopoHelper.h"

#include <algorithm>

#include "Qon/include/framework/HookTap.h"
#include "Qon/include/topology/QonStpSm.h"
#include "Qon/topology/StpTrace.h"
#include "platform/Kiv/Describe.h"

KIV_DEFINE( Qon::TopoUpdate )

namespace Qon {

using Bridging::VlanId;
using Ulnet::IntfId;

VlanTopoHelper::VlanTopoHelper( Velto::Ptr< VlanHelper > vlanHelper,
                                Kiv::TaskScheduler * taskScheduler, U32 taskPriority,
                                const String & taskName )
    : task_( *this, taskScheduler, taskPriority, taskName ), waiting_( 4095 ) {
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

void
VlanTopoHelper::vlanHelperIs( Velto::Ptr< VlanHelper > vlanHelper ) {
   vlanHelper_ = std::move( vlanHelper );
   completedVlanUpdateStatus_.attach( this, vlanHelper_.ptr() );
   currentPorts_.clear();
   for ( U32 vlan = 0; vlan < waiting_.size(); ++vlan ) {
      waitNoMore( U16( vlan ) );
   }
}

// --- Hooks ---------------------------------------------------------------------------------------

void
VlanTopoHelper::setStpState( S32, const String & topoName, IntfId intf, PortState state ) {
   auto [update, fresh] = topoUpdateMap_.emplace( topoName );
   if ( fresh ) {
      *update = Velto::make< TopoUpdate >( topoName );
      topoUpdateQueue_.enq( *update );
   }
   ( *update )->stpStateChangeIs( intf, state );
   task_.wake();
}

void
VlanTopoHelper::addVlanToTopo( const String & topoName, U16 vlan ) {
   *topoVlanOp_.emplace( vlan ).first = topoName;
   task_.wake();
}

void
VlanTopoHelper::delVlanFromTopo( const String & topoName, U16 vlan ) {
   topoVlanOp_.emplace( vlan ).first->clear();
   if ( vlan < waiting_.size() ) {
      waitNoMore( vlan );
   }
   review( topoName );
   task_.wake();
}

// --- The task ------------------------------------------------------------------------------------

bool
VlanTopoHelper::WalkTask::run() {
   if ( !helper_.stpSm() ) {
      helper_.dropAll(); // the state machine has gone, and with it whoever wants anything
      return false;
   }
   try {
      helper_.performVlanTopoOperations();
   } catch ( const Velto::RangeError & ) {
      wake();
      throw;
   }
   return helper_.remainingWorkUnits() != 0;
}

void
VlanTopoHelper::performVlanTopoOperations() {
   auto stpSm = this->stpSm();
   VELTO_ASSERT( stpSm ); // fixed text
   const Velto::Ptr< VlanTopoHelper > keep( this );
   portsTopo_.clear();
   reviewAll();
   while ( remainingWorkUnits() ) {
      if ( currentTopoUpdate_ ) {
         if ( !deferredSetStpState() ) {
            return;
         }
         const Velto::Ptr< TopoUpdate > done = std::exchange( currentTopoUpdate_, nullptr );
         review( done->topoName() );
         reviewAll();
         if ( task_.shouldYield() ) {
            return;
         }
      }
      while ( !topoVlanOp_.empty() ) {
         const U16 vlan = topoVlanOp_.front().key;
         const String name = std::move( topoVlanOp_.front().value );
         topoVlanOp_.erase( vlan );
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
   if ( topoUpdateQueue_.empty() || currentTopoUpdate_ ) {
      return;
   }
   const Velto::Ptr< TopoUpdate > topoUpdate = topoUpdateQueue_.front();
   topoUpdateQueue_.deq();
   const String & topoName = topoUpdate->topoName();
   VELTO_ASSERT( topoUpdate->stpStateChanges() > 0 ); // fixed text
   VELTO_ASSERT( topoUpdateMapHas( topoName ) );      // fixed text
   topoUpdateMap_.erase( topoName );
   currentTopoUpdate_ = topoUpdate;
   currentPorts_.clear();
   if ( vlanHelper_ ) {
      for ( auto && [intf, state] : topoUpdate->stpStateChangeIteratorConst() ) {
         const bool forwarding = state == PortState::forwarding;
         if ( !forwarding || stillThere( topoName, intf ) ) {
            currentPorts_.push_back( { vlanHelper_->portNumber( intf ), forwarding } );
         }
      }
   } else {
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

bool
VlanTopoHelper::deferredSetStpState() {
   const Velto::Ptr< TopoUpdate > update( currentTopoUpdate_ );
   const String & name = update->topoName();
   while ( update->vlanToUpdates() ) {
      const VlanId vlan = update->vlanToUpdateFront();
      update->vlanToUpdateDeq();
      auto mapped = stpSm()->topoToVlanMap( name );
      if ( mapped && mapped->vlanHas( vlan ) && vlanHelper_ ) {
         vlanHelper_->doHandlePortStates( vlan, currentPorts_ );
         waitForVlan( name, vlan );
      }
      if ( task_.shouldYield() ) {
         break;
      }
   }
   return update->vlanToUpdates() == 0;
}

void
VlanTopoHelper::deferredAddVlanToTopo( const String & topoName, U16 vlan ) {
   const VlanId id( vlan );
   review( topoName );
   if ( !vlanHelper_ ) {
      STP_TRACE( "No Vlan helper" );
      return;
   }
   vlanHelper_->setPortsBlocked( id );
   vlanHelper_->doHandlePortStates( id, portsOf( topoName ) );
   waitForVlan( topoName, id );
}

void
VlanTopoHelper::deferredDelVlanFromTopo( U16 vlan ) {
   const VlanId id( vlan );
   if ( vlanHelper_ ) {
      vlanHelper_->setPortsBlocked( id );
   }
}

/** The states that a VLAN of the topology carries, aggregates by their members. */
const VlanTopoHelper::Ports &
VlanTopoHelper::portsOf( const String & topoName ) {
   if ( portsTopo_ == topoName ) {
      return ports_;
   }
   portsTopo_ = topoName;
   ports_.clear();
   const LagView lags = stpSm()->lagView();
   auto put = [&]( IntfId intf, bool forwarding ) {
      if ( lags.lagOf( intf ) ) {
         STP_TRACE( intf, " part of a LAG, not updating" );
         return;
      }
      lags.forEachTarget( intf, EmptyAggregate::itself, [&]( IntfId target ) {
         ports_.push_back( { vlanHelper_->portNumber( target ), forwarding } );
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

const TopoUpdate *
VlanTopoHelper::topoUpdate( const String & topoName ) const {
   auto update = topoUpdateMap_.find( topoName );
   return update ? update->ptr() : nullptr;
}

const TopoPendingVlans *
VlanTopoHelper::topoPendingVlans( const String & topoName ) const {
   auto pending = topoPendingVlans_.find( topoName );
   return pending ? pending->ptr() : nullptr;
}

/** For everything that the VLAN was told so far: a port state that changes nothing is not in the
    hardware while what the VLAN was told before is under way. */
void
VlanTopoHelper::waitForVlan( const String & topoName, VlanId vlan ) {
   const auto update = vlanHelper_->updateState( vlan );
   if ( update.completed != update.requested ) {
      waitFor( topoName, vlan, update.requested );
   }
}

void
VlanTopoHelper::waitFor( const String & topoName, VlanId vlan, U64 genId ) {
   TopoPendingVlans * pending = waiting_[vlan];
   if ( !pending || pending->topoName() != topoName ) {
      waitNoMore( vlan );
      auto [entry, fresh] = topoPendingVlans_.emplace( topoName );
      if ( fresh ) {
         *entry = Velto::make< TopoPendingVlans >( topoName );
      }
      pending = waiting_[vlan] = entry->ptr();
   }
   pending->pendingVlanUpdateGenId.emplace( vlan ).first->genId = genId;
   STP_TRACE( topoName, " needs to wait for vlan ", vlan, " genId ", genId );
}

/** The VLAN's completion does not matter any more; its topology may be done without it. */
void
VlanTopoHelper::waitNoMore( U16 vlan ) {
   if ( TopoPendingVlans * pending = std::exchange( waiting_[vlan], nullptr ) ) {
      pending->pendingVlanUpdateGenId.erase( vlan );
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
   TopoPendingVlans * pending = vlan < waiting_.size() ? waiting_[vlan] : nullptr;
   if ( !pending || generation < pending->pendingVlanUpdateGenId.find( vlan )->genId ) {
      return;
   }
   waiting_[vlan] = nullptr;
   pending->pendingVlanUpdateGenId.erase( vlan );
   STP_TRACE( pending->topoName(), " vlan ", vlan, " completed" );
   if ( const U32 left = pending->pendingVlanUpdateGenId.size() ) {
      STP_TRACE( pending->topoName(), " still waiting for ", left, " vlans" );
      return;
   }
   review( pending->topoName() );
   reviewAll();
}

/** Looks at the topology's acknowledgement when no VLAN is about to move any more. */
void
VlanTopoHelper::review( const String & topoName ) {
   toReview_.emplace( topoName );
}

void
VlanTopoHelper::reviewAll() {
   while ( topoVlanOp_.empty() && !toReview_.empty() ) {
      const String name = toReview_.front().key;
      toReview_.erase( name );
      acknowledge( name );
   }
}

void
VlanTopoHelper::acknowledge( const String & topoName ) {
   if ( topoUpdateMapHas( topoName ) ||
        ( currentTopoUpdate_ && currentTopoUpdate_->topoName() == topoName ) ) {
      return;
   }
   if ( auto pending = topoPendingVlans( topoName ) ) {
      if ( const U32 left = pending->pendingVlanUpdateGenId.size() ) {
         STP_TRACE( topoName, " still waiting for ", left, " vlans" );
         return;
      }
      topoPendingVlans_.erase( topoName );
   }
   if ( stpSm() ) {
      setStpStateDoneTopoName( topoName );
   }
}

void
VlanTopoHelper::dropAll() {
   topoUpdateQueue_ = {};
   topoUpdateMap_.clear();
   currentTopoUpdate_ = nullptr;
   topoVlanOp_.clear();
   topoPendingVlans_.clear();
   waiting_.assign( waiting_.size(), nullptr );
   toReview_.clear();
}

String
VlanTopoHelper::checkInvariants() const {
   if ( topoUpdateQueue_.size() != topoUpdateMap_.size() ) {
      return "the queue and the map of updates differ";
   }
   if ( remainingWorkUnits() && !task_.awake() ) {
      return "there is work and the task sleeps";
   }
   U32 waits = 0;
   for ( auto && [name, pending] : topoPendingVlans_ ) {
      for ( auto && [vlan, genId] : pending->pendingVlanUpdateGenId ) {
         ++waits;
         const auto mapped = stpSm() ? stpSm()->topoToVlanMap( name ) : nullptr;
         if ( waiting_[vlan] != pending.ptr() || !mapped || !mapped->vlanHas( VlanId( vlan ) ) ) {
            return name + " waits for VLAN " + std::to_string( vlan ) + ", which is not in it";
         }
         if ( vlanHelper_->updateState( VlanId( vlan ) ).completed >= genId.genId ) {
            return name + " waits for VLAN " + std::to_string( vlan ) + ", which is done";
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
      if ( pending->pendingIntfStates() && ( !vlans || vlans->pendingVlanUpdateGenId.empty() ) ) {
         return name + " waits for nothing";
      }
   }
   return "";
}

} // namespace Qon
