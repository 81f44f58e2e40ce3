#include "agent/softchip/MacPart.h"

#include <utility>

#include "agent/softchip/Chip.h"

namespace SoftChip {

MacPart::MacPart( const Board & board )
    : wheel_( board.scheduler.timerWheel() ),
      table_( Velto::make< HostTable >( wheel_, board.shape.hosts, board.faults ) ) {}

Velto::Ptr< Qon::QonMacProgrammer >
MacPart::makeProgrammer() {
   return Qon::smIs< SoftMacProgrammer >( wheel_, table_ );
}

namespace {

/** In the order in which the hosts came. */
class HostTableReader : public QonChip::HostReading {
 public:
   explicit HostTableReader( const HostTable & table )
       : table_( table ), walk_( table.entries() ) {}
   bool next( Qon::MacEntryKey & key, QonChip::HeldHost & held ) override {
      do {
         if ( const bool onward = std::exchange( begun_, true );
              walk_ && ( onward || !walk_.alive() ) ) {
            ++walk_;
         }
      } while ( walk_ && walk_.value().reserved );
      if ( !walk_ ) {
         return false;
      }
      key = walk_.key();
      held = shown( walk_.value() );
      return true;
   }
   QonChip::HeldHost at( const Qon::MacEntryKey & key ) const override {
      auto entry = table_.entry( key );
      return entry ? shown( *entry ) : QonChip::HeldHost();
   }

 private:
   QonChip::HeldHost shown( const HostEntry & entry ) const {
      const U32 width = table_.shape().width;
      return { entry.intf, entry.entryType,
               std::to_string( entry.index / width ) + "." +
                     std::to_string( entry.index % width ) };
   }

   const HostTable & table_;
   HostTable::Entries::ConstWalk walk_;
   bool begun_ = false;
};

} // namespace

std::unique_ptr< QonChip::HostReading >
MacPart::readHosts() const {
   return std::make_unique< HostTableReader >( *table_ );
}

std::optional< QonChip::HeldHosts >
MacPart::hosts() const {
   QonChip::HeldHosts held;
   Qon::MacEntryKey key;
   QonChip::HeldHost host;
   for ( HostTableReader reader( *table_ ); reader.next( key, host ); ) {
      held[key] = host;
   }
   return held;
}

void
addMacPart( Chip & chip ) {
   chip.addPart< MacPart >();
}

} // namespace SoftChip
