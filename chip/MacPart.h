#pragma once
// MAC addresses: what a chip brings to program them.

#include <map>

#include "Qon/include/mac/QonChipProgrammer.h"
#include "chip/Chip.h"
#include "chip/Reading.h"

namespace QonChip {

/** What a chip holds of one address. */
struct HeldHost {
   IntfId intf;
   Bridging::EntryType entryType = Bridging::EntryType::unknown; ///< as far as the chip can tell
   /** Where it stands, in the chip's own words ("12.3": bucket 12, place 3); empty: the chip does not tell.
       Two are equal wherever they stand. */
   String place = {};

   bool operator==( const HeldHost & other ) const {
      return intf == other.intf && entryType == other.entryType;
   }
};
using HeldHosts = std::map< Qon::MacEntryKey, HeldHost >;
using HostReading = Reading< Qon::MacEntryKey, HeldHost >;

/** Whether a flush command takes a host: Qon::IndirectAccessMacCmdType tells which ones it is for. */
inline bool
flushTakes( const Qon::IndirectAccessMacCmd & flush, const Qon::MacEntryKey & key,
            const HeldHost & host ) {
   using Type = Qon::IndirectAccessMacCmdType;
   using enum Bridging::EntryType;
   const Type type = flush.type();
   const bool byVlan = type >= Type::flushVlan;
   const bool byIntf = type != Type::flushAll && type != Type::flushVlan;
   const bool byType = type == Type::flushPortType || type == Type::flushVlanPortType;
   const auto of = host.entryType;
   const bool dynamic = of == unknown || of == learnedDynamic || of == learnedRemote ||
                        of == peerDynamic || of == evpnDynamic || of == configuredDynamic;
   return ( !byVlan || key.key().vlan() == flush.key().key().vlan() ) &&
          ( !byIntf || host.intf == flush.intf() ) &&
          ( byType ? of == flush.entryType() : dynamic );
}

class MacPart {
 public:
   virtual ~MacPart() = default;

   /** The hook object; not initialized yet. It hears nothing until its user sets hasNotificationActive
       and initialized, in this order. */
   virtual Ptr< Qon::QonMacProgrammer > makeProgrammer() = 0;

   /** The chip's host table; none if the chip cannot be read back. */
   virtual std::optional< HeldHosts > hosts() const { return std::nullopt; }
   /** The same, a host at a time; null if the chip cannot be read back. */
   virtual std::unique_ptr< HostReading > readHosts() const { return wholeReading( hosts() ); }
   /** So many hosts overfill the table, whatever their addresses; 0: it cannot be filled. */
   virtual U32 hostsToFill() const { return 20'000; }
};

} // namespace QonChip
