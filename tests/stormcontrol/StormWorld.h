#pragma once
// Ports, port-channels and storm control of either generation over a chip that notes what it is
// told.

#include "Qon/include/stormcontrol/QonStormControlDropSm.h"
#include "Qon/include/stormcontrol/QonStormControlErrdisableSm.h"
#include "Qon/include/stormcontrol/QonStormControlSm.h"
#include "Qon/include/stormcontrol/QonStormControlSmV2.h"
#include "tests/harness/World.h"

namespace StormTests {

using Bridging::StormControl::Level;
using Bridging::StormControl::OptionalThreshold;
using Bridging::StormControl::Threshold;
using Bridging::StormControl::Unit;
using Interface::EthSpeed;
using Qon::LevelType;
using Tests::intf;
using Ulnet::IntfId;
using Velto::Ptr;
using Velto::String;
using Calls = std::vector< String >;

inline IntfId
po( U32 n ) {
   return Ulnet::PortChannelIntfId::intfId( n );
}
inline IntfId
eth( U32 n ) {
   return Ulnet::EthIntfId::intfId( n );
}
inline Threshold
kbps( U64 value ) {
   return Threshold( Unit::kbps, value );
}

/** "500 kbps", or "free" for no limit. */
inline String
shown( const Threshold & t ) {
   return t == Threshold() ? "free" : Kiv::toText( t.value() ) + " " + Kiv::toText( t.unit() );
}

/** What the chip was told, in words. */
struct Notes {
   Calls calls;
   std::map< String, String > told; ///< "Ethernet1 Broadcast", "Ethernet1 cpu Broadcast"
   std::function< void( const String & call ) > during;

   void note( const String & call ) {
      calls.push_back( call );
      if ( during ) {
         during( call );
      }
   }
   void level( LevelType type, bool cpu, IntfId intf, IntfId lag, U64 speed,
               const Threshold & threshold ) {
      const String key =
            intf.stringValue() + ( cpu ? " cpu " : " " ) + Kiv::toText( type ).substr( 9 );
      const String how = shown( threshold ) + " at " + Kiv::toText( speed ) +
                         ( lag ? " of " + lag.stringValue() : "" );
      const String former = std::exchange( told[key], how );
      try {
         note( key + ": " + how );
      } catch ( ... ) {
         told[key] = former; // the chip did not take it
         throw;
      }
   }
   Calls take() { return std::exchange( calls, {} ); }
};

struct NotingHelper : Qon::StormControlSmHelper {
   NotingHelper() : StormControlSmHelper( "noting" ) {}
   void installRules() override { notes.note( "installRules" ); }
   void updateBcastSkipRule( IntfId i, bool skip ) override {
      notes.note( i.stringValue() + ( skip ? " skips" : " skips not" ) );
   }
   void programTcAggregateHwRate( U8 tc, const Threshold & t ) override {
      notes.note( "class " + std::to_string( tc ) + ": " + shown( t ) );
   }
   void setHwRate( LevelType l, IntfId i, IntfId lag, U64 s, const Threshold & t ) override {
      notes.level( l, false, i, lag, s, t );
   }
   void setCpuHwRate( LevelType l, IntfId i, IntfId lag, U64 s, const Threshold & t ) override {
      notes.level( l, true, i, lag, s, t );
   }
   void verifyEnabled( IntfId i, bool on ) override {
      notes.note( "verify " + i.stringValue() + ( on ? " on" : " off" ) );
   }
   void verifyPort( IntfId i, IntfId lag, U64 speed,
                    const Bridging::StormControl::IntfStatus & s ) override {
      notes.note( "verify " + i.stringValue() + " " + shown( s.level( Level::broadcast ) ) +
                  " at " + Kiv::toText( speed ) + ( lag ? " of " + lag.stringValue() : "" ) );
   }
   void verifyAggregateTc( U8 tc, const Bridging::StormControl::AggregateTcStatus & s ) override {
      notes.note( "verify class " + std::to_string( tc ) + " " + shown( *s.threshold() ) );
   }
   void hwInit() override { notes.note( "hwInit" ); }
   void handleEthPhyIntfLagConfig( IntfId i ) override { notes.note( i.stringValue() + " lag" ); }
   void setBurstTime( const Bridging::StormControl::BurstConfig & c ) override {
      notes.note( "burst " + std::to_string( c.burstTime() ) );
   }
   bool uucastLevelEnabled() override { return uucast; }
   bool burstEnabled() override { return burst; }

   Notes notes;
   bool uucast = false, burst = false;
};

struct NotingHelperV2 : Qon::QonStormControlSmHelperV2 {
   NotingHelperV2() : QonStormControlSmHelperV2( "noting" ) {}
   void handleAggregateTcRulesHelper( U8 tc, const Threshold & t ) override {
      notes.note( "class " + std::to_string( tc ) + ": " + shown( t ) );
   }
   void updateBcastSkipRule( IntfId i, bool skip ) override {
      notes.note( i.stringValue() + ( skip ? " skips" : " skips not" ) );
   }
   void handlePortRulesHelper( LevelType l, IntfId i, IntfId lag, U64 s,
                               const Threshold & t ) override {
      notes.level( l, false, i, lag, s, t );
   }
   void resetPortConfig( IntfId i ) override {
      std::erase_if( notes.told, [&]( auto & entry ) {
         return entry.first.starts_with( i.stringValue() + " " );
      } );
      notes.note( i.stringValue() + " reset" );
   }

