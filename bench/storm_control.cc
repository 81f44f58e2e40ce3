// Storm control: one level changed at 64 and 1,024 ports, the speed of a port, a port-channel of 16
// members, the counter tick of 1,024 interfaces over 4 slices, drop logging of 1,024 interfaces.
//
// The floor is the same work written by hand: the same rows of configuration read and of status
// written, the same virtual calls, the same messages through the same log; what it remembers stands in
// dense maps. It is told what has changed, where the framework watches for it, and it does nothing
// but this: no questions in a queue, nothing to undo, no other event.

#include <benchmark/benchmark.h>

#include <array>
#include <vector>

#include "Qon/include/framework/QonLog.h"
#include "Qon/include/stormcontrol/QonStormControlDropSm.h"
#include "Qon/include/stormcontrol/QonStormControlSm.h"
#include "Qon/include/stormcontrol/QonStormControlSmV2.h"
#include "bench/Ratio.h"
#include "platform/Kiv/Log.h"
#include "platform/Kiv/TaskScheduler.h"

namespace {

using Bridging::StormControl::Drops;
using Bridging::StormControl::Threshold;
using Bridging::StormControl::Unit;
using Qon::LevelType;
using Ulnet::IntfId;
using Velto::Ptr;

constexpr U32 slices = 4;
constexpr U32 members = 16;

IntfId
port( U32 n ) {
   return Ulnet::EthIntfId::intfId( n + 1 );
}

struct First : Qon::StormControlSmHelper {
   First() : StormControlSmHelper( "bench" ) {}
   void installRules() override {}
   void updateBcastSkipRule( IntfId, bool ) override {}
   void setHwRate( LevelType, IntfId, IntfId, U64, const Threshold & t ) override {
      calls += t.value();
   }
   void setCpuHwRate( LevelType, IntfId, IntfId, U64, const Threshold & t ) override {
      calls += t.value();
   }
   void hwInit() override {}
   void handleEthPhyIntfLagConfig( IntfId ) override {}
   bool uucastLevelEnabled() override { return true; }
   bool burstEnabled() override { return false; }
   U64 calls = 0;
};

struct Second : Qon::QonStormControlSmHelperV2 {
   Second() : QonStormControlSmHelperV2( "bench" ) {}
   void updateBcastSkipRule( IntfId, bool ) override {}
   void handlePortRulesHelper( LevelType, IntfId, IntfId, U64, const Threshold & t ) override {
      calls += t.value();
   }
   void resetPortConfig( IntfId ) override {}
   U64 calls = 0;
};

/** What both work on: the tables that an operator, the chip and other agents write, and those in which
    they read what became of it. Ports 0 to 15 are members of a port-channel, where `lag` says so. */
struct Switch {
   Switch( U32 ports, bool lag ) {
      acsd->initializedIs( true );
      for ( U32 n = 0; n < ports; ++n ) {
         phys->intfStatusIs( port( n ) )->speedIs( Interface::EthSpeed::speed10Gbps );
         config->intfIs( port( n ) )->broadcastLevelIs( Threshold( Unit::kbps, 100 ) );
      }
      for ( U32 n = 0; lag && n < members; ++n ) {
         acsd->portToLagIs( port( n ), po );
      }
      config->intfIs( po )->broadcastLevelIs( Threshold( Unit::kbps, 1 ) );
   }
   void levelIs( IntfId intf, U64 rate ) {
      config->intf( intf )->broadcastLevelIs( Threshold( Unit::kbps, rate ) );
   }
   /** Every slice counts so many of everything. */
   void report( U32 ports, U64 n ) {
      const Drops now( n, n, n, n, n, n, n, n, n, n, n, n );
      for ( U32 s = 0; s < slices; ++s ) {
         auto slice = dir->sliceIs( "Slice" + Kiv::toText( s ) );
         for ( U32 at = 0; at < ports; ++at ) {
            slice->intfStatusIs( port( at ) )->dropsIs( now );
         }
      }
   }

