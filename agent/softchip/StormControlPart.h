#pragma once
// Storm control in the chip in software: limiters, and traffic that exceeds them.

#include "agent/softchip/Part.h"
#include "agent/softchip/SoftStormHelper.h"

namespace SoftChip {

class StormControlPart : public QonChip::StormControlPart {
 public:
   using Seam = QonChip::StormControlPart;
   explicit StormControlPart( const Board & board );

   Velto::Ptr< Qon::StormControlSmHelper >
   makeStormControlHelper( const Velto::Ptr< Qon::QonCommonSmData > & acsd ) override;
   Velto::Ptr< Qon::QonStormControlSmHelperV2 > makeStormControlHelperV2(
         const Velto::Ptr< const Qon::StormControl::PlatformConfig > & config,
         const Velto::Ptr< Qon::StormControl::PlatformStatus > & status ) override;
   Velto::Ptr< Velto::Node >
   makeDropCounter( const Velto::Ptr< Qon::StormControl::DropSliceDir > & slices ) override;
   std::optional< QonChip::HeldStormControl > stormControl() const override;

   /** Traffic of a kind that arrives at a port from now on. */
   void trafficIs( IntfId port, Qon::LevelType kind, bool cpu, const StormRate & rate );

   StormTable & table() { return table_; }
   const StormTable & table() const { return table_; }
   StormMeter & meter() { return meter_; }
   const StormMeter & meter() const { return meter_; }
   Completions & completions() { return completions_; }
   const StormShape & shape() const { return shape_; }
   U32 burstTime() const { return burstTime_; }
   void burstTimeIs( U32 time ) { burstTime_ = time; }
   /** Counts what is asked for a traffic class: of two answers the later question counts. */
   U32 classAsked( U8 trafficClass ) { return ++asked_[trafficClass]; }
   bool lastAsked( U8 trafficClass, U32 question ) { return asked_[trafficClass] == question; }
   /** Before limits change, and after. */
   void changes() { meter_.advance(); }
   void changed();
   void latencyIs( Kiv::Seconds latency ) { completions_.latencyIs( latency ); }

 private:
   friend class SoftStormCounter;

   const StormShape shape_;
   StormTable table_;
   StormMeter meter_;
   U32 burstTime_ = 0;
   std::map< U8, U32 > asked_;
   Completions completions_;
   SoftStormCounter * counter_ = nullptr; // the one that lives
};

} // namespace SoftChip
