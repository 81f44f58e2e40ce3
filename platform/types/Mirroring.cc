#include "platform/types/Mirroring.h"

#include "platform/Kiv/Describe.h"

KIV_DEFINE( Mirroring::SrcIntfConfig )
KIV_DEFINE( Mirroring::SrcVxlanIntfConfig )
KIV_DEFINE( Mirroring::SessionConfig )
KIV_DEFINE( Mirroring::Config )
KIV_DEFINE( Mirroring::HwCapability )
KIV_DEFINE( Mirroring::SessionStatus )
KIV_DEFINE( Mirroring::Status )
KIV_DEFINE( Mirroring::SessionHwStatus )
KIV_DEFINE( Mirroring::HwStatus )
