#pragma once
// What a port reports about its link.

#include "platform/types/Number.h"

namespace Interface {

enum class LinkStatus : U8 { linkUnknown, linkDown, linkUp };
KIV_ENUM( LinkStatus, linkUnknown, linkDown, linkUp )

enum class FaultType : U8 { noFault, localFault, remoteFault };
KIV_ENUM( FaultType, noFault, localFault, remoteFault )

/** The set of abilities that a link partner advertises, one bit each. */
using Advert = Kiv::Number< struct AdvertTag, U32 >;

} // namespace Interface