   const IntfId po = Ulnet::PortChannelIntfId::intfId( 1 );
   Kiv::VirtualScheduler scheduler; // the latest one tells the time
   Ptr< Qon::QonCommonSmData > acsd = Qon::qonCommonSmDataFactory( "acsd" );
   Ptr< Bridging::StormControl::Config > config =
         Velto::make< Bridging::StormControl::Config >( "config" );
   Ptr< Bridging::StormControl::Status > status =
         Velto::make< Bridging::StormControl::Status >( "status" );
   Ptr< Interface::EthPhyIntfStatusDir > phys =
         Velto::make< Interface::EthPhyIntfStatusDir >( "phys" );
   Ptr< Qon::StormControl::DropSliceDir > dir =
         Velto::make< Qon::StormControl::DropSliceDir >( "slices" );
   Ptr< Qon::StormControl::DropStatus > drops =
         Velto::make< Qon::StormControl::DropStatus >( "drops" );
   Ptr< Qon::StormControl::PlatformConfig > platform =
         Velto::make< Qon::StormControl::PlatformConfig >( "config" );
   Ptr< First > helper = Velto::make< First >();
   Ptr< Second > helperV2 = Velto::make< Second >();
};

struct Framework : Switch {
   Framework( U32 ports, bool second, bool lag = false ) : Switch( ports, lag ) {
      dropSm = Qon::StormControlDropSmIs(
            { config, status, dir, drops, acsd, scheduler.timerWheel() } );
      dropSm->initializedIs( true );
      Qon::StormControlBaseSm::Inputs inputs = { config, status, phys,
                                                 acsd,   drops,  scheduler.timerWheel() };
      if ( second ) {
         v2 = Qon::QonStormControlSmV2Is(
               inputs, helperV2, platform,
               Velto::make< Qon::StormControl::PlatformStatus >( "status" ) );
         v2->initializedIs( true );
      } else {
         sm = Qon::StormControlSmIs( inputs, helper );
         sm->initializedIs( true );
      }
   }
   Ptr< Qon::StormControlDropSm > dropSm;
   Ptr< Qon::StormControlSm > sm;
   Ptr< Qon::QonStormControlSmV2 > v2;
};

/** By hand: told what has changed, it looks at whose configuration holds and compares that with what the
    chip was told last. It writes the same rows as the framework and makes the same calls. */
struct Floor : Switch {
   struct Told {
      Threshold threshold;
      U64 speed = 0;
      IntfId lag;
      bool operator==( const Told & ) const = default;
   };

   Floor( U32 ports, bool second, bool lag = false )
       : Switch( ports, lag ), second( second ), hooks( helper.ptr() ), hooksV2( helperV2.ptr() ) {
      for ( U32 n = 0; n < ports; ++n ) {
         if ( lag && n < members ) {
            portsOf.emplace( po ).first->push_back( port( n ) );
         }
         program( port( n ) );
      }
   }
   void changed( IntfId intf ) {
      if ( auto list = portsOf.find( intf ) ) {
         for ( IntfId member : *list ) {
            hooks->handleEthPhyIntfLagConfig( member );
            program( member );
         }
      } else {
         program( intf );
      }
   }
   void program( IntfId intf ) {
      const IntfId lag = acsd->portToLag( intf );
      auto wanted = config->intf( lag ? lag : intf );
      auto phy = phys->intfStatus( intf );
      if ( !wanted || !phy || !phy->active() ||
           phy->forwardingModel() != Interface::ForwardingModel::bridged ) {
         return;
      }
      const U64 kbps = Interface::EthSpeedApi::speedKbps( phy->speed() );
      auto & before = *told.emplace( intf ).first;
      second ? programV2( intf, *wanted, lag, kbps, before )
             : programV1( intf, *wanted, lag, kbps, before );
   }
   using AllTold = std::array< Told, Bridging::StormControl::levels >;
   void programV1( IntfId intf, const Bridging::StormControl::IntfConfig & wanted, IntfId lag,
                   U64 kbps, AllTold & before ) {
      auto shown = status->intfStatusIs( intf );
      for ( auto & kind : Qon::StormControl::levelKinds ) {
         const Told now = { Qon::StormControl::thresholdOf( wanted, kind ), kbps, lag };
         if ( before[U8( kind.level )] == now ) {
            continue;
         }
         kind.cpu ? hooks->setCpuHwRate( kind.type, intf, lag, kbps, now.threshold )
                  : hooks->setHwRate( kind.type, intf, lag, kbps, now.threshold );
         before[U8( kind.level )] = now;
         shown->levelIs( kind.level, now.threshold );
      }
      shown->lagIs( lag );
   }
   /** A version of the whole first, then the calls. */
   void programV2( IntfId intf, const Bridging::StormControl::IntfConfig & wanted, IntfId lag,
                   U64 kbps, AllTold & before ) {
      auto row = platform->platformIntfConfigIs( intf );
      row->lagIs( lag );
      row->speedIs( kbps );
      for ( auto & kind : Qon::StormControl::levelKinds ) {
         if ( !kind.cpu ) {
            row->levelIs( kind.type, Qon::StormControl::thresholdOf( wanted, kind ) );
         }
      }
      row->versionIdIs( ++version );
      for ( auto & kind : Qon::StormControl::levelKinds ) {
         const Told now = { Qon::StormControl::thresholdOf( wanted, kind ), kbps, lag };
         if ( !kind.cpu && !( before[U8( kind.level )] == now ) ) {
            hooksV2->handlePortRulesHelper( kind.type, intf, lag, kbps, now.threshold );
            before[U8( kind.level )] = now;
         }
      }
   }
   /** A slice has counted: its part of the sum is exchanged. */
   void counted( U32 slice, IntfId intf, const Drops & now ) {
      Drops & last = *seen[slice].emplace( intf ).first;
      const auto & sum = drops->allIntfStatus( intf ).drops();
      const Drops next = Qon::StormControl::plus( sum, Qon::StormControl::minus( now, last ) );
      last = now;
      drops->allIntfStatusIs( intf, Qon::StormControl::AllDrops( next, 1 ) );
   }
   void reportAll( U32 ports, U64 n ) {
      const Drops now( n, n, n, n, n, n, n, n, n, n, n, n );
      for ( U32 s = 0; s < slices; ++s ) {
         auto slice = dir->sliceIs( "Slice" + Kiv::toText( s ) );
         for ( U32 at = 0; at < ports; ++at ) {
            slice->intfStatusIs( port( at ) )->dropsIs( now );
            counted( s, port( at ), now );
         }
      }
   }
   /** The counters of every status. */
   void tick() {
      for ( auto && [intf, shown] : status->intfStatusIteratorConst() ) {
         const Drops & now = drops->allIntfStatus( intf ).drops();
#define COPY( name ) shown->name##Is( now.name() );
         STORM_CONTROL_DROPS( COPY )
#undef COPY
      }
   }

