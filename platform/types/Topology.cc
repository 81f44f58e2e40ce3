#include "platform/types/Topology.h"

#include "platform/Kiv/Describe.h"

KIV_DEFINE( Bridging::Topology::TopoPortConfig )
KIV_DEFINE( Bridging::Topology::TopoConfig )
KIV_DEFINE( Bridging::Topology::Config )
KIV_DEFINE( Bridging::Topology::TopoPortStatus )
KIV_DEFINE( Bridging::Topology::Inst::TopoStatus )
KIV_DEFINE( Bridging::Topology::Inst::Status )
