#pragma once
// The topology tables of the chip in software: a limited number of topologies with the state of
// each port, and the topology of each VLAN.
//
//    StpSm -> hooks -> wanted -> at once or later: the table -> setStpStateDoneTopoId()
//
// Invariants
// 1. Not more topologies are in the table than it has room for (in the fault plan the limit of
//    "topoTable"). One without room is kept aside and installed when another goes; until then
//    nothing of it is reported done.
// 2. Done is reported when everything handed over for the topology is in the table.
// 3. A VLAN whose topology is not in the table forwards nowhere; one that was never in a topology
//    forwards everywhere.

#include "Qon/include/topology/QonStpSm.h"
#include "agent/softchip/Completions.h"
#include "agent/softchip/FaultPlan.h"

namespace SoftChip {

using Ulnet::IntfId;
using Velto::String;

class SoftTopoHelper : public Qon::TopoHelper {
 public:
   SoftTopoHelper( U32 maxTopo, FaultPlan & plan )
       : maxTopo_( maxTopo ), plan_( plan ), vlan_( 4095 ) {}

   /** When port states are done. */
   Completions & completions() { return completions_; }

   U32 maxTopo() override { return plan_.limit( "topoTable", maxTopo_ ); }
   bool allocTopo( const String & topoName ) override;
   void freeTopo( const String & topoName ) override;
   void setStpState( S32 topoId, const String & topoName, IntfId intf, PortState state ) override;
   void addVlanToTopo( const String & topoName, U16 vlan ) override;
   void delVlanFromTopo( const String & topoName, U16 vlan ) override;
   void flushTopoPort( U32 topoId, IntfId intf ) override;
   void flushTopoPortVlan( const Qon::MappedVlan & vlans, IntfId intf ) override;

   /** The topologies that were allocated and are in the table, in the order in which they came. */
   std::vector< String > topologies() const;
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
   void done( U32 topoId );

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
