// Checks of topologies: the library's state machines drive the chip's TopoHelper. A chip without
// one is driven through the library's VlanTopoHelper, over its VLAN helper.

#include "Qon/include/topology/VlanTopoHelper.h"
#include "chip/TopologyPart.h"
#include "chip/VlanPart.h"
#include "conformance/Trial.h"
#include "conformance/topology/Contracts.h"

namespace QonConformance::Topology {

namespace {

using Bridging::VlanId;
using Bridging::Topology::PortState;
using Bridging::Topology::TopoPortChangeInfo;
using QonChip::HeldTopology;
using TopoConfigs = Bridging::Topology::Config;
using TopoStatuses = Bridging::Topology::Inst::Status;

String
shown( const HeldTopology & topology ) {
   return "VLANs " + joined( topology.vlans, []( U16 vlan ) { return Kiv::toText( vlan ); } ) +
          "; ports " + joined( topology.ports, []( auto & port ) {
             return port.first.stringValue() + " " + Kiv::toText( port.second );
          } );
}

/** Takes every setting of BPDU trapping. */
class PlainStpSm : public Qon::StpSm {
 public:
   using StpSm::StpSm;
   void configureBpduTrapping( bool, bool ) override {}
};

class TopoStage {
 public:
   explicit TopoStage( Trial & trial )
       : t( trial ), part( trial.chip->part< QonChip::TopologyPart >() ) {
      helper = part ? part->makeTopoHelper() : nullptr;
      if ( !helper ) {
         vlanPart = &t.part< QonChip::VlanPart >( "TopologyPart with a helper, and no VlanPart" );
         vlanHelper = vlanPart->makeVlanHelper( t.acsd );
         t.acsd->vlanHelperIs( vlanHelper );
         helper = Qon::VlanTopoHelperIs( vlanHelper, &t.scheduler );
      }
      stpSm = part ? part->makeStpSm( t.acsd, config, status, helper ) : nullptr;
      if ( !stpSm ) {
         stpSm = Velto::make< PlainStpSm >( t.acsd, config, status, helper );
      }
      t.publishes( status );
      stpSm->hasNotificationActiveIs( true );
      stpSm->initializedIs( true );
   }
   ~TopoStage() { end(); }
   /** Destroys the hook objects. */
   void end() {
      stpSm = nullptr;
      helper = nullptr;
      t.acsd->vlanHelperIs( nullptr );
      vlanHelper = nullptr;
   }

   static String name( U32 n ) { return "Topo" + Kiv::toText( n ); }
   void topo( U32 n ) {
      config->topoConfigIs( name( n ), n + 1 );
      status->topoStatusIs( name( n ), n + 1 );
      look();
   }
   void topoDel( U32 n ) {
      config->topoConfigDel( name( n ) );
      status->topoStatusDel( name( n ) );
      look();
   }
   bool topoHas( U32 n ) const { return config->topoConfigHas( name( n ) ); }
   void port( U32 n, U32 port, PortState state ) {
      auto topo = config->topoConfig( name( n ) );
      if ( auto held = topo->topoPortConfig( t.port( port ) ) ) {
         held->changeInfoIs( TopoPortChangeInfo( ++changes, t.scheduler.time() ) );
         held->stateIs( state );
      } else {
         topo->topoPortConfigIs( t.port( port ), state );
      }
      if ( vlanHelper ) {
         allVlansOf( port );
      }
      look();
   }
   void portDel( U32 n, U32 port ) {
      config->topoConfig( name( n ) )->topoPortConfigDel( t.port( port ) );
      look();
   }
   void vlan( U32 vlan, U32 n ) {
      config->vidToTopoMapIs( VlanId( vlan ), name( n ) );
      look();
   }
   void vlanDel( U32 vlan ) {
      config->vidToTopoMapDel( VlanId( vlan ) );
      look();
   }

