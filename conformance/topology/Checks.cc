// Checks of topologies.

#include "conformance/topology/Stage.h"

namespace QonConformance::Topology {

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

namespace {

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

constexpr Check checks[] = { { done, checkDone },
                             { early, checkEarly },
                             { newest, checkNewest },
                             { vlan, checkVlan },
                             { absent, checkAbsent },
                             { again, checkAgain },
                             { full, checkFull },
                             { flush, checkFlush },
                             { flushed, checkFlushed },
                             { verify, checkVerify },
                             { tapagg, checkTapagg },
                             { cleanup, checkCleanup },
                             { destructor, checkDestructor },
                             { successor, checkSuccessor },
                             { random, checkRandom } };

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
