#pragma once
// Storm control: tables PORT_STORM_CONTROL and STORM_CONTROL become the configuration of either
// generation of the state machine, by option storm-control. It stands in for the error-disable
// agent, too: an event recovers an interface.
//
//    {"event": "stormTraffic", "port": "Ethernet0", "kind": "broadcast", "kbps": 5000,
//     "octets": 64, "cpu": false}                    of the chip in software; kbps 0: it ends
//    {"event": "errdisableRecover", "port": "Ethernet0"}
//
// Sources: StormControlFeature.cc (configuration, events), StormControlFeatureShow.cc.

#include "Qon/include/stormcontrol/QonStormControlDropSm.h"
#include "Qon/include/stormcontrol/QonStormControlErrdisableSm.h"
#include "Qon/include/stormcontrol/QonStormControlSm.h"
#include "Qon/include/stormcontrol/QonStormControlSmV2.h"
#include "agent/AgentFeature.h"
#include "agent/Configured.h"
#include "agent/base/ChangeTimes.h"
#include "chip/StormControlPart.h"

namespace QonAgent {

class ConfigRow;

class StormControlFeature : public AgentFeature {
 public:
   explicit StormControlFeature( Agent & agent );
   static std::vector< FeatureOption > options();

   std::vector< ConfigTable > tables() const override;
   void configure( ConfigReader & reader ) override;
   std::vector< ShowCommand > showCommands() override;
   std::vector< EventKind > eventKinds() override;
   std::vector< String > ownNames() const override {
      return { "Bridging::StormControl", "StormControlSmHelper", "QonStormControlSmHelperV2",
               "Qon::StormControl" };
   }

 private:
   using IntfId = Ulnet::IntfId;
   using Level = Bridging::StormControl::Level;
   using Threshold = Bridging::StormControl::Threshold;
   using OptionalThreshold = Bridging::StormControl::OptionalThreshold;

   void makeFirst();
   void makeSecond();
   /** What a row says of a kind of traffic. */
   using Levels =
         std::pair< OptionalThreshold, OptionalThreshold >; // in the data plane, to the CPU
   using KindOfIntf = std::pair< IntfId, Qon::LevelType >;
   /** What holds for all interfaces; as it is without a row. */
   struct Global {
      bool logging = false;
      bool errdisable = false;
      U64 interval = 0;
      U64 period = 0;
      U32 burst = 0;
      bool operator==( const Global & ) const = default;
   };
   /** What a file says, while it is being read. */
   struct Reading {
      Configured< IntfId, bool >::Said logging;
      Configured< KindOfIntf, Levels >::Said levels;
      Configured< U8, Threshold >::Said classes;
      Global global;
   };
   void port( ConfigReader & reader, const ConfigRow & row, Reading & reading ) const;
   void level( ConfigReader & reader, const ConfigRow & row, Reading & reading ) const;
   void global( const ConfigRow & row, Reading & reading ) const;
   void become( const Reading & reading );
   void levelsAre( const KindOfIntf & of, const Levels & levels );
   void globalIs( const Global & global );
   void leave( IntfId intf );
   std::function< void() > parseTraffic( const Json & line ) const;
   std::function< void() > parseRecover( const Json & line ) const;

   Rows stormControl( Arguments arguments ) const;
   Rows hardware() const;
   /** Interfaces that are configured, and members of port-channels that are. */
   std::vector< IntfId > shown() const;
   Row row( IntfId intf, Level level, const QonChip::HeldStormControl & held ) const;
   /** Why the chip does not have a level as it is configured; empty if it has. */
   String why( IntfId intf, Level level, const OptionalThreshold & wanted,
               const QonChip::HeldStormControl & held ) const;
   String whyNoMachine( IntfId intf ) const;
   const Qon::StormControlBaseSm * sm() const;

   Agent & agent_;
   QonChip::StormControlPart * const part_; ///< null: the chip has none
   const bool second_;
   const Velto::Ptr< Bridging::StormControl::Config > config_;
   const Velto::Ptr< Bridging::StormControl::Status > status_;
   const Velto::Ptr< Interface::EthPhyIntfStatusDir > phys_;
   const Velto::Ptr< Qon::StormControl::DropSliceDir > slices_;
   const Velto::Ptr< Qon::StormControl::DropStatus > drops_;
   const Velto::Ptr< Qon::StormControl::PlatformConfig > platformConfig_;
   const Velto::Ptr< Qon::StormControl::PlatformStatus > platformStatus_;
   const Velto::Ptr< Errdisable::CauseConfig > causes_;
   const Velto::Ptr< Errdisable::CauseStatus > disabled_;
   const ChangeTimes times_; // of config_
   Configured< IntfId, bool > logging_;
   Configured< KindOfIntf, Levels > levels_;
   Configured< U8, Threshold > classes_;
   Global global_;

   Velto::Ptr< Velto::Node > counter_;
   Velto::Ptr< Qon::StormControlDropSm > dropSm_;
   Velto::Ptr< Qon::StormControlSm > sm_;
   Velto::Ptr< Qon::QonStormControlSmV2 > smV2_;
   Velto::Ptr< Qon::StormControlErrdisableSm > errdisableSm_;
};

} // namespace QonAgent