   /** Whether every configured port state is reported; else which is not. */
   String unreported() const {
      for ( auto && [topoName, topo] : config->topoConfigIteratorConst() ) {
         auto topoStatus = status->topoStatus( topoName );
         for ( auto && [intf, port] : topo->topoPortConfigIteratorConst() ) {
            auto held = topoStatus ? topoStatus->topoPortStatus( intf ) : nullptr;
            if ( topoStatus && !reported( *port, held ) ) {
               return intf.stringValue() + " in " + topoName + ": " + Kiv::toText( port->state() ) +
                      " is not reported" +
                      ( held ? ", but " + Kiv::toText( held->state() ) : String() );
            }
         }
      }
      return "";
   }
   /** The chip's tables, if it has any. */
   std::optional< QonChip::HeldTopologies > tables() const {
      return vlanHelper ? std::nullopt : part->topologies();
   }
   /** The same; without them the check has not looked. */
   std::optional< QonChip::HeldTopologies > readBack() {
      if ( vlanHelper ) {
         t.notLooked( "the chip keeps forwarding per VLAN and has no topologies" );
         return std::nullopt;
      }
      return t.readBack( tables(), "the chip's topologies" );
   }
   /** Notes if there is nothing to be seen of the chip. */
   void lookAround() {
      vlanPart ? void( t.readBack( vlanPart->vlans(), "the chip's VLANs" ) ) : void( readBack() );
   }
   /** What is reported must be in the chip. */
   void look() {
      auto held = tables();
      if ( !held ) {
         return;
      }
      for ( auto && [topoName, topo] : config->topoConfigIteratorConst() ) {
         auto topoStatus = status->topoStatus( topoName );
         for ( auto && [intf, port] : topo->topoPortConfigIteratorConst() ) {
            auto report = topoStatus ? topoStatus->topoPortStatus( intf ) : nullptr;
            if ( !report || !reported( *port, report ) || !held->contains( topoName ) ) {
               continue;
            }
            auto & ports = ( *held )[topoName].ports;
            auto found = ports.find( intf );
            if ( found == ports.end() ? port->state() != PortState::disabled
                                      : found->second != port->state() ) {
               t.broken( early,
                         intf.stringValue() + " in " + topoName + " " +
                               Kiv::toText( port->state() ) + " in the chip, as reported",
                         found == ports.end() ? "the chip has no state for it"
                                              : "it is " + Kiv::toText( found->second ) );
            }
         }
      }
   }
   void rest() {
      bool rests = t.await( [&] {
         look();
         return unreported().empty();
      } );
      if ( !rests ) {
         t.broken( done,
                   "setStpStateDoneTopoName() or ...Id() within " +
                         Kiv::toText( t.answersWithin() ) + " s",
                   unreported() );
      }
      t.run( Trial::step );
   }
   /** At rest the chip holds the configuration; `states` judges port states, `vlans` VLANs. */
   void judge( const Contract & states, const Contract & vlans ) {
      if ( vlanHelper ) {
         judgeVlans( states );
         return;
      }
      auto held = readBack();
      if ( !held ) {
         return;
      }
      for ( auto && [topoName, topo] : config->topoConfigIteratorConst() ) {
         HeldTopology wanted = wantedOf( topoName, *topo ), &found = ( *held )[topoName];
         for ( auto & [intf, state] : wanted.ports ) {
            if ( found.ports[intf] != state ) {
               t.broken( states, topoName + ": " + shown( wanted ), shown( found ) );
            }
         }
         if ( found.vlans != wanted.vlans ) {
            t.broken( vlans, topoName + ": " + shown( wanted ), shown( found ) );
         }
      }
   }
   void nothingLeft( const Contract & contract ) {
      auto held = readBack();
      if ( held && !held->empty() ) {
         t.broken( contract, "no topologies",
                   held->begin()->first + ": " + shown( held->begin()->second ) );
      }
   }

   Trial & t;
   QonChip::TopologyPart * part;
   QonChip::VlanPart * vlanPart = nullptr; // of a chip that keeps forwarding per VLAN
   Ptr< TopoConfigs > config = Velto::make< TopoConfigs >( "config" );
   Ptr< TopoStatuses > status = Velto::make< TopoStatuses >( "status" );
   Ptr< Qon::VlanHelper > vlanHelper;
   Ptr< Qon::TopoHelper > helper;
   Ptr< Qon::StpSm > stpSm;

