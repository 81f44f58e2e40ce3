#include "platform/types/VlanMapping.h"

#include "platform/Kiv/Describe.h"

KIV_DEFINE( Bridging::VlanXlateIntfConfig )
KIV_DEFINE( Bridging::SwitchIntfConfig )
KIV_DEFINE( Bridging::Config )
