// qon-conformance: the conformance kit over the chip in software.

#include <cstdlib>
#include <cstring>
#include <memory>

#include "agent/softchip/LagTable.h"
#include "agent/softchip/SoftMacProgrammer.h"
#include "agent/softchip/TopoTable.h"
#include "agent/softchip/VlanTable.h"
#include "conformance/Conformance.h"

namespace {

using namespace QonConformance;
using Ulnet::IntfId;

constexpr U32 maxTopo = 64;
constexpr U32 portCount = 64;
constexpr U32 vlanCount = 4094;
const SoftChip::HostTableShape hostShape{ 256, 4, 256, 20e-6 };
const SoftChip::LagTable::Limits lagLimits{ 32, 16 };

struct Settings {
   bool perVlan = false;          ///< a chip without topology tables
   Kiv::Seconds latency = 0.0025; ///< of topologies, VLANs and groups
};

/** The parts of one chip, as they are made; the kit's. */
struct Parts {
   SoftChip::FaultPlan plan;
   SoftChip::SoftMacProgrammer * mac = nullptr;
   SoftChip::SoftTopoHelper * topo = nullptr;
   SoftChip::SoftVlanHelper * vlan = nullptr;
   SoftChip::LagTable * lag = nullptr;
};

IntfId
port( U32 n ) {
   return Ulnet::EthIntfId::intfId( n + 1 );
}

std::map< Qon::MacEntryKey, IntfId >
hosts( const Parts & parts ) {
   std::map< Qon::MacEntryKey, IntfId > held;
   for ( auto && [key, entry] : parts.mac->table().entries() ) {
      held[key] = entry.intf;
   }
   return held;
}

std::map< String, HeldTopology >
topologies( const Parts & parts ) {
   std::map< String, HeldTopology > held;
   for ( auto & name : parts.topo->topologies() ) {
      for ( U32 n = 0; n < portCount; ++n ) {
         auto state = parts.topo->state( name, port( n ) );
         if ( state != Bridging::Topology::PortState::disabled ) {
            held[name].ports[port( n )] = state;
         }
      }
      held[name];
   }
   for ( U32 vlan = 1; vlan <= vlanCount; ++vlan ) {
      auto & name = parts.topo->topoOf( U16( vlan ) );
      if ( auto topo = held.find( name ); topo != held.end() ) {
         topo->second.vlans.insert( U16( vlan ) );
      }
   }
   return held;
}

std::map< U16, ChipAdapter::Ports >
vlans( const Parts & parts ) {
   std::map< U16, ChipAdapter::Ports > held;
   for ( auto vlan : parts.vlan->vlans() ) {
      for ( auto & port : parts.vlan->ports( vlan ) ) {
         held[vlan][port.intf] = port.how;
      }
   }
   return held;
}

std::map< IntfId, std::set< IntfId > >
lags( const Parts & parts ) {
   std::map< IntfId, std::set< IntfId > > held;
   for ( U32 n = 1; n <= portCount; ++n ) {
      auto lag = Ulnet::PortChannelIntfId::intfId( n );
      for ( U32 p = 0; p < portCount; ++p ) {
         if ( parts.lag->member( lag, port( p ) ) ) {
            held[lag].insert( port( p ) );
         }
      }
   }
   return held;
}

/** Reads back from a part that exists at the time. */
template< class T, class Held >
auto
readBack( std::shared_ptr< Parts > parts, T * Parts::*part, Held held ) {
   return [=] { return ( *parts ).*part ? held( *parts ) : decltype( held( *parts ) )(); };
}

ChipAdapter
softChip( const Bench & bench, const Settings & settings ) {
   auto parts = std::make_shared< Parts >();
   auto wheel = bench.scheduler.timerWheel();
   ChipAdapter chip;
   chip.makeMacProgrammer = [=] {
      auto mac = SoftChip::SoftMacProgrammerIs( wheel, hostShape, parts->plan );
      parts->mac = mac.ptr();
      return mac;
   };
   if ( !settings.perVlan ) {
      chip.makeTopoHelper = [=] {
         auto topo = Velto::make< SoftChip::SoftTopoHelper >( maxTopo, parts->plan );
         topo->completions().latencyIs( settings.latency );
         parts->topo = topo.ptr();
         return topo;
      };
   }
   chip.makeVlanHelper = [=, acsd = bench.acsd] {
      auto vlan = Velto::make< SoftChip::SoftVlanHelper >( "chip", acsd.ptr(), parts->plan );
      vlan->completions().latencyIs( settings.latency );
      vlan->verifyDataIs( acsd->verifyData() );
      parts->vlan = vlan.ptr();
      return vlan;
   };
   chip.makeLagProgrammer = [=] {
      auto lag = SoftChip::LagTableIs( bench.lagConfig, bench.lagStatus, parts->plan, lagLimits );
      lag->latencyIs( settings.latency );
      lag->initializedIs( true );
      parts->lag = lag.ptr();
      return lag;
   };
   chip.tablesInHooks = true;
   chip.hosts = readBack( parts, &Parts::mac, hosts );
   if ( !settings.perVlan ) {
      chip.topologies = readBack( parts, &Parts::topo, topologies );
   }
   chip.vlans = readBack( parts, &Parts::vlan, vlans );
   chip.lags = readBack( parts, &Parts::lag, lags );
   for ( U32 n = 0; n < portCount; ++n ) {
      chip.ports.push_back( port( n ) );
   }
   chip.hostsToFill = 4 * hostShape.buckets * hostShape.width;
   return chip;
}

} // namespace

/** Takes --per-vlan and --latency SECONDS; what remains is the kit's. */
int
main( int argc, char ** argv ) {
   std::vector< const char * > rest;
   Settings settings;
   for ( int n = 0; n < argc; ++n ) {
      if ( !std::strcmp( argv[n], "--per-vlan" ) ) {
         settings.perVlan = true;
      } else if ( !std::strcmp( argv[n], "--latency" ) && n + 1 < argc ) {
         settings.latency = std::strtod( argv[++n], nullptr );
      } else {
         rest.push_back( argv[n] );
      }
   }
   return conformanceMain( int( rest.size() ), rest.data(),
                           [&]( const Bench & bench ) { return softChip( bench, settings ); } );
}
