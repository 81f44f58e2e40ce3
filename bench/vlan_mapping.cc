// VLAN mapping: additions, changes, removals and conflicts a key at 1,000 and 100,000 keys, against
// the same two wishes and one owner a key kept by hand, with one virtual call for each; a port-channel
// of 16 members; the retry of a whole interface; the initial sync of the second generation.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include "Qon/include/vlanmapping/QonVlanMappingSm.h"
#include "Qon/include/vlanmapping/QonVlanMappingSm2.h"
#include "bench/Ratio.h"

namespace {

using Bridging::VlanXlateKey;
using Bridging::VlanXlateMapping;
using Ulnet::IntfId;
using Velto::Ptr;
using Direction = Bridging::VlanMappingDirection;
using Status = QonTypes::TableAddStatus;

constexpr U32 keysOfPort = 1000;

IntfId
eth( U32 n ) {
   return Ulnet::EthIntfId::intfId( n + 1 );
}
const IntfId lag = Ulnet::PortChannelIntfId::intfId( 1 );

template< class T >
Ptr< T >
entity() {
   return Velto::make< T >( "e" );
}

/** A chip that takes everything, or nothing yet. */
struct QuickSm : Qon::VlanMappingSm {
   using VlanMappingSm::VlanMappingSm;
   Status doAddIngressVlanMapping( IntfId, bool, const Qon::PortVlanKey &,
                                   const Mapping & ) override {
      ++calls;
      return answer;
   }
   void doDelIngressVlanMapping( IntfId, bool, const Qon::PortVlanKey & ) override { ++calls; }
   Status doUpdateIngressVlanMapping( IntfId, bool, const Qon::PortVlanKey &,
                                      const Mapping & ) override {
      ++calls;
      return answer;
   }
   U64 calls = 0;
   Status answer = Status::success;
};

struct World {
   World() {
      acsd->initializedIs( true );
      sm = Qon::smIs< QuickSm >( Qon::VlanMappingSm::Inputs{
            acsd, config, flow, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr } );
      sm->initializedIs( true );
   }
   void member( U32 port ) {
      Qon::QonLagPortList list = acsd->lagToPort( lag );
      list.portIs( eth( port ), { true, true } );
      acsd->lagToPortIs( lag, list );
      acsd->portToLagIs( eth( port ), lag );
   }
   Kiv::VirtualScheduler scheduler;
   Ptr< Qon::QonCommonSmData > acsd = Qon::qonCommonSmDataFactory( "acsd" );
   Ptr< Bridging::Config > config = entity< Bridging::Config >();
   Ptr< Qon::QonFlowVlanXlateConfigDir > flow = entity< Qon::QonFlowVlanXlateConfigDir >();
   Ptr< QuickSm > sm;
};

/** The floor. */
class Hardware {
 public:
   virtual ~Hardware() = default;
   virtual Status add( U64 key, U32 mapping ) = 0;
   virtual void del( U64 key ) = 0;
};
class QuickHardware : public Hardware {
 public:
   Status add( U64, U32 ) override { return ++calls, Status::success; }
   void del( U64 ) override { ++calls; }
   U64 calls = 0;
};

struct Floor {
   struct Owner {
      U8 source;
      U32 mapping;
   };
   static U64 key( U32 port, U32 vlan ) { return U64( port ) << 32 | vlan; }
   void wants( U32 source, U64 k, U32 mapping ) {
      *wishes[source].emplace( k ).first = mapping;
      auto [owner, fresh] = owners.emplace( k, Owner{ U8( source ), mapping } );
      if ( !fresh && owner->source != source ) {
         ++conflicts;
         return;
      }
      owner->mapping = mapping;
      hardware->add( k, mapping );
   }
   void drops( U32 source, U64 k ) {
      wishes[source].erase( k );
      auto owner = owners.find( k );
      if ( !owner || owner->source != source ) {
         return;
      }
      hardware->del( k );
      if ( auto next = wishes[1 - source].find( k ) ) {
         *owner = { U8( 1 - source ), *next };
         hardware->add( k, *next );
      } else {
         owners.erase( k );
      }
   }
   Kiv::DenseMap< U64, U32 > wishes[2];
   Kiv::DenseMap< U64, Owner > owners;
   U64 conflicts = 0;
   std::unique_ptr< Hardware > hardware = std::make_unique< QuickHardware >();
};

std::size_t
inUse() {
   return mallinfo2().uordblks;
}

/** Every key once, in an order that is not that of the tables. */
template< class Act >
double
eachKey( U32 keys, Act && act ) {
   return Bench::nsOf( [&] {
             for ( U32 i = 0; i < keys; ++i ) {
                const U32 n = U32( U64( i ) * 7919 % keys );
                act( n / keysOfPort, n % keysOfPort + 1 );
             }
          } ) /
          keys;
}

void
perKey( benchmark::State & state ) {
   const U32 keys = U32( state.range( 0 ) );
   const double runs = 5;
   double ours[4] = {}, floors[4] = {};
   double bytes = 0;
   for ( auto _ : state ) {
      for ( U32 run = 0; run < runs; ++run ) {
         World w;
         Floor f;
         for ( U32 port = 0; port <= ( keys - 1 ) / keysOfPort; ++port ) {
            w.config->switchIntfConfigIs( eth( port ) );
            w.flow->vlanXlateIntfConfigIs( eth( port ) );
         }
         const std::size_t before = inUse();
         auto cli = [&]( U32 port, U32 vlan, U32 mapped ) {
            w.config->switchIntfConfig( eth( port ) )
                  ->ingressVlanXlateIs( { U16( vlan ), 0 }, { U16( mapped ), 0 } );
         };
         ours[0] += eachKey( keys, [&]( U32 port, U32 vlan ) { cli( port, vlan, 100 ); } );
         bytes = double( inUse() - before ) / keys;
         floors[0] += eachKey(
               keys, [&]( U32 port, U32 vlan ) { f.wants( 0, Floor::key( port, vlan ), 100 ); } );
         ours[1] += eachKey( keys, [&]( U32 port, U32 vlan ) { cli( port, vlan, 101 ); } );
         floors[1] += eachKey(
               keys, [&]( U32 port, U32 vlan ) { f.wants( 0, Floor::key( port, vlan ), 101 ); } );
         ours[2] += eachKey( keys, [&]( U32 port, U32 vlan ) {
            w.flow->vlanXlateIntfConfig( eth( port ) )
                  ->ingressVlanXlateIs( { U16( vlan ), 0 }, { 102, 0 } );
         } );
         floors[2] += eachKey(
               keys, [&]( U32 port, U32 vlan ) { f.wants( 1, Floor::key( port, vlan ), 102 ); } );
         for ( U32 port = 0; port <= ( keys - 1 ) / keysOfPort; ++port ) {
            w.flow->vlanXlateIntfConfigDel( eth( port ) );
         }
         eachKey( keys,
                  [&]( U32 port, U32 vlan ) { f.wishes[1].erase( Floor::key( port, vlan ) ); } );
         ours[3] += eachKey( keys, [&]( U32 port, U32 vlan ) {
            w.config->switchIntfConfig( eth( port ) )->ingressVlanXlateDel( { U16( vlan ), 0 } );
         } );
         floors[3] += eachKey(
               keys, [&]( U32 port, U32 vlan ) { f.drops( 0, Floor::key( port, vlan ) ); } );
      }
   }
   const char * names[] = { "add", "change", "conflict", "remove" };
   for ( U32 n = 0; n < 4; ++n ) {
      state.counters[Velto::String( names[n] ) + "_ns"] = ours[n] / runs;
      state.counters[Velto::String( names[n] ) + "_ratio"] = ours[n] / floors[n];
   }
   state.counters["bytes_a_key"] = bytes;
}
BENCHMARK( perKey )->Arg( 1000 )->Arg( 100000 )->Iterations( 1 );

/** 4,094 keys on a port-channel, 16 members that join one by one, then one that leaves. */
void
portChannel( benchmark::State & state ) {
   World w;
   const auto config = w.config->switchIntfConfigIs( lag );
   for ( U32 vlan = 1; vlan <= 4094; ++vlan ) {
      config->ingressVlanXlateIs( { U16( vlan ), 0 }, { 1, 0 } );
   }
   double join = 0, leave = 0, worst = 0;
   for ( auto _ : state ) {
      for ( U32 port = 0; port < 16; ++port ) {
         const double ns = Bench::nsOf( [&] { w.member( port ); } );
         join += ns;
         worst = std::max( worst, ns );
      }
      leave = Bench::nsOf( [&] { w.acsd->portToLagDel( eth( 3 ) ); } );
   }
   state.counters["join_ns_a_key"] = join / 16 / 4094;
   state.counters["leave_ns_a_key"] = leave / 4094;
   state.counters["worst_join_ms"] = worst / 1e6;
   state.counters["calls"] = double( w.sm->calls );
}
BENCHMARK( portChannel )->Iterations( 1 );

/** An interface of 4,094 keys, none of which could be programmed at first. */
void
retry( benchmark::State & state ) {
   World w;
   w.sm->answer = Status::notNow;
   const auto config = w.config->switchIntfConfigIs( eth( 0 ) );
   for ( U32 vlan = 1; vlan <= 4094; ++vlan ) {
      config->ingressVlanXlateIs( { U16( vlan ), 0 }, { 1, 0 } );
   }
   w.sm->answer = Status::success;
   double ns = 0;
   for ( auto _ : state ) {
      ns = Bench::nsOf( [&] { w.scheduler.runFor( 5 ); } );
   }
   state.counters["ns_a_key"] = ns / 4094;
   state.counters["ms"] = ns / 1e6;
}
BENCHMARK( retry )->Iterations( 1 );

/** 100,000 keys of 100 ports, from their configuration to the ports; the longest turn. */
void
initialSync( benchmark::State & state ) {
   World w;
   w.sm = nullptr;
   for ( U32 n = 0; n < 100000; ++n ) {
      w.config->switchIntfConfigIs( eth( n / keysOfPort ) )
            ->ingressVlanXlateIs( { U16( n % keysOfPort + 1 ), 0 }, { 100, 0 } );
   }
   auto output = [] { return entity< Qon::VlanMappingOutputState >(); };
   const auto platform = entity< Qon::PlatformVlanMappingConfig >();
   Kiv::VirtualScheduler & scheduler = w.scheduler;
   scheduler.budgetIs( { 1e9, 2000, 16 } ); // virtual time stands still: slices by number
   const auto sm = Qon::VlanMapping::VlanMappingSm2Is(
         { w.acsd, w.config, w.flow, entity< Qon::ProgrammedPortToLag >(),
           entity< Qon::PlatformVlanMappingStatus >(), entity< Qon::SourceVlanMappingConfigDir >(),
           entity< Qon::SourceVlanMappingStatusDir >(), entity< Qon::MergedVlanMappingConfig >(),
           platform, entity< Qon::PortChannelInterlockDir >(), output(), output(), output(),
           &scheduler } );
   double total = 0, longest = 0;
   for ( auto _ : state ) {
      longest = total = Bench::nsOf( [&] { sm->initializedIs( true ); } );
      while ( scheduler.nextTime() <= scheduler.time() ) {
         const double ns = Bench::nsOf( [&] { scheduler.turn(); } );
         longest = std::max( longest, ns );
         total += ns;
      }
   }
   U32 programmed = 0;
   for ( auto && [port, held] : platform->intfVlanMappingConfigIteratorConst() ) {
      programmed += held->vlanMappingConfigs();
   }
   state.counters["keys"] = programmed;
   state.counters["ns_a_key"] = total / 100000;
   state.counters["longest_ms"] = longest / 1e6;
}
BENCHMARK( initialSync )->Iterations( 1 );

} // namespace
