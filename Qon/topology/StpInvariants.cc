// What must hold of the topologies between two events.

#include "Qon/include/topology/QonStpSm.h"
#include "platform/Flintlog/Trace.h"

namespace Qon {

namespace {

String
portFault( const TopoPortSm & port ) {
   const auto topo = port.topoSm();
   const bool pending = topo->pendingHas( port.intf() );
   if ( topo->config()->topoPortConfig( port.intf() ) != port.config() ) {
      return "a port stands for a configuration that has gone";
   }
   if ( pending && port.inTapOrTool() ) {
      return "a port in tap or tool mode waits for the hardware";
   }
   if ( pending && !port.isLag() && topo->stpSm()->lagOf( port.intf() ) ) {
      return "a member of an aggregate waits for the hardware";
   }
   if ( !pending && port.status()->state() != port.wantedState() ) {
      return "a port is neither acknowledged nor pending";
   }
   return "";
}

String
topoFault( const TopoSm & topo ) {
   String fault;
   if ( topo.config()->topoId() != topo.status()->topoId() ||
        topo.topoId() != topo.config()->topoId() ) {
      return "the ids differ";
   }
   if ( topo.topoPortSms() != topo.config()->topoPortConfigs() ) {
      return "the ports are not those of the configuration";
   }
   topo.forEachPort( [&]( const Ulnet::IntfId & intf, const TopoPortSm & port ) {
      if ( String found = portFault( port ); fault.empty() && !found.empty() ) {
         fault = intf.stringValue() + ": " + found;
      }
   } );
   return fault;
}

} // namespace

String
StpSm::checkInvariants() const {
   if ( !initialized() ) {
      return "";
   }
   U32 mapped = 0;
   for ( auto && [name, vlans] : topoToVlanMapIteratorConst() ) {
      mapped += vlans->vlans();
      if ( vlans->vlans() == 0 ) {
         return "topology " + name + " has an empty set of VLANs";
      }
      for ( auto && [vlan, present] : vlans->vlanIteratorConst() ) {
         if ( vlanToTopoSmMap( vlan ) != name || wantedTopo( vlan ) != name ) {
            return "VLAN " + vlan.stringValue() + " is in the wrong topology, " + name;
         }
         if ( topoUsers_.has( name ) && !addedVlan_.has( U16( vlan ) ) ) {
            return "VLAN " + vlan.stringValue() + " was not added in the hardware";
         }
      }
   }
   if ( mapped != vlanToTopoSmMaps() ) {
      return "the two maps of VLANs differ";
   }
   for ( auto && [name, topoConfig] : config()->topoConfigIteratorConst() ) {
      auto topoStatus = status()->topoStatus( name );
      const bool agree = topoStatus && topoStatus->topoId() == topoConfig->topoId();
      auto topo = topoSm( name );
      if ( agree != ( topo && topo->config() == topoConfig && topo->status() == topoStatus ) ) {
         return "topology " + name + ( agree ? " is missing" : " should not be there" );
      }
   }
   String fault;
   forEachTopo( [&]( const String & name, const TopoSm & topo ) {
      if ( String found = topoFault( topo ); fault.empty() && !found.empty() ) {
         fault = "topology " + name + ": " + found;
      }
   } );
   for ( auto && [name, pending] : pendingStpStateTopoIteratorConst() ) {
      for ( auto && [intf, state] : pending->pendingIntfStateIteratorConst() ) {
         if ( !topoSm( name ) || !topoSm( name )->topoPortSm( intf ) ) {
            return "topology " + name + ": " + intf.stringValue() + " waits and is not there";
         }
      }
   }
   return fault;
}

} // namespace Qon
