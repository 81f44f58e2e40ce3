#pragma once
// Storm control of the chip: a table of limiters, and the hook classes of both generations that write
// it. The first is done when its hooks return, the second says so a little later.

#include "Tables.h"

namespace Chip {

/** Storm control: takes every level at once; there is a limiter for each. */
class ChipStorm : public Qon::StormControlSmHelper {
 public:
   using Type = Qon::LevelType;
   using Threshold = Qon::StormControl::Threshold;

   ChipStorm( Tables & tables, Faults faults )
       : StormControlSmHelper( "chip" ), tables_( tables ), faults_( faults ) {}

   /** The default threshold is no limit, and has no entry. */
   static void classIs( Tables & tables, U8 trafficClass, const Threshold & threshold ) {
      tables.storm.classes.erase( trafficClass );
      if ( !( threshold == Threshold() ) ) {
         tables.storm.classes[trafficClass] = threshold;
      }
   }

   void hwInit() override { tables_.storm = {}; }
   void installRules() override {}
   void updateBcastSkipRule( IntfId, bool ) override {}
   void handleEthPhyIntfLagConfig( IntfId ) override {}
   bool uucastLevelEnabled() override { return true; }
   bool burstEnabled() override { return false; }
   void programTcAggregateHwRate( U8 trafficClass, const Threshold & threshold ) override {
      classIs( tables_, trafficClass, threshold );
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

/** Levels by version: the table follows the configuration that is whole, then its version is said. */
class ChipStormV2 : public Qon::QonStormControlSmHelperV2 {
 public:
   using Config = Qon::StormControl::PlatformConfig;
   using Status = Qon::StormControl::PlatformStatus;

   ChipStormV2( Tables & tables, Ptr< const Config > config, Ptr< Status > status,
                Kiv::TimerWheel * wheel )
       : QonStormControlSmHelperV2( "chip" ), tables_( tables ), config_( std::move( config ) ),
         status_( std::move( status ) ), later_( wheel ) {
      tables_.storm = {}; // what nobody configures any more, an agent before this one left
   }

   void updateBcastSkipRule( IntfId, bool ) override {}
   void handlePortRulesHelper( Qon::LevelType, IntfId intf, IntfId, U64,
                               const Threshold & ) override {
      later_.add( [this, intf] { follow( intf ); } );
   }
   void resetPortConfig( IntfId intf ) override {
      tables_.storm.ports.erase( intf );
      status_->platformIntfStatusDel( intf );
   }
   void handleAggregateTcRulesHelper( U8 trafficClass, const Threshold & threshold ) override {
      ChipStorm::classIs( tables_, trafficClass, threshold );
      auto config = config_->platformAggregateTcConfig( trafficClass );
      config ? status_->platformAggregateTcStatusIs( trafficClass )
                     ->versionIdIs( config->versionId() )
             : status_->platformAggregateTcStatusDel( trafficClass );
   }

 private:
   void follow( IntfId intf ) {
      const Ptr config( config_->platformIntfConfig( intf ) );
      if ( !config ) {
         return;
      }
      QonChip::HeldPortLevels levels;
      for ( auto & kind : Qon::StormControl::levelKinds ) {
         if ( !kind.cpu && config->levelHas( kind.type ) &&
              !( config->level( kind.type ) == Threshold() ) ) {
            levels[kind.level] = { config->level( kind.type ), config->speed() };
         }
      }
      tables_.storm.ports[intf] = levels;
      status_->platformIntfStatusIs( intf )->versionIdIs( config->versionId() );
   }

   Tables & tables_;
   Ptr< const Config > config_;
   Ptr< Status > status_;
   Later later_;
};

} // namespace Chip
