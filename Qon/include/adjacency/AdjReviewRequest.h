#pragma once
// What those who keep adjacencies ask of one another: look at this one again, and walk over that
// afterwards.

#include "Qon/include/adjacency/L2AdjKey.h"

namespace Qon {

/** A request to review the adjacency of `key`. */
class AdjReviewRequest {
   L2AdjKey key_;
   AdjWalkType prefixWalk_;
   U32 version_ = 0;
   KIV_VALUE( Qon, AdjReviewRequest, key, prefixWalk, version )

   /** Whether version `a` came before `b`. Versions wrap, and are compared as serial numbers: of two
       that are exactly half of all numbers apart, neither came before the other. */
   static constexpr bool versionBefore( U32 a, U32 b ) {
      return a != b && U32( b - a ) < 0x80000000u;
   }
   /** Whether it was asked for before `other` was. */
   bool isOlderThan( const AdjReviewRequest & other ) const {
      return versionBefore( version_, other.version_ );
   }
};

} // namespace Qon
