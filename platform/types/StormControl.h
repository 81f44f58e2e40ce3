#pragma once
// Storm control: how much of which traffic an interface accepts, and what became of it.
//
//    Config -> intf[Ethernet1].broadcastLevel = 500 kbps
//           -> aggregateTc[3].threshold
//    Status -> intfStatus[Ethernet1].level[broadcast], .broadcastDrop, ...

#include <optional>

#include "platform/Kiv/Attr.h"
#include "platform/Kiv/Text.h"
#include "platform/types/Ulnet.h"

namespace Bridging::StormControl {

enum class Unit : U8 {
   percent, ///< of the interface's speed
   kbps,
   pps ///< packets a second
};
KIV_ENUM( Unit, percent, kbps, pps )

/** How much is accepted. By default everything, which is no limit. */
class Threshold {
   Unit unit_ = Unit::percent;
   U64 value_ = 100;
   KIV_VALUE( Bridging::StormControl, Threshold, unit, value )
};
using OptionalThreshold = std::optional< Threshold >;

/** What is limited: a kind of traffic, where it is forwarded, or on its way to the CPU. */
enum class Level : U8 {
   uUcast,
   uUcastCpu,
   broadcast,
   broadcastCpu,
   multicast,
   multicastCpu,
   all,
   allCpu
};
KIV_ENUM( Level, uUcast, uUcastCpu, broadcast, broadcastCpu, multicast, multicastCpu, all, allCpu )
constexpr U32 levels = 8;

/** What was dropped since the chip began to count: packets, octets, and packets for the CPU. */
class Drops {
   U64 uucastDrop_ = 0;
   U64 broadcastDrop_ = 0;
   U64 multicastDrop_ = 0;
   U64 allDrop_ = 0;
   U64 uucastDropOcts_ = 0;
   U64 broadcastDropOcts_ = 0;
   U64 multicastDropOcts_ = 0;
   U64 allDropOcts_ = 0;
   U64 uucastCpuDrop_ = 0;
   U64 broadcastCpuDrop_ = 0;
   U64 multicastCpuDrop_ = 0;
   U64 allCpuDrop_ = 0;
   KIV_VALUE( Bridging::StormControl, Drops, uucastDrop, broadcastDrop, multicastDrop, allDrop,
              uucastDropOcts, broadcastDropOcts, multicastDropOcts, allDropOcts, uucastCpuDrop,
              broadcastCpuDrop, multicastCpuDrop, allCpuDrop )
};

/** Calls X with each counter, in order. */
#define STORM_CONTROL_DROPS( X )                                                                   \
   X( uucastDrop )                                                                                 \
   X( broadcastDrop )                                                                              \
   X( multicastDrop )                                                                              \
   X( allDrop )                                                                                    \
   X( uucastDropOcts )                                                                             \
   X( broadcastDropOcts )                                                                          \
   X( multicastDropOcts )                                                                          \
   X( allDropOcts )                                                                                \
   X( uucastCpuDrop )                                                                              \
   X( broadcastCpuDrop )                                                                           \
   X( multicastCpuDrop )                                                                           \
   X( allCpuDrop )

/** How long traffic may exceed a level before it is limited. */
class BurstConfig {
   U32 burstTime_ = 0; // microseconds; 0 is the chip's own choice
   KIV_VALUE( Bridging::StormControl, BurstConfig, burstTime )
};

/** What an operator wants of an interface: of a port, a port-channel or a sub-interface. */
class IntfConfig : public Kiv::Entity {
   KIV_BODY( IntfConfig, Kiv::Entity )
   KIV_ATTR( OptionalThreshold, uUcastLevel )
   KIV_ATTR( OptionalThreshold, uUcastCpuLevel )
   KIV_ATTR( OptionalThreshold, broadcastLevel )
   KIV_ATTR( OptionalThreshold, broadcastCpuLevel )
   KIV_ATTR( OptionalThreshold, multicastLevel )
   KIV_ATTR( OptionalThreshold, multicastCpuLevel )
   KIV_ATTR( OptionalThreshold, allLevel )
   KIV_ATTR( OptionalThreshold, allCpuLevel )
   KIV_ATTR( bool, dropLogging, false )
 public:
   explicit IntfConfig( const Ulnet::IntfId & intf ) : intfId_( intf ) {}
   Ulnet::IntfId intfId() const { return intfId_; }