   const bool second;
   Qon::StormControlSmHelper * const hooks;
   Qon::QonStormControlSmHelperV2 * const hooksV2;
   U32 version = 0;
   Kiv::DenseMap< IntfId, std::vector< IntfId > > portsOf;
   Kiv::DenseMap< IntfId, AllTold > told;
   std::array< Kiv::DenseMap< IntfId, Drops >, slices > seen;
};

/** Short rounds, many of them: the best is one in which the caches were the program's own. */
template< class F >
double
best( F && f ) {
   return Bench::nsPerCall( f, 2048, 100 );
}

void
oneLevel( benchmark::State & state ) {
   const U32 ports = U32( state.range( 0 ) );
   Framework first( ports, false ), second( ports, true );
   Floor floor( ports, false ), floorV2( ports, true );
   U32 n = 0;
   U64 rate = 1000;
   auto change = [&]( Switch & at ) { at.levelIs( port( ++n % ports ), ++rate ); };
   auto byHand = [&]( Floor & at ) {
      const IntfId intf = port( ++n % ports );
      at.levelIs( intf, ++rate );
      at.changed( intf );
   };
   for ( auto _ : state ) {
      change( first );
   }
   const double floor1 = best( [&] { byHand( floor ); } );
   const double floor2 = best( [&] { byHand( floorV2 ); } );
   state.counters["ns_first"] = best( [&] { change( first ); } );
   state.counters["ns_second"] = best( [&] { change( second ); } );
   state.counters["ns_by_hand"] = floor1;
   state.counters["ns_second_by_hand"] = floor2;
   state.counters["to_by_hand"] = state.counters["ns_first"] / floor1;
   state.counters["second_to_by_hand"] = state.counters["ns_second"] / floor2;
}
BENCHMARK( oneLevel )->Arg( 64 )->Arg( 1024 );

void
speedOfAPort( benchmark::State & state ) {
   Framework first( 1024, false );
   Floor floor( 1024, false );
   U32 n = 0;
   auto change = [&]( Switch & at ) {
      const IntfId intf = port( ++n % 1024 );
      const bool fast = n / 1024 % 2;
      at.phys->intfStatus( intf )->speedIs( fast ? Interface::EthSpeed::speed10Gbps
                                                 : Interface::EthSpeed::speed25Gbps );
      return intf;
   };
   for ( auto _ : state ) {
      change( first );
   }
   const double byHand = best( [&] { floor.program( change( floor ) ); } );
   state.counters["ns_first"] = best( [&] { change( first ); } );
   state.counters["ns_by_hand"] = byHand;
   state.counters["to_by_hand"] = state.counters["ns_first"] / byHand;
}
BENCHMARK( speedOfAPort );

void
portChannel( benchmark::State & state ) {
   Framework first( 1024, false, true );
   Floor floor( 1024, false, true );
   U64 rate = 1000;
   auto change = [&] { first.levelIs( first.po, ++rate ); };
   for ( auto _ : state ) {
      change();
   }
   const double byHand = best( [&] {
      floor.levelIs( floor.po, ++rate );
      floor.changed( floor.po );
   } );
   state.counters["ns_first"] = best( change );
   state.counters["ns_by_hand"] = byHand;
   state.counters["to_by_hand"] = state.counters["ns_first"] / byHand;
}
BENCHMARK( portChannel );

/** The slices' counters, then the clocks of all interfaces. */
void
counterTick( benchmark::State & state ) {
   constexpr U32 ports = 1024;
   Floor floor( ports, false );
   Framework first( ports, false );
   first.report( ports, 1 );
   first.config->counterPeriodIs( 1 );
   U64 count = 1;
   double reports = 1e300, ticks = 1e300, reportsByHand = 1e300, ticksByHand = 1e300;
   for ( auto _ : state ) {
      ++count;
      reports = std::min( reports, Bench::nsOf( [&] { first.report( ports, count ); } ) );
      ticks = std::min( ticks, Bench::nsOf( [&] { first.scheduler.runFor( 1 ); } ) );
      reportsByHand =
            std::min( reportsByHand, Bench::nsOf( [&] { floor.reportAll( ports, count ); } ) );
      ticksByHand = std::min( ticksByHand, Bench::nsOf( [&] { floor.tick(); } ) );
   }
   state.counters["us_reports"] = reports / 1000;
   state.counters["us_tick"] = ticks / 1000;
   state.counters["us_reports_by_hand"] = reportsByHand / 1000;
   state.counters["us_tick_by_hand"] = ticksByHand / 1000;
   state.counters["to_by_hand"] = ( reports + ticks ) / ( reportsByHand + ticksByHand );
}
BENCHMARK( counterTick )->Iterations( 200 );

struct Quiet : Kiv::LogSink {
   void message( const Kiv::LogDescriptor &, const Velto::String & text ) override {
      length += text.size();
   }
   U64 length = 0;
};

/** In ascending order, what has dropped something. */
void
logAll( const Qon::StormControl::DropStatus & of, Kiv::LogHandle & discards ) {
   std::vector< std::pair< IntfId, const Drops * > > all;
   for ( auto && [intf, entry] : of.allIntfStatusIteratorConst() ) {
      all.push_back( { intf, &entry.drops() } );
   }
   std::sort( all.begin(), all.end() );
   for ( auto & [intf, drops] : all ) {
      const U64 uucast = drops->uucastDrop(), broadcast = drops->broadcastDrop(),
                multicast = drops->multicastDrop(), every = drops->allDrop();
      if ( ( uucast || broadcast || multicast || every ) && discards.okToLog() ) {
         Kiv::log( discards, intf, uucast, broadcast, multicast, every );
      }
   }
}

void
dropLogging( benchmark::State & state ) {
   constexpr U32 ports = 1024;
   Framework first( ports, false );
   first.report( ports, 1 );
   first.config->dropLoggingIs( true );
   Quiet quiet;
   auto former = Kiv::logSinkIs( &quiet );
   Kiv::LogHandle discards( Qon::QonLog::ETH_STORMCONTROL_DISCARDS, 0, 1.0, 0, 0, "by hand" );
   double best = 1e300, byHand = 1e300;
   for ( auto _ : state ) {
      best = std::min( best, Bench::nsOf( [&] { first.dropSm->handleDropLogging(); } ) );
      byHand = std::min( byHand, Bench::nsOf( [&] { logAll( *first.drops, discards ); } ) );
   }
   Kiv::logSinkIs( former );
   benchmark::DoNotOptimize( quiet.length );
   state.counters["us"] = best / 1000;
   state.counters["us_by_hand"] = byHand / 1000;
   state.counters["to_by_hand"] = best / byHand;
}
BENCHMARK( dropLogging )->Iterations( 100 );

} // namespace
