#pragma once
// A spanning-tree agent, a chip that records what it is told, and the state machines between.

#include <deque>
#include <functional>
#include <set>
#include <vector>

#include "Qon/include/topology/QonStpSm.h"
#include "tests/harness/World.h"

namespace Tests {

using Bridging::VlanId;
using Bridging::Topology::PortState;
using Bridging::Topology::TopoPortChangeInfo;
using Ulnet::IntfId;

constexpr PortState blocked = PortState::discarding, learning = PortState::learning,
                    forwarding = PortState::forwarding;

/** Records hook calls; reports done when told, or from within. */
class RecordingTopoHelper : public Qon::TopoHelper {
 public:
   U32 maxTopo() override { return 64; }
   bool allocTopo( const String & name ) override {
      note( "alloc " + name );
      return true;
   }
   void freeTopo( const String & name ) override { note( "free " + name ); }
   void setStpState( S32 id, const String & name, IntfId intf, PortState state ) override {
      hardware[name][intf] = state;
      note( "set " + std::to_string( id ) + " " + name + " " + intf.stringValue() + " " +
            std::to_string( U32( state ) ) );
      if ( completesInside ) {
         setStpStateDoneTopoId( U32( id ) );
      }
   }
   void addVlanToTopo( const String & name, U16 vlan ) override {
      note( "add " + name + " " + std::to_string( vlan ) );
   }
   void delVlanFromTopo( const String & name, U16 vlan ) override {
      note( "del " + name + " " + std::to_string( vlan ) );
   }
   void flushTopoPort( U32 id, IntfId intf ) override {
      note( "flush " + std::to_string( id ) + " " + intf.stringValue() );
   }
   void flushTopoPortVlan( const Qon::MappedVlan & vlans, IntfId intf ) override {
      note( "flush " + std::to_string( vlans.vlans() ) + " vlans " + intf.stringValue() );
   }
   void verify() override { note( "verify" ); }
   void hwInit() override { note( "init" ); }

   /** What was called since the last look. */
   std::vector< String > calls() { return std::exchange( calls_, {} ); }

   bool completesInside = false;
   /** Called in every hook, with what calls() will tell of it. */
   std::function< void( const String & call ) > onCall;
   std::map< String, std::map< IntfId, PortState > > hardware;

 private:
   void note( const String & call ) {
      calls_.push_back( call );
      if ( auto heard = onCall ) { // which may be replaced from within
         heard( call );
      }
   }
   std::vector< String > calls_;
};

class TestStpSm : public Qon::StpSm {
 public:
   using StpSm::StpSm;
   void configureBpduTrapping( bool bpdu, bool pvst ) override { bpduTrapping = { bpdu, pvst }; }
   std::pair< bool, bool > bpduTrapping{ true, true };
};

/** The spanning-tree agent's side, whatever the chip. */
class SpanningTree {
 public:
   using Config = Bridging::Topology::Config;
   using Status = Bridging::Topology::Inst::Status;

   void topo( const String & name, U32 id ) {
      config->topoConfigIs( name, id );
      status->topoStatusIs( name, id );
   }
   void topoDel( const String & name ) {
      config->topoConfigDel( name );
      status->topoStatusDel( name );
   }
   void port( const String & topo, const String & name, PortState state ) {
      auto config = portConfig( topo, name );
      if ( config ) {
         config->changeInfoIs( TopoPortChangeInfo( ++changes, 0.5 ) );
         config->stateIs( state );
      } else {
         this->config->topoConfig( topo )->topoPortConfigIs( intf( name ), state );
      }
   }
   void vlan( U32 vlan, const String & topo ) { config->vidToTopoMapIs( VlanId( vlan ), topo ); }

   Bridging::Topology::TopoPortConfig * portConfig( const String & topo, const String & name ) {
      auto t = config->topoConfig( topo );
      return t ? t->topoPortConfig( intf( name ) ) : nullptr;
   }
   Bridging::Topology::TopoPortStatus * portStatus( const String & topo, const String & name ) {
      auto t = status->topoStatus( topo );
      return t ? t->topoPortStatus( intf( name ) ) : nullptr;
   }
   /** The acknowledged state; -1 where there is no record. */
   int acked( const String & topo, const String & name ) {
      auto s = portStatus( topo, name );
      return s ? int( s->state() ) : -1;
   }

   Velto::Ptr< Config > config = Velto::make< Config >( "config" );
   Velto::Ptr< Status > status = Velto::make< Status >( "status" );
   U64 changes = 0;
};

/** What LagSm does, in its order: lagToPort first. */
class Lags {
 public:
   explicit Lags( Qon::QonCommonSmData * acsd ) : acsd_( acsd ) {}
   /** Once had members; what it carries itself after the last one left is nobody's business until
       a state is requested. */
   bool hadMembers( IntfId lag ) const { return hadMembers_.contains( lag ); }
   void join( const String & member, const String & lag ) {
      hadMembers_.insert( intf( lag ) );
      auto ports = acsd_->lagToPort( intf( lag ) );
      ports.portIs( intf( member ), Qon::QonLagPort( true, true ) );
      acsd_->lagToPortIs( intf( lag ), ports );
      acsd_->portToLagIs( intf( member ), intf( lag ) );
   }
   void leave( const String & member ) {
      const IntfId lag = acsd_->portToLag( intf( member ) );
      if ( lag ) {
         drop( member, lag );
         acsd_->portToLagDel( intf( member ) );
      }
   }
   void move( const String & member, const String & lag ) {
      if ( const IntfId from = acsd_->portToLag( intf( member ) ); from && from != intf( lag ) ) {
         drop( member, from );
      }
      join( member, lag );
   }

 private:
   void drop( const String & member, IntfId lag ) {
      auto ports = acsd_->lagToPort( lag );
      ports.portDel( intf( member ) );
      acsd_->lagToPortIs( lag, ports );
   }
   Qon::QonCommonSmData * acsd_;
   std::set< IntfId > hadMembers_;
};

class TopologyWorld : public World {
 public:
   void start( Velto::Ptr< Qon::TopoHelper > helper ) {
      stpSm = Qon::smIs< TestStpSm >( acsd, stp.config, stp.status, helper );
      stpSm->initializedIs( true );
   }
   void tapAggTopo( const String & name, U32 id ) {
      tapAgg->tapAggTopoNameIs( name );
      tapAgg->tapAggTopoIdIs( id );
      acsd->tapAggHwConfigIs( tapAgg );
   }
   void mode( Qon::HwOperationalMode mode ) { acsd->operationalModeIs( mode ); }

   SpanningTree stp;
   Lags lags{ acsd.ptr() };
   Velto::Ptr< TapAgg::HwConfig > tapAgg = Velto::make< TapAgg::HwConfig >( "tapAgg" );
   Velto::Ptr< TestStpSm > stpSm;
};

} // namespace Tests
