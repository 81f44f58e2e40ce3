// The destination of a frame: a multicast group's, the host table's, or all of its VLAN; and what the
// processor gets of it.

#include "agent/softchip/Chip.h"
#include "agent/softchip/MacPart.h"
#include "agent/softchip/MulticastPart.h"
#include "agent/softchip/Stages.h"
#include "agent/softchip/VlanPart.h"

namespace SoftChip {

namespace {

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

bool
isIgmp( const AclPacket & packet ) {
   constexpr U8 igmp = 2;
   return packet.src.isIpv4() && packet.protocol == igmp;
}

} // namespace

Copy
toCpu( const Travel & travel ) {
   return { Ulnet::CpuIntfId::intfId(), travel.frame.tags, {} };
}

Verdict
passPacketCopies( const Chip & chip, Travel & travel ) {
   const MulticastTable & multicast = chip.of< MulticastPart >().table();
   const bool taken = multicast.igmpTaken && isIgmp( travel.frame.packet );
   const bool copied = multicast.linkLocalCopied && linkLocal( travel.frame.packet.ethDst );
   if ( taken || copied ) {
      travel.aside.push_back( toCpu( travel ) );
   }
   return { !taken, taken    ? "IGMP, taken by the CPU"
                    : copied ? "link-local, copied to the CPU"
                             : "" };
}

Verdict
passDestination( const Chip & chip, Travel & travel ) {
   const auto & destination = travel.frame.packet.ethDst;
   const String to = destination.stringValue();
   const Qon::MacEntryKey key( { destination, travel.vlan() }, Qon::MacHwType::macHwKeyBridge );
   const auto host = chip.of< MacPart >().table().entry( key );
   if ( host && host->entryType == Bridging::EntryType::drop ) {
      return { false, to + " is to be dropped" };
   }
   if ( host ) {
      travel.targets = { host->intf };
      return { true, to + " is at " + host->intf.stringValue() };
   }
   if ( auto ports =
              chip.of< MulticastPart >().table().portsOf( { destination, travel.vlan() } ) ) {
      for ( IntfId port : *ports ) {
         addTarget( chip, port, travel.targets );
      }
      return { true, to + " is a group's" };
   }
   travel.flooded = true;
   travel.targets = floodSet( chip, VlanId( travel.vlan().value() ) );
   return { true, to + " is not known: flooded" };
}

} // namespace SoftChip
