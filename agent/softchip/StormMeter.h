#pragma once
// Traffic that storms, as the chip in software meets it: what its limiters let pass, and what they
// drop, counted by each slice for itself.
//
//    event, test -> trafficIs( port, kind, on its way to the CPU?, rate )
//    time -> advance(): rate over the limit x time -> counters of the slices
//    SoftStormCounter: a clock -> DropSliceDir
//
// Invariants
// 1. Of each kind the limit of its level passes, of all that passes the limit of level "all"; what is
//    more is dropped. Traffic to the CPU has levels of its own.
// 2. The drops of a port are shared among the slices that are there. One that is lost (unit
//    "Slice<n>" of the fault plan) forgets what it counted.

#include <map>
#include <vector>

#include "agent/softchip/StormTable.h"

namespace SoftChip {

/** A stream of frames. */
struct StormRate {
   double kbps = 0;
   double frameOctets = 64;
   double pps() const { return kbps * 125 / frameOctets; }
   bool operator==( const StormRate & ) const = default;
};

class StormMeter {
 public:
   using LevelType = Qon::LevelType;
   using Drops = Qon::StormControl::Drops;

   /** Both outlive it. */
   StormMeter( const StormTable & table, const FaultPlan & plan, U32 slices );

   /** Traffic of a kind that arrives at the port from now on; a rate of zero ends it. */
   void trafficIs( IntfId port, LevelType kind, bool cpu, const StormRate & rate );
   bool busy() const { return !flows_.empty(); }
   /** Counts up to now; before limits change, so that each counts for its own time. */
   void advance();
   /** The ports that are counted for: those with limits or traffic, once and for all. */
   std::vector< IntfId > ports() const;
   /** What a slice counted for a port. */
   Drops drops( U32 slice, IntfId port ) const;
   U32 slices() const { return U32( slices_.size() ); }
   static Velto::String sliceName( U32 slice ) { return "Slice" + Kiv::toText( slice ); }
   bool lost( U32 slice ) const { return plan_.unitLost( sliceName( slice ) ); }
   /** Counters as after a reset of the chip. */
   void clearCounters();

 private:
   /** Packets and octets of each type, of the data plane and of the CPU. */
   struct Count {
      double packets[4] = {};
      double octets[4] = {};
      double cpuPackets[4] = {};
   };
   struct FlowKey {
      IntfId port;
      bool cpu;
      LevelType kind;
      auto operator<=>( const FlowKey & ) const = default;
   };

   void countPort( IntfId port, bool cpu, Kiv::Seconds span );
   void count( IntfId port, bool cpu, LevelType type, double packets, double octets );
   /** How many packets a second of a stream the level lets pass. */
   double passing( IntfId port, LevelType type, bool cpu, const StormRate & rate ) const;

   const StormTable & table_;
   const FaultPlan & plan_;
   std::map< FlowKey, StormRate > flows_;
   std::vector< std::map< IntfId, Count > > slices_;
   mutable std::map< IntfId, bool > counted_;
   Kiv::Seconds until_ = 0; // counted so far
};

} // namespace SoftChip
