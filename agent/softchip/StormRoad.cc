// Storm control on the road of a frame: which level it counts against. A rate of zero drops it.

#include "agent/softchip/Chip.h"
#include "agent/softchip/MacPart.h"
#include "agent/softchip/Stages.h"
#include "agent/softchip/StormControlPart.h"

namespace SoftChip {

namespace {

/** The level of its kind; none for a frame to an address that the chip knows. */
std::optional< Level >
stormLevelOf( const Chip & chip, const Travel & travel ) {
   const Ulnet::EthAddr destination = travel.frame.destination;
   if ( destination.isBroadcast() ) {
      return Level::broadcast;
   }
   if ( destination.isMulticast() ) {
      return Level::multicast;
   }
   const Qon::MacEntryKey key( { destination, travel.vlan }, Qon::MacHwType::macHwKeyBridge );
   return chip.of< MacPart >().table().entry( key ) ? std::nullopt : std::optional( Level::uUcast );
}

} // namespace

Verdict
passStormControl( const Chip & chip, Travel & travel ) {
   const auto kind = stormLevelOf( chip, travel );
   const auto & table = chip.of< StormControlPart >().table();
   String what;
   for ( Level level : { kind.value_or( Level::all ), Level::all } ) {
      auto limit = kind ? table.limit( travel.frame.port, level ) : nullptr;
      const String text = limit ? Kiv::toText( level ) + " at most " +
                                        Kiv::toText( limit->threshold.value() ) + " " +
                                        Kiv::toText( limit->threshold.unit() )
                                : "";
      if ( limit && limit->threshold.value() == 0 ) {
         return { false, text + ": dropped" };
      }
      what += ( what.empty() || text.empty() ? "" : ", " ) + text;
   }
   return { true, what.empty() ? "no limit" : what };
}

} // namespace SoftChip
