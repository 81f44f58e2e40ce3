#include "simulation/SimTopology.h"

#include <algorithm>

#include "Qon/include/framework/LagView.h"
#include "Qon/include/topology/VlanTopoHelper.h"
#include "simulation/SimMode.h"
#include "simulation/World.h"

namespace Sim {

using Bridging::Topology::TopoPortConfig;
using Ulnet::IntfId;

namespace {

/** A helper of a chip that tells the simulation of every call. */
template< class Chip >
class Recorder : public Chip {
 public:
   using PortState = Bridging::Topology::PortState;

   template< class... Args >
   explicit Recorder( SimTopology * sim, Args &&... args )
       : Chip( std::forward< Args >( args )... ), sim_( sim ) {}

   bool allocTopo( const String & topo ) override {
      bool room = Chip::allocTopo( topo );
      sim_->allocHeard( topo, room );
      return room;
   }
   void freeTopo( const String & topo ) override {
      sim_->freeHeard( topo );
      Chip::freeTopo( topo );
   }
   void setStpState( S32 topoId, const String & topo, IntfId intf, PortState state ) override {
      sim_->stateHeard( topo, intf );
      Chip::setStpState( topoId, topo, intf, state );
   }
   void addVlanToTopo( const String & topo, U16 vlan ) override {
      sim_->vlanHeard( topo, vlan, true );
      Chip::addVlanToTopo( topo, vlan );
   }
   void delVlanFromTopo( const String & topo, U16 vlan ) override {
      sim_->vlanHeard( topo, vlan, false );
      Chip::delVlanFromTopo( topo, vlan );
   }
   void flushTopoPort( U32, IntfId ) override {}
   void flushTopoPortVlan( const Qon::MappedVlan &, IntfId ) override {}

