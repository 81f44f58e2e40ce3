#pragma once
// The topology tables of the chip in software: a limited number of topologies with the state of
// each port, and the topology of each VLAN.
//
//    hook object -> wanted -> at once or later: the table -> Hook::stpStateDone()
//
// Invariants
// 1. Not more topologies are in the table than it has room for (in the fault plan the limit of
//    "topoTable"). One without room is kept aside and installed when another goes; until then
//    nothing of it is reported done.
// 2. Done is reported when everything handed over for the topology is in the table, to the hook
//    object that handed over the latest of it.
// 3. A VLAN whose topology is not in the table forwards nowhere; one that was never in a topology
//    forwards everywhere.
// 4. A topology that is allocated while it is in the table stays as it is there.

#include <vector>

#include "agent/softchip/Completions.h"
#include "agent/softchip/FaultPlan.h"
#include "agent/softchip/Hearer.h"
#include "platform/types/Topology.h"

namespace SoftChip {

using Ulnet::IntfId;
using Velto::String;

class TopoTable {
 public:
   using PortState = Bridging::Topology::PortState;
   static constexpr U16 lastVlan = 4094;

   class Hook {
    public:
      /** Nothing of the topology is on its way any more. */
      virtual void stpStateDone( U32 topoId ) = 0;

    protected:
      ~Hook() = default;
   };

   /** `plan` outlives the table. */
   TopoTable( U32 maxTopo, FaultPlan & plan )
       : maxTopo_( maxTopo ), plan_( plan ), vlan_( lastVlan + 1 ) {
      plan.tableIs( "topoTable" );
   }

   Hearer< Hook > hook;

   /** When port states are done. */
   Completions & completions() { return completions_; }

   U32 maxTopo() const { return plan_.limit( "topoTable", maxTopo_ ); }
   /** False: there is no room for it now. */
   bool alloc( const String & topoName );
   void free( const String & topoName );
   void stateIs( U32 topoId, const String & topoName, IntfId intf, PortState state );
   void vlanIs( const String & topoName, U16 vlan ) { vlan_.at( vlan ) = { topoName, false }; }
   void vlanDel( U16 vlan ) { vlan_.at( vlan ) = { "", true }; }
   void flush() { ++flushes_; }

   /** The topologies that were allocated and are in the table, in the order in which they came. */
   std::vector< String > topologies() const;
   bool has( const String & topoName ) const {
      auto topo = topo_.find( topoName );
      return topo && topo->installed;
   }
   /** The topology of a VLAN; empty for none. */
   const String & topoOf( U16 vlan ) const { return vlan_[vlan].topo; }
   /** The state of a port in the table; disabled where it was never set. */
   PortState state( const String & topoName, IntfId intf ) const;
   /** Calls `act( IntfId, PortState )` for every port of a topology in the table. */
   template< class Act >
   void forEachPort( const String & topoName, Act && act ) const {
      auto topo = topo_.find( topoName );
      if ( topo && topo->installed ) {
         for ( auto && [intf, port] : topo->ports ) {
            act( intf, port.held );
         }
      }
   }
   /** Whether frames of the VLAN pass the port, as far as topologies go. */
   bool forwards( U16 vlan, IntfId intf ) const;
   U64 flushes() const { return flushes_; }

 private:
   /** A port in a topology: what is in the table, and what is on its way. */
   struct Port {
      PortState held = PortState::disabled;
      PortState wanted = PortState::disabled;
      bool onItsWay = false;
   };
   struct Topo {
      U32 topoId = 0;
      Hearer< Hook >::Ticket ticket = 0; // of the latest state
      U64 incarnation = 0;
      bool installed = false;
      U32 onTheirWay = 0;
      Kiv::DenseMap< IntfId, Port > ports;
   };
   struct Vlan {
      String topo;
      bool blocked = false; // it left a topology and is in none
   };

   void install( const String & topoName, Topo & topo );
   void write( const String & topoName, U64 incarnation, IntfId intf );

   const U32 maxTopo_;
   FaultPlan & plan_;
   U32 installed_ = 0;
   U64 incarnations_ = 0;
   U64 flushes_ = 0;
   Completions completions_;
   Kiv::DenseMap< String, Topo > topo_;
   std::vector< Vlan > vlan_;
};

} // namespace SoftChip
