#pragma once
// Spanning-tree topologies on either kind of chip, with its completions at once, late, out of
// order: topologies come, go, change their id, come back in one burst; ports and VLANs move.
//
// Checked when a port's status is written:
// 1. The chip holds the state: every port that the interface leads to has it in the topology's
//    table; on a chip without tables, no VLAN of the topology forwards a port that was acknowledged
//    as not forwarding.
// Checked in every hook: topologies are allocated before they are used and once; a VLAN is added
// once, after it was taken out of its former topology; no state is set for an aggregate with
// members.
// Checked at rest against the configuration alone: every port of every live topology is
// acknowledged with state, change information and flush; ports, VLANs and topologies are in the
// chip as configured.

#include <map>
#include <optional>
#include <set>

#include "Qon/include/topology/VlanTopoHelper.h"
#include "agent/softchip/Chip.h"
#include "agent/softchip/TopologyPart.h"
#include "platform/Kiv/Listener.h"
#include "simulation/SimFeature.h"
#include "simulation/SimVlan.h"

namespace Sim {

class SimTopology : public SimFeature {
 public:
   using PortState = Bridging::Topology::PortState;
   using IntfId = Ulnet::IntfId;

   explicit SimTopology( World & world );
   ~SimTopology() override;

   static std::span< const Operation > operations();
   static void shape( const World & world, SoftChip::Shape & shape );

   void start() override;
   bool ready() override;
   String checkInvariants() const override;
   void faultsIs( bool on ) override;
   String checkAtRest() const override;
   void tearDown() override;
   String checkTornDown() const override;
   void stop() override;
   void kill( Ending ending ) override;
   void held( Holdings & held ) const override;

   Bridging::Topology::Config & config() const { return *config_; }

   /** @name What the hooks were called with; from the recording helpers */
   /** @{ */
   void allocHeard( const String & topo, bool room );
   void freeHeard( const String & topo );
   void stateHeard( const String & topo, IntfId intf );
   void vlanHeard( const String & topo, U16 vlan, bool add );
   void bpduHeard( bool bpdu, bool pvst );
   /** @} */

   /** @name What the configuration wants */
   /** @{ */
   bool tapAgg() const;
   bool inTapOrTool( IntfId intf ) const;
   bool live( const String & topo ) const;
   /** The topology of a VLAN by the configuration, empty for none. */
   String topoOf( Bridging::VlanId vlan ) const;
   /** Whether the port shall forward in the VLAN; nothing where nobody says so. */
   std::optional< bool > forwards( Bridging::VlanId vlan, IntfId port ) const;
   /** Likewise, of a chip with tables, which may have no room for its topology. */
   std::optional< bool > passes( Bridging::VlanId vlan, IntfId port ) const;
   SoftChip::BpduTrapping wantedTrapping() const;
   /** @} */

 private:
   class Stp;

   /** @name Operations */
   /** @{ */
   void configIs( const Event & event );
   void configDel( const Event & event );
   void statusIs( const Event & event );
   void statusDel( const Event & event );
   void recreate( const Event & event );
   void portIs( const Event & event );
   void portDel( const Event & event );
   void burst( const Event & event );
   void infoIs( const Event & event );
   void flush( const Event & event );
   void map( const Event & event );
   void unmap( const Event & event );
   void finish( const Event & event );
   void modeIs( const Event & event );
   void answerUnasked( const Event & event );
   void nestedIs( const Event & event );
   void restart( const Event & event );
   /** @} */

   U32 ownId( const String & name, U32 id ) const;
   Bridging::Topology::TopoPortConfig * portConfig( const Event & event ) const;
   void setPort( const String & name, IntfId intf, U32 state );
   void vlanIs( Bridging::VlanId vlan, const String & topo );
   void latencyIs( U32 mode );
   void makeHelper( bool emptyChip );
   void portStatusHeard( const String & topo, IntfId intf );
   void stateWritten( const String & topo, IntfId intf, PortState state );

   IntfId lagOf( IntfId port ) const;
   std::vector< IntfId > targets( IntfId intf ) const;
   /** An aggregate that lost its last member is not told of it: what it carries is nobody's. */
   bool emptied( IntfId intf ) const;
   /** The state that a port shall have in the chip; nothing where nobody says so. */
   std::optional< PortState > wantedInChip( const String & topo, IntfId port ) const;
   String checkChip( const String & topo, IntfId port, PortState state ) const;
   bool roomFor( const String & topo ) const;
   String checkStates( const String & name ) const;
   String checkTopo( const String & name ) const;
   String checkPort( const String & name, IntfId intf,
                     const Bridging::Topology::TopoPortConfig & config ) const;
   String checkVlan( Bridging::VlanId vlan ) const;
   String checkTables() const;

   Velto::Ptr< Bridging::Topology::Config > config_;
   Velto::Ptr< Bridging::Topology::Inst::Status > status_;
   SoftChip::TopoTable * table_ = nullptr;     ///< null on a chip without tables
   Velto::Ptr< Qon::VlanTopoHelper > perVlan_; ///< null on a chip with tables
   Velto::Ptr< Stp > stpSm_;
   bool pvst_;
   U32 mode_ = 0;
   bool keepsChip_ = false; ///< the next agent begins with the tables as they are
   U32 nested_ = 0;         ///< changes to make while a status is written
   U64 changes_ = 0;
   mutable bool dirty_ = true; ///< something happened since the last check
   mutable U32 sinceCheck_ = 0, walks_ = 0;
   SoftChip::BpduTrapping trapping_; ///< as the chip was told
   std::set< String > allocated_;
   std::vector< String > vlanTopo_; ///< by VLAN, as the chip was told; empty is none
   std::set< U16 > left_;           ///< VLANs that went from a live topology into none
   std::set< U16 > heard_;          ///< VLANs that the chip was told anything of
   std::set< IntfId > hadMembers_;
   Kiv::Listener< Qon::QonCommonSmData::lagToPortAttr > groups_;
   using PortListener = Kiv::Listener< Bridging::Topology::Inst::TopoStatus::topoPortStatusAttr >;
   using StateListener = Kiv::Listener< Bridging::Topology::TopoPortStatus::stateAttr >;
   std::map< String, PortListener > topoListeners_;
   std::map< std::pair< String, IntfId >, StateListener > statusWatches_;
};

class SimTopology::Stp : public Qon::StpSm {
 public:
   Stp( SimTopology * sim, Velto::Ptr< Qon::QonCommonSmData > acsd,
        Velto::Ptr< Qon::TopoHelper > helper )
       : StpSm( acsd, sim->config_, sim->status_, helper ), sim_( sim ) {}
   void configureBpduTrapping( bool bpdu, bool pvst ) override { sim_->bpduHeard( bpdu, pvst ); }

 private:
   SimTopology * sim_;
};

} // namespace Sim
