// Link aggregation: 16 members an aggregate, at 10, 100 and 1,000 aggregates: join, leave, move, a
// whole aggregate down and up; the floor is the same change of two maps written by hand. And the
// first aggregation of 16,000 member configurations in slices.

#include <benchmark/benchmark.h>

#include <unordered_map>
#include <vector>

#include "Qon/include/lag/QonEthPhyLagConfigAggregatorSm.h"
#include "Qon/include/lag/QonLagSm.h"
#include "bench/Ratio.h"

namespace {

using Ulnet::IntfId;
using Velto::Ptr;

constexpr U32 membersOfLag = 16;

using Bench::nsOf;

IntfId
po( U32 lag ) {
   return Ulnet::PortChannelIntfId::intfId( lag + 1 );
}
IntfId
eth( U32 lag, U32 member ) {
   return Ulnet::EthIntfId::intfId( lag * membersOfLag + member + 1 );
}

/** LagSm with everything it writes: maps, device names, hardware groups. */
struct Framework {
   explicit Framework( U32 lags ) {
      acsd->initializedIs( true );
      prog = Qon::LagProgSmIs( config, status, nullptr );
      lagSm = Qon::LagSmIs( acsd, dir, names, nullptr, nullptr, prog );
      lagSm->initializedIs( true );
      for ( U32 lag = 0; lag < lags; ++lag ) {
         for ( U32 m = 0; m < membersOfLag; ++m ) {
            join( lag, eth( lag, m ) );
         }
      }
   }
   void join( U32 lag, IntfId port ) {
      dir->intfStatusIs( po( lag ) )->intfIs( port, Interface::LagMember() );
   }
   void leave( U32 lag, IntfId port ) { dir->intfStatus( po( lag ) )->intfDel( port ); }
   void down( U32 lag ) { dir->intfStatusDel( po( lag ) ); }

   Kiv::VirtualScheduler scheduler;
   Ptr< Qon::QonCommonSmData > acsd = Qon::qonCommonSmDataFactory( "acsd" );
   Ptr< Interface::EthLagIntfStatusDir > dir =
         Velto::make< Interface::EthLagIntfStatusDir >( "dir" );
   Ptr< Lag::Input::IntfDeviceNameDir > names =
         Velto::make< Lag::Input::IntfDeviceNameDir >( "names" );
   Ptr< Hardware::Lag::Config > config = Velto::make< Hardware::Lag::Config >( "config" );
   Ptr< Hardware::Lag::Status > status = Velto::make< Hardware::Lag::Status >( "status" );
   Ptr< Qon::LagProgSm > prog;
   Ptr< Qon::LagSm > lagSm;
};

/** The floor: what is published as a set of members per aggregate, two maps, and the hardware. */
struct Floor {
   struct Flags {
      bool collecting = true, distributing = true;
   };
   struct Hash {
      std::size_t operator()( IntfId id ) const { return std::hash< U64 >()( id.hash() ); }
   };
   template< class V >
   using Map = std::unordered_map< IntfId, V, Hash >;

