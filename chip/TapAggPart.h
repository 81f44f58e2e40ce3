#pragma once
// Tap aggregation: what a chip brings to steer frames from tap ports to tool ports.

#include <map>
#include <set>

#include "Qon/include/tapagg/TapAggHelper.h"
#include "chip/Chip.h"

namespace QonChip {

/** A tap port as the chip has it. */
struct HeldTapPort {
   U32 group = 0; ///< 0: its frames go nowhere
   U32 truncationSize = 0;
   Bridging::IdentityTuple identity;
   Ulnet::EthAddr macAddress;
   U32 headerRemove = 0;
   bool greStrip = false;
   std::set< Ulnet::IpGenAddr > greStripForEp;
   bool vxlanStrip = false;
   bool mplsPop = false;
   bool operator==( const HeldTapPort & ) const = default;
};

/** A tool port as the chip has it. */
struct HeldToolPort {
   std::map< U32, std::set< IntfId > > groups; ///< with the members that carry, of a port-channel
   U32 truncationSize = 0;
   Bridging::Input::ToolIdentityMode identityTagging = Bridging::Input::ToolIdentityMode::none;
   U8 dot1qRemove = 0;
   bool brStrip = false;
   bool vnStrip = false;
   bool mplsPop = false;
   bool operator==( const HeldToolPort & ) const = default;
};

struct HeldTapAgg {
   bool inited = false;
   std::map< U32, String > groups; ///< names by id
   std::map< IntfId, HeldTapPort > taps;
   std::map< IntfId, HeldToolPort > tools;
   bool operator==( const HeldTapAgg & ) const = default;
};

class TapAggPart {
 public:
   virtual ~TapAggPart() = default;

   /** The hook object. Making one changes nothing in the chip: what an earlier one left there goes
       with the first hwInit. */
   virtual Ptr< Qon::TapAggHelper > makeTapAggHelper() = 0;

   /** What the chip holds; none if it cannot be read back. */
   virtual std::optional< HeldTapAgg > tapAgg() const { return std::nullopt; }
};

} // namespace QonChip
