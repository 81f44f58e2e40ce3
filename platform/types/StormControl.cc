#include "platform/types/StormControl.h"

#include "platform/Kiv/Describe.h"

KIV_DEFINE( Bridging::StormControl::IntfConfig )
KIV_DEFINE( Bridging::StormControl::AggregateTcConfig )
KIV_DEFINE( Bridging::StormControl::Config )
KIV_DEFINE( Bridging::StormControl::IntfStatus )
KIV_DEFINE( Bridging::StormControl::AggregateTcStatus )
KIV_DEFINE( Bridging::StormControl::Status )
