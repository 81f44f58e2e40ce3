#pragma once
// The hardware side of topologies: what a chip-specific agent overrides, and where it reports
// that the hardware has taken what was handed to it.
//
//    StpSm, TopoSm, TopoPortSm -> hooks of TopoHelper -> chip
//    chip -> setStpStateDoneTopoId( id ) or setStpStateDoneTopoName( name ) -> StpSm -> status
//
// A chip with topology tables overrides the hooks of this class. A chip that keeps forwarding per
// VLAN uses VlanTopoHelper (VlanTopoHelper.h) and overrides the hooks of VlanHelper.
//
// Invariants
// 1. addVlanToTopo is called once for each VLAN of each topology that lives, always after
//    delVlanFromTopo of the topology that the VLAN was in.
// 2. allocTopo comes before everything else about a topology, freeTopo after.
//
// Ownership: the state machine counts the helper; the helper points back without counting.

#include "Qon/include/framework/QonBaseSm.h"
#include "platform/types/Bridging.h"
#include "platform/types/Ulnet.h"

namespace Qon {

class MappedVlan;
class StpSm;

class TopoHelper : public QonBaseHelper {
 public:
   using PortState = Bridging::Topology::PortState;

   explicit TopoHelper( const String & name = "topo" ) : QonBaseHelper( name ) {}

   /** How many topologies the hardware can hold; a question for others, nothing here asks. */
   virtual U32 maxTopo();
   /** Makes room for a topology. False when there is none: its ports and VLANs are handed over
       all the same. */
   virtual bool allocTopo( const String & topoName );
   /** The topology is gone; what its VLANs and ports carried does not matter any more. */
   virtual void freeTopo( const String & topoName );
   /** Sets the state of a port, never of an aggregate that has members. Done when the chip's agent
       calls setStpStateDoneTopoId() or setStpStateDoneTopoName(), which stands for everything
       that was handed over for the topology up to then; it may be called from within. A later
       call for the same port replaces an earlier one that is not done. */
   virtual void setStpState( S32 topoId, const String & topoName, Ulnet::IntfId intf,
                             PortState state );
   /** The VLAN carries the port states of this topology from now on. */
   virtual void addVlanToTopo( const String & topoName, U16 vlan );
   /** The VLAN is in no topology: it forwards nowhere, until it is added to another. Also called
       when the topology itself has gone. */
   virtual void delVlanFromTopo( const String & topoName, U16 vlan );
   /** Flushes the MAC addresses of a port, or of an aggregate, in all VLANs of the topology. Done
       on return. */
   virtual void flushTopoPort( U32 topoId, Ulnet::IntfId intf );
   /** The same where pvst() is set: the topology's VLANs are given. */
   virtual void flushTopoPortVlan( const MappedVlan & vlans, Ulnet::IntfId intf );
   /** Compares what the chip holds with what was handed to it; part of a verification run. */
   virtual void verify() {}
   /** Called once when the state machine starts, before all other hooks. */
   virtual void hwInit() {}
   /** The VLAN's hardware holds everything up to this generation. */
   virtual void handleVlanUpdateCompletion( U16 /* vlan */, U64 /* generation */ ) {}

   /** The state machine that uses this helper; null before its start and after its death. */
   StpSm * stpSm() const { return stpSm_; }
   void stpSmIs( StpSm * stpSm ) { stpSm_ = stpSm; }
   /** The hardware keeps one topology for each VLAN: flushes are per VLAN. Set before the start. */
   bool pvst() const { return pvst_; }
   void pvstIs( bool v ) { pvst_ = v; }

   /** The hardware has taken all port states handed over for the topology. Unknown ids and names
       are ignored. Fatal without a state machine. */
   void setStpStateDoneTopoId( U32 topoId );
   void setStpStateDoneTopoName( const String & topoName );

   /** Silent under SIMULATION_VMID: simulated chips have no topologies. */
   QON_ASSERT_FAMILY( TopoHelper, "QonStpSm", Silence::simulation )

 private:
   void unimplemented( const char * hook ) const { qonAssert( unimplementedFunction( hook ) ); }

   StpSm * stpSm_ = nullptr;
   bool pvst_ = false;
};

} // namespace Qon
