#include "agent/softchip/TopoTable.h"

namespace SoftChip {

bool
TopoTable::alloc( const String & topoName ) {
   auto [topo, fresh] = topo_.emplace( topoName );
   if ( fresh ) {
      topo->incarnation = ++incarnations_;
      topo->installed = installed_ < maxTopo();
      installed_ += topo->installed;
   }
   return topo->installed;
}

void
TopoTable::free( const String & topoName ) {
   auto gone = topo_.take( topoName );
   if ( !gone || !gone->installed ) {
      return;
   }
   --installed_;
   for ( auto && [name, topo] : topo_ ) {
      if ( !topo.installed ) {
         install( name, topo );
         return;
      }
   }
}

/** Room has come for a topology that was kept aside. */
void
TopoTable::install( const String & topoName, Topo & topo ) {
   topo.installed = true;
   ++installed_;
   const U64 incarnation = topo.incarnation;
   std::vector< IntfId > intfs;
   for ( auto && [intf, port] : topo.ports ) {
      intfs.push_back( intf );
   }
   const String name = topoName;
   for ( IntfId intf : intfs ) {
      completions_.add( [=, this] { write( name, incarnation, intf ); } );
   }
}

void
TopoTable::stateIs( U32 topoId, const String & topoName, IntfId intf, PortState state ) {
   Topo * topo = topo_.find( topoName );
   if ( !topo ) {
      return; // was never allocated, or has gone: there is no place for it
   }
   topo->topoId = topoId;
   topo->ticket = hook.ticket();
   Port & port = *topo->ports.emplace( intf ).first;
   port.wanted = state;
   if ( port.onItsWay ) {
      return; // what is on its way takes the latest state
   }
   port.onItsWay = true;
   ++topo->onTheirWay;
   if ( topo->installed ) {
      completions_.add( [this, name = topoName, incarnation = topo->incarnation, intf] {
         write( name, incarnation, intf );
      } );
   }
}

void
TopoTable::write( const String & topoName, U64 incarnation, IntfId intf ) {
   Topo * topo = topo_.find( topoName );
   if ( !topo || topo->incarnation != incarnation ) {
      return; // accepted for a topology that has gone since
   }
   Port & port = *topo->ports.find( intf );
   port.held = port.wanted;
   port.onItsWay = false;
   if ( --topo->onTheirWay == 0 ) {
      if ( auto hearer = hook.of( topo->ticket ) ) {
         hearer->stpStateDone( topo->topoId );
      }
   }
}

std::vector< String >
TopoTable::topologies() const {
   std::vector< String > names;
   for ( auto && [name, topo] : topo_ ) {
      if ( topo.installed ) {
         names.push_back( name );
      }
   }
   return names;
}

TopoTable::PortState
TopoTable::state( const String & topoName, IntfId intf ) const {
   auto topo = topo_.find( topoName );
   auto port = topo && topo->installed ? topo->ports.find( intf ) : nullptr;
   return port ? port->held : PortState::disabled;
}

bool
TopoTable::forwards( U16 vlan, IntfId intf ) const {
   const Vlan & v = vlan_.at( vlan );
   return v.topo.empty() ? !v.blocked : state( v.topo, intf ) == PortState::forwarding;
}

} // namespace SoftChip
