#include "agent/softchip/TopologyPart.h"

#include "agent/softchip/Chip.h"

namespace SoftChip {

Velto::Ptr< Qon::TopoHelper >
TopologyPart::makeTopoHelper() {
   return tables_ ? Velto::make< SoftTopoHelper >( *table_ ) : Velto::Ptr< SoftTopoHelper >();
}

std::optional< QonChip::HeldTopologies >
TopologyPart::topologies() const {
   if ( !tables_ ) {
      return std::nullopt;
   }
   QonChip::HeldTopologies held;
   for ( auto & name : table_->topologies() ) {
      auto & topology = held[name];
      table_->forEachPort( name, [&]( IntfId intf, TopoTable::PortState state ) {
         if ( state != TopoTable::PortState::disabled ) { // as a port that was never set
            topology.ports[intf] = state;
         }
      } );
   }
   for ( U16 vlan = 1; vlan <= TopoTable::lastVlan; ++vlan ) {
      auto topology = held.find( table_->topoOf( vlan ) );
      if ( topology != held.end() ) {
         topology->second.vlans.insert( vlan );
      }
   }
   return held;
}

void
addTopologyPart( Chip & chip ) {
   chip.addPart< TopologyPart >();
}

} // namespace SoftChip
