// The destination of a frame: the host table's, or all of its VLAN.

#include <algorithm>

#include "agent/softchip/Chip.h"
#include "agent/softchip/LagPart.h"
#include "agent/softchip/MacPart.h"
#include "agent/softchip/Stages.h"
#include "agent/softchip/VlanPart.h"

namespace SoftChip {

namespace {

/** The ports and aggregates that send what is flooded in the VLAN. */
std::vector< IntfId >
floodSet( const Chip & chip, VlanId vlan ) {
   std::vector< IntfId > targets;
   for ( auto & port : chip.of< VlanPart >().table().ports( vlan ) ) {
      const IntfId lag = chip.of< LagPart >().table().lagOf( port.intf );
      const IntfId target = lag ? lag : port.intf;
      if ( port.how.egress &&
           std::find( targets.begin(), targets.end(), target ) == targets.end() ) {
         targets.push_back( target );
      }
   }
   return targets;
}

} // namespace

Verdict
passDestination( const Chip & chip, Travel & travel ) {
   const auto & destination = travel.frame.destination;
   const Qon::MacEntryKey key( { destination, travel.vlan }, Qon::MacHwType::macHwKeyBridge );
   const auto host = chip.of< MacPart >().table().entry( key );
   if ( host && host->entryType == Bridging::EntryType::drop ) {
      return { false, destination.stringValue() + " is to be dropped" };
   }
   if ( host ) {
      travel.targets = { host->intf };
      return { true, destination.stringValue() + " is at " + host->intf.stringValue() };
   }
   travel.flooded = true;
   travel.targets = floodSet( chip, VlanId( travel.vlan.value() ) );
   return { true, destination.stringValue() + " is not known: flooded" };
}

} // namespace SoftChip
