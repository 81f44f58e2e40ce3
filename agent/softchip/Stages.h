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
Verdict passVlanMapping( const Chip & chip, Travel & travel );
Verdict passVlan( const Chip & chip, Travel & travel );
Verdict passSpanningTree( const Chip & chip, Travel & travel );
Verdict passStormControl( const Chip & chip, Travel & travel );
Verdict passAcl( const Chip & chip, Travel & travel );
Verdict passMirror( const Chip & chip, Travel & travel );
Verdict passDestination( const Chip & chip, Travel & travel );

Verdict passNotBack( const Chip & chip, const Travel & travel, Way & way );
Verdict passMember( const Chip & chip, const Travel & travel, Way & way );
Verdict passVlanOut( const Chip & chip, const Travel & travel, Way & way );
Verdict passAclOut( const Chip & chip, const Travel & travel, Way & way );
Verdict passVlanMappingOut( const Chip & chip, const Travel & travel, Way & way );
Verdict passSpanningTreeOut( const Chip & chip, const Travel & travel, Way & way );
Verdict passMirrorOut( const Chip & chip, const Travel & travel, Way & way );

inline constexpr Stage stages[] = {
      { "arrival", passArrival },
      { "tap aggregation", passTapAgg },
      { "VLAN mapping", passVlanMapping },
      { "VLAN", passVlan },
      { "spanning tree", passSpanningTree },
      { "storm control", passStormControl },
      { "access lists", passAcl },
      { "mirror", passMirror },
      { "destination", passDestination },
};

/** Of each target. */
inline constexpr PortStage portStages[] = {
      { "not back", passNotBack },
      { "member", passMember },
      { "VLAN", passVlanOut },
      { "access lists", passAclOut },
      { "VLAN mapping", passVlanMappingOut },
      { "spanning tree", passSpanningTreeOut },
      { "mirror", passMirrorOut },
};

} // namespace SoftChip
