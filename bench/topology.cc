// Topologies: what the state machines and the walks cost, against plain loops that call the same
// hooks of the same chip.
//
// Each benchmark names its floor. "calls" counts port states that reached the chip, one for each
// port and VLAN, or for each port and topology where the chip has topology tables.

#include <benchmark/benchmark.h>

#include "Qon/include/topology/QonStpSm.h"
#include "Qon/include/topology/VlanTopoHelper.h"
#include "bench/Ratio.h"
#include "platform/Kiv/TaskScheduler.h"

namespace {

using Bridging::VlanId;
using Bridging::Topology::PortState;
using Ulnet::EthIntfId;
using Ulnet::IntfId;
using Velto::String;

constexpr U32 vlanCount = 4094;

/** Keeps the states of ports by topology and by VLAN, in the cheapest way that there is. */
class ArrayTopoHelper : public Qon::TopoHelper {
 public:
   U32 maxTopo() override { return 4096; }
   bool allocTopo( const String & ) override { return true; }
   void freeTopo( const String & ) override {}
   void setStpState( S32 topoId, const String &, IntfId intf, PortState state ) override {
      states[( U32( topoId ) * 1024 + intf.number( 0 ) ) % states.size()] = state;
      ++calls;
      if ( reports ) {
         setStpStateDoneTopoId( U32( topoId ) );
      }
   }
   void addVlanToTopo( const String &, U16 ) override { ++calls; }
   void delVlanFromTopo( const String &, U16 ) override { ++calls; }
   void flushTopoPort( U32, IntfId ) override {}

   bool reports = true;
   U64 calls = 0;
   std::vector< PortState > states = std::vector< PortState >( 1 << 22 );
};

/** A chip whose VLANs are written by copying the members. */
class ArrayVlanHelper : public Qon::VlanHelper {
 public:
   using VlanHelper::VlanHelper;
   void doCreateHwVlan( VlanId ) override {}
   void doUpdateVlan( VlanId vlan ) override {
      members.clear();
      forEachHwPort( vlan, [&]( IntfId port, Qon::VlanMembership ) { members.push_back( port ); } );
      ++updates;
      updateVlanDone( vlan, Qon::VlanProgrammingStatus::success );
   }
   std::vector< IntfId > members;
   U64 updates = 0;
};

class QuietStpSm : public Qon::StpSm {
 public:
   using StpSm::StpSm;
   void configureBpduTrapping( bool, bool ) override {}
};

/** Measures the turns of a scheduler as it works everything off, in processor time: the machine may
    have other things to do. */
struct Slices {
   double longest = 0; // ns

   void settle( Kiv::TaskScheduler & scheduler ) {
      while ( scheduler.nextTime() <= Kiv::now() ) {
         const double start = Bench::threadTime();
         scheduler.turn();
         longest = std::max( longest, Bench::threadTime() - start );
      }
   }
};

struct Switch {
   /** `pvst`: one topology for each VLAN; else one for all. */
   Switch( bool perVlanChip, U32 ports, bool pvst, U32 vlans = vlanCount ) : ports( ports ) {
      acsd->initializedIs( true );
      vlanHelper = Velto::make< ArrayVlanHelper >( "vlans", acsd.ptr() );
      for ( U32 vlan = 1; perVlanChip && vlan <= vlans; ++vlan ) {
         for ( U32 port = 0; port < ports; ++port ) {
            vlanHelper->requestPortVlanMembershipChange(
                  Qon::PortVlanMembershipChangeKind::setOverride, EthIntfId::intfId( port + 1 ),
                  VlanId( vlan ), true, true, true );
         }
      }
      for ( U32 vlan = 1; vlan <= vlans; ++vlan ) {
         const String name = nameOf( pvst ? vlan : 1 );
         config->topoConfigIs( name, pvst ? vlan : 1 );
         status->topoStatusIs( name, pvst ? vlan : 1 );
         config->vidToTopoMapIs( VlanId( vlan ), name );
         auto topo = config->topoConfig( name );
         for ( U32 port = 0; port < ports && topo->topoPortConfigs() < ports; ++port ) {
            topo->topoPortConfigIs( EthIntfId::intfId( port + 1 ), PortState::discarding );
         }
      }
      if ( perVlanChip ) {
         vlanTopo = Qon::VlanTopoHelperIs( vlanHelper, &scheduler );
         helper = vlanTopo;
      } else {
         helper = arrayHelper = Velto::make< ArrayTopoHelper >();
      }
   }
   static String nameOf( U32 topo ) { return "topo" + std::to_string( topo ); }
   void start() {
      stpSm = Qon::smIs< QuietStpSm >( acsd, config, status, helper );
      stpSm->initializedIs( true );
      slices.settle( scheduler );
   }
   void setAll( Bridging::Topology::TopoConfig & topo, PortState state ) {
      for ( auto && [intf, port] : topo.topoPortConfigIteratorConst() ) {
         port->stateIs( state );
      }
   }

