#include "agent/softchip/MacPart.h"

#include "agent/softchip/Chip.h"

namespace SoftChip {

MacPart::MacPart( const Board & board )
    : wheel_( board.scheduler.timerWheel() ),
      table_( Velto::make< HostTable >( wheel_, board.shape.hosts, board.faults ) ) {}

Velto::Ptr< Qon::QonMacProgrammer >
MacPart::makeProgrammer() {
   return Qon::smIs< SoftMacProgrammer >( wheel_, table_ );
}

std::optional< QonChip::HeldHosts >
MacPart::hosts() const {
   QonChip::HeldHosts held;
   const U32 width = table_->shape().width;
   for ( auto && [key, entry] : table_->entries() ) {
      held[key] = { entry.intf, entry.entryType,
                    std::to_string( entry.index / width ) + "." +
                          std::to_string( entry.index % width ) };
   }
   return held;
}

void
addMacPart( Chip & chip ) {
   chip.addPart< MacPart >();
}

} // namespace SoftChip
