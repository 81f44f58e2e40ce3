#pragma once
// The eight levels of storm control, and whose configuration holds on an interface.
//
//    level       data plane  CPU        of what
//    uUcast      levelOf 0   1          frames to addresses that nobody knows
//    broadcast   2           3
//    multicast   4           5
//    all         6           7          all of them together
//
//    effectiveConfig( config, acsd, Ethernet1 ) -> the port-channel's, if it is a member of one;
//                                                  else its own; null if there is none
//
// Both generations of the state machine, the logging and the disabling of interfaces ask
// effectiveConfig() and nothing else.

#include "Qon/include/framework/LagView.h"
#include "platform/types/StormControl.h"

namespace Qon {

/** A kind of traffic, as the hooks name it. */
enum class LevelType : U8 {
   levelTypeNull = 0,
   levelTypeUUcast = 1,
   levelTypeBroadcast = 2,
   levelTypeMulticast = 3,
   levelTypeAll = 4,
   levelTypeMax = 5, ///< the bound
};
KIV_ENUM( LevelType, levelTypeNull, levelTypeUUcast, levelTypeBroadcast, levelTypeMulticast,
          levelTypeAll, levelTypeMax )

namespace StormControl {

using Bridging::StormControl::AggregateTcConfig;
using Bridging::StormControl::AggregateTcStatus;
using Bridging::StormControl::BurstConfig;
using Bridging::StormControl::Config;
using Bridging::StormControl::Drops;
using Bridging::StormControl::IntfConfig;
using Bridging::StormControl::IntfStatus;
using Bridging::StormControl::Level;
using Bridging::StormControl::levels;
using Bridging::StormControl::OptionalThreshold;
using Bridging::StormControl::Status;
using Bridging::StormControl::Threshold;

/** Calls X( type, level, Attribute ) for each level, in the order of Level. */
#define QON_STORM_LEVELS( X )                                                                      \
   X( levelTypeUUcast, uUcast, UUcastLevel, uUcastLevel )                                          \
   X( levelTypeUUcast, uUcastCpu, UUcastCpuLevel, uUcastCpuLevel )                                 \
   X( levelTypeBroadcast, broadcast, BroadcastLevel, broadcastLevel )                              \
   X( levelTypeBroadcast, broadcastCpu, BroadcastCpuLevel, broadcastCpuLevel )                     \
   X( levelTypeMulticast, multicast, MulticastLevel, multicastLevel )                              \
   X( levelTypeMulticast, multicastCpu, MulticastCpuLevel, multicastCpuLevel )                     \
   X( levelTypeAll, all, AllLevel, allLevel )                                                      \
   X( levelTypeAll, allCpu, AllCpuLevel, allCpuLevel )

/** One level: a type on one of the two planes. */
struct LevelKind {
   Level level;
   LevelType type;
   bool cpu;
   Kiv::Read< OptionalThreshold > ( IntfConfig::*configured )() const;
};
/** By the number of the level. */
extern const LevelKind levelKinds[levels];

inline const LevelKind &
kindOf( Level level ) {
   return levelKinds[U8( level )];
}

/** What an operator wants of a level; the default, which is no limit, if he does not say. */
inline Threshold
thresholdOf( const IntfConfig & config, const LevelKind & kind ) {
   return ( config.*kind.configured )().value_or( Threshold() );
}

/** Whose configuration holds. */
struct EffectiveConfig {
   Ulnet::IntfId lag; ///< the port-channel of which the interface is a member; null: none
   Velto::Ptr< const IntfConfig > config; ///< null: there is none
   bool operator==( const EffectiveConfig & ) const = default;
};
EffectiveConfig effectiveConfig( const Config & config, const LagView & lags, Ulnet::IntfId intf );

/** Whether levels are programmed on it: not on port-channels, whose members have them, nor on
    sub-interfaces. */
inline bool
isPort( Ulnet::IntfId intf ) {
   return !Ulnet::PortChannelIntfId::isPortChannelIntfId( intf ) &&
          !Ulnet::SubIntfId::isSubIntfId( intf );
}

/** Adds and subtracts each counter, modulo 2^64. */
Drops plus( const Drops & a, const Drops & b );
Drops minus( const Drops & a, const Drops & b );

} // namespace StormControl
} // namespace Qon
