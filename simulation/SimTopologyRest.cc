// What a topology's configuration asks of the chip, and whether it has it at rest.

#include <algorithm>

#include "Qon/include/framework/LagView.h"
#include "Qon/include/topology/VlanTopoHelper.h"
#include "simulation/SimMode.h"
#include "simulation/SimTopology.h"
#include "simulation/World.h"

namespace Sim {

using Bridging::Topology::TopoPortConfig;
using Ulnet::IntfId;

// What is wanted

bool
SimTopology::tapAgg() const {
   return world_.acsd->operationalMode() == Qon::HwOperationalMode::tapAgg;
}

bool
SimTopology::inTapOrTool( IntfId intf ) const {
   auto tapAggConfig = world_.acsd->tapAggHwConfig();
   return tapAgg() && tapAggConfig &&
          ( tapAggConfig->tapIntf( intf ) || tapAggConfig->toolIntf( intf ) );
}

bool
SimTopology::live( const String & topo ) const {
   auto wanted = config_->topoConfig( topo );
   auto have = status_->topoStatus( topo );
   return wanted && have && wanted->topoId() == have->topoId();
}

IntfId
SimTopology::lagOf( IntfId port ) const {
   return Qon::LagView( world_.acsd.ptr() ).lagOf( port );
}

bool
SimTopology::emptied( IntfId intf ) const {
   return hadMembers_.contains( intf ) && world_.acsd->lagToPort( intf ).ports() == 0;
}

std::vector< IntfId >
SimTopology::targets( IntfId intf ) const {
   auto members = Qon::LagView( world_.acsd.ptr() ).membersOf( intf );
   return members.empty() ? std::vector< IntfId >{ intf } : members;
}

String
SimTopology::topoOf( Bridging::VlanId vlan ) const {
   String named = config_->vidToTopoMap( vlan );
   if ( !named.empty() ) {
      return live( named ) ? named : "";
   }
   return tapAgg() ? world_.acsd->tapAggHwConfig()->tapAggTopoName() : "";
}

std::optional< SimTopology::PortState >
SimTopology::wantedInChip( const String & topo, IntfId port ) const {
   IntfId lag = lagOf( port );
   IntfId decides = lag ? lag : port;
   auto config = config_->topoConfig( topo );
   auto portConfig = config ? config->topoPortConfig( decides ) : nullptr;
   if ( !live( topo ) || !portConfig || inTapOrTool( decides ) ) {
      return std::nullopt;
   }
   return portConfig->state();
}

std::optional< bool >
SimTopology::forwards( Bridging::VlanId vlan, IntfId port ) const {
   String topo = topoOf( vlan );
   if ( live( topo ) ) {
      auto state = wantedInChip( topo, port );
      return state ? std::optional( *state == PortState::forwarding ) : std::nullopt;
   }
   if ( tapAgg() ) {
      IntfId lag = lagOf( port );
      return !topo.empty() && inTapOrTool( lag ? lag : port ) ? std::optional( true )
                                                              : std::nullopt;
   }
   return left_.contains( vlan ) ? std::optional( false ) : std::nullopt;
}

std::optional< bool >
SimTopology::passes( Bridging::VlanId vlan, IntfId port ) const {
   const String topo = topoOf( vlan );
   if ( !heard_.contains( vlan ) ) {
      return true;
   }
   return topo.empty() || roomFor( topo ) ? forwards( vlan, port ) : std::optional( false );
}

SoftChip::BpduTrapping
SimTopology::wantedTrapping() const {
   const bool trap = !tapAgg();
   return { trap && config_->bpduTrapEnabled(), trap && config_->pvstBpduTrapEnabled() };
}

/** Whether the chip has what is acknowledged. */
String
SimTopology::checkChip( const String & topo, IntfId port, PortState state ) const {
   String name = topo + ", " + port.stringValue();
   if ( emptied( port ) ) {
      return {};
   }
   if ( table_ ) {
      return table_->state( topo, port ) == state ? "" : name;
   }
   auto vlan = world_.feature< SimVlan >();
   if ( !vlan || state == PortState::forwarding || vlan->recircSinceRest() ) {
      return {};
   }
   for ( U32 i = 0; i < world_.size( Range::vlan ); ++i ) {
      Bridging::VlanId id = world_.vlan( i );
      if ( vlanTopo_[id] == topo && !vlan->gone( id ) && !vlan->takenOut( id, port ) &&
           vlan->inChip( id, port ) ) {
         return name + " forwards in VLAN " + id.stringValue();
      }
   }
   return {};
}

// At rest

String
SimTopology::checkInvariants() const {
   // With all VLANs in the tap-aggregation topology a full check takes long.
   ++sinceCheck_;
   if ( !dirty_ || ( tapAgg() && sinceCheck_ < 16 ) ) {
      return {};
   }
   dirty_ = false;
   sinceCheck_ = 0;
   if ( perVlan_ && ++walks_ % 2 == 0 ) {
      if ( String wrong = perVlan_->checkInvariants(); !wrong.empty() ) {
         return "own invariant: " + wrong;
      }
   }
   String wrong = stpSm_->checkInvariants();
   if ( !wrong.empty() ) {
      return "own invariant: " + wrong;
   }
   return trapping_ == wantedTrapping() ? "" : "BPDU trapping: not as configured";
}

/** What has no room in the chip's table waits for it. */
bool
SimTopology::roomFor( const String & topo ) const {
   if ( !table_ ) {
      return true;
   }
   auto held = table_->topologies();
   return std::find( held.begin(), held.end(), topo ) != held.end();
}

String
SimTopology::checkPort( const String & name, IntfId intf, const TopoPortConfig & config ) const {
   auto status = status_->topoStatus( name )->topoPortStatus( intf );
   String which = name + ", " + intf.stringValue();
   if ( !status ) {
      return "no status: " + which;
   }
   if ( !roomFor( name ) && !inTapOrTool( intf ) && !lagOf( intf ) ) {
      return {};
   }
   auto state = inTapOrTool( intf ) ? PortState::forwarding : config.state();
   if ( status->state() != state || !( status->changeInfo() == config.changeInfo() ) ) {
      return "not acknowledged: " + which;
   }
   if ( !inTapOrTool( intf ) && status->fdbFlushReport() != config.fdbFlush() ) {
      return "flush not reported: " + which;
   }
   return {};
}

/** Members of aggregates too, whether or not they are configured themselves. */
String
SimTopology::checkStates( const String & name ) const {
   for ( U32 i = 0; table_ && roomFor( name ) && i < world_.size( Range::intf ); ++i ) {
      IntfId intf = world_.intf( i );
      auto wanted = wantedInChip( name, intf );
      if ( wanted && targets( intf )[0] == intf && !emptied( intf ) &&
           table_->state( name, intf ) != *wanted ) {
         return "state in the chip differs: " + name + ", " + intf.stringValue();
      }
   }
   return {};
}

String
SimTopology::checkTopo( const String & name ) const {
   if ( live( name ) != allocated_.contains( name ) ) {
      return "topology in the chip: " + name;
   }
   if ( !live( name ) ) {
      return {};
   }
   auto config = config_->topoConfig( name );
   for ( auto && [intf, port] : config->topoPortConfigIteratorConst() ) {
      if ( String wrong = checkPort( name, intf, *port ); !wrong.empty() ) {
         return wrong;
      }
   }
   if ( String wrong = checkStates( name ); !wrong.empty() ) {
      return wrong;
   }
   return status_->topoStatus( name )->topoPortStatuss() == config->topoPortConfigs()
                ? ""
                : "status of a port that is not configured: " + name;
}

String
SimTopology::checkVlan( Bridging::VlanId vlan ) const {
   const String & have = vlanTopo_[vlan];
   return have == topoOf( vlan ) ? ""
                                 : "VLAN " + vlan.stringValue() + " in the wrong topology: \"" +
                                         have + "\" instead of \"" + topoOf( vlan ) + "\"";
}

String
SimTopology::checkAtRest() const {
   for ( U32 i = 0; i < world_.size( Range::topo ); ++i ) {
      if ( String wrong = checkTopo( world_.topo( i ) ); !wrong.empty() ) {
         return wrong;
      }
   }
   for ( U32 i = 0; i < world_.size( Range::vlan ); ++i ) {
      if ( String wrong = checkVlan( world_.vlan( i ) ); !wrong.empty() ) {
         return wrong;
      }
   }
   if ( perVlan_ && perVlan_->remainingWorkUnits() ) {
      return "work left: topologies to walk";
   }
   return checkTables();
}

String
SimTopology::checkTables() const {
   for ( auto && [name, pending] : stpSm_->pendingStpStateTopoIteratorConst() ) {
      if ( roomFor( name ) && pending->pendingIntfStates() ) {
         return "waits for ever: " + name;
      }
   }
   for ( U32 i = 0; table_ && tapAgg() && i < world_.size( Range::intf ); ++i ) {
      IntfId intf = world_.intf( i );
      String name = world_.acsd->tapAggHwConfig()->tapAggTopoName();
      for ( IntfId target : targets( intf ) ) {
         if ( roomFor( name ) && inTapOrTool( intf ) && !lagOf( intf ) && !emptied( target ) &&
              table_->state( name, target ) != PortState::forwarding ) {
            return "tap or tool port does not forward: " + target.stringValue();
         }
      }
   }
   return {};
}

void
SimTopology::tearDown() {
   nested_ = 0;
   config_->vidToTopoMapDelAll();
   config_->topoConfigDelAll();
}

String
SimTopology::checkTornDown() const {
   return allocated_.empty() && std::count( vlanTopo_.begin(), vlanTopo_.end(), "" ) == 4095 &&
                      stpSm_->topoSms() == 0 && stpSm_->pendingStpStateTopos() == 0 &&
                      stpSm_->topoToVlanMaps() == 0
                ? ""
                : "left over: topologies or VLANs without configuration";
}

} // namespace Sim
