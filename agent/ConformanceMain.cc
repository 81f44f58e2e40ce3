// qon-conformance: the conformance kit over the chip in software.

#include <cstdlib>
#include <cstring>
#include <memory>

#include "agent/softchip/Chip.h"
#include "conformance/Conformance.h"

namespace {

using namespace QonConformance;
using Ulnet::IntfId;

constexpr U32 portCount = 64;

struct Settings {
   bool perVlan = false;          ///< a chip without topology tables
   Kiv::Seconds latency = 0.0025; ///< of topologies, VLANs and groups
};

SoftChip::Shape
shapeOf( const Settings & settings ) {
   SoftChip::Shape shape;
   shape.kind = settings.perVlan ? SoftChip::ChipKind::vlan : SoftChip::ChipKind::topology;
   shape.hosts = { 256, 4, 256, 20e-6 };
   shape.topologies = 64;
   shape.lags = { 32, 16 };
   shape.latency = settings.latency;
   return shape;
}

std::map< Qon::MacEntryKey, IntfId >
hosts( const SoftChip::Chip & chip ) {
   std::map< Qon::MacEntryKey, IntfId > held;
   const auto hosts = chip.of< SoftChip::MacPart >().hosts();
   for ( auto & [key, host] : *hosts ) {
      held[key] = host.intf;
   }
   return held;
}

std::map< String, HeldTopology >
topologies( const SoftChip::Chip & chip ) {
   std::map< String, HeldTopology > held;
   const auto topologies = chip.of< SoftChip::TopologyPart >().topologies();
   for ( auto & [name, topology] : *topologies ) {
      held[name] = { topology.vlans, topology.ports };
   }
   return held;
}

std::map< IntfId, std::set< IntfId > >
lags( const SoftChip::Chip & chip ) {
   std::map< IntfId, std::set< IntfId > > held;
   const auto groups = chip.of< SoftChip::LagPart >().groups();
   for ( auto & [lag, group] : *groups ) {
      for ( auto & [port, member] : group ) {
         held[lag].insert( port );
      }
   }
   return held;
}

ChipAdapter
softChip( const Bench & bench, const Settings & settings ) {
   auto soft = std::make_shared< SoftChip::Chip >( bench.scheduler, shapeOf( settings ) );
   ChipAdapter chip;
   chip.makeMacProgrammer = [=] { return soft->of< SoftChip::MacPart >().makeProgrammer(); };
   if ( !settings.perVlan ) {
      chip.makeTopoHelper = [=] { return soft->of< SoftChip::TopologyPart >().makeTopoHelper(); };
      chip.topologies = [=] { return topologies( *soft ); };
   }
   chip.makeVlanHelper = [=, acsd = bench.acsd] {
      return soft->of< SoftChip::VlanPart >().makeVlanHelper( acsd );
   };
   chip.makeLagProgrammer = [=, config = bench.lagConfig, status = bench.lagStatus] {
      return soft->of< SoftChip::LagPart >().makeProgrammer( config, status );
   };
   chip.hosts = [=] { return hosts( *soft ); };
   chip.vlans = [=] { return *soft->of< SoftChip::VlanPart >().vlans(); };
   chip.lags = [=] { return lags( *soft ); };
   for ( U32 n = 1; n <= portCount; ++n ) {
      chip.ports.push_back( Ulnet::EthIntfId::intfId( n ) );
   }
   chip.hostsToFill = soft->of< SoftChip::MacPart >().hostsToFill();
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
