#include "platform/types/ForwardingMode.h"

#include "platform/Kiv/Describe.h"

KIV_DEFINE( Bridging::ForwardingModeConfig )
