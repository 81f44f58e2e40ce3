#pragma once
// Tap aggregation in the chip in software: so many groups, tap ports with one of them, tool ports in
// any number of them.
//
//    hook object -> groups, ports, settings: at once
//    ways( intf ) <- what becomes of a frame that a tap port takes
//
// Invariants
// 1. There are not more groups than the table has room for (in the fault plan the limit of
//    "tapGroups"). Ids are from 1, the lowest that is free.
// 2. What cannot be held is not: a group that is not allocated, a setting of what is no such port, a
//    group that is freed while a port is in it, a second hwInit. refused() says what was asked.

#include <vector>

#include "agent/softchip/FaultPlan.h"
#include "chip/TapAggPart.h"

namespace SoftChip {

using Ulnet::IntfId;
using Velto::String;

struct TapAggLimits {
   U32 groups = 64;
   U32 maxFrameSize = 9236; ///< bytes
};

class TapAggTable {
 public:
   /** The way of a frame to one tool port. */
   struct TapWay {
      IntfId tool;
      std::vector< IntfId > ports; ///< the tool port, or the members that carry
      std::vector< String > changes;
      bool operator==( const TapWay & ) const = default;
   };

   /** `plan` outlives the table. */
   TapAggTable( const TapAggLimits & limits, FaultPlan & plan );

   const TapAggLimits & limits() const { return limits_; }
   const QonChip::HeldTapAgg & held() const { return held_; }
   const String & tcamProfile() const { return tcamProfile_; }
   U32 groupsAtMost() const { return plan_.limit( "tapGroups", limits_.groups ); }
   /** What it was asked and could not do, in words, since the last time. */
   std::vector< String > takeRefused() { return std::exchange( refused_, {} ); }
   bool refused() const { return !refused_.empty(); }

   void init();
   void cleanup();
   /** The id of the name's group, or 0. */
   U32 allocate( const String & name );
   void deallocate( U32 group );
   void tapIs( IntfId intf, bool enable );
   void toolIs( IntfId intf, bool enable );
   /** 0: none. */
   void tapGroupIs( IntfId intf, U32 group );
   void toolGroupIs( IntfId intf, U32 group, bool add );
   void toolMemberIs( IntfId lag, IntfId member, U32 group, bool add );
   void tcamProfileIs( const String & profile ) { tcamProfile_ = profile; }

   /** The port, to change its settings; null (and refused) if it is none. */
   QonChip::HeldTapPort * tap( IntfId intf, const char * setting );
   QonChip::HeldToolPort * tool( IntfId intf, const char * setting );

   /** Where frames go that the tap port `intf` takes; in order of tools. */
   std::vector< TapWay > ways( IntfId intf ) const;

 private:
   void refuse( const String & what, IntfId intf = IntfId(), U32 group = 0 );
   bool inUse( U32 group ) const;

   TapAggLimits limits_;
   FaultPlan & plan_;
   QonChip::HeldTapAgg held_;
   String tcamProfile_;
   std::vector< String > refused_;
};

} // namespace SoftChip
