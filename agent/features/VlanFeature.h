#pragma once
// VLANs: tables VLAN and VLAN_MEMBER, and the VLAN table of the chip.
//
//    {"event": "vlanMember", "vlan": 10, "intf": "Ethernet0", "mode": "tagged"}
//
// `mode` is tagged, untagged or none.

#include <map>
#include <set>

#include "agent/AgentFeature.h"
#include "agent/Configured.h"
#include "agent/features/VlanMembersSm.h"
#include "chip/TopologyPart.h"
#include "chip/VlanPart.h"
#include "platform/types/Topology.h"

namespace QonAgent {

class ConfigRow;

class VlanFeature : public AgentFeature {
 public:
   explicit VlanFeature( Agent & agent );
   std::vector< ConfigTable > tables() const override;
   ConfigStage configStage() const override { return ConfigStage::vlans; }
   void configure( ConfigReader & reader ) override;
   std::vector< ShowCommand > showCommands() override;
   std::vector< EventKind > eventKinds() override;
   std::vector< String > ownNames() const override { return { "Bridging::Vlan::", "VlanHelper" }; }
   std::vector< Counter > counters() const override;

   /** Null if the chip has none. */
   Qon::VlanHelper * helper() const { return helper_.ptr(); }

 private:
   /** Of ports, while a file is checked. */
   struct Seen {
      std::set< Ulnet::IntfId > lagMembers;
      std::map< Ulnet::IntfId, String > untagged; ///< the VLAN; empty once a second one was named
   };
   void nameOdd( ConfigReader & reader, const ConfigRow & row, Ulnet::IntfId port,
                 const String & untaggedIn, Seen & seen ) const;
   U64 packed( Bridging::VlanId vlan, Ulnet::IntfId port, bool tagged );
   void membersBecome( const std::vector< U64 > & said );
   std::function< void() > parseMember( const Json & line );
   Rows vlans( Arguments arguments ) const;
   Row vlanRow( Bridging::VlanId vlan ) const;
   Row memberRow( Bridging::VlanId vlan, Ulnet::IntfId port, const QonChip::HeldVlan & held ) const;
   bool forwards( Bridging::VlanId vlan, Ulnet::IntfId port ) const;
   std::vector< Ulnet::IntfId > membersOf( Bridging::VlanId vlan ) const;
   Rows hardware( Arguments arguments ) const;
   Row row( Bridging::VlanId vlan, Ulnet::IntfId port, Qon::VlanMembership how ) const;

   Agent & agent_;
   QonChip::VlanPart * const part_; ///< null: the chip has none
   const Velto::Ptr< Bridging::Vlan::Config > config_;
   QonChip::TopologyPart * const spanningTree_; ///< null: the chip has none
   const Velto::Ptr< const Bridging::Topology::Config > topologies_;
   const Velto::Ptr< const Bridging::Topology::Inst::Status > acknowledged_;
   const Velto::Ptr< Qon::VlanHelper > helper_;
   Velto::Ptr< VlanMembersSm > membersSm_;
   Configured< Bridging::VlanId, Kiv::Nothing > configured_;
   // Of the rows of VLAN_MEMBER there may be millions: see packed().
   std::vector< U64 > members_; // in ascending order
   std::vector< Ulnet::IntfId > ports_;
   std::map< Ulnet::IntfId, U32 > portNumbers_; // in ports_
};

} // namespace QonAgent
