// Tap aggregation on the road of a frame: a tap port takes it, and it leaves by tool ports alone.

#include "agent/softchip/Chip.h"
#include "agent/softchip/Stages.h"
#include "agent/softchip/TapAggPart.h"
#include "platform/Kiv/Hash.h"

namespace SoftChip {

namespace {

/** Where the identity goes on the frame; its own tag without one. */
Bridging::VlanIdOrNone
tagOf( const QonChip::HeldTapAgg & held, const Travel & travel, IntfId tool ) {
   const U16 outer = held.taps.at( travel.intf ).identity.outer();
   const bool tagged =
         held.tools.at( tool ).identityTagging != Bridging::Input::ToolIdentityMode::none;
   return tagged && outer > 0 && outer < 4095 ? Bridging::VlanIdOrNone( U32( outer ) )
                                              : travel.frame.vlan;
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
   const U64 hash =
         Kiv::mix( Kiv::hashJoin( travel.frame.source.hash(), travel.frame.destination.hash() ) );
   for ( auto & way : table.ways( travel.intf ) ) {
      if ( way.ports.empty() ) {
         continue; // a port-channel without members
      }
      const IntfId port = way.ports[hash % way.ports.size()];
      travel.mirrored.push_back( { port, tagOf( held, travel, way.tool ) } );
      what += ( what.empty() ? "to " : ", " ) + way.tool.stringValue();
      for ( auto & change : way.changes ) {
         what += ", " + change;
      }
   }
   return { false, what.empty() ? "a tap port without tool ports: dropped" : what };
}

void
addTapAggPart( Chip & chip ) {
   chip.addPart< TapAggPart >();
}

} // namespace SoftChip