   const U32 ports;
   Kiv::TaskScheduler scheduler;
   Velto::Ptr< Qon::QonCommonSmData > acsd = Qon::qonCommonSmDataFactory( "acsd" );
   Velto::Ptr< Bridging::Topology::Config > config =
         Velto::make< Bridging::Topology::Config >( "config" );
   Velto::Ptr< Bridging::Topology::Inst::Status > status =
         Velto::make< Bridging::Topology::Inst::Status >( "status" );
   Velto::Ptr< ArrayVlanHelper > vlanHelper;
   Velto::Ptr< ArrayTopoHelper > arrayHelper;
   Velto::Ptr< Qon::VlanTopoHelper > vlanTopo;
   Velto::Ptr< Qon::TopoHelper > helper;
   Velto::Ptr< QuietStpSm > stpSm;
   Slices slices;
};

PortState
flipped( PortState state ) {
   return state == PortState::forwarding ? PortState::discarding : PortState::forwarding;
}

void
perCall( benchmark::State & state, U64 calls ) {
   state.counters["calls"] = double( calls );
   state.counters["per_call"] =
         benchmark::Counter( double( calls ) * double( state.iterations() ),
                             benchmark::Counter::kIsRate | benchmark::Counter::kInvert );
}

/** The floor of both kinds: a virtual hook call for each port and VLAN. */
void
floorHookCalls( benchmark::State & state ) {
   const U32 ports = U32( state.range( 0 ) );
   auto helper = Velto::make< ArrayTopoHelper >();
   helper->reports = false;
   Qon::TopoHelper * hooks = helper.ptr();
   benchmark::DoNotOptimize( hooks );
   PortState port = PortState::discarding;
   for ( auto _ : state ) {
      port = flipped( port );
      for ( U32 vlan = 1; vlan <= vlanCount; ++vlan ) {
         for ( U32 i = 1; i <= ports; ++i ) {
            hooks->setStpState( S32( vlan ), "topo1", EthIntfId::intfId( i ), port );
         }
      }
   }
   perCall( state, U64( vlanCount ) * ports );
}
BENCHMARK( floorHookCalls )->Arg( 1 )->Arg( 256 )->Unit( benchmark::kMillisecond );

/** One topology of all VLANs, on a chip with topology tables: a hook call for each port. */
void
fanOutTopologyTable( benchmark::State & state ) {
   const U32 ports = U32( state.range( 0 ) );
   Switch s( false, ports, false );
   s.start();
   auto topo = s.config->topoConfig( Switch::nameOf( 1 ) );
   PortState port = PortState::discarding;
   for ( auto _ : state ) {
      port = flipped( port );
      s.setAll( *topo, port );
   }
   perCall( state, U64( vlanCount ) * ports );
   state.counters["hook_calls"] = ports;
}
BENCHMARK( fanOutTopologyTable )->Arg( 1 )->Arg( 256 )->Unit( benchmark::kMillisecond );

/** A topology for each VLAN on a chip with topology tables: request, hook call and
    acknowledgement for each port and VLAN. */
void
fanOutTopologyTablePvst( benchmark::State & state ) {
   const U32 ports = U32( state.range( 0 ) );
   Switch s( false, ports, true );
   s.start();
   PortState port = PortState::discarding;
   for ( auto _ : state ) {
      port = flipped( port );
      for ( auto && [name, topo] : s.config->topoConfigIteratorConst() ) {
         s.setAll( *topo, port );
      }
   }
   perCall( state, U64( vlanCount ) * ports );
}
BENCHMARK( fanOutTopologyTablePvst )->Arg( 1 )->Arg( 64 )->Unit( benchmark::kMillisecond );

/** One topology of all VLANs on a chip that keeps states per VLAN: the walk with its generations,
    the chip's updates and the acknowledgement. */
void
fanOutPerVlan( benchmark::State & state ) {
   const U32 ports = U32( state.range( 0 ) );
   Switch s( true, ports, false );
   s.start();
   s.slices.longest = 0;
   auto topo = s.config->topoConfig( Switch::nameOf( 1 ) );
   PortState port = PortState::discarding;
   for ( auto _ : state ) {
      port = flipped( port );
      s.setAll( *topo, port );
      s.slices.settle( s.scheduler );
   }
   perCall( state, U64( vlanCount ) * ports );
   state.counters["longest_slice_ms"] = s.slices.longest * 1e-6;
   VELTO_ASSERT( s.status->topoStatus( Switch::nameOf( 1 ) )
                       ->topoPortStatus( EthIntfId::intfId( 1 ) )
                       ->state() == port );
}
BENCHMARK( fanOutPerVlan )->Arg( 1 )->Arg( 256 )->Arg( 512 )->Unit( benchmark::kMillisecond );

/** One VLAN moves to another topology and is acknowledged. */
void
vlanMoves( benchmark::State & state ) {
   Switch s( true, U32( state.range( 0 ) ), true, 64 );
   s.start();
   U32 to = 1;
   for ( auto _ : state ) {
      to = to == 1 ? 2 : 1;
      s.config->vidToTopoMapIs( VlanId( 10 ), Switch::nameOf( to ) );
      s.slices.settle( s.scheduler );
   }
}
BENCHMARK( vlanMoves )->Arg( 64 )->Arg( 1024 )->Unit( benchmark::kMicrosecond );

/** One port state of one VLAN changes and is acknowledged. */
void
vlanChanges( benchmark::State & state ) {
   Switch s( true, U32( state.range( 0 ) ), true, 64 );
   s.start();
   auto config =
         s.config->topoConfig( Switch::nameOf( 10 ) )->topoPortConfig( EthIntfId::intfId( 5 ) );
   for ( auto _ : state ) {
      config->stateIs( flipped( config->state() ) );
      s.slices.settle( s.scheduler );
   }
}
BENCHMARK( vlanChanges )->Arg( 64 )->Arg( 1024 )->Unit( benchmark::kMicrosecond );

/** From configuration to everything acknowledged: 512 ports and 4,094 VLANs in one topology. */
void
startUp( benchmark::State & state ) {
   double longest = 0;
   for ( auto _ : state ) {
      state.PauseTiming();
      Switch s( state.range( 0 ) != 0, 512, false );
      state.ResumeTiming();
      s.start();
      longest = std::max( longest, s.slices.longest );
   }
   state.counters["longest_slice_ms"] = longest * 1e-6;
}
BENCHMARK( startUp )->ArgName( "perVlan" )->Arg( 0 )->Arg( 1 )->Unit( benchmark::kMillisecond );

} // namespace
