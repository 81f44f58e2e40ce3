// The end of the tap-aggregation topology. Each step is done, whichever raises.

#include "Qon/include/topology/QonStpSm.h"

#include "Qon/topology/StpTrace.h"
#include "platform/Velto/Scope.h"

namespace Qon {

using Bridging::VlanId;

/** Takes out the VLANs that are in the topology and belong there no more. */
void
StpSm::leaveTapAggTopo( const String & name ) {
   auto mapped = topoToVlanMap( name );
   if ( !mapped ) {
      return;
   }
   Velto::FirstError error;
   for ( auto && entry : keysOf< VlanId >( mapped->vlanIteratorConst() ) ) {
      if ( vlanToTopoSmMap( entry.key ) == name && wantedTopo( entry.key ) != name ) {
         STP_TRACE( "Deleting from TapAggTopo" );
         error.run( [&] { takeOut( entry.key, name ); } );
      }
   }
   error.pass();
}

void
StpSm::cleanupTapAgg() {
   STP_TRACE( "cleanup tapagg stuff" );
   const String name = std::exchange( tapAggTopo_, {} ).name;
   portsChanged();
   Velto::FirstError error;
   error.run( [&] { leaveTapAggTopo( name ); } );
   if ( const Velto::Ptr< TapAggIntfSm > tapAgg = tapAggIntfSm_ ) {
      error.run( [&] { tapAgg->doCleanup(); } );
      VELTO_ASSERT( !tapAggIntf()->intfInfos() ); // fixed text
   }
   error.run( [&] { topoNotInUse( name ); } );
   error.pass();
}

} // namespace Qon
