// Tap aggregation on the road of a frame: a tap port takes it, and it leaves by tool ports alone.

#include "agent/softchip/Chip.h"
#include "agent/softchip/Stages.h"
#include "agent/softchip/TapAggPart.h"

namespace SoftChip {

namespace {

using Bridging::Input::ToolIdentityMode;

/** In front of those that are there. */
void
push( Tags & tags, U16 tag ) {
   if ( tag > 0 && tag < 4095 ) {
      tags = { Bridging::VlanIdOrNone( U32( tag ) ), tags.outer };
   }
}

/** The tags of a copy: the tool port takes some off, then the identity of the tap port comes on. */
Tags
tagsOf( const QonChip::HeldTapAgg & held, const Travel & travel, IntfId tool ) {
   const auto & identity = held.taps.at( travel.intf ).identity;
   const auto & how = held.tools.at( tool );
   Tags tags = travel.frame.tags;
   for ( U8 i = 0; i < how.dot1qRemove; ++i ) {
      tags = { tags.inner, {} };
   }
   if ( how.identityTagging == ToolIdentityMode::qinq ) {
      push( tags, identity.inner() );
   }
   if ( how.identityTagging != ToolIdentityMode::none ) {
      push( tags, identity.outer() );
   }
   return tags;
}

} // namespace

Verdict
passTapAgg( const Chip & chip, Travel & travel ) {
   auto & table = chip.of< TapAggPart >().table();
   auto & held = table.held();
   if ( !held.taps.contains( travel.intf ) ) {
      const bool tool = held.tools.contains( travel.intf );
      return { !tool, tool ? "a tool port takes nothing: dropped" : "" };
   }
   String what;
   const U64 hash = addressHash( travel.frame.packet );
   for ( auto & way : table.ways( travel.intf ) ) {
      if ( way.ports.empty() ) {
         continue; // a port-channel without members
      }
      const IntfId port = way.ports[hash % way.ports.size()];
      what += ( what.empty() ? "to " : ", " ) + way.tool.stringValue();
      for ( auto & change : way.changes ) {
         what += ", " + change;
      }
      travel.aside.push_back( { port, tagsOf( held, travel, way.tool ), way.changes } );
   }
   return { false, what.empty() ? "a tap port without tool ports: dropped" : what };
}

void
addTapAggPart( Chip & chip ) {
   chip.addPart< TapAggPart >();
}

} // namespace SoftChip
