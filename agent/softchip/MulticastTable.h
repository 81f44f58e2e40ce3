#pragma once
// The multicast groups of the chip in software: so many sets of ports, and the MAC entries that lead to
// them, which stand in the host table beside those of hosts.
//
//    bitmap -> take() -> index -> write( index, ports ) -> ... -> giveBack( index )
//    entry  -> lead( key, index ): a place in the host table, or none
//
// Invariants
// 1. There are not more groups than the table has room for (in the fault plan the limit of
//    "multicastGroups").
// 2. A MAC entry leads to a group that is taken; a group to which one leads is not given back.
//
// Reads the fault plan: hooks "multicastGroup" for each group that is taken and "multicastMac" for each
// MAC entry that is written, table "multicastGroups".

#include <map>
#include <set>

#include "agent/softchip/FaultPlan.h"
#include "agent/softchip/HostTable.h"
#include "platform/types/TableAddStatus.h"

namespace SoftChip {

using Ulnet::IntfId;

struct MulticastLimits {
   U32 groups = 1024; ///< sets of ports
   U32 pairs =
         16'384; ///< (address, VLAN) pairs, as it is said to operators; the host table decides
};

class MulticastTable {
 public:
   using Ports = std::set< IntfId >;
   using Groups = std::map< S64, Ports >;
   using MacEntries = std::map< Bridging::MacVlanPair, S64 >;

   /** `plan` outlives the table. */
   MulticastTable( const MulticastLimits & limits, FaultPlan & plan )
       : limits_( limits ), plan_( plan ) {
      plan.hookIs( "multicastGroup" );
      plan.hookIs( "multicastMac" );
      plan.tableIs( "multicastGroups" );
   }
   /** Where MAC entries stand, which outlives the table; to be said before the first of them. */
   void hostsAre( HostTable & hosts ) { hosts_ = &hosts; }

   const MulticastLimits & limits() const { return limits_; }
   U32 groupsAtMost() const { return plan_.limit( "multicastGroups", limits_.groups ); }
   const Groups & groups() const { return groups_; }
   const MacEntries & macEntries() const { return macEntries_; }
   /** The ports of a frame to that address; null: it is no group's. */
   const Ports * portsOf( const Bridging::MacVlanPair & key ) const;

   /** -1: none is free. */
   S64 take();
   void write( S64 index, Ports ports );
   void giveBack( S64 index );
   QonTypes::TableAddStatus lead( const Bridging::MacVlanPair & key, S64 index );
   void leadNowhere( const Bridging::MacVlanPair & key );
   /** Memory goes bad, and nobody is told: the MAC entries are gone, or the groups have no ports. */
   void damage( bool macEntries );
   /** Everything goes, and nobody gives back what it had before. */
   void clear();
   /** How often it was cleared. */
   U32 serial() const { return serial_; }

   bool linkLocalCopied = false;
   bool igmpTaken = false;

 private:
   void dropLead( S64 index );

   const MulticastLimits limits_;
   FaultPlan & plan_;
   HostTable * hosts_ = nullptr;
   Groups groups_;
   std::set< S64 > gaps_; // indexes below the highest that are free
   MacEntries macEntries_;
   std::map< S64, U32 > leading_; // MAC entries to each group
   U32 serial_ = 0;
};

} // namespace SoftChip
