#pragma once
// Layer-2 multicast: what a chip brings to forward groups.

#include <map>
#include <set>

#include "Qon/include/framework/QonCommonSmData.h"
#include "Qon/include/multicast/MulticastCopyUpdater.h"
#include "Qon/include/multicast/MulticastDataFactory.h"
#include "chip/Chip.h"
#include "chip/Reading.h"

namespace QonChip {

/** What a chip holds of multicast. */
struct HeldMulticast {
   std::map< S64, std::set< IntfId > > groups;        ///< those that are taken, with their ports
   std::map< Bridging::MacVlanPair, S64 > macEntries; ///< the group that each leads to
   bool linkLocalCopied = false;                      ///< to the CPU
   bool igmpTaken = false;                            ///< by the CPU, and dropped
   bool operator==( const HeldMulticast & ) const = default;
};

/** Where a frame to a group is sent. */
struct HeldMulticastEntry {
   S64 index = -1; ///< of the chip's groups; -1: the address is no group's
   std::set< IntfId > ports = {};
   bool operator==( const HeldMulticastEntry & ) const = default;
};
using MulticastReading = Reading< Bridging::MacVlanPair, HeldMulticastEntry >;

class MulticastPart {
 public:
   virtual ~MulticastPart() = default;

   /** The factory of the chip's entries and bitmaps. When it returns the chip has no group and no MAC
       entry of a group, whatever an agent before this one left. */
   virtual Ptr< Qon::MulticastDataFactory > makeMulticastDataFactory() = 0;
   /** The hook object of copies for the CPU; not initialized yet. */
   virtual Ptr< Qon::MulticastCopyUpdater > makeMulticastCopyUpdater(
         const Ptr< const Bridging::Multicast::CopyRequestConfig > & config ) = 0;

   /** What the chip holds; none if it cannot be read back. */
   virtual std::optional< HeldMulticast > multicast() const { return std::nullopt; }
   /** Its MAC entries, one at a time; null if it cannot be read back. */
   virtual std::unique_ptr< MulticastReading > readMulticast() const {
      const auto held = multicast();
      if ( !held ) {
         return nullptr;
      }
      std::map< Bridging::MacVlanPair, HeldMulticastEntry > entries;
      for ( auto & [key, index] : held->macEntries ) {
         const auto group = held->groups.find( index );
         entries[key] = { index,
                          group == held->groups.end() ? std::set< IntfId >() : group->second };
      }
      return wholeReading( std::optional( std::move( entries ) ) );
   }
   /** So many sets of ports use up the chip's groups; 0: they cannot be used up. */
   virtual U32 multicastGroupsToFill() const { return 0; }
};

} // namespace QonChip
