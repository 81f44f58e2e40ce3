#pragma once
// Ports as the hardware numbers them.

#include "platform/Kiv/Text.h"

namespace Qon {

/** A port as the hardware numbers it: the forwarding chip and its port. */
class FapIdPort {
   U32 fapId_ = 0;
   U32 port_ = 0;
   KIV_VALUE( Qon, FapIdPort, fapId, port )
};

} // namespace Qon