 private:
   SimTopology * sim_;
};

} // namespace

std::span< const Operation >
SimTopology::operations() {
   static const Operation table[] = {
         { "config", 8, { Range::topo, Range::few }, &SimTopology::configIs },
         { "no-config", 2, { Range::topo }, &SimTopology::configDel },
         { "status", 8, { Range::topo, Range::few }, &SimTopology::statusIs },
         { "no-status", 2, { Range::topo }, &SimTopology::statusDel },
         { "recreate", 2, { Range::topo }, &SimTopology::recreate },
         { "port", 50, { Range::topo, Range::intf, Range::few }, &SimTopology::portIs },
         { "no-port", 10, { Range::topo, Range::intf }, &SimTopology::portDel },
         { "burst", 3, { Range::topo, Range::few }, &SimTopology::burst },
         { "info", 5, { Range::topo, Range::intf }, &SimTopology::infoIs },
         { "flush", 6, { Range::topo, Range::intf }, &SimTopology::flush },
         { "map", 15, { Range::vlan, Range::topo }, &SimTopology::map },
         { "unmap", 6, { Range::vlan }, &SimTopology::unmap },
         { "finish", 20, { Range::few }, &SimTopology::finish },
         { "mode", 3, { Range::few }, &SimTopology::modeIs },
         { "spurious", 2, { Range::few }, &SimTopology::answerUnasked },
         { "nested", 2, { Range::few }, &SimTopology::nestedIs },
         { "restart", 1, { Range::few }, &SimTopology::restart },
   };
   return table;
}

SimTopology::SimTopology( World & world )
    : SimFeature( world ), config_( Velto::make< Bridging::Topology::Config >( "config" ) ),
      status_( Velto::make< Bridging::Topology::Inst::Status >( "status" ) ) {
   Rng rng = world.chance( 40 );
   rng.next(); // see shape()
   pvst_ = !world.perVlan() && rng.percent( 30 );
}

SimTopology::~SimTopology() = default;

void
SimTopology::shape( const World & world, SoftChip::Shape & shape ) {
   shape.topologies = world.chance( 40 ).percent( 80 ) ? 64 : 2;
}

void
SimTopology::makeHelper( bool emptyChip ) {
   auto & part = world_.chip->of< SoftChip::TopologyPart >();
   Velto::Ptr< Qon::TopoHelper > helper;
   if ( !part.tables() ) {
      auto vlan = world_.feature< SimVlan >();
      perVlan_ = Velto::make< Recorder< Qon::VlanTopoHelper > >(
            this, vlan ? vlan->helper() : nullptr, &world_.scheduler, 10u, "vlanTopo" );
      perVlan_->hasNotificationActiveIs( true );
      helper = perVlan_;
   } else {
      if ( emptyChip ) {
         part.reset();
      }
      table_ = &part.table();
      helper = Velto::make< Recorder< SoftChip::SoftTopoHelper > >( this, *table_ );
   }
   helper->pvstIs( pvst_ );
   allocated_.clear();
   vlanTopo_.assign( 4095, "" );
   heard_.clear();
   latencyIs( mode_ );
   stpSm_ = Qon::smIs< Stp >( this, world_.acsd, helper );
}

void
SimTopology::start() {
   groups_.attach( world_.acsd.ptr(), [this]( const IntfId & lag ) {
      if ( world_.acsd->lagToPort( lag ).ports() ) {
         hadMembers_.insert( lag );
      }
   } );
   makeHelper( !std::exchange( keepsChip_, false ) );
   stpSm_->initializedIs( true );
}

void
SimTopology::stop() {
   stpSm_->doCleanup();
   stpSm_ = nullptr;
   perVlan_ = nullptr;
   table_ = nullptr;
}

/** What was under way is lost, so the chip is reset then. */
void
SimTopology::kill( Ending ending ) {
   stpSm_ = nullptr;
   perVlan_ = nullptr;
   left_.clear();
   nested_ = 0;
   dirty_ = true;
   keepsChip_ = ending != Ending::midway;
}

void
SimTopology::held( Holdings & held ) const {
   for ( auto & topo : table_ ? table_->topologies() : std::vector< String >() ) {
      table_->forEachPort( topo, [&]( IntfId intf, PortState state ) {
         held["topology " + topo + ", " + intf.stringValue()] = Kiv::toText( state );
      } );
   }
   for ( U32 i = 0; table_ && i < world_.size( Range::vlan ); ++i ) {
      const U16 vlan = world_.vlan( i );
      held["topology of VLAN " + std::to_string( vlan )] = table_->topoOf( vlan );
   }
}

/** Down and up again: the same objects, or new ones with a chip that knows nothing. */
void
SimTopology::restart( const Event & event ) {
   left_.clear();
   if ( event[0] % 2 ) {
      stpSm_->doCleanup();
      if ( !allocated_.empty() || ( table_ && !table_->topologies().empty() ) ) {
         world_.report( "topology", "clean-up: a topology is left in the chip" );
      }
      vlanTopo_.assign( 4095, "" );
      stpSm_->initializedIs( true );
      return;
   }
   stpSm_ = nullptr;
   start();
}

bool
SimTopology::ready() {
   dirty_ = true;
   return true;
}

// Configuration

void
SimTopology::configIs( const Event & event ) {
   String name = world_.topo( event[0] );
   config_->topoConfigIs( name )->topoIdIs( ownId( name, event[1] ) );
}

void
SimTopology::configDel( const Event & event ) {
   config_->topoConfigDel( world_.topo( event[0] ) );
}

void
SimTopology::statusDel( const Event & event ) {
   status_->topoStatusDel( world_.topo( event[0] ) );
}

void
SimTopology::portIs( const Event & event ) {
   setPort( world_.topo( event[0] ), world_.intf( event[1] ), event[2] );
}

void
SimTopology::portDel( const Event & event ) {
   if ( auto topo = config_->topoConfig( world_.topo( event[0] ) ) ) {
      topo->topoPortConfigDel( world_.intf( event[1] ) );
   }
}

void
SimTopology::burst( const Event & event ) {
   for ( U32 i = 0; i < world_.size( Range::intf ); ++i ) {
      setPort( world_.topo( event[0] ), world_.intf( i ), event[1] + i % 2 );
   }
}

void
SimTopology::infoIs( const Event & event ) {
   if ( auto port = portConfig( event ) ) {
      port->changeInfoIs( Bridging::Topology::TopoPortChangeInfo( ++changes_, 1.0 ) );
   }
}

void
SimTopology::flush( const Event & event ) {
   if ( auto port = portConfig( event ) ) {
      port->fdbFlushIs( port->fdbFlush() + 1 );
   }
}

void
SimTopology::map( const Event & event ) {
   vlanIs( world_.vlan( event[0] ), world_.topo( event[1] ) );
}

void
SimTopology::unmap( const Event & event ) {
   vlanIs( world_.vlan( event[0] ), "" );
}

void
SimTopology::nestedIs( const Event & event ) {
   nested_ = event[0];
}

/** Ids are a topology's own: two for each, so that they can differ and change. */
U32
SimTopology::ownId( const String & name, U32 id ) const {
   return 10 + 2 * U32( name.back() - '0' ) + ( id == 7 );
}

TopoPortConfig *
SimTopology::portConfig( const Event & event ) const {
   auto topo = config_->topoConfig( world_.topo( event[0] ) );
   return topo ? topo->topoPortConfig( world_.intf( event[1] ) ) : nullptr;
}

void
SimTopology::statusIs( const Event & event ) {
   String name = world_.topo( event[0] );
   if ( !status_->topoStatusHas( name ) ) {
      status_->topoStatusIs( name );
      topoListeners_[name].attach(
            status_->topoStatus( name ),
            [this, name]( const IntfId & intf ) { portStatusHeard( name, intf ); } );
   }
   status_->topoStatus( name )->topoIdIs( ownId( name, event[1] ) );
}

/** Gone and back, with the same ports, before anything else happens. */
void
SimTopology::recreate( const Event & event ) {
   String name = world_.topo( event[0] );
   auto topo = config_->topoConfig( name );
   if ( !topo ) {
      return;
   }
   U32 id = topo->topoId();
   std::vector< std::pair< IntfId, PortState > > ports;
   for ( auto && [intf, port] : topo->topoPortConfigIteratorConst() ) {
      ports.push_back( { intf, port->state() } );
   }
   config_->topoConfigDel( name );
   config_->topoConfigIs( name )->topoIdIs( id );
   for ( auto & [intf, state] : ports ) {
      config_->topoConfig( name )->topoPortConfigIs( intf )->stateIs( state );
   }
}

void
SimTopology::setPort( const String & name, IntfId intf, U32 state ) {
   if ( auto topo = config_->topoConfig( name ) ) {
      // Every other one forwards, so that what must not forward is worth looking at.
      auto wanted = PortState( state >= 5 ? 3 : state );
      auto port = topo->topoPortConfigIs( intf );
      port->changeInfoIs( Bridging::Topology::TopoPortChangeInfo( ++changes_, 2.0 ) );
      port->stateIs( wanted );
   }
}

void
SimTopology::vlanIs( Bridging::VlanId vlan, const String & topo ) {
   bool wasLive = live( config_->vidToTopoMap( vlan ) );
   if ( topo.empty() ) {
      config_->vidToTopoMapDel( vlan );
   } else {
      config_->vidToTopoMapIs( vlan, topo );
   }
   if ( topo.empty() && wasLive && !tapAgg() ) {
      left_.insert( vlan );
   } else if ( !topo.empty() || tapAgg() ) {
      left_.erase( vlan );
   }
}

void
SimTopology::finish( const Event & event ) {
   if ( table_ && table_->completions().waiting() ) {
      table_->completions().finish( event[0] % table_->completions().waiting() );
   }
}

/** Completions of what nobody waits for. */
void
SimTopology::answerUnasked( const Event & event ) {
   U32 which = event[0];
   stpSm_->setStpStateDoneTopoId( 700 + which );
   stpSm_->setStpStateDoneTopoName( "nobody" );
   if ( auto vlan = world_.feature< SimVlan >(); vlan && perVlan_ ) { // once more
      Bridging::VlanId id = world_.vlan( which );
      perVlan_->handleVlanUpdateCompletion( id, vlan->helper()->updateState( id ).completed );
   }
}

void
SimTopology::modeIs( const Event & event ) {
   latencyIs( event[0] );
}

void
SimTopology::latencyIs( U32 mode ) {
   mode_ = mode;
   if ( table_ ) {
      table_->completions().latencyIs( mode < 2   ? 0
                                       : mode < 6 ? ( 1u << 4 * ( mode - 2 ) ) * 1e-6
                                                  : Kiv::never );
   }
}

void
SimTopology::faultsIs( bool on ) {
   if ( on ) {
      latencyIs( mode_ );
      return;
   }
   nested_ = 0;
   if ( table_ ) {
      table_->completions().latencyIs( 1e-4 );
      while ( table_->completions().waiting() ) {
         table_->completions().finish( 0 );
      }
   }
}

// What the hooks are called with

void
SimTopology::allocHeard( const String & topo, bool room ) {
   world_.transcript.add( "room", room );
   if ( !allocated_.insert( topo ).second ) {
      world_.report( "topology", "allocated twice: " + topo );
   }
}

void
SimTopology::freeHeard( const String & topo ) {
   if ( !allocated_.erase( topo ) ) {
      world_.report( "topology", "freed without being there: " + topo );
   }
   for ( String & in : vlanTopo_ ) {
      if ( in == topo ) {
         in.clear();
      }
   }
}

void
SimTopology::stateHeard( const String & topo, IntfId intf ) {
   if ( !allocated_.contains( topo ) ) {
      world_.report( "topology", "port state for a topology that is not there: " + topo );
   }
   if ( targets( intf ).size() != 1 || targets( intf )[0] != intf ) {
      world_.report( "topology", "state set for an aggregate with members: " + intf.stringValue() );
   }
}

void
SimTopology::vlanHeard( const String & topo, U16 vlan, bool add ) {
   String & held = vlanTopo_[vlan];
   heard_.insert( vlan );
   if ( add ) {
      if ( !allocated_.contains( topo ) ) {
         world_.report( "topology", "VLAN added to a topology that is not there: " + topo );
      }
      if ( !held.empty() ) {
         world_.report( "topology", "VLAN added while in " + held + ": " + topo );
      }
      held = topo;
   } else if ( !held.empty() ) {
      if ( held != topo ) {
         world_.report( "topology", "VLAN taken out of the wrong topology: " + topo );
      }
      held.clear();
   }
}

void
SimTopology::bpduHeard( bool bpdu, bool pvst ) {
   trapping_ = { bpdu, pvst };
   world_.chip->of< SoftChip::TopologyPart >().bpduTrappingIs( trapping_ );
}

void
SimTopology::portStatusHeard( const String & topo, IntfId intf ) {
   dirty_ = true;
   auto port = status_->topoStatus( topo )->topoPortStatus( intf );
   world_.transcript.add( "port status", topo, intf, port != nullptr );
   if ( port ) {
      statusWatches_[{ topo, intf }].attach(
            port, [this, topo, intf, port] { stateWritten( topo, intf, port->state() ); } );
   }
}

void
SimTopology::stateWritten( const String & topo, IntfId intf, PortState state ) {
   dirty_ = true;
   world_.transcript.add( "state", topo, intf, state );
   if ( !live( topo ) ) {
      world_.report( "topology", "acknowledged without a topology: " + topo );
   } else if ( stpSm_->tapAggIntf()->intfInfoHas( intf ) ) { // not all of them at one moment
      if ( state != PortState::forwarding ) {
         world_.report( "topology", "tap or tool port not forwarding: " + intf.stringValue() );
      }
   } else if ( !lagOf( intf ) ) {
      for ( IntfId target : targets( intf ) ) {
         if ( String wrong = checkChip( topo, target, state ); !wrong.empty() ) {
            world_.report( "topology", "acknowledged before the chip has it: " + wrong );
         }
      }
   }
   if ( nested_ ) {
      --nested_;
      setPort( topo, world_.intf( nested_ ), nested_ );
   }
}

FeatureKind
simTopology() {
   return featureKindOf< SimTopology >( "topology" );
}

} // namespace Sim
