#pragma once
// VLANs: tables VLAN and VLAN_MEMBER, and the VLAN table of the chip.
//
//    {"event": "vlanMember", "vlan": 10, "intf": "Ethernet0", "mode": "tagged"}
//
// `mode` is tagged, untagged or none.

#include "agent/AgentFeature.h"
#include "agent/features/VlanMembersSm.h"
#include "agent/softchip/VlanTable.h"
#include "platform/types/Topology.h"

namespace QonAgent {

class ConfigRow;

class VlanFeature : public AgentFeature {
 public:
   const char * name() const override { return "vlan"; }
   void create( Agent & agent ) override;
   void destroy() override;
   std::vector< String > tables() const override { return { "VLAN", "VLAN_MEMBER" }; }
   void configure( ConfigReader & reader ) override;
   std::vector< ShowCommand > showCommands() override;
   std::vector< EventKind > eventKinds() override;

   SoftChip::SoftVlanHelper * helper() const { return helper_.ptr(); }

 private:
   Bridging::VlanId vlanOf( ConfigReader & reader, const String & name ) const;
   std::function< void() > parseMember( const Json & line );
   Json vlans( const std::vector< String > & arguments ) const;
   Json hardware( const std::vector< String > & arguments ) const;
   Json row( Bridging::VlanId vlan, Ulnet::IntfId port, Qon::VlanMembership how ) const;

   Agent * agent_ = nullptr;
   Velto::Ptr< Bridging::Vlan::Config > config_;
   Velto::Ptr< const Bridging::Topology::Config > topologies_;
   Velto::Ptr< SoftChip::SoftVlanHelper > helper_;
   Velto::Ptr< VlanMembersSm > membersSm_;
};

} // namespace QonAgent
