#include "Qon/include/topology/TopoHelper.h"

#include "Qon/include/topology/QonStpSm.h"

namespace Qon {

U32
TopoHelper::maxTopo() {
   unimplemented( "TopoHelper::maxTopo" );
   return 0;
}

bool
TopoHelper::allocTopo( const String & ) {
   unimplemented( "TopoHelper::allocTopo" );
   return false;
}

void
TopoHelper::freeTopo( const String & ) {
   unimplemented( "TopoHelper::freeTopo" );
}

void
TopoHelper::setStpState( S32, const String &, Ulnet::IntfId, PortState ) {
   unimplemented( "TopoHelper::setStpState" );
}

void
TopoHelper::addVlanToTopo( const String &, U16 ) {
   unimplemented( "TopoHelper::addVlanToTopo" );
}

void
TopoHelper::delVlanFromTopo( const String &, U16 ) {
   unimplemented( "TopoHelper::delVlanFromTopo" );
}

// Both forms of the flush report under one name: a fixed text
void
TopoHelper::flushTopoPort( U32, Ulnet::IntfId ) {
   unimplemented( "TopoHelper::flushTopoMacAddr" );
}

void
TopoHelper::flushTopoPortVlan( const MappedVlan &, Ulnet::IntfId ) {
   unimplemented( "TopoHelper::flushTopoMacAddr" );
}

void
TopoHelper::setStpStateDoneTopoId( U32 topoId ) {
   auto stpSm = this->stpSm();
   VELTO_ASSERT( stpSm ); // fixed text
   stpSm->setStpStateDoneTopoId( topoId );
}

void
TopoHelper::setStpStateDoneTopoName( const String & topoName ) {
   auto stpSm = this->stpSm();
   VELTO_ASSERT( stpSm ); // fixed text
   stpSm->setStpStateDoneTopoName( topoName );
}

} // namespace Qon
