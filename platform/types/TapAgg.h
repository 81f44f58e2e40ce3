#pragma once
// Tap aggregation as the hardware sees it.

#include "platform/Kiv/Attr.h"
#include "platform/types/Ulnet.h"

namespace TapAgg {

/** The topology that holds every VLAN without one, and the ports in tap or tool mode. */
class HwConfig : public Kiv::Entity {
   KIV_BODY( HwConfig, Kiv::Entity )
   KIV_ATTR( U32, tapAggTopoId, 0 ) // 0 is none
   KIV_ATTR( Velto::String, tapAggTopoName, "" )
   KIV_SET( Ulnet::IntfId, tapIntf )
   KIV_SET( Ulnet::IntfId, toolIntf )
 public:
   explicit HwConfig( const Velto::String & name ) : Kiv::Entity( name ) {}
};

} // namespace TapAgg
