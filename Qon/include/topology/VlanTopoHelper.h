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
//    update of it is queued or under way, and no VLAN is about to enter it.
// 4. A VLAN waits for one topology at most, the one it is in; one that leaves waits no more. What
//    it waits for are the generations of what it was told here, in the topology that it left too:
//    never those that others asked for.
// 5. Nothing of a state machine that has ended, or has been cleaned up, is carried out or waited
//    for on behalf of the next one.
//
// Ownership: counts the VLAN helper; is counted by the state machine.

#include "Qon/include/topology/QonVlanHelper.h"
#include "Qon/include/topology/TopoHelper.h"
#include "platform/Kiv/TaskScheduler.h"

namespace Qon {

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
class TopoPendingVlans : public Kiv::Entity {
 public:
   class VlanUpdateGenId {
      U64 genId_ = 0;
      KIV_VALUE( Qon::TopoPendingVlans, VlanUpdateGenId, genId )
   };
   KIV_BODY( TopoPendingVlans, Kiv::Entity )
   KIV_MAP( Bridging::VlanId, VlanUpdateGenId, pendingVlanUpdateGenId )
 public:
   explicit TopoPendingVlans( const String & topoName ) : Kiv::Entity( topoName ) {}
   const String & topoName() const { return name(); }
};

class VlanTopoHelper : public TopoHelper, public Checked {
   KIV_BODY( VlanTopoHelper, TopoHelper )
   KIV_DECLARE( vlanHelper, void, VlanHelper,
                template pointer< KivT, VlanHelper, &KivT::vlanHelper >( "vlanHelper" ) )
   KIV_ENTITIES( String, TopoUpdate, topoUpdateMap ) // those that are queued
   KIV_PTR( TopoUpdate, currentTopoUpdate )
   KIV_MAP( U16, String, topoVlanOp ) // where the VLAN is about to be, empty for nowhere
   KIV_ENTITIES( String, TopoPendingVlans, topoPendingVlans ) // what a topology waits for
 public:
   VlanTopoHelper( Velto::Ptr< VlanHelper > vlanHelper, Kiv::TaskScheduler * taskScheduler,
                   U32 taskPriority, const String & taskName );
   ~VlanTopoHelper() override;

   VlanHelper * vlanHelper() const { return vlanHelper_.ptr(); }
   /** Without one, states are acknowledged at once and nothing is programmed. */
   void vlanHelperIs( Velto::Ptr< VlanHelper > vlanHelper );

   U32 maxTopo() override { return 4096; }
   bool allocTopo( const String & ) override { return true; }
   void freeTopo( const String & topoName ) override;
   void setStpState( S32 topoId, const String & topoName, Ulnet::IntfId intf,
                     PortState state ) override;
   void addVlanToTopo( const String & topoName, U16 vlan ) override;
   void delVlanFromTopo( const String & topoName, U16 vlan ) override;
   void flushTopoPort( U32, Ulnet::IntfId ) override {}
   void hwInit() override { dropAll(); }
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
   struct PortForwarding {
      Ulnet::IntfId intf;
      bool forwarding;
   };
   /** What each VLAN of a topology is told, and of which changes of the ports it knows. */
   struct Ports {
      String topoName;
      U64 changes = 0;
      std::vector< PortForwarding > list;
   };

   void handleCompletedVlanUpdateStatus( const Bridging::VlanId & vlan );
   void workOff();
   void nextUpdate();
   void handlePortStates( Bridging::VlanId vlan, const Ports & ports );
   bool isStale( const Ports & ports, const String & topoName ) const;
   const Ports & portsOfUpdate( const TopoUpdate & update );
   const Ports & portsOf( const String & topoName );
   bool stillThere( const String & topoName, Ulnet::IntfId intf ) const;
   void topoVlanOpAdd( U16 vlan, const String & topoName );
   bool vlanEnters( const String & topoName ) const;
   void told( Bridging::VlanId vlan, U64 genId );
   void waitFor( const String & topoName, Bridging::VlanId vlan, U64 genId );
   void waitNoMore( U16 vlan );
   void review( const String & topoName );
   void reviewAll();
   void acknowledge( const String & topoName );
   void dropStates();
   void dropAll();

   Velto::Ptr< VlanHelper > vlanHelper_;
   WalkTask task_;
   bool working_ = false;
   Kiv::Fifo< Velto::Ptr< TopoUpdate > > topoUpdateQueue_;
   Ports currentPorts_; // of the current update
   Ports ports_;        // of the topology to which VLANs were added last
   std::vector< Velto::Ptr< TopoPendingVlans > > waiting_; // by VLAN
   std::vector< U64 > told_; // by VLAN, the last generation that it was given
   Kiv::DenseMap< String, Kiv::Nothing > toReview_; // may be ready to be acknowledged
   Kiv::Watch< VlanHelper::completedVlanUpdateStatusAttr, VlanTopoHelper,
               &VlanTopoHelper::handleCompletedVlanUpdateStatus >
         completedVlanUpdateStatus_;
};

Velto::Ptr< VlanTopoHelper > VlanTopoHelperIs( Velto::Ptr< VlanHelper > vlanHelper,
                                               Kiv::TaskScheduler * taskScheduler,
                                               U32 taskPriority = 10,
                                               const String & taskName = "VlanTopoHelper" );

} // namespace Qon
