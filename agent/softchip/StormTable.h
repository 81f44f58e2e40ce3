#pragma once
// The rate limiters of the chip in software: so many, one for each level of a port that limits
// anything.
//
//    hook object -> set( port, level, limit ) -> a limiter, or a wish that waits for one
//    a limiter becomes free -> the wish that waits longest -> Hook::admitted( port )
//
// Invariants
// 1. A limit of 100 percent needs no limiter and has none.
// 2. A level has a limiter or waits, never both; what waits limits nothing.
// 3. By the fault plan (hook "stormLimiter") a limit that is asked for waits a while, although there
//    is room (table "stormLimiters").

#include <map>
#include <vector>

#include "agent/softchip/FaultPlan.h"
#include "agent/softchip/Hearer.h"
#include "chip/StormControlPart.h"
#include "platform/Kiv/Alarm.h"

namespace SoftChip {

using Qon::StormControl::Level;
using Qon::StormControl::Threshold;
using Ulnet::IntfId;

/** How much storm control a chip has. */
struct StormShape {
   U32 limiters = 4096;
   U32 slices = 2;     ///< which count for themselves
   bool uucast = true; ///< it can limit unknown unicasts
   bool burst = true;  ///< and has a burst time
};

class StormTable {
 public:
   using Limit = QonChip::HeldLevel;
   using Key = std::pair< IntfId, Level >;

   class Hook {
    public:
      /** A level of the port that waited has a limiter now. */
      virtual void admitted( IntfId port ) = 0;

    protected:
      ~Hook() = default;
   };

   /** `plan` outlives the table. */
   StormTable( FaultPlan & plan, U32 limiters ) : plan_( plan ), limiters_( limiters ) {
      plan.hookIs( "stormLimiter" );
      plan.tableIs( "stormLimiters" );
   }

   Hearer< Hook > hook;

   /** True if the limit holds now; it waits otherwise. */
   bool set( IntfId port, Level level, const Limit & limit );
   void classIs( U8 trafficClass, const Threshold & threshold );
   void skipIs( IntfId port, bool skip );
   void skipNowhere() { skipped_.clear(); }
   /** Nothing of the port is limited any more, or of all ports and classes. */
   void reset( IntfId port );
   void clear();
   /** Gives the wishes that wait the limiters that are free. */
   void admit();

   /** The limit that holds; null: there is none. */
   const Limit * limit( IntfId port, Level level ) const;
   bool waits( IntfId port, Level level ) const;
   bool skipped( IntfId port ) const { return skipped_.contains( port ); }
   const std::map< Key, Limit > & held() const { return held_; }
   const std::vector< std::pair< Key, Limit > > & waiting() const { return waiting_; }
   const std::map< U8, Threshold > & classes() const { return classes_; }
   /** Another number whenever limits changed. */
   U64 writes() const { return writes_; }

 private:
   bool room() const;
   void drop( const Key & key );

   FaultPlan & plan_;
   const U32 limiters_;
   std::map< Key, Limit > held_;
   std::vector< std::pair< Key, Limit > > waiting_; // the longest first
   std::map< U8, Threshold > classes_;
   std::map< IntfId, bool > skipped_;
   U64 writes_ = 0;
   Kiv::Alarm again_{ [this] { admit(); } };
};

} // namespace SoftChip
