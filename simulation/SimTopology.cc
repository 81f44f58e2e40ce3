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

enum Operations : U8 {
   configOp,
   noConfig,
   status,
   noStatus,
   recreateOp,
   port,
   noPort,
   burstOp,
   info,
   flush,
   map,
   unmap,
   finish,
   mode,
   spurious,
   nested,
   restartOp
};

constexpr Operation operationTable[] = {
      { "config", 8, { Range::topo, Range::few } },
      { "no-config", 2, { Range::topo } },
      { "status", 8, { Range::topo, Range::few } },
      { "no-status", 2, { Range::topo } },
      { "recreate", 2, { Range::topo } },
      { "port", 50, { Range::topo, Range::intf, Range::few } },
      { "no-port", 10, { Range::topo, Range::intf } },
      { "burst", 3, { Range::topo, Range::few } },
      { "info", 5, { Range::topo, Range::intf } },
      { "flush", 6, { Range::topo, Range::intf } },
      { "map", 15, { Range::vlan, Range::topo } },
      { "unmap", 6, { Range::vlan } },
      { "finish", 20, { Range::few } },
      { "mode", 3, { Range::few } },
      { "spurious", 2, { Range::few } },
      { "nested", 2, { Range::few } },
      { "restart", 1, { Range::few } },
};

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

/** Hears what is written to the status of one port. */
class SimTopology::StatusWatch : public Velto::Node {
 public:
   using Status = Bridging::Topology::TopoPortStatus;

   StatusWatch( SimTopology * sim, const String & topo, const Status * status )
       : sim_( sim ), topo_( topo ), status_( status ) {
      hasNotificationActiveIs( true );
      watch_.attach( this, status, heard, this );
   }

 private:
   static void heard( void * context, const Kiv::Entity &, int attribute, const void * ) {
      auto self = static_cast< StatusWatch * >( context );
      if ( attribute == Status::stateAttr::index ) {
         self->sim_->stateWritten( self->topo_, self->status_->intf(), self->status_->state() );
      }
   }
   SimTopology * sim_;
   String topo_;
   const Status * status_;
   Kiv::EntityWatch watch_;
};

std::span< const Operation >
SimTopology::operations() {
   return operationTable;
}

SimTopology::SimTopology( World & world )
    : SimFeature( world ), config_( Velto::make< Bridging::Topology::Config >( "config" ) ),
      status_( Velto::make< Bridging::Topology::Inst::Status >( "status" ) ) {
   Rng rng = world.chance( 40 );
   maxTopo_ = rng.percent( 80 ) ? 64 : 2;
   pvst_ = !world.perVlan() && rng.percent( 30 );
}

/** The tables go last. */
SimTopology::~SimTopology() {
   stpSm_ = nullptr;
   table_ = nullptr;
}

void
SimTopology::makeHelper() {
   Velto::Ptr< Qon::TopoHelper > helper;
   if ( world_.perVlan() ) {
      auto vlan = world_.feature< SimVlan >();
      perVlan_ = Velto::make< Recorder< Qon::VlanTopoHelper > >(
            this, vlan ? vlan->helper() : nullptr, &world_.scheduler, 10u, "vlanTopo" );
      perVlan_->hasNotificationActiveIs( true );
      helper = perVlan_;
   } else {
      table_ = nullptr;
      chip_ = std::make_unique< SoftChip::TopoTable >( maxTopo_, world_.faults );
      table_ = Velto::make< Recorder< SoftChip::SoftTopoHelper > >( this, *chip_ );
      helper = table_;
   }
   helper->pvstIs( pvst_ );
   allocated_.clear();
   vlanTopo_.assign( 4095, "" );
   modeIs( mode_ );
   stpSm_ = Qon::smIs< Stp >( this, world_.acsd, helper );
}

void
SimTopology::start() {
   makeHelper();
   stpSm_->initializedIs( true );
}

void
SimTopology::stop() {
   stpSm_->doCleanup();
   stpSm_ = nullptr;
   perVlan_ = nullptr;
   table_ = nullptr;
}

/** Down and up again: the same objects, or new ones with a chip that knows nothing. */
void
SimTopology::restart( bool sameMachine ) {
   left_.clear();
   if ( sameMachine ) {
      stpSm_->doCleanup();
      if ( !allocated_.empty() || ( table_ && !chip_->topologies().empty() ) ) {
         world_.report( "topology", "clean-up: a topology is left in the chip" );
      }
      vlanTopo_.assign( 4095, "" );
      stpSm_->initializedIs( true );
      return;
   }
   stpSm_ = nullptr;
   start();
}

