#pragma once
// The library's state machines of topologies over the chip's TopoHelper, and what its tables should
// hold. A chip without one is driven through the library's VlanTopoHelper, over its VLAN helper.

#include "Qon/include/topology/VlanTopoHelper.h"
#include "chip/TopologyPart.h"
#include "chip/VlanPart.h"
#include "conformance/Trial.h"
#include "conformance/topology/Contracts.h"

namespace QonConformance::Topology {

using Bridging::VlanId;
using Bridging::Topology::PortState;
using Bridging::Topology::TopoPortChangeInfo;
using QonChip::HeldTopology;
using TopoConfigs = Bridging::Topology::Config;
using TopoStatuses = Bridging::Topology::Inst::Status;

inline String
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
   /** What is reported must be in the chip: if it comes there later it was reported early, if it never
       does it is not the newest. */
   void look() {
      if ( auto [reported, found] = reportedAndNotHeld(); !reported.empty() ) {
         t.run( t.answersWithin() );
         t.broken( reportedAndNotHeld().first.empty() ? early : newest, reported, found );
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
   void noOtherPorts( const Contract & contract ) {
      auto held = tables();
      for ( auto && [topoName, topo] : config->topoConfigIteratorConst() ) {
         for ( auto & [intf, state] : held ? ( *held )[topoName].ports : HeldTopology().ports ) {
            if ( !topo->topoPortConfigHas( intf ) && state != PortState::disabled ) {
               t.broken( contract, "no state of " + intf.stringValue() + " in " + topoName,
                         Kiv::toText( state ) );
            }
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
   /** A port whose state is reported, and what the chip has of it instead; empty if there is none. */
   std::pair< String, String > reportedAndNotHeld() const {
      const auto held = tables().value_or( QonChip::HeldTopologies() );
      for ( auto && [topoName, topo] : config->topoConfigIteratorConst() ) {
         auto topoStatus = status->topoStatus( topoName );
         auto there = held.find( topoName );
         for ( auto && [intf, port] : topo->topoPortConfigIteratorConst() ) {
            auto report = topoStatus ? topoStatus->topoPortStatus( intf ) : nullptr;
            if ( !report || !reported( *port, report ) || there == held.end() ) {
               continue;
            }
            auto found = there->second.ports.find( intf );
            const bool none = found == there->second.ports.end();
            if ( none ? port->state() != PortState::disabled : found->second != port->state() ) {
               return { intf.stringValue() + " in " + topoName + " " +
                              Kiv::toText( port->state() ) + " in the chip, as reported",
                        none ? "the chip has no state for it"
                             : "it is " + Kiv::toText( found->second ) };
            }
         }
      }
      return {};
   }
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

/** Two topologies with three VLANs and four ports each, at rest. */
void twoTopologies( TopoStage & stage );

// Checks of tables and hosts; the others stand beside their list.
void checkEarly( Trial & t );
void checkAgain( Trial & t );
void checkFull( Trial & t );
void checkFlushed( Trial & t );

} // namespace QonConformance::Topology
