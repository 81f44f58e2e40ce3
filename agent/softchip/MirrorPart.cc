#include "agent/softchip/MirrorPart.h"

#include "agent/softchip/Chip.h"

namespace SoftChip {

std::optional< QonChip::HeldMirrors >
MirrorPart::mirrors() const {
   QonChip::HeldMirrors held;
   for ( auto & [name, session] : table_.sessions() ) {
      auto & mirror = held[name];
      mirror.group = session.group;
      mirror.tunnelType = session.tunnel.type();
      for ( auto & [port, none] : session.targets ) {
         mirror.targets.insert( port );
      }
      for ( auto & [port, source] : session.sources ) {
         if ( source.mirrors() ) {
            mirror.sources[port] = source.direction;
         }
      }
   }
   return held;
}

void
addMirrorPart( Chip & chip ) {
   chip.addPart< MirrorPart >();
}

} // namespace SoftChip
