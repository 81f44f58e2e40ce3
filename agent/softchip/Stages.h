#pragma once
// The stages of a frame's road, in their order: a line each, and a source a feature.

#include "agent/softchip/Road.h"

namespace SoftChip {

struct Stage {
   const char * name;
   Verdict ( *pass )( const Chip & chip, Travel & travel );
};
struct PortStage {
   const char * name;
   Verdict ( *pass )( const Chip & chip, const Travel & travel, Way & way );
};

Verdict passArrival( const Chip & chip, Travel & travel );
Verdict passTapAgg( const Chip & chip, Travel & travel );
Verdict passBpduTrapping( const Chip & chip, Travel & travel );
Verdict passVlanMapping( const Chip & chip, Travel & travel );
Verdict passVlan( const Chip & chip, Travel & travel );
Verdict passSpanningTree( const Chip & chip, Travel & travel );
Verdict passStormControl( const Chip & chip, Travel & travel );
Verdict passAcl( const Chip & chip, Travel & travel );
Verdict passMirror( const Chip & chip, Travel & travel );
Verdict passPacketCopies( const Chip & chip, Travel & travel );
Verdict passDestination( const Chip & chip, Travel & travel );

Verdict passNotBack( const Chip & chip, const Travel & travel, Way & way );
Verdict passMember( const Chip & chip, const Travel & travel, Way & way );
Verdict passSpanningTreeOut( const Chip & chip, const Travel & travel, Way & way );
Verdict passVlanOut( const Chip & chip, const Travel & travel, Way & way );
Verdict passAclOut( const Chip & chip, const Travel & travel, Way & way );
Verdict passVlanMappingOut( const Chip & chip, const Travel & travel, Way & way );
Verdict passTag( const Chip & chip, const Travel & travel, Way & way );
Verdict passMirrorOut( const Chip & chip, const Travel & travel, Way & way );

// What several of them do.

/** What members of an aggregate are chosen by: the same for the same addresses. */
U64 addressHash( const AclPacket & packet );
/** The port by which a copy leaves for a port or an aggregate: of an aggregate the member that the
    addresses choose, null if none may take it. `lent`: members of the peer link serve where it has none
    of its own. */
IntfId portTo( const Chip & chip, const Travel & travel, IntfId target, bool lent );
/** Ports as what they stand for: members of an aggregate, which share a copy, once. */
void addTarget( const Chip & chip, IntfId port, std::vector< IntfId > & targets );
/** The copies that a session makes of a frame with those tags; what they are, in words. */
String mirrorBy( const Chip & chip, const Travel & travel, S32 group, const Tags & tags,
                 std::vector< Copy > & copies );
/** A copy of the frame as it arrived, for the processor. */
Copy toCpu( const Travel & travel );

inline constexpr Stage stages[] = {
      { "arrival", passArrival },
      { "tap aggregation", passTapAgg },
      { "BPDU trapping", passBpduTrapping },
      { "VLAN mapping", passVlanMapping },
      { "VLAN", passVlan },
      { "spanning tree", passSpanningTree },
      { "storm control", passStormControl },
      { "access lists", passAcl },
      { "mirror", passMirror },
      { "packet copies", passPacketCopies },
      { "destination", passDestination },
};

/** Of each target. */
inline constexpr PortStage portStages[] = {
      { "not back", passNotBack },
      { "member", passMember },
      { "spanning tree", passSpanningTreeOut },
      { "VLAN", passVlanOut },
      { "access lists", passAclOut },
      { "VLAN mapping", passVlanMappingOut },
      { "tag", passTag },
      { "mirror", passMirrorOut },
};

} // namespace SoftChip
