#pragma once
// What the chip holds, and what can be wrong with it.

#include <memory>

#include "Later.h"
#include "chip/AclPart.h"
#include "chip/AdjacencyPart.h"
#include "chip/AsyncPart.h"
#include "chip/LagPart.h"
#include "chip/MacPart.h"
#include "chip/MirrorPart.h"
#include "chip/MulticastPart.h"
#include "chip/StormControlPart.h"
#include "chip/TapAggPart.h"
#include "chip/TopologyPart.h"
#include "chip/VlanMappingPart.h"
#include "chip/VlanPart.h"

namespace Chip {

using Ulnet::IntfId;
using Velto::Ptr;
using Velto::String;

/** The faults that can be planted. */
struct Faults {
   bool lostAnswer = false;     ///< removing a host that is not there is never answered
   bool fullAborts = false;     ///< a full host table is taken for impossible
   bool earlyDone = false;      ///< port states are reported done when they are queued
   bool staleFlags = false;     ///< a member that is there already never changes its flags
   bool tidyDestructor = false; ///< the destructor of the VLAN helper clears the VLAN table
   bool keptPort = false;       ///< an access list stays on a port that it is taken off
   bool keptMapping = false;    ///< a translation that is there already keeps its mapping
   bool keptLevel = false;      ///< no limit is taken for nothing new: the one before stays
   bool keptGroup = false;      ///< the MAC entry of a group that is deleted stays
   bool oneDestination = false; ///< of several destinations to remove only the first one goes
   bool firstGroup = false;     ///< a tap port that has a group keeps it when it is given another
   bool roomUntold = false;     ///< what found no place among adjacencies never hears of room
   bool anyAnswer = false; ///< an answer is taken for the operation in flight, whose ever it is
};

/** What the chip holds. */
struct Tables {
   static constexpr std::size_t hostRoom = 1024, topoRoom = 16, lagRoom = 16, memberRoom = 8,
                                mirrorRoom = 4, translationRoom = 512, ruleRoom = 32768,
                                adjacencyRoom = 24, ecmpRoom = 16;
   static constexpr S64 multicastRoom = 16;
   static constexpr U32 tapGroupRoom = 16;

   QonChip::HeldHosts hosts;
   QonChip::HeldTopologies topologies;
   QonChip::HeldVlans vlans;
   std::map< U16, U32 > fids; ///< filtering databases, by VLAN
   QonChip::HeldGroups lags;
   QonChip::HeldMirrors mirrors;
   QonChip::HeldMulticast multicast;
   QonChip::HeldAcls acls;
   QonChip::HeldStormControl storm;
   QonChip::HeldTapAgg tapAgg;
   QonChip::HeldTranslations translations;
   QonChip::HeldEntries entries;
   QonChip::HeldAdjacencies adjacencies;
};

} // namespace Chip
