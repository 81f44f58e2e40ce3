#pragma once
// What names a layer-2 adjacency: its next hops. Classes that resolve to the same ones share it.

#include "Qon/include/adjacency/NextHopCollection.h"

namespace Qon {

class L2AdjKey {
   U8 adjType_ = 0;
   NextHopCollection nextHopCollection_;
   VrfId vrfId_;
   KIV_VALUE( Qon, L2AdjKey, adjType, nextHopCollection, vrfId )
};

} // namespace Qon
