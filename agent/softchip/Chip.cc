#include "agent/softchip/Chip.h"

#include <algorithm>

namespace SoftChip {

class Chip::Holder {
 public:
   virtual ~Holder() = default;
   virtual void latencyIs( Kiv::Seconds latency ) = 0;
};

template< class Part >
class Chip::HolderOf : public Holder {
 public:
   explicit HolderOf( const Board & board ) : part( board ) {}
   void latencyIs( Kiv::Seconds latency ) override { part.latencyIs( latency ); }

   Part part;
};

/** A part stands under the seam's interface and under its own class. */
template< class... Part >
void
Chip::make( PartList< Part... > ) {
   auto one = [this]( auto holder ) {
      auto & part = holder->part;
      using Class = std::remove_reference_t< decltype( part ) >;
      add< typename Class::Seam >( part );
      add< Class >( part );
      parts_.push_back( std::move( holder ) );
   };
   ( one( std::make_unique< HolderOf< Part > >( board_ ) ), ... );
}

Chip::Chip( Kiv::TaskScheduler & scheduler, const Shape & shape )
    : board_{ scheduler, faults_, shape } {
   make( Parts() );
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
