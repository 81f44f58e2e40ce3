#pragma once
// Turns the configured members of VLANs into requests for hardware membership: a port-channel
// stands for its members, an empty one for itself.
//
//    Bridging::Vlan::Config, LAGs of the shared data -> review( vlan, port ) -> VlanHelper
//
// A member of a port-channel is in the port-channel's VLANs, whatever is configured for itself.

#include "Qon/include/framework/LagView.h"
#include "Qon/include/framework/SmCollection.h"
#include "Qon/include/topology/QonVlanHelper.h"
#include "platform/types/Vlan.h"

namespace QonAgent {

class VlanMembersSm : public Qon::QonBaseSm {
 public:
   using Config = Bridging::Vlan::Config;
   using VlanConfig = Bridging::Vlan::VlanConfig;
   using IntfId = Ulnet::IntfId;
   using VlanId = Bridging::VlanId;

   VlanMembersSm( Qon::QonCommonSmData * acsd, Velto::Ptr< const Config > config,
                  Velto::Ptr< Qon::VlanHelper > helper );

   void handleInitialized() override;
   void kivDoZombieReactors() override;
   void handleVlan( const VlanId & vlan );
   /** A member of the VLAN was configured, changed or taken away. */
   void handleMember( VlanId vlan, IntfId member );
   void handleLag( IntfId port, IntfId from, IntfId to );
   void handleLagList( Ulnet::IntfId lag, Ulnet::IntfId port );

 private:
   /** Hears of the members of one VLAN. */
   class VlanSm;
   Velto::Ptr< VlanSm > makeVlan( const VlanId & vlan, const Velto::Ptr< const VlanConfig > & );
   void cleanUpVlan( const VlanId & vlan, VlanSm * sm );
   void review( VlanId vlan, const VlanConfig * config, IntfId port );

   Qon::QonCommonSmData * const acsd_;
   const Velto::Ptr< const Config > config_;
   const Velto::Ptr< Qon::VlanHelper > helper_;
   Qon::SmCollection< VlanId, Velto::Ptr< const VlanConfig >, VlanSm, VlanMembersSm,
                      &VlanMembersSm::makeVlan, &VlanMembersSm::cleanUpVlan >
         vlanSm_;
   Kiv::Watch< Config::vlanConfigAttr, VlanMembersSm, &VlanMembersSm::handleVlan > vlanWatch_;
   Qon::LagFollower< VlanMembersSm, &VlanMembersSm::handleLag, &VlanMembersSm::handleLagList >
         lagFollower_;
};

} // namespace QonAgent