   Notes notes;
};

/** What both generations stand on. */
class StormWorld : public Tests::World {
 public:
   Ptr< Bridging::StormControl::IntfConfig > of( IntfId i ) { return config->intfIs( i ); }
   void broadcast( IntfId i, U64 rate ) { of( i )->broadcastLevelIs( kbps( rate ) ); }
   void noConfig( IntfId i ) { config->intfDel( i ); }
   Ptr< Interface::EthPhyIntfStatus > phy( U32 n, EthSpeed speed = EthSpeed::speed10Gbps ) {
      auto status = phys->intfStatusIs( eth( n ) );
      status->speedIs( speed );
      return status;
   }
   /** Into a port-channel, out of the one before; 0 is none. As LagSm writes it. */
   void member( U32 port, U32 lag ) {
      const IntfId from = acsd->portToLag( eth( port ) );
      if ( from ) {
         auto list = acsd->lagToPort( from );
         list.portDel( eth( port ) );
         acsd->lagToPortIs( from, list );
      }
      if ( lag ) {
         auto list = acsd->lagToPort( po( lag ) );
         list.portIs( eth( port ), Qon::QonLagPort( true, true ) );
         acsd->lagToPortIs( po( lag ), list );
         acsd->portToLagIs( eth( port ), po( lag ) );
      } else {
         acsd->portToLagDel( eth( port ) );
      }
   }
   void managed( U32 port, bool yes ) {
      yes ? acsd->intfIs( eth( port ), true ) : acsd->intfDel( eth( port ) );
   }
   Qon::StormControlBaseSm::Inputs inputs() {
      return { config, status, phys, acsd, drops, scheduler.timerWheel() };
   }
   Ptr< Bridging::StormControl::IntfStatus > statusOf( IntfId i ) {
      return status->intfStatus( i );
   }

   Ptr< Bridging::StormControl::Config > config =
         Velto::make< Bridging::StormControl::Config >( "config" );
   Ptr< Bridging::StormControl::Status > status =
         Velto::make< Bridging::StormControl::Status >( "status" );
   Ptr< Interface::EthPhyIntfStatusDir > phys =
         Velto::make< Interface::EthPhyIntfStatusDir >( "phys" );
   Ptr< Qon::StormControl::DropStatus > drops =
         Velto::make< Qon::StormControl::DropStatus >( "drops" );
   Ptr< Qon::StormControl::DropSliceDir > slices =
         Velto::make< Qon::StormControl::DropSliceDir >( "slices" );
};

class FirstWorld : public StormWorld {
 public:
   static constexpr bool second = false;
   void start() {
      sm = Qon::StormControlSmIs( inputs(), helper, acsd->verifyData() );
      sm->initializedIs( true );
   }
   Notes & notes() { return helper->notes; }
   /** The broadcast level of a port as the chip was told last; "" is never. */
   String told( U32 port ) {
      return notes().told["Ethernet" + std::to_string( port ) + " Broadcast"];
   }
   /** Nothing is limited on the port. */
   bool free( U32 port ) { return told( port ).empty() || told( port ).starts_with( "free" ); }
   void answer( U32 ) {} // this chip is done when it returns

   Ptr< NotingHelper > helper = Velto::make< NotingHelper >();
   Ptr< Qon::StormControlSm > sm;
};

class SecondWorld : public StormWorld {
 public:
   static constexpr bool second = true;
   void start() {
      sm = Qon::QonStormControlSmV2Is( inputs(), helper, platformConfig, platformStatus );
      sm->initializedIs( true );
   }
   Notes & notes() { return helper->notes; }
   String told( U32 port ) {
      const String hook = notes().told["Ethernet" + std::to_string( port ) + " Broadcast"];
      auto platform = platformConfig->platformIntfConfig( eth( port ) );
      if ( platform ) { // says the same
         const String how = shown( platform->level( LevelType::levelTypeBroadcast ) ) + " at " +
                            Kiv::toText( platform->speed() ) +
                            ( platform->lag() ? " of " + platform->lag().stringValue() : "" );
         EXPECT_EQ( hook, how );
      }
      return platform ? hook : "";
   }
   bool free( U32 port ) { return told( port ).empty() || told( port ).starts_with( "free" ); }
   U32 version( U32 port ) {
      auto platform = platformConfig->platformIntfConfig( eth( port ) );
      return platform ? platform->versionId() : 0;
   }
   void answer( U32 port ) { answer( port, version( port ) ); }
   void answer( U32 port, U32 version ) {
      platformStatus->platformIntfStatusIs( eth( port ) )->versionIdIs( version );
   }

   Ptr< NotingHelperV2 > helper = Velto::make< NotingHelperV2 >();
   Ptr< Qon::StormControl::PlatformConfig > platformConfig =
         Velto::make< Qon::StormControl::PlatformConfig >( "platform" );
   Ptr< Qon::StormControl::PlatformStatus > platformStatus =
         Velto::make< Qon::StormControl::PlatformStatus >( "platform" );
   Ptr< Qon::QonStormControlSmV2 > sm;
};

} // namespace StormTests
