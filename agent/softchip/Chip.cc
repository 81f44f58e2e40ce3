#include "agent/softchip/Chip.h"

#include <algorithm>

namespace SoftChip {

Chip::Chip( Kiv::TaskScheduler & scheduler, const Shape & shape )
    : board_{ scheduler, faults_, shape } {
   addParts();
   latencyIs( shape.latency );
}

Chip::~Chip() = default;

void
Chip::latencyIs( Kiv::Seconds latency ) {
   latency_ = latency;
   for ( auto & part : parts_ ) {
      part->latencyIs( latency );
   }
}

Kiv::Seconds
Chip::answersWithin() const {
   return latency_ < Kiv::never ? std::max( QonChip::Chip::answersWithin(), 2 * latency_ )
                                : QonChip::Chip::answersWithin();
}

QonChip::MakeChip
makeChip( const Shape & shape ) {
   return [shape]( Kiv::TaskScheduler & scheduler ) {
      return std::make_unique< Chip >( scheduler, shape );
   };
}

} // namespace SoftChip
