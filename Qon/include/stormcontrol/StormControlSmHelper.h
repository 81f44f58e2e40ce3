#pragma once
// The hooks of storm control: those of a chip that takes what it is told at once (the first
// generation), and of one that says later what it holds (the second).
//
//    StormControlSm       -> StormControlSmHelper: hwInit, installRules, then a call a level
//    QonStormControlSmV2  -> PlatformConfig, then QonStormControlSmHelperV2: a call a level
//                         <- PlatformStatus, when the chip holds a version
//
// Invariants
// 1. Levels are programmed on ports only; a member of a port-channel has the port-channel's.
// 2. A level reaches its hook when its threshold, the port's speed or the port's port-channel is
//    another than at the last call for it, and not otherwise.
// 3. No limit is the default threshold (100 percent), and said like any other.
// 4. A chip that has no room for a level keeps the wish, and programs it when there is room: the
//    first generation is not asked again, the second says so in its results.
// 5. A hook may raise: it is called once more before the exception reaches whoever made the change.

#include "Qon/include/framework/QonBaseSm.h"
#include "Qon/include/stormcontrol/StormControlTypes.h"

namespace Qon {

/** The hooks of the first generation. Each counts as done when it returns. */
class StormControlSmHelper : public QonBaseHelper {
   KIV_BODY( StormControlSmHelper, QonBaseHelper )
 public:
   using IntfId = Ulnet::IntfId;
   using Threshold = StormControl::Threshold;

   explicit StormControlSmHelper( const String & name ) : QonBaseHelper( name ) {}

   /** Called once at the start, after hwInit(): the rules that tell the kinds of traffic apart. */
   virtual void installRules();
   /** Whether broadcasts of the port pass by the rules: true while no broadcast level holds there.
       False until it is called; before the levels of the same change. */
   virtual void updateBcastSkipRule( IntfId intf, bool skip );
   /** The level of a traffic class; the default when its configuration has gone. */
   virtual void programTcAggregateHwRate( U8 trafficClass, const Threshold & threshold );
   /** The level of a type on the data plane. `lagIntf` is the port-channel whose configuration it
       is, null for the port's own; `speedKbps` is the port's, 0 if it is not known. A percentage is
       one of that speed. A later call for the type and port replaces it. */
   virtual void setHwRate( LevelType levelType, IntfId intf, IntfId lagIntf, U64 speedKbps,
                           const Threshold & threshold );
   /** The same for what goes to the CPU; never with a value of zero. */
   virtual void setCpuHwRate( LevelType levelType, IntfId intf, IntfId lagIntf, U64 speedKbps,
                              const Threshold & threshold );
   /** @name In a verification run: each reports, as findings, where the chip differs. */
   /** @{ */
   virtual void verifyEnabled( IntfId intf, bool enabled );
   virtual void verifyPort( IntfId intf, IntfId lagIntf, U64 speedKbps,
                            const StormControl::IntfStatus & status );
   virtual void verifyAggregateTc( U8 trafficClass,
                                   const StormControl::AggregateTcStatus & status );
   /** @} */
   /** Called once at the start, before everything else. When it returns the chip limits nothing and
       no broadcasts pass by the rules, whatever an agent before this one left. */
   virtual void hwInit();
   /** The port has another port-channel than before (or none any more), or that port-channel another
       configuration. Before its levels are looked at. */
   virtual void handleEthPhyIntfLagConfig( IntfId intf );
   /** Called at the start and on every change; only if burstEnabled(). */
   virtual void setBurstTime( const StormControl::BurstConfig & config );
   /** Asked at the start: whether the chip can limit unknown unicasts. If not, neither level of
       theirs is ever programmed. */
   virtual bool uucastLevelEnabled();
   /** Asked at the start: whether the chip has a burst time. */
   virtual bool burstEnabled();
};

/** The hooks of the second generation. They are done when the chip writes the version of the
    moment into PlatformStatus. */
class QonStormControlSmHelperV2 : public QonBaseHelper {
   KIV_BODY( QonStormControlSmHelperV2, QonBaseHelper )
 public:
   using IntfId = Ulnet::IntfId;
   using Threshold = StormControl::Threshold;

   explicit QonStormControlSmHelperV2( const String & name ) : QonBaseHelper( name ) {}

   /** The level of a traffic class; the default when its configuration has gone, and
       platformAggregateTcConfig with it. */
   virtual void handleAggregateTcRulesHelper( U8 trafficClass, const Threshold & threshold );
   /** As StormControlSmHelper's. */
   virtual void updateBcastSkipRule( IntfId intf, bool skip );
   /** A level of the port; platformIntfConfig has the version that it belongs to. */
   virtual void handlePortRulesHelper( LevelType levelType, IntfId intf, IntfId lagIntf, U64 speed,
                                       const Threshold & threshold );
   /** Nothing is limited on the port any more; platformIntfConfig has gone. Also for what an agent
       before this one left. */
   virtual void resetPortConfig( IntfId intf );
};

} // namespace Qon