   explicit Floor( U32 lags ) {
      for ( U32 lag = 0; lag < lags; ++lag ) {
         for ( U32 m = 0; m < membersOfLag; ++m ) {
            join( lag, eth( lag, m ) );
         }
      }
   }
   void join( U32 lag, IntfId port ) {
      status[po( lag )][port] = {};
      if ( auto former = portToLag.find( port ); former != portToLag.end() ) {
         drop( former->second, port );
      }
      lagToPort[po( lag )].emplace_back( port, Flags() );
      portToLag[port] = po( lag );
      hardware[po( lag )][port] = {};
   }
   void leave( U32 lag, IntfId port ) {
      status[po( lag )].erase( port );
      if ( auto held = portToLag.find( port );
           held != portToLag.end() && held->second == po( lag ) ) {
         drop( po( lag ), port );
         portToLag.erase( port );
      }
   }
   void drop( IntfId lag, IntfId port ) {
      hardware[lag].erase( port );
      std::erase_if( lagToPort[lag], [&]( auto & entry ) { return entry.first == port; } );
   }
   void down( U32 lag ) {
      for ( auto & entry : lagToPort[po( lag )] ) {
         portToLag.erase( entry.first );
      }
      status.erase( po( lag ) );
      lagToPort.erase( po( lag ) );
      hardware.erase( po( lag ) );
   }
   Map< Map< Flags > > status;
   Map< std::vector< std::pair< IntfId, Flags > > > lagToPort;
   Map< IntfId > portToLag;
   Map< Map< Flags > > hardware;
};

enum Work { leaveAndJoin, moveAndBack, downAndUp };

/** One round of the work at one aggregate; the next one at another. Returns the changes made. */
template< class Switch >
U32
workOn( Switch & s, Work work, U32 lags, U32 round ) {
   const U32 lag = round * 7 % lags, other = ( lag + 1 ) % lags;
   const IntfId port = eth( lag, round % membersOfLag );
   switch ( work ) {
   case leaveAndJoin:
      s.leave( lag, port );
      s.join( lag, port );
      return 2;
   case moveAndBack: // claimed by the other, then dropped and claimed again
      s.join( other, port );
      s.leave( other, port );
      s.join( lag, port );
      return 3;
   case downAndUp:
      s.down( lag );
      for ( U32 m = 0; m < membersOfLag; ++m ) {
         s.join( lag, eth( lag, m ) );
      }
      return membersOfLag + 1;
   }
   return 1;
}

template< class Switch >
double
nsPerChange( Work work, U32 lags ) {
   Switch s( lags );
   U32 round = 0;
   const U32 rounds = work == downAndUp ? 2000 : 20000;
   double best = 1e300;
   for ( U32 repeat = 0; repeat < 5; ++repeat ) {
      U32 changes = 0;
      const double ns = nsOf( [&] {
         for ( U32 n = 0; n < rounds; ++n ) {
            changes += workOn( s, work, lags, round++ );
         }
      } );
      best = std::min( best, ns / changes );
   }
   return best;
}

void
change( benchmark::State & state, Work work ) {
   const U32 lags = U32( state.range( 0 ) );
   double ours = 0, floor = 0;
   for ( auto _ : state ) {
      ours = nsPerChange< Framework >( work, lags );
      floor = nsPerChange< Floor >( work, lags );
   }
   state.counters["ns_change"] = ours;
   state.counters["floor_ns"] = floor;
   state.counters["ratio"] = ours / floor;
}

/** A real time source for the budget of a slice, and the longest turn. */
void
firstAggregation( benchmark::State & state ) {
   constexpr U32 lags = 1000;
   double total = 0, longest = 0, floor = 0;
   U32 slices = 0;
   for ( auto _ : state ) {
      Kiv::VirtualScheduler scheduler;
      auto input = Velto::make< Interface::EthLagIntfConfigDir >( "input" );
      auto output = Velto::make< Hardware::Lag::AggregatedLagConfigDir >( "output" );
      for ( U32 lag = 0; lag < lags; ++lag ) {
         for ( U32 m = 0; m < membersOfLag; ++m ) {
            input->intfConfigIs( eth( lag, m ) )->lagIs( po( lag ) );
         }
      }
      auto sm = Qon::LagConfigAggregatorSmIs( input, output, &scheduler );
      total = longest = nsOf( [&] { sm->initializedIs( true ); } );
      for ( slices = 0; !sm->scanDone(); ++slices ) {
         double slice = nsOf( [&] { scheduler.turn(); } );
         total += slice;
         longest = std::max( longest, slice );
      }
      Floor::Map< Floor::Map< int > > byHand;
      floor = nsOf( [&] {
         for ( auto && [intf, config] : input->intfConfigIteratorConst() ) {
            byHand[config->lag()][intf] = int( config->mode() );
         }
      } );
   }
   state.counters["total_us"] = total / 1000;
   state.counters["longest_slice_us"] = longest / 1000;
   state.counters["slices"] = slices;
   state.counters["floor_us"] = floor / 1000;
   state.counters["ratio"] = total / floor;
}

BENCHMARK_CAPTURE( change, leave_join, leaveAndJoin )
      ->Arg( 10 )
      ->Arg( 100 )
      ->Arg( 1000 )
      ->Iterations( 1 );
BENCHMARK_CAPTURE( change, move, moveAndBack )->Arg( 10 )->Arg( 100 )->Arg( 1000 )->Iterations( 1 );
BENCHMARK_CAPTURE( change, down_up, downAndUp )
      ->Arg( 10 )
      ->Arg( 100 )
      ->Arg( 1000 )
      ->Iterations( 1 );
BENCHMARK( firstAggregation )->Iterations( 1 );

} // namespace
