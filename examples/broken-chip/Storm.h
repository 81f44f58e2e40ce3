#pragma once
// Storm control of the chip: a table of limiters, and the hook class that writes it.

#include "Tables.h"

namespace Chip {

/** Storm control: takes every level at once; there is a limiter for each. */
class ChipStorm : public Qon::StormControlSmHelper {
 public:
   using Type = Qon::LevelType;
   using Threshold = Qon::StormControl::Threshold;

   ChipStorm( Tables & tables, Faults faults )
       : StormControlSmHelper( "chip" ), tables_( tables ), faults_( faults ) {}

   void hwInit() override { tables_.storm = {}; }
   void installRules() override {}
   void updateBcastSkipRule( IntfId, bool ) override {}
   void handleEthPhyIntfLagConfig( IntfId ) override {}
   bool uucastLevelEnabled() override { return true; }
   bool burstEnabled() override { return false; }
   void programTcAggregateHwRate( U8 trafficClass, const Threshold & threshold ) override {
      tables_.storm.classes.erase( trafficClass );
      if ( !( threshold == Threshold() ) ) {
         tables_.storm.classes[trafficClass] = threshold;
      }
   }
   void setHwRate( Type type, IntfId intf, IntfId, U64 speed, const Threshold & t ) override {
      set( intf, 2 * ( U32( type ) - 1 ), { t, speed } );
   }
   void setCpuHwRate( Type type, IntfId intf, IntfId, U64 speed, const Threshold & t ) override {
      set( intf, 2 * ( U32( type ) - 1 ) + 1, { t, speed } );
   }
   void verifyEnabled( IntfId, bool ) override {}
   void verifyPort( IntfId, IntfId, U64, const Qon::StormControl::IntfStatus & ) override {}
   void verifyAggregateTc( U8, const Qon::StormControl::AggregateTcStatus & ) override {}

 private:
   void set( IntfId intf, U32 level, const QonChip::HeldLevel & limit ) {
      auto & port = tables_.storm.ports[intf];
      if ( !( limit.threshold == Threshold() ) ) {
         port[Qon::StormControl::Level( level )] = limit;
      } else if ( !faults_.keptLevel ) {
         port.erase( Qon::StormControl::Level( level ) );
      }
      if ( port.empty() ) {
         tables_.storm.ports.erase( intf );
      }
   }

   Tables & tables_;
   Faults faults_;
};

} // namespace Chip
