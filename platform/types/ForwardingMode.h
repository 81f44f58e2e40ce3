#pragma once
// Whether frames leave the switch before they have come in whole.

#include "platform/Kiv/Attr.h"
#include "platform/Kiv/Text.h"

namespace Bridging {

enum class ForwardingMode : U8 { storeAndForward, cutThrough };
KIV_ENUM( ForwardingMode, storeAndForward, cutThrough )

class ForwardingModeConfig : public Kiv::Entity {
   KIV_BODY( ForwardingModeConfig, Kiv::Entity )
   KIV_ATTR( ForwardingMode, forwardingMode, ForwardingMode::storeAndForward )
 public:
   explicit ForwardingModeConfig( const Velto::String & name ) : Kiv::Entity( name ) {}
};

} // namespace Bridging
