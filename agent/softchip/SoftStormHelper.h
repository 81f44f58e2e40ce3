#pragma once
// The hooks of storm control, of both generations, over the limiters of the chip in software.
//
//    StormControlSm      -> SoftStormHelper   -> the table, at once
//    QonStormControlSmV2 -> SoftStormHelperV2 -> a little later: the version of that moment
//                        <- PlatformStatus: results, then the version
//    SoftStormCounter: DropSliceDir <- the meter, once a second while there is traffic

#include <set>

#include "agent/softchip/Completions.h"
#include "agent/softchip/StormMeter.h"

namespace SoftChip {

class StormControlPart;

class SoftStormHelper : public Qon::StormControlSmHelper, private StormTable::Hook {
 public:
   SoftStormHelper( StormControlPart & part, Velto::Ptr< Qon::VerifyData > verifyData );
   ~SoftStormHelper() override;

   void installRules() override {}
   void updateBcastSkipRule( IntfId intf, bool skip ) override;
   void programTcAggregateHwRate( U8 trafficClass, const Threshold & threshold ) override;
   void setHwRate( Qon::LevelType levelType, IntfId intf, IntfId lagIntf, U64 speedKbps,
                   const Threshold & threshold ) override;
   void setCpuHwRate( Qon::LevelType levelType, IntfId intf, IntfId lagIntf, U64 speedKbps,
                      const Threshold & threshold ) override;
   void verifyEnabled( IntfId intf, bool enabled ) override;
   void verifyPort( IntfId intf, IntfId lagIntf, U64 speedKbps,
                    const Qon::StormControl::IntfStatus & status ) override;
   void verifyAggregateTc( U8 trafficClass,
                           const Qon::StormControl::AggregateTcStatus & status ) override;
   void hwInit() override;
   void handleEthPhyIntfLagConfig( IntfId ) override {}
   void setBurstTime( const Qon::StormControl::BurstConfig & config ) override;
   bool uucastLevelEnabled() override;
   bool burstEnabled() override;

 private:
   void admitted( IntfId ) override {} // nobody asks
   void set( Qon::LevelType levelType, bool cpu, IntfId intf, U64 speedKbps,
             const Threshold & threshold );
   void finding( const String & what );

   StormControlPart & part_;
   const Velto::Ptr< Qon::VerifyData > verifyData_;
};

class SoftStormHelperV2 : public Qon::QonStormControlSmHelperV2, private StormTable::Hook {
 public:
   using Config = Qon::StormControl::PlatformConfig;
   using Status = Qon::StormControl::PlatformStatus;

   SoftStormHelperV2( StormControlPart & part, Velto::Ptr< const Config > config,
                      Velto::Ptr< Status > status );
   ~SoftStormHelperV2() override;

   void handleAggregateTcRulesHelper( U8 trafficClass, const Threshold & threshold ) override;
   void updateBcastSkipRule( IntfId intf, bool skip ) override;
   void handlePortRulesHelper( Qon::LevelType levelType, IntfId intf, IntfId lagIntf, U64 speed,
                               const Threshold & threshold ) override;
   void resetPortConfig( IntfId intf ) override;

 private:
   void admitted( IntfId port ) override;
   void apply( IntfId intf );
   void applyClass( U8 trafficClass );
   /** Writes what became of the version that the table has. */
   void report( IntfId intf );

   StormControlPart & part_;
   const Velto::Ptr< const Config > config_;
   const Velto::Ptr< Status > status_;
   std::set< IntfId > pending_; // a version is on its way into the table
};

/** Keeps the slices' counters while it lives. */
class SoftStormCounter : public Velto::Node {
 public:
   using Dir = Qon::StormControl::DropSliceDir;
   static constexpr Kiv::Seconds period = 1;

   SoftStormCounter( StormControlPart & part, Velto::Ptr< Dir > slices );
   ~SoftStormCounter() override;
   /** Limits, traffic or slices are others: soon. */
   void touch() { alarm_.in( 0 ); }

 private:
   void publish();
   void publishSlice( U32 slice, const std::vector< IntfId > & ports );

   StormControlPart & part_;
   const Velto::Ptr< Dir > slices_;
   Kiv::Alarm alarm_{ [this] { publish(); } };
};

} // namespace SoftChip
