// Storm control: one level changed at 64 and 1,024 ports, the speed of a port, a port-channel of 16
// members, the counter tick of 1,024 interfaces over 4 slices, drop logging of 1,024 interfaces. The
// floor is the same work written by hand over maps, with the same virtual calls.

#include <benchmark/benchmark.h>

#include <array>
#include <map>
#include <optional>
#include <unordered_map>
#include <vector>

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

/** Ports 0 to 15 are members of a port-channel, where `lag` says so. */
struct Framework {
   Framework( U32 ports, bool second, bool lag = false ) {
      acsd->initializedIs( true );
      for ( U32 n = 0; n < ports; ++n ) {
         phys->intfStatusIs( port( n ) )->speedIs( Interface::EthSpeed::speed10Gbps );
         config->intfIs( port( n ) )->broadcastLevelIs( Threshold( Unit::kbps, 100 ) );
      }
      for ( U32 n = 0; lag && n < members; ++n ) {
         acsd->portToLagIs( port( n ), po );
      }
      config->intfIs( po )->broadcastLevelIs( Threshold( Unit::kbps, 1 ) );
      dropSm = Qon::StormControlDropSmIs(
            { config, status, dir, drops, acsd, scheduler.timerWheel() } );
      dropSm->initializedIs( true );
      Qon::StormControlBaseSm::Inputs inputs = { config, status, phys,
                                                 acsd,   drops,  scheduler.timerWheel() };
      if ( second ) {
         v2 = Qon::QonStormControlSmV2Is(
               inputs, helperV2, Velto::make< Qon::StormControl::PlatformConfig >( "config" ),
               Velto::make< Qon::StormControl::PlatformStatus >( "status" ) );
         v2->initializedIs( true );
      } else {
         sm = Qon::StormControlSmIs( inputs, helper );
         sm->initializedIs( true );
      }
   }
   void report( U32 ports, U64 count ) {
      Drops now( count, count, count, count, count, count, count, count, count, count, count,
                 count );
      for ( U32 s = 0; s < slices; ++s ) {
         auto slice = dir->sliceIs( "Slice" + Kiv::toText( s ) );
         for ( U32 n = 0; n < ports; ++n ) {
            slice->intfStatusIs( port( n ) )->dropsIs( now );
         }
      }
   }

   const IntfId po = Ulnet::PortChannelIntfId::intfId( 1 );
   Kiv::VirtualScheduler scheduler;
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
   Ptr< First > helper = Velto::make< First >();
   Ptr< Second > helperV2 = Velto::make< Second >();
   Ptr< Qon::StormControlDropSm > dropSm;
   Ptr< Qon::StormControlSm > sm;
   Ptr< Qon::QonStormControlSmV2 > v2;
};

/** By hand: what is configured, whose it is, what was told last; a status of what was told. */
struct Floor {
   struct Hash {
      std::size_t operator()( IntfId id ) const { return std::hash< U64 >()( id.hash() ); }
   };
   template< class V >
   using Map = std::unordered_map< IntfId, V, Hash >;
   struct Told {
      Threshold threshold;
      U64 speed = 0;
      IntfId lag;
      bool operator==( const Told & ) const = default;
   };
   using Levels = std::array< std::optional< Threshold >, 8 >;

   Floor( U32 ports, bool inLag = false ) {
      for ( U32 n = 0; n < ports; ++n ) {
         speed[port( n )] = 10'000'000;
         config[port( n )][2] = Threshold( Unit::kbps, 100 );
         if ( inLag && n < members ) {
            lagOf[port( n )] = po;
            portsOf[po].push_back( port( n ) );
         }
         program( port( n ) );
      }
   }
   void level( IntfId intf, U32 level, U64 rate ) {
      config[intf][level] = Threshold( Unit::kbps, rate );
      if ( auto list = portsOf.find( intf ); list != portsOf.end() ) {
         for ( IntfId member : list->second ) {
            program( member );
         }
      } else {
         program( intf );
      }
   }
   void program( IntfId intf ) {
      auto lag = lagOf.find( intf );
      const IntfId owner = lag == lagOf.end() ? intf : lag->second;
      auto wanted = config.find( owner );
      if ( wanted == config.end() ) {
         return;
      }
      const U64 kbps = speed[intf];
      auto & before = told[intf];
      auto & shown = status[intf];
      for ( U32 n = 0; n < 8; ++n ) {
         const Told now = { wanted->second[n].value_or( Threshold() ), kbps,
                            owner == intf ? IntfId() : owner };
         if ( !( before[n] == now ) ) {
            helper->setHwRate( LevelType( 1 + n / 2 ), intf, now.lag, now.speed, now.threshold );
            before[n] = now;
            shown[n] = now.threshold;
         }
      }
   }
   /** Sums of all slices, then the copy. */
   void tick( U32 ports, U64 count ) {
      for ( U32 s = 0; s < slices; ++s ) {
         for ( U32 n = 0; n < ports; ++n ) {
            auto & last = seen[s][port( n )];
            auto & sum = sums[port( n )];
            for ( U32 c = 0; c < 12; ++c ) {
               sum[c] += count - last[c];
               last[c] = count;
            }
         }
      }
      for ( auto & [intf, sum] : sums ) {
         counters[intf] = sum;
      }
   }

   const IntfId po = Ulnet::PortChannelIntfId::intfId( 1 );
   Ptr< First > helper = Velto::make< First >();
   Map< U64 > speed;
   Map< IntfId > lagOf;
   Map< std::vector< IntfId > > portsOf;
   Map< Levels > config;
   Map< std::array< Told, 8 > > told;
   Map< std::array< Threshold, 8 > > status;
   std::array< Map< std::array< U64, 12 > >, slices > seen;
   Map< std::array< U64, 12 > > sums, counters;
};