 private:
   const Ulnet::IntfId intfId_;
};

/** What all traffic of a class may use together. */
class AggregateTcConfig : public Kiv::Entity {
   KIV_BODY( AggregateTcConfig, Kiv::Entity )
   KIV_ATTR( Threshold, threshold )
 public:
   explicit AggregateTcConfig( U8 trafficClass ) : trafficClass_( trafficClass ) {}
   U8 trafficClass() const { return trafficClass_; }

 private:
   const U8 trafficClass_;
};

class Config : public Kiv::Entity {
   KIV_BODY( Config, Kiv::Entity )
   KIV_ENTITIES( Ulnet::IntfId, IntfConfig, intf )
   KIV_ENTITIES( U8, AggregateTcConfig, aggregateTc )
   KIV_ATTR( BurstConfig, burstConfig )
   KIV_ATTR( bool, dropLogging, false )       // of every interface
   KIV_ATTR( double, dropLoggingInterval, 0 ) // seconds; 0 is never
   KIV_ATTR( double, counterPeriod, 0 )       // seconds between two readings; 0 is never
 public:
   explicit Config( const Velto::String & name ) : Kiv::Entity( name ) {}
};

/** What became of it on one interface. */
class IntfStatus : public Kiv::Entity {
   KIV_BODY( IntfStatus, Kiv::Entity )
   KIV_ATTR( Ulnet::IntfId, lag )     // whose configuration holds here; null: the interface's own
   KIV_MAP( Level, Threshold, level ) // what was handed to the chip
   // False while the counters below are taken from other slices than before: what they were and
   // what they will be cannot be compared.
   KIV_ATTR( bool, dropsComparable, false )
   KIV_ATTR( U64, uucastDrop, 0 )
   KIV_ATTR( U64, broadcastDrop, 0 )
   KIV_ATTR( U64, multicastDrop, 0 )
   KIV_ATTR( U64, allDrop, 0 )
   KIV_ATTR( U64, uucastDropOcts, 0 )
   KIV_ATTR( U64, broadcastDropOcts, 0 )
   KIV_ATTR( U64, multicastDropOcts, 0 )
   KIV_ATTR( U64, allDropOcts, 0 )
   KIV_ATTR( U64, uucastCpuDrop, 0 )
   KIV_ATTR( U64, broadcastCpuDrop, 0 )
   KIV_ATTR( U64, multicastCpuDrop, 0 )
   KIV_ATTR( U64, allCpuDrop, 0 )
 public:
   explicit IntfStatus( const Ulnet::IntfId & intf ) : intfId_( intf ) {}
   Ulnet::IntfId intfId() const { return intfId_; }

 private:
   const Ulnet::IntfId intfId_;
};

/** What became of it for a traffic class. */
class AggregateTcStatus : public Kiv::Entity {
   KIV_BODY( AggregateTcStatus, Kiv::Entity )
   KIV_ATTR( OptionalThreshold, threshold ) // what was handed to the chip
 public:
   explicit AggregateTcStatus( U8 trafficClass ) : trafficClass_( trafficClass ) {}
   U8 trafficClass() const { return trafficClass_; }

 private:
   const U8 trafficClass_;
};

class Status : public Kiv::Entity {
   KIV_BODY( Status, Kiv::Entity )
   KIV_ENTITIES( Ulnet::IntfId, IntfStatus, intfStatus )
   KIV_ENTITIES( U8, AggregateTcStatus, aggregateTcStatus )
 public:
   explicit Status( const Velto::String & name ) : Kiv::Entity( name ) {}
};

} // namespace Bridging::StormControl
