#pragma once
// Spanning-tree topologies over a chip of either kind. It stands in for the spanning-tree agent of
// a switch: tables STP, STP_VLAN and STP_PORT say which topologies there are (one for each VLAN in
// mode pvst, otherwise one for all), events say what the protocol would.
//
//    {"event": "portState", "topology": "Vlan10", "intf": "Ethernet0", "state": "forwarding"}
//    {"event": "portDel", "topology": "Vlan10", "intf": "Ethernet0"}
//    {"event": "macFlush", "topology": "Vlan10", "intf": "Ethernet0"}
//    {"event": "topology", "topology": "Mst1", "id": 7}            id 0: it goes
//    {"event": "vlanTopology", "vlan": 10, "topology": "Mst1"}     empty: the VLAN is in none
//    {"event": "operationalMode", "mode": "tapAgg"}
//    {"event": "tapAgg", "topology": "TapAgg", "id": 4095, "tap": ["Ethernet0"], "tool": []}
//
// Ports without spanning tree forward; others begin discarding, edge ports (portfast) forwarding.

#include <map>
#include <set>

#include "Qon/include/topology/QonStpSm.h"
#include "agent/AgentFeature.h"
#include "chip/TopologyPart.h"
#include "platform/types/Vlan.h"

namespace QonAgent {

class TopologyFeature : public AgentFeature {
 public:
   explicit TopologyFeature( Agent & agent );
   ~TopologyFeature() override;

   std::vector< ConfigTable > tables() const override;
   void configure( ConfigReader & reader ) override;
   std::vector< ShowCommand > showCommands() override;
   std::vector< EventKind > eventKinds() override;
   std::vector< Counter > counters() const override;
   std::vector< String > ownNames() const override {
      return { "Bridging::Topology::", "TopoHelper", "StpSm", "VlanTopoHelper",
               "TapAgg::HwConfig" };
   }

   /** Null if the chip has neither topology tables nor VLANs. */
   Qon::StpSm * stpSm() const { return stpSm_.ptr(); }

 private:
   using PortState = Bridging::Topology::PortState;
   using Parsed = std::function< void() >;

   /** What the tables say about spanning tree. */
   struct SpanningTree {
      bool enabled = false;
      bool pvst = false;
      std::set< Bridging::VlanId > vlansWithout; // disabled there, or not named in mode pvst
      std::set< Bridging::VlanId > vlansWith;
      std::map< Ulnet::IntfId, PortState > initial; // of ports in spanning tree

      /** The topology of a VLAN. */
      String topology( Bridging::VlanId vlan ) const;
      /** How a port of a VLAN begins. */
      PortState begins( Bridging::VlanId vlan, Ulnet::IntfId port ) const;
   };
   void become( const SpanningTree & tree );
   void takeAway( const std::map< Bridging::VlanId, String > & former );
   void stateIs( Bridging::Topology::TopoPortConfig & config, PortState state );
   void topologyIs( const String & name, U32 id );
   Velto::Ptr< Bridging::Topology::TopoConfig > topologyOf( const String & name ) const;
   Velto::Ptr< Bridging::Topology::TopoPortConfig > portOf( const String & name,
                                                            Ulnet::IntfId port ) const;

   Parsed parsePortState( const Json & line );
   Parsed parsePortDel( const Json & line );
   Parsed parseFlush( const Json & line );
   Parsed parseTopology( const Json & line );
   Parsed parseVlan( const Json & line );
   Parsed parseMode( const Json & line );
   Parsed parseTapAgg( const Json & line );
   Rows topologies( Arguments arguments ) const;
   Row topologyRow( const String & name, const Bridging::Topology::TopoConfig & topo ) const;
   Row portRow( const Row & whole, const String & name, Ulnet::IntfId intf,
                const Bridging::Topology::TopoPortConfig & config ) const;
   Rows hardware() const;

   Velto::Ptr< Qon::TopoHelper > makeHelper();
   Velto::Ptr< Qon::StpSm > makeStpSm();

   Agent & agent_;
   QonChip::TopologyPart * const part_; ///< null: the chip has none
   U64 changes_ = 0;
   const Velto::Ptr< Bridging::Vlan::Config > vlans_;
   const Velto::Ptr< Bridging::Topology::Config > config_;
   const Velto::Ptr< Bridging::Topology::Inst::Status > status_;
   const Velto::Ptr< TapAgg::HwConfig > tapAgg_;
   const Velto::Ptr< Qon::StpSm > stpSm_;
   SpanningTree tree_;                             // of the last configuration
   std::map< Bridging::VlanId, String > topology_; // that it gave each VLAN
};

} // namespace QonAgent
