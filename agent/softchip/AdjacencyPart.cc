#include "agent/softchip/AdjacencyPart.h"

#include "agent/softchip/Chip.h"

namespace SoftChip {

namespace {

/** In the order of places. */
class AdjacencyTableReader : public QonChip::AdjacencyReading {
 public:
   explicit AdjacencyTableReader( const AdjacencyTable & table ) : table_( table ) {}
   bool next( U32 & place, QonChip::HeldAdjacency & held ) override {
      const auto entry = table_.adjacencies().lower_bound( next_ );
      if ( entry == table_.adjacencies().end() ) {
         return false;
      }
      place = entry->first;
      held = entry->second;
      next_ = place + 1;
      return true;
   }
   QonChip::HeldAdjacency at( const U32 & place ) const override {
      const auto entry = table_.adjacencies().find( place );
      return entry == table_.adjacencies().end() ? QonChip::HeldAdjacency() : entry->second;
   }

 private:
   const AdjacencyTable & table_;
   U32 next_ = 0;
};

} // namespace

std::unique_ptr< QonChip::AdjacencyReading >
AdjacencyPart::readAdjacencies() const {
   return std::make_unique< AdjacencyTableReader >( table_ );
}

void
addAdjacencyPart( Chip & chip ) {
   chip.addPart< AdjacencyPart >();
}

} // namespace SoftChip
