// The destination of a frame: a multicast group's, the host table's, or all of its VLAN.

#include <algorithm>

#include "agent/softchip/Chip.h"
#include "agent/softchip/LagPart.h"
#include "agent/softchip/MacPart.h"
#include "agent/softchip/MulticastPart.h"
#include "agent/softchip/Stages.h"
#include "agent/softchip/VlanPart.h"

namespace SoftChip {

namespace {

/** A port, or the aggregate that it is a member of: one copy for all members. */
void
addTarget( const Chip & chip, IntfId port, std::vector< IntfId > & targets ) {
   const IntfId lag = chip.of< LagPart >().table().lagOf( port );
   const IntfId target = lag ? lag : port;
   if ( std::find( targets.begin(), targets.end(), target ) == targets.end() ) {
      targets.push_back( target );
   }
}

/** The ports and aggregates that send what is flooded in the VLAN. */
std::vector< IntfId >
floodSet( const Chip & chip, VlanId vlan ) {
   std::vector< IntfId > targets;
   for ( auto & port : chip.of< VlanPart >().table().ports( vlan ) ) {
      if ( port.how.egress ) {
         addTarget( chip, port.intf, targets );
      }
   }
   return targets;
}

/** Whether protocols between neighbours use the address. */
bool
linkLocal( const Ulnet::EthAddr & address ) {
   constexpr U64 first = 0x01005e000000, last = 0x01005e0000ff;
   return address.value() >= first && address.value() <= last;
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
   const MulticastTable & multicast = chip.of< MulticastPart >().table();
   const char * copied =
         multicast.linkLocalCopied && linkLocal( destination ) ? ", copied to the CPU" : "";
   if ( auto ports = multicast.portsOf( { destination, travel.vlan } ) ) {
      for ( IntfId port : *ports ) {
         addTarget( chip, port, travel.targets );
      }
      return { true, destination.stringValue() + " is a group's" + copied };
   }
   travel.flooded = true;
   travel.targets = floodSet( chip, VlanId( travel.vlan.value() ) );
   return { true, destination.stringValue() + " is not known: flooded" + copied };
}

} // namespace SoftChip
