#pragma once
// Topologies of the chip: a table, and the hook class that writes it a little later.

#include "Tables.h"

namespace Chip {

/** Topologies: reports done when nothing that was handed over for the topology is on its way. */
class ChipTopo : public Qon::TopoHelper {
 public:
   ChipTopo( Tables & tables, Faults faults, Kiv::TimerWheel * wheel )
       : tables_( tables ), faults_( faults ), later_( wheel ) {}

   U32 maxTopo() override { return Tables::topoRoom; }
   bool allocTopo( const String & name ) override {
      bool room =
            tables_.topologies.contains( name ) || tables_.topologies.size() < Tables::topoRoom;
      if ( room ) {
         tables_.topologies[name];
      }
      return room;
   }
   void freeTopo( const String & name ) override {
      tables_.topologies.erase( name );
      onTheirWay_.erase( name ); // what is on its way is for nobody, also when the name comes back
   }
   void setStpState( S32 id, const String & name, IntfId intf, PortState state ) override {
      names_[U32( id )] = name;
      if ( !tables_.topologies.contains( name ) ) {
         return; // there was no room for it
      }
      auto & onTheirWay = onTheirWay_[name];
      onTheirWay = onTheirWay ? onTheirWay : std::make_shared< U32 >( 0 );
      ++*onTheirWay;
      later_.add( [=, this, mine = onTheirWay] {
         if ( auto now = onTheirWay_.find( name );
              now == onTheirWay_.end() || now->second != mine ) {
            return;
         }
         tables_.topologies[name].ports[intf] = state;
         if ( --*mine == 0 ) {
            setStpStateDoneTopoName( name );
         }
      } );
      if ( faults_.earlyDone ) {
         setStpStateDoneTopoName( name );
      }
   }
   void addVlanToTopo( const String & name, U16 vlan ) override {
      if ( auto topo = tables_.topologies.find( name ); topo != tables_.topologies.end() ) {
         topo->second.vlans.insert( vlan );
      }
   }
   void delVlanFromTopo( const String & name, U16 vlan ) override {
      if ( auto topo = tables_.topologies.find( name ); topo != tables_.topologies.end() ) {
         topo->second.vlans.erase( vlan );
      }
   }
   void flushTopoPort( U32 topoId, IntfId intf ) override {
      auto topo = tables_.topologies.find( names_[topoId] );
      if ( topo == tables_.topologies.end() ) {
         return;
      }
      std::erase_if( tables_.hosts, [&, &vlans = topo->second.vlans]( auto & host ) {
         return host.second.intf == intf && vlans.contains( U16( host.first.key().vlan() ) );
      } );
   }

 private:
   Tables & tables_;
   Faults faults_;
   std::map< U32, String > names_;                         // of topologies
   std::map< String, std::shared_ptr< U32 > > onTheirWay_; // by topology, of this life of it
   Later later_;
};

} // namespace Chip
