#pragma once
// Layer-2 multicast as a whole: a state machine for each group that snooping or the operator wants.
//
//    IgmpSnooping::Status --> IgmpSnoopingVlanSm, one a VLAN --> IgmpSnoopingEthGroupSm, one a group
//    Multicast::StaticConfig ---------------------------------> MulticastAddrSimpleSm, one a group
//    the shared agent data --> MulticastReactorSm
//                                all of them --> MulticastHelper
//
// Invariants
// 1. There is a state machine for each group of the inputs whose VLAN is one, and no other. A group that
//    is deleted and created again has a new one.
// 2. The flood set has its group of the chip before the first group asks for one.
// 3. doCleanup() takes all groups out of hardware; destruction calls no hook.
//
// Ownership: counts helper and inputs; owns the state machines.

#include "Qon/include/framework/SmCollection.h"
#include "Qon/include/multicast/MulticastReactorSm.h"

namespace Qon {

class IgmpSnoopingVlanSm : public QonBaseSm {
 public:
   using Vlan = Bridging::IgmpSnooping::VlanStatus;
   using Group = Bridging::IgmpSnooping::EthGroupStatus;

   IgmpSnoopingVlanSm( Velto::Ptr< MulticastHelper > helper, Velto::Ptr< const Vlan > vlan );

   void handleInitialized() override;
   void kivDoZombieReactors() override;
   void handleEthGroup( const Ulnet::EthAddr & addr );
   void prepareToDie();
   IgmpSnoopingEthGroupSm * group( const Ulnet::EthAddr & addr ) const {
      return groups_.sm( addr );
   }
   U32 groups() const { return groups_.size(); }
   void verify();

 private:
   Velto::Ptr< IgmpSnoopingEthGroupSm > makeGroup( const Ulnet::EthAddr & addr,
                                                   const Velto::Ptr< const Group > & group );
   void cleanUpGroup( const Ulnet::EthAddr & addr, IgmpSnoopingEthGroupSm * sm );

   const Velto::Ptr< MulticastHelper > helper_;
   const Velto::Ptr< const Vlan > vlan_;
   SmCollection< Ulnet::EthAddr, Velto::Ptr< const Group >, IgmpSnoopingEthGroupSm,
                 IgmpSnoopingVlanSm, &IgmpSnoopingVlanSm::makeGroup,
                 &IgmpSnoopingVlanSm::cleanUpGroup >
         groups_{ this };
   Kiv::Watch< Vlan::ethGroupAttr, IgmpSnoopingVlanSm, &IgmpSnoopingVlanSm::handleEthGroup >
         groupWatch_;
};

class IgmpSnoopingSm : public QonBaseSm, public Checked {
 public:
   using Vlan = Bridging::IgmpSnooping::VlanStatus;
   using StaticGroup = Bridging::Multicast::StaticGroup;

   struct Inputs {
      Velto::Ptr< MulticastHelper > helper;
      Velto::Ptr< const Bridging::IgmpSnooping::Status > status;
      Velto::Ptr< const Bridging::Multicast::StaticConfig > staticConfig;
   };
   explicit IgmpSnoopingSm( Inputs inputs );

   void handleInitialized() override;
   void kivDoZombieReactors() override;
   void handleVlanStatus( const Bridging::VlanId & vlan );
   void handleStaticGroup( const McastAddr & key );
   /** Each group is compared with what is configured. */
   void handleVerify();
   void doCleanup();
   String checkInvariants() const override;

   MulticastHelper * helper() const { return in_.helper.ptr(); }
   IgmpSnoopingVlanSm * vlan( const Bridging::VlanId & vlan ) const { return vlans_.sm( vlan ); }
   MulticastAddrSimpleSm * staticGroup( const McastAddr & key ) const {
      return staticGroups_.sm( key );
   }

 private:
   Velto::Ptr< IgmpSnoopingVlanSm > makeVlan( const Bridging::VlanId & vlan,
                                              const Velto::Ptr< const Vlan > & status );
   void cleanUpVlan( const Bridging::VlanId & vlan, IgmpSnoopingVlanSm * sm );
   Velto::Ptr< MulticastAddrSimpleSm >
   makeStaticGroup( const McastAddr & key, const Velto::Ptr< const StaticGroup > & group );
   void cleanUpStaticGroup( const McastAddr & key, MulticastAddrSimpleSm * sm );
   Velto::Ptr< const StaticGroup > staticGroupWanted( const McastAddr & key ) const;

   const Inputs in_;
   const Velto::Ptr< MulticastReactorSm > reactor_;
   SmCollection< Bridging::VlanId, Velto::Ptr< const Vlan >, IgmpSnoopingVlanSm, IgmpSnoopingSm,
                 &IgmpSnoopingSm::makeVlan, &IgmpSnoopingSm::cleanUpVlan >
         vlans_{ this };
   SmCollection< McastAddr, Velto::Ptr< const StaticGroup >, MulticastAddrSimpleSm, IgmpSnoopingSm,
                 &IgmpSnoopingSm::makeStaticGroup, &IgmpSnoopingSm::cleanUpStaticGroup >
         staticGroups_{ this };
   VerifyCheck check_;
   Kiv::Watch< Bridging::IgmpSnooping::Status::vlanStatusAttr, IgmpSnoopingSm,
               &IgmpSnoopingSm::handleVlanStatus >
         vlanWatch_;
   Kiv::Watch< Bridging::Multicast::StaticConfig::groupAttr, IgmpSnoopingSm,
               &IgmpSnoopingSm::handleStaticGroup >
         staticWatch_;
};

Velto::Ptr< IgmpSnoopingSm > IgmpSnoopingSmIs( IgmpSnoopingSm::Inputs inputs );

} // namespace Qon
