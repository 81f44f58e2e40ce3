#include "Qon/include/lag/QonLagIndex.h"

#include "platform/Velto/Assert.h"

namespace Qon {

bool
hasLagIndex( Ulnet::IntfId lagName ) {
   return Ulnet::PortChannelIntfId::isPortChannelIntfId( lagName ) &&
          !Ulnet::PortChannelIntfId::isRecirc( lagName ) &&
          Ulnet::GenericIntfId::parts( lagName ) == 1;
}

U32
getLagIndex( Ulnet::IntfId lagName ) {
   VELTO_ASSERT( Ulnet::PortChannelIntfId::isPortChannelIntfId( lagName ) ); // fixed text
   VELTO_ASSERT( !Ulnet::PortChannelIntfId::isRecirc( lagName ) );           // fixed text
   VELTO_ASSERT( 1 == Ulnet::GenericIntfId::parts( lagName ) );              // fixed text
   return Ulnet::PortChannelIntfId::portChannelNum( lagName );
}

} // namespace Qon
