#pragma once
// Topologies on hardware that keeps forwarding per VLAN: every port state and every VLAN that
// moves is walked over in slices and handed to the VLAN helper.
//
//    hooks -> topoVlanOp, topoUpdateQueue -> task, in slices -> VlanHelper
//    VlanHelper.completedVlanUpdateStatus -> handleVlanUpdateCompletion() -> StpSm acknowledges
//
// Invariants
// 1. Port states of a topology that wait are merged, the last one of each port wins; the topology
//    keeps its place in the queue.
// 2. In a slice: the current update to its end, then all VLANs that move, then the next update.
// 3. The ports of a topology are acknowledged when none of its VLANs waits for a generation, no
//    update of it is queued or under way, and no VLAN is about to move.
// 4. A VLAN waits for one topology at most, the one it is in; one that leaves waits no more.
//
// Ownership: counts the VLAN helper; is counted by the state machine.

#include "Qon/include/topology/QonVlanHelper.h"
#include "Qon/include/topology/TopoHelper.h"
#include "platform/Kiv/TaskScheduler.h"

namespace Qon {

class TopoUpdate;
class TopoPendingVlans;

class VlanTopoHelper : public TopoHelper, public Checked {
 public:
   VlanTopoHelper( Velto::Ptr< VlanHelper > vlanHelper, Kiv::TaskScheduler * taskScheduler,
                   U32 taskPriority, const String & taskName );
   ~VlanTopoHelper() override;

   VlanHelper * vlanHelper() const { return vlanHelper_.ptr(); }
   /** Without one, states are acknowledged at once and nothing is programmed. */
   void vlanHelperIs( Velto::Ptr< VlanHelper > vlanHelper );

   U32 maxTopo() override { return 4096; }
   bool allocTopo( const String & ) override { return true; }
   void freeTopo( const String & ) override {}
   void setStpState( S32 topoId, const String & topoName, Ulnet::IntfId intf,
                     PortState state ) override;
   void addVlanToTopo( const String & topoName, U16 vlan ) override;
   void delVlanFromTopo( const String & topoName, U16 vlan ) override;
   void flushTopoPort( U32, Ulnet::IntfId ) override {}
   void handleVlanUpdateCompletion( U16 vlan, U64 generation ) override;

   /** What the task has before it: updates, VLANs that move, and the current update. */
   U32 remainingWorkUnits() const {
      return topoUpdateQueue_.size() + topoVlanOp_.size() + ( currentTopoUpdate_ ? 1 : 0 );
   }
   /** Works until nothing remains or the slice is used up. Raises Velto::RangeError for a VLAN
       outside 1..4094, of which nothing remains. */
   void performVlanTopoOperations();
   /** @name Its units of work */
   /** @{ */
   /** Walks the VLANs that are left of the current update, which must be there, until the slice is
       used up; true when there are none. */
   bool deferredSetStpState();
   /** Blocks the VLAN everywhere, then lets it carry the states of its new topology. Raises
       Velto::RangeError for a VLAN outside 1..4094, as the next one. */
   void deferredAddVlanToTopo( const String & topoName, U16 vlan );
   /** Blocks the VLAN everywhere. */
   void deferredDelVlanFromTopo( U16 vlan );
   /** @} */

   bool topoUpdateMapHas( const String & topoName ) const { return topoUpdateMap_.has( topoName ); }
   const TopoUpdate * topoUpdate( const String & topoName ) const;
   const TopoUpdate * currentTopoUpdate() const { return currentTopoUpdate_.ptr(); }
   /** The topology in which the VLAN is about to be, empty for none; null if it does not move. */
   const String * topoVlanOp( U16 vlan ) const { return topoVlanOp_.find( vlan ); }
   /** What the topology waits for; null for nothing. */
   const TopoPendingVlans * topoPendingVlans( const String & topoName ) const;

   String checkInvariants() const override;

 private:
   class WalkTask : public Kiv::Task {
    public:
      WalkTask( VlanTopoHelper & helper, Kiv::TaskScheduler * scheduler, U32 priority,
                const String & name )
          : Kiv::Task( scheduler, priority, name ), helper_( helper ) {}
      bool run() override;

    private:
      VlanTopoHelper & helper_;
   };
   using Ports = std::vector< VlanHelper::PortForwarding >;

   void handleCompletedVlanUpdateStatus( const Bridging::VlanId & vlan );
   void nextUpdate();
   const Ports & portsOf( const String & topoName );
   bool stillThere( const String & topoName, Ulnet::IntfId intf ) const;
   void waitForVlan( const String & topoName, Bridging::VlanId vlan );
   void waitFor( const String & topoName, Bridging::VlanId vlan, U64 genId );
   void waitNoMore( U16 vlan );
   void review( const String & topoName );
   void reviewAll();
   void acknowledge( const String & topoName );
   void dropAll();

   Velto::Ptr< VlanHelper > vlanHelper_;
   WalkTask task_;
   Kiv::Fifo< Velto::Ptr< TopoUpdate > > topoUpdateQueue_;
   Kiv::DenseMap< String, Velto::Ptr< TopoUpdate > > topoUpdateMap_;
   Velto::Ptr< TopoUpdate > currentTopoUpdate_;
   Ports currentPorts_; // of the current update
   Kiv::DenseMap< U16, String > topoVlanOp_;
   Kiv::DenseMap< String, Velto::Ptr< TopoPendingVlans > > topoPendingVlans_;
   std::vector< TopoPendingVlans * > waiting_;      // by VLAN
   Kiv::DenseMap< String, Kiv::Nothing > toReview_; // may be ready to be acknowledged
   String portsTopo_;                               // whose ports_ are
   Ports ports_;
   Kiv::Watch< VlanHelper::completedVlanUpdateStatusAttr, VlanTopoHelper,
               &VlanTopoHelper::handleCompletedVlanUpdateStatus >
         completedVlanUpdateStatus_;
};

/** What waits to be walked for one topology. */
class TopoUpdate : public Kiv::Entity {
   KIV_BODY( TopoUpdate, Kiv::Entity )
   KIV_MAP( Ulnet::IntfId, Bridging::Topology::PortState, stpStateChange )
   KIV_QUEUE( Bridging::VlanId, vlanToUpdate )
 public:
   explicit TopoUpdate( const String & topoName ) : Kiv::Entity( topoName ) {}
   const String & topoName() const { return name(); }
};

/** The VLANs that a topology waits for. */
class TopoPendingVlans : public Velto::Node {
 public:
   struct VlanUpdateGenId {
      U64 genId = 0;
   };
   explicit TopoPendingVlans( const String & topoName ) : topoName_( topoName ) {}
   const String & topoName() const { return topoName_; }

   Kiv::DenseMap< U16, VlanUpdateGenId > pendingVlanUpdateGenId;

 private:
   const String topoName_;
};

Velto::Ptr< VlanTopoHelper > VlanTopoHelperIs( Velto::Ptr< VlanHelper > vlanHelper,
                                               Kiv::TaskScheduler * taskScheduler,
                                               U32 taskPriority = 10,
                                               const String & taskName = "VlanTopoHelper" );

} // namespace Qon
