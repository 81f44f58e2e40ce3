#include "Qon/include/stormcontrol/StormControlTypes.h"

#include "Qon/include/stormcontrol/StormControlPlatform.h"
#include "platform/Kiv/Describe.h"

KIV_DEFINE( Qon::StormControl::PlatformIntfConfig )
KIV_DEFINE( Qon::StormControl::PlatformAggregateTcConfig )
KIV_DEFINE( Qon::StormControl::PlatformConfig )
KIV_DEFINE( Qon::StormControl::PlatformIntfStatus )
KIV_DEFINE( Qon::StormControl::PlatformAggregateTcStatus )
KIV_DEFINE( Qon::StormControl::PlatformStatus )
KIV_DEFINE( Qon::StormControl::DropIntfStatus )
KIV_DEFINE( Qon::StormControl::DropSlice )
KIV_DEFINE( Qon::StormControl::DropSliceDir )
KIV_DEFINE( Qon::StormControl::DropStatus )

namespace Qon::StormControl {

namespace {

constexpr bool
onCpu( Level level ) {
   return U8( level ) % 2;
}

} // namespace

#define LEVEL_KIND( type, level, Name, name )                                                      \
   { Level::level, LevelType::type, onCpu( Level::level ), &IntfConfig::name },
const LevelKind levelKinds[levels] = { QON_STORM_LEVELS( LEVEL_KIND ) };
#undef LEVEL_KIND

EffectiveConfig
effectiveConfig( const Config & config, const LagView & lags, Ulnet::IntfId intf ) {
   const Ulnet::IntfId lag = lags.lagOf( intf );
   return { lag, config.intf( lag ? lag : intf ) };
}

Drops
plus( const Drops & a, const Drops & b ) {
   Drops sum = a;
#define ADD( name ) sum.name##Is( a.name() + b.name() );
   STORM_CONTROL_DROPS( ADD )
#undef ADD
   return sum;
}

Drops
minus( const Drops & a, const Drops & b ) {
   Drops rest = a;
#define SUBTRACT( name ) rest.name##Is( a.name() - b.name() );
   STORM_CONTROL_DROPS( SUBTRACT )
#undef SUBTRACT
   return rest;
}

} // namespace Qon::StormControl