void
SimTopology::apply( const Event & event ) {
   dirty_ = true;
   String topo = world_.topo( event[0] );
   IntfId intf = world_.intf( event[1] );
   auto entity = config_->topoConfig( topo );
   auto portConfig = entity ? entity->topoPortConfig( intf ) : nullptr;
   switch ( Operations( event.operation ) ) {
   case configOp:
      topoIs( topo, event[1] );
      break;
   case noConfig:
      config_->topoConfigDel( topo );
      break;
   case status:
      statusIs( topo, event[1] );
      break;
   case noStatus:
      status_->topoStatusDel( topo );
      break;
   case recreateOp:
      recreate( topo );
      break;
   case port:
      portIs( topo, intf, event[2] );
      break;
   case noPort:
      if ( entity ) {
         entity->topoPortConfigDel( intf );
      }
      break;
   case burstOp:
      burst( topo, event[1] );
      break;
   case info:
      if ( portConfig ) {
         portConfig->changeInfoIs( Bridging::Topology::TopoPortChangeInfo( ++changes_, 1.0 ) );
      }
      break;
   case flush:
      if ( portConfig ) {
         portConfig->fdbFlushIs( portConfig->fdbFlush() + 1 );
      }
      break;
   case map:
      vlanIs( world_.vlan( event[0] ), world_.topo( event[1] ) );
      break;
   case unmap:
      vlanIs( world_.vlan( event[0] ), "" );
      break;
   case finish:
      answer( event[0] );
      break;
   case mode:
      modeIs( event[0] );
      break;
   case spurious:
      answerUnasked( event[0] );
      break;
   case nested:
      nested_ = event[0];
      break;
   case restartOp:
      restart( event[0] % 2 );
      break;
   }
}

// Configuration

void
SimTopology::topoIs( const String & name, U32 id ) {
   // Ids are a topology's own: two for each, so that they can differ and change.
   U32 own = 10 + 2 * ( name.back() - '0' ) + ( id == 7 );
   config_->topoConfigIs( name )->topoIdIs( own );
}

void
SimTopology::statusIs( const String & name, U32 id ) {
   U32 own = 10 + 2 * ( name.back() - '0' ) + ( id == 7 );
   if ( !status_->topoStatusHas( name ) ) {
      status_->topoStatusIs( name );
      topoListeners_[name] = Velto::make< PortListener >(
            status_->topoStatus( name ),
            [this, name]( const IntfId & intf ) { portStatusHeard( name, intf ); } );
   }
   status_->topoStatus( name )->topoIdIs( own );
}

/** Gone and back, with the same ports, before anything else happens. */
void
SimTopology::recreate( const String & name ) {
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
SimTopology::portIs( const String & name, IntfId intf, U32 state ) {
   if ( auto topo = config_->topoConfig( name ) ) {
      // Every other one forwards, so that what must not forward is worth looking at.
      auto wanted = PortState( state >= 5 ? 3 : state );
      auto port = topo->topoPortConfigIs( intf );
      port->changeInfoIs( Bridging::Topology::TopoPortChangeInfo( ++changes_, 2.0 ) );
      port->stateIs( wanted );
   }
}

void
SimTopology::burst( const String & name, U32 state ) {
   for ( U32 i = 0; i < world_.size( Range::intf ); ++i ) {
      portIs( name, world_.intf( i ), state + i % 2 );
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
SimTopology::answer( U32 which ) {
   if ( table_ && chip_->completions().waiting() ) {
      chip_->completions().finish( which % chip_->completions().waiting() );
   }
}

/** Completions of what nobody waits for. */
void
SimTopology::answerUnasked( U32 which ) {
   stpSm_->setStpStateDoneTopoId( 700 + which );
   stpSm_->setStpStateDoneTopoName( "nobody" );
   if ( auto vlan = world_.feature< SimVlan >(); vlan && perVlan_ ) { // once more
      Bridging::VlanId id = world_.vlan( which );
      perVlan_->handleVlanUpdateCompletion( id, vlan->helper()->updateState( id ).completed );
   }
}

void
SimTopology::modeIs( U32 mode ) {
   mode_ = mode;
   if ( table_ ) {
      chip_->completions().latencyIs( mode < 2   ? 0
                                      : mode < 6 ? ( 1u << 4 * ( mode - 2 ) ) * 1e-6
                                                 : Kiv::never );
   }
}

void
SimTopology::faultsIs( bool on ) {
   if ( on ) {
      modeIs( mode_ );
      return;
   }
   nested_ = 0;
   if ( table_ ) {
      chip_->completions().latencyIs( 1e-4 );
      while ( chip_->completions().waiting() ) {
         chip_->completions().finish( 0 );
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
   bpdu_ = bpdu;
   pvstBpdu_ = pvst;
}

void
SimTopology::portStatusHeard( const String & topo, IntfId intf ) {
   dirty_ = true;
   auto port = status_->topoStatus( topo )->topoPortStatus( intf );
   world_.transcript.add( "port status", topo, intf, port != nullptr );
   if ( port ) {
      statusWatches_[{ topo, intf }] = Velto::make< StatusWatch >( this, topo, port );
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
      portIs( topo, world_.intf( nested_ ), nested_ );
   }
}

} // namespace Sim
