// Storm control on the road of a frame: which limits it counts against. A rate of zero drops it.

#include "agent/softchip/Chip.h"
#include "agent/softchip/MacPart.h"
#include "agent/softchip/Stages.h"
#include "agent/softchip/StormControlPart.h"

namespace SoftChip {

namespace {

/** The level of its kind; none for a frame to an address that the chip knows. */
std::optional< Level >
stormLevelOf( const Chip & chip, const Travel & travel ) {
   const Ulnet::EthAddr destination = travel.frame.packet.ethDst;
   if ( destination.isBroadcast() ) {
      return Level::broadcast;
   }
   if ( destination.isMulticast() ) {
      return Level::multicast;
   }
   const Qon::MacEntryKey key( { destination, travel.vlan() }, Qon::MacHwType::macHwKeyBridge );
   return chip.of< MacPart >().table().entry( key ) ? std::nullopt : std::optional( Level::uUcast );
}

struct StormLimit {
   String what;
   Threshold threshold;
};

/** The limits that the frame counts against: of its kind, of all kinds, of its class. */
std::vector< StormLimit >
limitsOf( const Chip & chip, const Travel & travel ) {
   const StormTable & table = chip.of< StormControlPart >().table();
   const auto kind = stormLevelOf( chip, travel );
   std::vector< StormLimit > limits;
   for ( Level level : { kind.value_or( Level::all ), Level::all } ) {
      if ( auto limit = kind ? table.limit( travel.frame.port, level ) : nullptr ) {
         limits.push_back( { Kiv::toText( level ), limit->threshold } );
      }
   }
   auto ofClass = table.classes().find( travel.frame.priority );
   if ( kind && ofClass != table.classes().end() && !( ofClass->second == Threshold() ) ) {
      limits.push_back( { "class " + Kiv::toText( travel.frame.priority ), ofClass->second } );
   }
   return limits;
}

} // namespace

Verdict
passStormControl( const Chip & chip, Travel & travel ) {
   const bool broadcast = travel.frame.packet.ethDst.isBroadcast();
   if ( broadcast && chip.of< StormControlPart >().table().skipped( travel.frame.port ) ) {
      return { true, "broadcasts pass by" };
   }
   String what;
   for ( auto & limit : limitsOf( chip, travel ) ) {
      const String text = limit.what + " at most " + Kiv::toText( limit.threshold.value() ) + " " +
                          Kiv::toText( limit.threshold.unit() );
      if ( limit.threshold.value() == 0 ) {
         return { false, text + ": dropped" };
      }
      what += ( what.empty() ? "" : ", " ) + text;
   }
   return { true, what.empty() ? "no limit" : what };
}

} // namespace SoftChip