void
oneLevel( benchmark::State & state ) {
   const U32 ports = U32( state.range( 0 ) );
   Framework first( ports, false ), second( ports, true );
   Floor floor( ports );
   U32 n = 0;
   U64 rate = 1000;
   auto change = [&]( Framework & f ) {
      f.config->intf( port( ++n % ports ) )->broadcastLevelIs( Threshold( Unit::kbps, ++rate ) );
   };
   for ( auto _ : state ) {
      change( first );
   }
   const double byHand =
         Bench::nsPerCall( [&] { floor.level( port( ++n % ports ), 2, ++rate ); }, 200'000 );
   state.counters["ns_first"] = Bench::nsPerCall( [&] { change( first ); }, 200'000 );
   state.counters["ns_second"] = Bench::nsPerCall( [&] { change( second ); }, 200'000 );
   state.counters["ns_by_hand"] = byHand;
   state.counters["to_by_hand"] = state.counters["ns_first"] / byHand;
}
BENCHMARK( oneLevel )->Arg( 64 )->Arg( 1024 );

void
speedOfAPort( benchmark::State & state ) {
   Framework first( 1024, false );
   Floor floor( 1024 );
   U32 n = 0;
   auto change = [&] {
      ++n;
      const bool fast = n / 1024 % 2;
      first.phys->intfStatus( port( n % 1024 ) )
            ->speedIs( fast ? Interface::EthSpeed::speed10Gbps : Interface::EthSpeed::speed25Gbps );
   };
   for ( auto _ : state ) {
      change();
   }
   const double byHand = Bench::nsPerCall(
         [&] {
            const IntfId intf = port( ++n % 1024 );
            floor.speed[intf] = n / 1024 % 2 ? 10'000'000 : 25'000'000;
            floor.program( intf );
         },
         100'000 );
   state.counters["ns_first"] = Bench::nsPerCall( change, 100'000 );
   state.counters["ns_by_hand"] = byHand;
   state.counters["to_by_hand"] = state.counters["ns_first"] / byHand;
}
BENCHMARK( speedOfAPort );

void
portChannel( benchmark::State & state ) {
   Framework first( 1024, false, true );
   Floor floor( 1024, true );
   U64 rate = 1000;
   auto change = [&] {
      first.config->intf( first.po )->broadcastLevelIs( Threshold( Unit::kbps, ++rate ) );
   };
   for ( auto _ : state ) {
      change();
   }
   const double byHand = Bench::nsPerCall( [&] { floor.level( floor.po, 2, ++rate ); }, 20'000 );
   state.counters["ns_first"] = Bench::nsPerCall( change, 20'000 );
   state.counters["ns_by_hand"] = byHand;
   state.counters["to_by_hand"] = state.counters["ns_first"] / byHand;
}
BENCHMARK( portChannel );

/** The slices' counters, then the clocks of all interfaces. */
void
counterTick( benchmark::State & state ) {
   constexpr U32 ports = 1024;
   Framework first( ports, false );
   Floor floor( ports );
   first.report( ports, 1 );
   first.config->counterPeriodIs( 1 );
   U64 count = 1;
   double reports = 1e300, ticks = 1e300, byHand = 1e300;
   for ( auto _ : state ) {
      ++count;
      reports = std::min( reports, Bench::nsOf( [&] { first.report( ports, count ); } ) );
      ticks = std::min( ticks, Bench::nsOf( [&] { first.scheduler.runFor( 1 ); } ) );
      byHand = std::min( byHand, Bench::nsOf( [&] { floor.tick( ports, count ); } ) );
   }
   benchmark::DoNotOptimize( floor.counters );
   state.counters["us_reports"] = reports / 1000;
   state.counters["us_tick"] = ticks / 1000;
   state.counters["us_by_hand"] = byHand / 1000;
   state.counters["to_by_hand"] = ( reports + ticks ) / byHand;
}
BENCHMARK( counterTick )->Iterations( 200 );

struct Quiet : Kiv::LogSink {
   void message( const Kiv::LogDescriptor &, const Velto::String & text ) override {
      length += text.size();
   }
   U64 length = 0;
};

void
dropLogging( benchmark::State & state ) {
   constexpr U32 ports = 1024;
   Framework first( ports, false );
   first.report( ports, 1 );
   first.config->dropLoggingIs( true );
   Quiet quiet;
   auto former = Kiv::logSinkIs( &quiet );
   double best = 1e300, byHand = 1e300;
   std::map< IntfId, Drops > all;
   for ( auto && [intf, entry] : first.drops->allIntfStatusIteratorConst() ) {
      all[intf] = entry.drops();
   }
   for ( auto _ : state ) {
      best = std::min( best, Bench::nsOf( [&] { first.dropSm->handleDropLogging(); } ) );
      byHand = std::min( byHand, Bench::nsOf( [&] {
                            for ( auto & [intf, drops] : all ) {
                               char text[256];
                               quiet.length += U64( std::snprintf(
                                     text, sizeof text, "%s: %llu %llu %llu %llu",
                                     intf.stringValue().c_str(),
                                     static_cast< unsigned long long >( drops.uucastDrop() ),
                                     static_cast< unsigned long long >( drops.broadcastDrop() ),
                                     static_cast< unsigned long long >( drops.multicastDrop() ),
                                     static_cast< unsigned long long >( drops.allDrop() ) ) );
                            }
                         } ) );
   }
   Kiv::logSinkIs( former );
   benchmark::DoNotOptimize( quiet.length );
   state.counters["us"] = best / 1000;
   state.counters["us_by_hand"] = byHand / 1000;
   state.counters["to_by_hand"] = best / byHand;
}
BENCHMARK( dropLogging )->Iterations( 100 );

} // namespace
