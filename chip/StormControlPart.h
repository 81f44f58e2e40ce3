#pragma once
// Storm control: what a chip brings to limit traffic, and to count what it dropped.

#include <map>

#include "Qon/include/framework/QonCommonSmData.h"
#include "Qon/include/stormcontrol/StormControlPlatform.h"
#include "Qon/include/stormcontrol/StormControlSmHelper.h"
#include "chip/Chip.h"

namespace QonChip {

/** A level as the chip has it. */
struct HeldLevel {
   Qon::StormControl::Threshold threshold;
   U64 speedKbps = 0; ///< what a percentage is of
   bool operator==( const HeldLevel & ) const = default;
};
using HeldPortLevels = std::map< Qon::StormControl::Level, HeldLevel >;

/** What limits the chip has. What is not limited has no entry. */
struct HeldStormControl {
   std::map< IntfId, HeldPortLevels > ports;
   std::map< U8, Qon::StormControl::Threshold > classes;
   bool operator==( const HeldStormControl & ) const = default;
};

/** A chip has the hooks of one generation or of both; the agent uses one. */
class StormControlPart {
 public:
   virtual ~StormControlPart() = default;

   /** The hook object of the first generation; null: the chip has none. */
   virtual Ptr< Qon::StormControlSmHelper >
   makeStormControlHelper( const Ptr< Qon::QonCommonSmData > & ) {
      return nullptr;
   }
   /** The hook object of the second generation, which writes `status` itself; null: none. What the
       chip limits and `config` does not speak of, it limits no more; and nowhere do broadcasts pass
       by the rules. */
   virtual Ptr< Qon::QonStormControlSmHelperV2 >
   makeStormControlHelperV2( const Ptr< const Qon::StormControl::PlatformConfig > &,
                             const Ptr< Qon::StormControl::PlatformStatus > & ) {
      return nullptr;
   }
   /** An object that keeps `slices` while it lives: an entry for each slice that counts, and in it
       one for each port that it counts for, from the moment at which it limits something there. */
   virtual Ptr< Velto::Node >
   makeDropCounter( const Ptr< Qon::StormControl::DropSliceDir > & slices ) = 0;

   /** The chip's limits; none if the chip cannot be read back. */
   virtual std::optional< HeldStormControl > stormControl() const { return std::nullopt; }
};

} // namespace QonChip
