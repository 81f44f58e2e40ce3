// Spanning tree on the road of a frame: its own frames, which the processor takes, and all others.

#include "agent/softchip/Chip.h"
#include "agent/softchip/Stages.h"
#include "agent/softchip/TopologyPart.h"

namespace SoftChip {

namespace {

constexpr U64 bpduAddress = 0x0180c2000000;
constexpr U64 perVlanBpduAddress = 0x01000ccccccd;

/** A chip without topology tables has only ports in its VLANs that forward. */
Verdict
verdictOn( const Chip & chip, const Travel & travel, IntfId port ) {
   const auto & part = chip.of< TopologyPart >();
   if ( !part.tables() ) {
      return { true, "kept in the VLANs" };
   }
   const U16 vlan = U16( travel.vlan().value() );
   const String & topology = part.table().topoOf( vlan );
   const String where = topology.empty() ? "no topology" : topology;
   const bool forwards = part.table().forwards( vlan, port );
   return { forwards,
            where + ( forwards ? ": forwards" : ": " + port.stringValue() + " blocks: dropped" ) };
}

} // namespace

/** Whatever the state of the port, and its VLANs. */
Verdict
passBpduTrapping( const Chip & chip, Travel & travel ) {
   const BpduTrapping & trapping = chip.of< TopologyPart >().bpduTrapping();
   const U64 to = travel.frame.packet.ethDst.value();
   if ( !( trapping.bpdu && to == bpduAddress ) &&
        !( trapping.perVlan && to == perVlanBpduAddress ) ) {
      return { true, "" };
   }
   travel.aside.push_back( toCpu( travel ) );
   return { false, "a BPDU, taken by the CPU" };
}

Verdict
passSpanningTree( const Chip & chip, Travel & travel ) {
   return verdictOn( chip, travel, travel.frame.port );
}

Verdict
passSpanningTreeOut( const Chip & chip, const Travel & travel, Way & way ) {
   Verdict verdict = verdictOn( chip, travel, way.copy.port );
   if ( verdict.goesOn ) {
      verdict.what.clear(); // only what stops it is worth a word
   }
   return verdict;
}

} // namespace SoftChip
