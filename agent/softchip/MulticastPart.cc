#include "agent/softchip/MulticastPart.h"

#include "agent/softchip/Chip.h"
#include "agent/softchip/MacPart.h"

namespace SoftChip {

namespace {

/** In the order of the addresses. */
class MulticastTableReader : public QonChip::MulticastReading {
 public:
   explicit MulticastTableReader( const MulticastTable & table ) : table_( table ) {}
   bool next( Bridging::MacVlanPair & key, QonChip::HeldMulticastEntry & held ) override {
      auto & entries = table_.macEntries();
      const auto entry = last_ ? entries.upper_bound( *last_ ) : entries.begin();
      if ( entry == entries.end() ) {
         return false;
      }
      last_ = key = entry->first;
      held = at( key );
      return true;
   }
   QonChip::HeldMulticastEntry at( const Bridging::MacVlanPair & key ) const override {
      const auto ports = table_.portsOf( key );
      return ports ? QonChip::HeldMulticastEntry{ table_.macEntries().at( key ), *ports }
                   : QonChip::HeldMulticastEntry();
   }

 private:
   const MulticastTable & table_;
   std::optional< Bridging::MacVlanPair > last_;
};

} // namespace

std::unique_ptr< QonChip::MulticastReading >
MulticastPart::readMulticast() const {
   return std::make_unique< MulticastTableReader >( table_ );
}

void
addMulticastPart( Chip & chip ) {
   chip.addPart< MulticastPart >();
   chip.of< MulticastPart >().table().hostsAre( chip.of< MacPart >().table() );
}

} // namespace SoftChip
