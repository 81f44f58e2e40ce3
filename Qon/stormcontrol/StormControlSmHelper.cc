#include "Qon/include/stormcontrol/StormControlSmHelper.h"

#include "platform/Kiv/Describe.h"

KIV_DEFINE( Qon::StormControlSmHelper )
KIV_DEFINE( Qon::QonStormControlSmHelperV2 )

namespace Qon {

namespace {

/** The report of these two classes; `hook` with its brackets. fixed text */
String
notImplemented( const char * hook ) {
   return String( "Function " ) + hook + " must be implemented by derived class";
}

} // namespace

void
StormControlSmHelper::installRules() {
   qonAssert( notImplemented( "installRules()" ) );
}

void
StormControlSmHelper::updateBcastSkipRule( IntfId, bool ) {
   qonAssert( notImplemented( "updateBcastSkipRule()" ) );
}

void
StormControlSmHelper::programTcAggregateHwRate( U8, const Threshold & ) {
   qonAssert( notImplemented( "programTcAggregateHwRate()" ) );
}

void
StormControlSmHelper::setHwRate( LevelType, IntfId, IntfId, U64, const Threshold & ) {
   qonAssert( notImplemented( "setHwRate()" ) );
}

void
StormControlSmHelper::setCpuHwRate( LevelType, IntfId, IntfId, U64, const Threshold & ) {
   qonAssert( notImplemented( "setCpuHwRate()" ) );
}

void
StormControlSmHelper::verifyEnabled( IntfId, bool ) {
   qonAssert( notImplemented( "verifyEnabled()" ) );
}

void
StormControlSmHelper::verifyPort( IntfId, IntfId, U64, const StormControl::IntfStatus & ) {
   qonAssert( notImplemented( "verifyPort()" ) );
}

void
StormControlSmHelper::verifyAggregateTc( U8, const StormControl::AggregateTcStatus & ) {
   qonAssert( notImplemented( "verifyAggregateTc()" ) );
}

void
StormControlSmHelper::hwInit() {
   qonAssert( notImplemented( "hwInit()" ) );
}

void
StormControlSmHelper::handleEthPhyIntfLagConfig( IntfId ) {
   qonAssert( notImplemented( "handleEthPhyIntfLagConfig()" ) );
}

void
StormControlSmHelper::setBurstTime( const StormControl::BurstConfig & ) {
   qonAssert( notImplemented( "setBurstTime()" ) );
}

bool
StormControlSmHelper::uucastLevelEnabled() {
   qonAssert( notImplemented( "uucastLevelEnabled()" ) );
   return false;
}

bool
StormControlSmHelper::burstEnabled() {
   qonAssert( notImplemented( "burstEnabled()" ) );
   return false;
}

void
QonStormControlSmHelperV2::handleAggregateTcRulesHelper( U8, const Threshold & ) {
   qonAssert( notImplemented( "handleAggregateTcRulesHelper()" ) );
}

void
QonStormControlSmHelperV2::updateBcastSkipRule( IntfId, bool ) {
   qonAssert( notImplemented( "updateBcastSkipRule()" ) );
}

void
QonStormControlSmHelperV2::handlePortRulesHelper( LevelType, IntfId, IntfId, U64,
                                                  const Threshold & ) {
   qonAssert( notImplemented( "handlePortRulesHelper()" ) );
}

void
QonStormControlSmHelperV2::resetPortConfig( IntfId ) {
   qonAssert( notImplemented( "resetPortConfig()" ) );
}

} // namespace Qon
