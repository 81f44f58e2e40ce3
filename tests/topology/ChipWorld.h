#pragma once
// The world of topologies over either kind of chip, and what must hold when it is at rest.

#include "Qon/include/topology/VlanTopoHelper.h"
#include "agent/softchip/SoftTopoHelper.h"
#include "agent/softchip/SoftVlanHelper.h"
#include "tests/topology/TopologyWorld.h"

namespace Tests {

enum class ChipKind { topoTable, perVlan };

class ChipWorld : public TopologyWorld {
 public:
   explicit ChipWorld( ChipKind kind ) : kind( kind ) {
      vlans = Velto::make< SoftChip::SoftVlanHelper >( "vlans", acsd.ptr(), vlanTable );
      if ( kind == ChipKind::topoTable ) {
         topoTable = Velto::make< SoftChip::SoftTopoHelper >( topologies );
         helper = topoTable;
      } else {
         vlanTopo = Qon::VlanTopoHelperIs( vlans, &scheduler );
         helper = vlanTopo;
      }
   }
   ~ChipWorld() { stpSm = nullptr; } // which counts the helper, which points to the tables
   void run() { start( helper ); }

   /** Where the chip keeps what waits for its completion. */
   SoftChip::Completions & completions() {
      return kind == ChipKind::topoTable ? topologies.completions() : vlanTable.completions();
   }
   void latencyIs( Kiv::Seconds latency ) { completions().latencyIs( latency ); }

   void member( const String & port, U32 vlan ) {
      vlans->requestPortVlanMembershipChange( Qon::PortVlanMembershipChangeKind::setOverride,
                                              intf( port ), VlanId( vlan ), true, true, true );
   }
   /** Whether frames of the VLAN pass the port, by what the chip holds. */
   bool forwards( U32 vlan, IntfId port ) {
      return vlanTable.has( VlanId( vlan ), port ) &&
             ( !topoTable || topologies.forwards( U16( vlan ), port ) );
   }
   bool forwards( U32 vlan, const String & port ) { return forwards( vlan, intf( port ) ); }

   /** Completes everything and works everything off. */
   void rest() {
      latencyIs( 0 );
      for ( U32 round = 0; round < 100; ++round ) {
         scheduler.settle();
         if ( completions().waiting() == 0 && vlanTable.completions().waiting() == 0 ) {
            if ( scheduler.nextTime() == Kiv::never ) {
               return;
            }
            scheduler.runFor( 10 ); // what failed is tried again
            continue;
         }
         completions().finishAll();
         vlanTable.completions().finishAll();
      }
      ADD_FAILURE() << "it does not come to rest";
   }

   /** Whatever happened. */
   String broken() {
      String found = stpSm->checkInvariants();
      if ( found.empty() && vlanTopo ) {
         found = vlanTopo->checkInvariants();
      }
      return found.empty() ? vlans->checkInvariants() : found;
   }
   /** At rest: every configured state is acknowledged, and is in the chip in every VLAN of its
       topology, for aggregates at their members. Empty if that is so. */
   String notAtRest();

   const ChipKind kind;
   SoftChip::FaultPlan faults;
   SoftChip::VlanTable vlanTable{ faults };
   SoftChip::TopoTable topologies{ 64, faults };
   Velto::Ptr< SoftChip::SoftVlanHelper > vlans;
   Velto::Ptr< SoftChip::SoftTopoHelper > topoTable; // or:
   Velto::Ptr< Qon::VlanTopoHelper > vlanTopo;
   Velto::Ptr< Qon::TopoHelper > helper;

 private:
   String tapAggNotAtRest();
   String portNotAtRest( const Qon::TopoSm & topo, const Qon::TopoPortSm & port );
};

inline String
ChipWorld::portNotAtRest( const Qon::TopoSm & topo, const Qon::TopoPortSm & port ) {
   const String where = topo.name() + " " + port.intf().stringValue() + ": ";
   if ( topo.pendingHas( port.intf() ) || port.status()->state() != port.wantedState() ) {
      return where + "not acknowledged";
   }
   if ( port.status()->changeInfo() != port.config()->changeInfo() ) {
      return where + "change information not echoed";
   }
   const Qon::LagView lags( acsd.ptr() );
   const bool member = bool( lags.lagOf( port.intf() ) );
   auto mapped = stpSm->topoToVlanMap( topo.name() );
   if ( !mapped || member || port.inTapOrTool() ) {
      return "";
   }
   String found;
   for ( auto && [vlan, present] : mapped->vlanIteratorConst() ) {
      lags.forEachTarget( port.intf(), Qon::EmptyAggregate::itself, [&]( IntfId target ) {
         const bool wanted = port.config()->state() == PortState::forwarding;
         if ( vlans->membership( target, vlan ) && forwards( vlan, target ) != wanted ) {
            found = where + target.stringValue() + " is wrong in VLAN " + vlan.stringValue();
         }
      } );
   }
   return found;
}

inline String
ChipWorld::notAtRest() {
   String found = broken();
   stpSm->forEachTopo( [&]( const String &, const Qon::TopoSm & topo ) {
      topo.forEachPort( [&]( const IntfId &, const Qon::TopoPortSm & port ) {
         if ( found.empty() ) {
            found = portNotAtRest( topo, port );
         }
      } );
   } );
   if ( vlanTopo && found.empty() && vlanTopo->remainingWorkUnits() ) {
      found = "work remains";
   }
   return found.empty() ? tapAggNotAtRest() : found;
}

inline String
ChipWorld::tapAggNotAtRest() {
   auto mapped = stpSm->topoToVlanMap( stpSm->tapAggTopoName() );
   if ( !mapped ) {
      return "";
   }
   String found;
   const Qon::LagView lags( acsd.ptr() );
   for ( auto && [vlan, present] : mapped->vlanIteratorConst() ) {
      vlans->forEachMember( vlan, [&]( IntfId port, Qon::VlanMembership ) {
         const IntfId lag = lags.lagOf( port );
         const bool aggregate = lags.role( port ) == Qon::LagRole::aggregate;
         const bool wanted = stpSm->tapAggIntf()->intfInfoHas( lag ? lag : port );
         if ( !( aggregate && lags.membersOf( port ).size() ) &&
              forwards( vlan, port ) != wanted ) {
            found = port.stringValue() + " is wrong in VLAN " + vlan.stringValue() + " of " +
                    mapped->name();
         }
      } );
   }
   return found;
}

/** A typed list of both kinds, for parametrised suites. */
inline auto
bothKinds() {
   return testing::Values( ChipKind::topoTable, ChipKind::perVlan );
}
inline String
kindName( const testing::TestParamInfo< ChipKind > & info ) {
   return info.param == ChipKind::topoTable ? "topoTable" : "perVlan";
}

} // namespace Tests
