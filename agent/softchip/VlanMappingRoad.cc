// VLAN translations on the road of a frame: into which VLAN it comes, and with which tags it leaves.
//
// A translation of both tags goes before one of the outer tag alone. What it says of the inner tag
// holds: of both tags it makes what it maps to, of the outer one alone it may add one behind it.

#include "agent/softchip/Chip.h"
#include "agent/softchip/Stages.h"
#include "agent/softchip/VlanMappingPart.h"

namespace SoftChip {

namespace {

using Bridging::VlanIdOrNone;
using Direction = Bridging::VlanMappingDirection;
using Mapping = Bridging::VlanXlateMapping;

std::optional< Mapping >
nativeMapping( const VlanMappingTable & table, Direction d, IntfId port ) {
   for ( auto && [key, mapping] : table.entries( d ) ) {
      if ( key.portId() == port && Qon::isNative( key.key() ) ) {
         return mapping;
      }
   }
   return std::nullopt;
}

/** Brings the tags to what they become at the port; in words, if anything. */
String
translate( const Chip & chip, Direction d, IntfId port, Tags & tags ) {
   auto & table = chip.of< VlanMappingPart >().table();
   const Tags before = tags;
   if ( tags.outer.isNone() ) {
      const auto to = nativeMapping( table, d, port );
      tags.outer = to ? VlanIdOrNone( to->vlanId() ) : tags.outer;
   } else if ( auto both = table.mapping( d, { port, tags.outer, tags.inner } );
               both && !tags.inner.isNone() ) {
      tags = { VlanIdOrNone( both->vlanId() ), VlanIdOrNone( both->innerVlanId() ) };
   } else if ( auto to = table.mapping( d, { port, tags.outer, 0 } ) ) {
      tags.outer = VlanIdOrNone( to->vlanId() );
      tags.inner = to->innerVlanId() ? VlanIdOrNone( to->innerVlanId() ) : tags.inner;
   }
   return tags == before ? "" : shown( before ) + " -> " + shown( tags );
}

} // namespace

Verdict
passVlanMapping( const Chip & chip, Travel & travel ) {
   return { true, translate( chip, Direction::ingress, travel.frame.port, travel.tags ) };
}

Verdict
passVlanMappingOut( const Chip & chip, const Travel &, Way & way ) {
   return { true, translate( chip, Direction::egress, way.copy.port, way.copy.tags ) };
}

} // namespace SoftChip
