// VLAN mapping: additions, changes, removals and conflicts a key at 1,000 and 100,000 keys, against one
// owner a key kept by hand: told of the same configuration by the same entities, with one virtual call
// for each change and the same line of the log for a conflict; a port-channel of 16 members; the retry
// of a whole interface; the initial sync of the second generation.

#include <benchmark/benchmark.h>

#include "Qon/include/vlanmapping/QonVlanMappingSm.h"
#include "Qon/include/vlanmapping/QonVlanMappingSm2.h"
#include "Qon/vlanmapping/VlanMappingLog.h"
#include "bench/Ratio.h"

namespace {

using Bridging::VlanXlateKey;
using Bridging::VlanXlateMapping;
using Ulnet::IntfId;
using Velto::Ptr;
using Direction = Bridging::VlanMappingDirection;
using Status = QonTypes::TableAddStatus;
using Source = Qon::QonVlanMappingSource;

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
   void portIs( U32, const void *, const void * ) {}
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

/** Messages are made, and go nowhere. */
struct Quiet : Kiv::LogSink {
   Quiet() : former( Kiv::logSinkIs( this ) ) {}
   ~Quiet() override { Kiv::logSinkIs( former ); }
   void message( const Kiv::LogDescriptor &, const Velto::String & text ) override {
      bytes += text.size();
   }
   Kiv::LogSink * const former;
   U64 bytes = 0;
};
/** Both sources of one port are watched by hand: what they want stays in their entities, the owners
    are in one map of all ports. */
class Floor {
 public:
   using Config = Bridging::VlanXlateIntfConfig;
   void portIs( U32 port, Config * cli, Config * flow ) {
      ports_.push_back( { std::make_unique< Listener >( this, port, 0, cli ),
                          std::make_unique< Listener >( this, port, 1, flow ) } );
   }

 private:
   struct Owner {
      U8 source;
      U16 mapping;
   };
   struct Listener : Velto::Node {
      Listener( Floor * of, U32 n, U8 from, Config * c )
          : floor( of ), config( c ), port( n ), source( from ) {
         hasNotificationActiveIs( true );
         watch.attach( this, c );
      }
      void handle( const VlanXlateKey & key ) {
         const VlanXlateMapping wanted = config->ingressVlanXlate( key );
         wanted.vlanId() ? floor->wants( *this, key, wanted.vlanId() ) : floor->drops( *this, key );
      }
      Floor * const floor;
      Config * const config;
      const U32 port;
      const U8 source;
      Kiv::Watch< Config::ingressVlanXlateAttr, Listener, &Listener::handle > watch;
   };

   static U64 flat( U32 port, const VlanXlateKey & key ) {
      return U64( port ) << 32 | key.vlanId();
   }
   void wants( const Listener & from, const VlanXlateKey & key, U16 mapping ) {
      auto [owner, fresh] =
            owners_.emplace( flat( from.port, key ), Owner{ from.source, mapping } );
      if ( !fresh && owner->source != from.source ) {
         log_.conflict( { eth( from.port ), Direction::ingress, key, { mapping, 0 } },
                        Qon::shownSource( Source( from.source ) ),
                        Qon::shownSource( Source( owner->source ) ) );
         return;
      }
      owner->mapping = mapping;
      hardware_->add( flat( from.port, key ), mapping );
   }
   void drops( const Listener & from, const VlanXlateKey & key ) {
      const U64 k = flat( from.port, key );
      auto owner = owners_.find( k );
      if ( !owner || owner->source != from.source ) {
         return;
      }
      hardware_->del( k );
      const U8 other = 1 - from.source;
      if ( auto next = ports_[from.port].of[other]->config->ingressVlanXlate( key ).vlanId() ) {
         *owner = { other, next };
         hardware_->add( k, next );
      } else {
         owners_.erase( k );
      }
   }

   struct Port {
      std::unique_ptr< Listener > of[2];
   };
   std::vector< Port > ports_;
   Kiv::DenseMap< U64, Owner > owners_;
   Qon::VlanMappingLog log_{ "bench" };
   std::unique_ptr< Hardware > hardware_ = std::make_unique< QuickHardware >();
};

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

/** One world of `keys` keys; what its four steps took a key: add, change, conflict, remove. */
template< class World >
void
fourSteps( World & w, U32 keys, double * took ) {
   std::vector< Ptr< Bridging::VlanXlateIntfConfig > > cli, flow;
   for ( U32 port = 0; port <= ( keys - 1 ) / keysOfPort; ++port ) {
      cli.push_back( w.config->switchIntfConfigIs( eth( port ) ) );
      flow.push_back( w.flow->vlanXlateIntfConfigIs( eth( port ) ) );
      w.portIs( port, cli[port].ptr(), flow[port].ptr() );
   }
   auto wants = [&]( auto & source, U16 mapped ) {
      return eachKey( keys, [&]( U32 port, U32 vlan ) {
         source[port]->ingressVlanXlateIs( { U16( vlan ), 0 }, { mapped, 0 } );
      } );
   };
   took[0] += wants( cli, 100 );
   took[1] += wants( cli, 101 );
   took[2] += wants( flow, 102 );
   eachKey( keys, [&]( U32 port, U32 vlan ) {
      flow[port]->ingressVlanXlateDel( { U16( vlan ), 0 } );
   } );
   took[3] += eachKey( keys, [&]( U32 port, U32 vlan ) {
      cli[port]->ingressVlanXlateDel( { U16( vlan ), 0 } );
   } );
}

struct FloorWorld {
   void portIs( U32 port, Floor::Config * cli, Floor::Config * flow ) {
      floor.portIs( port, cli, flow );
   }
   Ptr< Bridging::Config > config = entity< Bridging::Config >();
   Ptr< Qon::QonFlowVlanXlateConfigDir > flow = entity< Qon::QonFlowVlanXlateConfigDir >();
   Floor floor;
};

double
bytesAKey( U32 keys ) {
   World w;
   std::vector< Ptr< Bridging::VlanXlateIntfConfig > > cli;
   for ( U32 port = 0; port <= ( keys - 1 ) / keysOfPort; ++port ) {
      cli.push_back( w.config->switchIntfConfigIs( eth( port ) ) );
   }
   const U64 before = Bench::bytesInUse();
   eachKey( keys, [&]( U32 port, U32 vlan ) {
      cli[port]->ingressVlanXlateIs( { U16( vlan ), 0 }, { 100, 0 } );
   } );
   return double( Bench::bytesInUse() - before ) / keys;
}

void
perKey( benchmark::State & state ) {
   const U32 keys = U32( state.range( 0 ) );
   const double runs = 5;
   double ours[4] = {}, floors[4] = {};
   Quiet quiet;
   for ( auto _ : state ) {
      for ( U32 run = 0; run < runs; ++run ) {
         World w;
         fourSteps( w, keys, ours );
         FloorWorld f;
         fourSteps( f, keys, floors );
      }
   }
   const char * names[] = { "add", "change", "conflict", "remove" };
   for ( U32 n = 0; n < 4; ++n ) {
      state.counters[Velto::String( names[n] ) + "_ns"] = ours[n] / runs;
      state.counters[Velto::String( names[n] ) + "_ratio"] = ours[n] / floors[n];
   }
   state.counters["bytes_a_key"] = bytesAKey( keys );
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
