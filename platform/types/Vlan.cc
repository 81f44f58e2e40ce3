#include "platform/types/Vlan.h"

#include "platform/Kiv/Describe.h"

KIV_DEFINE( Bridging::Vlan::VlanConfig )
KIV_DEFINE( Bridging::Vlan::Config )