 private:
   static bool reported( const Bridging::Topology::TopoPortConfig & wanted,
                         const Bridging::Topology::TopoPortStatus * held ) {
      return held && held->state() == wanted.state() && held->changeInfo() == wanted.changeInfo();
   }
   HeldTopology wantedOf( const String & topoName,
                          const Bridging::Topology::TopoConfig & topo ) const {
      HeldTopology wanted;
      for ( auto && [intf, port] : topo.topoPortConfigIteratorConst() ) {
         wanted.ports[intf] = port->state();
      }
      for ( auto && [vlan, other] : config->vidToTopoMapIteratorConst() ) {
         if ( other == topoName ) {
            wanted.vlans.insert( vlan );
         }
      }
      return wanted;
   }
   /** Without topology tables what can be seen is the membership of VLANs. */
   void allVlansOf( U32 port ) {
      for ( auto && [vlan, topo] : config->vidToTopoMapIteratorConst() ) {
         vlanHelper->requestPortVlanMembershipChange(
               Qon::PortVlanMembershipChangeKind::setOverride, t.port( port ), vlan, true, true,
               true );
         members.insert( { vlan, t.port( port ) } );
      }
   }
   /** A member that is in the chip though its state forbids it, or the other way round; empty if
       there is none. */
   String wrongMember( const QonChip::HeldVlans & held ) const {
      for ( auto & [vlan, intf] : members ) {
         auto topo = config->topoConfig( config->vidToTopoMap( VlanId( vlan ) ) );
         auto port = topo ? topo->topoPortConfig( intf ) : nullptr;
         auto found = held.find( vlan );
         bool there = found != held.end() && found->second.contains( intf );
         if ( port && there != ( port->state() == PortState::forwarding ) ) {
            return intf.stringValue() + ", " + Kiv::toText( port->state() ) + " in " +
                   topo->name() + ", is " + ( there ? "" : "not " ) + "in VLAN " +
                   Kiv::toText( vlan );
         }
      }
      return "";
   }
   void judgeVlans( const Contract & contract ) {
      auto held = t.readBack( vlanPart->vlans(), "the chip's VLANs" );
      if ( !held ) {
         return;
      }
      String wrong;
      t.await( [&] { return ( wrong = wrongMember( *vlanPart->vlans() ) ).empty(); } );
      if ( !wrong.empty() ) {
         t.broken( contract, "ports that forward, and no others, in the VLANs of their topology",
                   wrong );
      }
   }
   std::set< std::pair< U16, Ulnet::IntfId > > members; // of VLANs, requested
   U64 changes = 0;
};

void
twoTopologies( TopoStage & stage ) {
   stage.t.did( "two topologies with three VLANs and four ports each" );
   for ( U32 n = 0; n < 2; ++n ) {
      stage.topo( n );
      for ( U32 vlan = 0; vlan < 3; ++vlan ) {
         stage.vlan( 10 * n + vlan + 10, n );
      }
   }
   for ( U32 port = 0; port < 4; ++port ) {
      stage.port( 0, port, PortState::forwarding );
      stage.port( 1, port, port % 2 ? PortState::forwarding : PortState::discarding );
   }
   stage.rest();
}

void
checkDone( Trial & t ) {
   TopoStage stage( t );
   twoTopologies( stage );
   for ( PortState state : { PortState::discarding, PortState::learning, PortState::forwarding } ) {
      t.did( "all ports of the first " + Kiv::toText( state ) );
      for ( U32 port = 0; port < 4; ++port ) {
         stage.port( 0, port, state );
      }
      stage.rest();
   }
   stage.judge( done, vlan );
}

void
checkNewest( Trial & t ) {
   TopoStage stage( t );
   twoTopologies( stage );
   for ( U32 round = 0; round < 10; ++round ) {
      stage.port( 0, 1, PortState::discarding );
      t.run( 0.001 * t.random.below( 20 ) );
      stage.port( 0, 1, PortState::learning );
      stage.port( 0, 1, PortState::forwarding );
      t.did( "a port discarding, then learning and forwarding in the middle of that" );
   }
   stage.rest();
   stage.judge( newest, vlan );
}

void
checkVlan( Trial & t ) {
   TopoStage stage( t );
   twoTopologies( stage );
   stage.vlan( 10, 1 );
   t.did( "VLAN 10 moves to the second" );
   stage.rest();
   stage.judge( newest, vlan );
   stage.vlanDel( 10 );
   stage.vlan( 20, 0 );
   stage.vlan( 20, 1 );
   t.did( "VLAN 10 leaves, VLAN 20 moves to the first and back" );
   stage.rest();
   stage.judge( newest, vlan );
}

void
checkAbsent( Trial & t ) {
   TopoStage stage( t );
   twoTopologies( stage );
   stage.topoDel( 1 );
   stage.vlanDel( 20 ); // of a topology that has gone
   stage.vlan( 21, 0 );
   t.did( "the second topology went, then its VLANs left it" );
   stage.topo( 1 );
   stage.topoDel( 1 );
   t.did( "it came back and went, with neither VLANs nor ports" );
   stage.rest();
   stage.judge( absent, absent );
}

void
checkFull( Trial & t ) {
   TopoStage stage( t );
   constexpr U32 most = 256;
   U32 room = stage.helper->maxTopo();
   if ( stage.vlanHelper || room > most ) {
      Trial::skip( "the chip has room for " + Kiv::toText( room ) + " topologies" );
   }
   for ( U32 round = 0; round < 3; ++round ) {
      for ( U32 n = 0; n < room + 2; ++n ) {
         stage.topo( n );
         stage.vlan( 10 + n, n );
      }
      t.did( Kiv::toText( room + 2 ) + " topologies, two more than maxTopo()" );
      t.run( Trial::step );
      auto held = stage.readBack();
      if ( held && held->size() != room ) {
         t.broken( full, Kiv::toText( room ) + " topologies in the chip, as maxTopo() says",
                   Kiv::toText( U32( held->size() ) ) );
      }
      for ( U32 n = 0; n < room + 2; ++n ) {
         stage.vlanDel( 10 + n );
         stage.topoDel( n );
      }
      t.did( "all of them went" );
      t.run( Trial::step );
      stage.nothingLeft( full );
   }
}

void
checkFlush( Trial & t ) {
   TopoStage stage( t );
   twoTopologies( stage );
   auto port = stage.config->topoConfig( stage.name( 0 ) )->topoPortConfig( t.port( 1 ) );
   for ( U32 request = 1; request <= 3; ++request ) {
      port->fdbFlushIs( request );
      t.did( "flushed the MAC addresses of a port" );
      t.run( Trial::step );
   }
   U32 report = stage.status->topoStatus( stage.name( 0 ) )
                      ->topoPortStatus( t.port( 1 ) )
                      ->fdbFlushReport();
   if ( report != 3 ) {
      t.broken( flush, "three flushes reported", Kiv::toText( report ) );
   }
   stage.rest();
}

void
checkVerify( Trial & t ) {
   TopoStage stage( t );
   twoTopologies( stage );
   t.judgeVerify( verify, [&] { stage.stpSm->verify(); } );
}

void
checkTapagg( Trial & t ) {
   TopoStage stage( t );
   const String topoName = "TapAgg";
   constexpr U32 vlans = 4094, mapped = 6, topoId = 100;
   auto hwConfig = Velto::make< TapAgg::HwConfig >( "tapAgg" );
   hwConfig->tapAggTopoNameIs( topoName );
   hwConfig->tapAggTopoIdIs( topoId );
   hwConfig->tapIntfIs( t.port( 10 ) );
   t.acsd->tapAggHwConfigIs( hwConfig );
   twoTopologies( stage );
   for ( U32 round = 0; round < 2; ++round ) {
      t.acsd->operationalModeIs( Qon::HwOperationalMode::tapAgg );
      t.did( "tap-aggregation mode, with a tap port" );
      t.run( t.answersWithin() );
      if ( auto tables = stage.readBack() ) {
         auto & held = ( *tables )[topoName];
         auto port = held.ports.find( t.port( 10 ) );
         if ( held.vlans.size() != vlans - mapped || port == held.ports.end() ||
              port->second != PortState::forwarding ) {
            t.broken( tapagg,
                      Kiv::toText( vlans - mapped ) + " VLANs in " + topoName + ", and " +
                            t.port( 10 ).stringValue() + " forwarding",
                      Kiv::toText( U32( held.vlans.size() ) ) + " VLANs, " +
                            ( port == held.ports.end() ? String( "no state of the port" )
                                                       : Kiv::toText( port->second ) ) );
         }
      }
      t.acsd->operationalModeIs( Qon::HwOperationalMode::switching );
      t.did( "switching mode" );
      stage.rest();
      t.run( t.answersWithin() );
      if ( auto tables = stage.readBack(); tables && tables->contains( topoName ) ) {
         t.broken( tapagg, "no topology " + topoName, "it is in the chip" );
      }
      stage.judge( tapagg, tapagg );
   }
}

void
checkCleanup( Trial & t ) {
   TopoStage stage( t );
   twoTopologies( stage );
   stage.port( 0, 1, PortState::discarding );
   stage.stpSm->doCleanup();
   t.did( "doCleanup()" );
   t.run( t.answersWithin() );
   stage.nothingLeft( cleanup );
}

void
checkDestructor( Trial & t ) {
   TopoStage stage( t );
   twoTopologies( stage );
   stage.port( 0, 1, PortState::discarding );
   t.scheduler.settle();
   t.did( "a port state, not done yet" );
   stage.lookAround();
   t.judgeDestruction( destructor, [&] { stage.end(); } );
}

/** The second is told of the same topologies, with other states of their ports. */
void
checkSuccessor( Trial & t ) {
   std::optional< TopoStage > first( std::in_place, t ), second;
   twoTopologies( *first );
   first->port( 0, 1, PortState::discarding );
   t.scheduler.settle();
   t.did( "a port state, and destroyed the helper in the middle of that" );
   first.reset();
   t.judgeSuccessor( successor, [&] { second.emplace( t ); } );
   second->lookAround();
   twoTopologies( *second );
   second->port( 0, 1, PortState::learning );
   t.did( "the same topologies, and one port learning" );
   second->rest();
   second->judge( successor, successor );
   t.run( t.answersWithin() );
   second->look();
   second->judge( successor, successor );
}

void
checkRandom( Trial & t ) {
   TopoStage stage( t );
   static const PortState states[] = { PortState::discarding, PortState::learning,
                                       PortState::forwarding, PortState::forwarding };
   constexpr U32 topologies = 4;
   for ( U32 step = 0; step < t.options.steps; ++step ) {
      U32 n = t.random.below( topologies ), port = t.random.below( 8 );
      U32 vlan = 10 + t.random.below( 12 ), what = t.random.below( 100 );
      String when = "step " + Kiv::toText( step ) + ": ";
      if ( what < 50 && stage.topoHas( n ) ) {
         PortState state = states[t.random.below( 4 )];
         stage.port( n, port, state );
         t.did( when + t.port( port ).stringValue() + " in " + stage.name( n ) + " " +
                Kiv::toText( state ) );
      } else if ( what < 65 ) {
         stage.vlan( vlan, n );
         t.did( when + "VLAN " + Kiv::toText( vlan ) + " in " + stage.name( n ) );
      } else if ( what < 70 ) {
         stage.vlanDel( vlan );
         t.did( when + "VLAN " + Kiv::toText( vlan ) + " in none" );
      } else if ( what < 73 && stage.topoHas( n ) ) {
         stage.portDel( n, port );
         t.did( when + "no " + t.port( port ).stringValue() + " in " + stage.name( n ) );
      } else if ( what < 80 ) {
         stage.topo( n );
         t.did( when + stage.name( n ) );
      } else if ( what < 82 ) {
         stage.topoDel( n );
         t.did( when + "no " + stage.name( n ) );
      } else if ( what < 95 ) {
         t.run( 0.001 * t.random.below( 50 ) );
         stage.look();
      } else {
         stage.rest();
         stage.judge( random, random );
      }
   }
   stage.rest();
   stage.judge( random, random );
}

constexpr Check checks[] = { { done, checkDone },           { newest, checkNewest },
                             { vlan, checkVlan },           { absent, checkAbsent },
                             { full, checkFull },           { flush, checkFlush },
                             { verify, checkVerify },       { tapagg, checkTapagg },
                             { cleanup, checkCleanup },     { destructor, checkDestructor },
                             { successor, checkSuccessor }, { random, checkRandom } };

String
heldBy( const QonChip::Chip & chip ) {
   auto part = chip.part< QonChip::TopologyPart >();
   auto topologies = part ? part->topologies() : std::nullopt;
   String text;
   for ( auto & [name, topology] : topologies.value_or( QonChip::HeldTopologies() ) ) {
      text += "topology " + name + ": " + shown( topology ) + "\n";
   }
   return text;
}

} // namespace

extern const Feature feature{ "topo", contracts, checks, {}, heldBy };

} // namespace QonConformance::Topology
