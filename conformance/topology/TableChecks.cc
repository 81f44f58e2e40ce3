// Checks of topologies: which tables there are, and what stands in them.

#include "chip/MacPart.h"
#include "conformance/topology/Stage.h"

namespace QonConformance::Topology {

/** States of several ports, one after the other, each while the chip is still at the one before. */
void
checkEarly( Trial & t ) {
   TopoStage stage( t );
   constexpr Kiv::Seconds often = 0.0005;
   constexpr U32 looks = 100;
   twoTopologies( stage );
   stage.lookAround();
   for ( PortState state : { PortState::discarding, PortState::forwarding } ) {
      for ( U32 port = 0; port < 4; ++port ) {
         stage.port( 0, port, state );
         t.run( often );
         stage.look();
      }
      t.did( "four ports of the first " + Kiv::toText( state ) + ", half a millisecond apart" );
      for ( U32 n = 0; n < looks; ++n ) {
         t.run( often );
         stage.look();
      }
      stage.rest();
   }
}

/** The topology comes back while the chip is still at what was handed over for the one before. */
void
checkAgain( Trial & t ) {
   TopoStage stage( t );
   twoTopologies( stage );
   for ( U32 round = 0; round < 4; ++round ) {
      stage.port( 0, 1, PortState::discarding );
      stage.port( 0, 2, PortState::learning );
      t.scheduler.settle();
      stage.topoDel( 0 );
      stage.topo( 0 );
      stage.port( 0, 1, PortState::learning );
      t.did( "two ports in the first, which went at once and came back with another state of one" );
      stage.rest();
      t.run( t.answersWithin() );
      stage.look();
      stage.judge( again, again );
      stage.noOtherPorts( again );
      for ( U32 port = 0; port < 4; ++port ) {
         stage.port( 0, port, PortState::forwarding );
      }
      t.did( "all ports of it forwarding" );
      stage.rest();
   }
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
      const String oneMore = "OneMore";
      t.did( "allocTopo() of one more" );
      if ( stage.helper->allocTopo( oneMore ) ) {
         t.broken( full, "false: there is no room", "true" );
      }
      stage.helper->freeTopo( oneMore );
      for ( U32 n = 0; n < room + 2; ++n ) {
         stage.vlanDel( 10 + n );
         stage.topoDel( n );
      }
      t.did( "all of them went" );
      t.run( Trial::step );
      stage.nothingLeft( full );
   }
}

/** With hosts of the chip's own, written by its MAC programmer. */
void
checkFlushed( Trial & t ) {
   TopoStage stage( t );
   auto & macPart = t.part< QonChip::MacPart >( "MacPart" );
   if ( !stage.part || !stage.part->flushesHosts() ) {
      Trial::skip( "flushTopoPort() of this chip takes no hosts that MacPart tells of" );
   }
   twoTopologies( stage );
   auto mac = macPart.makeProgrammer();
   mac->hasNotificationActiveIs( true );
   mac->initializedIs( true );
   std::set< Qon::MacEntryKey > stay;
   for ( U32 vlan : { 10, 11, 20 } ) {
      for ( U32 port : { 1, 2 } ) {
         const Qon::MacEntryKey host{
               { Ulnet::EthAddr( 0x021122000000ull + port ), Bridging::VlanIdOrNone( vlan ) },
               Qon::MacHwType::macHwKeyBridge };
         mac->handleAddrOp( Qon::indirectAccessMacCmdFactory(
               Qon::IndirectAccessMacCmdType::addHost, host, t.port( port ),
               Bridging::EntryType::learnedDynamic ) );
         if ( port == 2 || vlan == 20 ) {
            stay.insert( host );
         }
      }
   }
   t.did( "a host in each of three VLANs, two of the first topology, at each of two ports" );
   t.await( [&] { return !mac->pendingMacOps() && !mac->inProgMacOps(); } );
   stage.config->topoConfig( stage.name( 0 ) )->topoPortConfig( t.port( 1 ) )->fdbFlushIs( 1 );
   t.did( "flushed the MAC addresses of " + t.port( 1 ).stringValue() + " in the first topology" );
   t.run( Trial::step );
   auto held = t.readBack( macPart.hosts(), "the chip's hosts" );
   if ( !held ) {
      return;
   }
   for ( auto & [host, there] : *held ) {
      if ( !stay.erase( host ) ) {
         t.broken( flushed, "no hosts of the port in VLANs of the topology",
                   host.stringValue() + " at " + there.intf.stringValue() );
      }
   }
   if ( !stay.empty() ) {
      t.broken( flushed, "all other hosts", "no " + stay.begin()->stringValue() );
   }
}

} // namespace QonConformance::Topology
