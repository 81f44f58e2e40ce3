#pragma once
// The state machine of one group: of snooping, or of the operator.
//
//    IgmpSnooping::EthGroupStatus -> IgmpSnoopingEthGroupSm --.
//                                                             |-> MulticastHelper: an id, its members
//    Multicast::StaticGroup       -> MulticastAddrSimpleSm ---'
//
// Invariants
// 1. A state machine has a virtual group id while its group is wanted and no other state machine has the
//    same (address, VLAN). Who comes second waits, without an id, until the first one's group has gone
//    from the chip; of several that wait the first is next.
// 2. At rest the members of its group are the wanted interfaces. Of a snooped group a member that leaves
//    and is a router port of the VLAN stays in hardware for as long as it is one.
// 3. It makes no hardware call; the helper's review does.
//
// Ownership: made by IgmpSnoopingSm; counts the helper and the entities that it follows.

#include <memory>

#include "Qon/include/framework/QonBaseSm.h"
#include "platform/Kiv/Clock.h"
#include "platform/types/Multicast.h"

namespace Qon {

class MulticastHelper;

class MulticastSmBase : public QonBaseSm {
 public:
   using Ptr = Velto::Ptr< MulticastSmBase >;
   using IntfId = Ulnet::IntfId;

   MulticastSmBase( Velto::Ptr< MulticastHelper > helper, const Bridging::MacVlanPair & macVlan );
   ~MulticastSmBase() override;

   void kivDoZombieReactors() override;
   void handleInitialized() override;

   /** Takes an id, and hands over address and interfaces; without an id if it has to wait. */
   virtual void createMulticastGroup();
   /** Makes true that the interface is a member, or none. */
   virtual void handleIntf( const IntfId & intf );
   /** Makes true that there is a group, or none. */
   virtual void handleIndexValid();
   /** Compares the group with what is configured, in a verification run. */
   virtual void handleVerify();
   /** Raises the message that the MAC table has no room for the group. Called on the way into that
       condition. */
   virtual void logTableFull();
   /** Gives the group up. */
   virtual void prepareToDie();

   MulticastHelper * helper() const { return helper_.ptr(); }
   const Bridging::MacVlanPair & macVlan() const { return macVlan_; }
   /** -1: it has none. */
   S64 vGroup() const { return vGroup_; }

   /** @name What is wanted */
   /** @{ */
   virtual bool groupWanted() const = 0;
   virtual bool intfWanted( IntfId intf ) const = 0;
   virtual std::vector< IntfId > intfsWanted() const = 0;
   /** Whether the interface stays a member though it is not wanted. */
   virtual bool isRouterIntf( IntfId ) const { return false; }
   /** @} */

 protected:
   virtual void attachInputs() = 0;
   /** Makes true what is said above for all interfaces. */
   void reviewIntfs();
   /** Whether it is to do nothing any more. */
   bool dying() const { return dying_; }

 private:
   friend class MulticastHelper;
   void destroyMulticastGroup();

   const Velto::Ptr< MulticastHelper > helper_;
   const Bridging::MacVlanPair macVlan_;
   S64 vGroup_ = -1;
   bool dying_ = false;
};

class IgmpSnoopingEthGroupSm : public MulticastSmBase {
 public:
   using Ptr = Velto::Ptr< IgmpSnoopingEthGroupSm >;
   using Group = Bridging::IgmpSnooping::EthGroupStatus;
   using Vlan = Bridging::IgmpSnooping::VlanStatus;

   IgmpSnoopingEthGroupSm( Velto::Ptr< MulticastHelper > helper, Velto::Ptr< const Vlan > vlan,
                           Velto::Ptr< const Group > group );

   /** When it did not go through it is tried again: while groups are being reviewed every second, after a
       finding three times. */
   void handleVerify() override;
   void handleVerifyClock();
   void handleRouterIntf( const IntfId & intf );

   bool groupWanted() const override { return group_->indexValid(); }
   bool intfWanted( IntfId intf ) const override { return group_->intfHas( intf ); }
   std::vector< IntfId > intfsWanted() const override;
   bool isRouterIntf( IntfId intf ) const override { return vlan_->routerIntfHas( intf ); }

 private:
   using VerifyClock =
         Kiv::ClockReactor< IgmpSnoopingEthGroupSm, &IgmpSnoopingEthGroupSm::handleVerifyClock >;
   void attachInputs() override;
   void verify();

   const Velto::Ptr< const Vlan > vlan_;
   const Velto::Ptr< const Group > group_;
   U32 verifyTries_ = 0;
   std::unique_ptr< VerifyClock > verifyClock_; // when it was needed
   Kiv::Watch< Group::intfAttr, MulticastSmBase, &MulticastSmBase::handleIntf > intfWatch_;
   Kiv::Watch< Group::indexValidAttr, MulticastSmBase, &MulticastSmBase::handleIndexValid >
         indexValidWatch_;
   Kiv::Watch< Vlan::routerIntfAttr, IgmpSnoopingEthGroupSm,
               &IgmpSnoopingEthGroupSm::handleRouterIntf >
         routerWatch_;
};

class MulticastAddrSimpleSm : public MulticastSmBase {
 public:
   using Ptr = Velto::Ptr< MulticastAddrSimpleSm >;
   using Group = Bridging::Multicast::StaticGroup;

   MulticastAddrSimpleSm( Velto::Ptr< MulticastHelper > helper, Velto::Ptr< const Group > group );

   bool groupWanted() const override { return true; }
   bool intfWanted( IntfId intf ) const override { return group_->intfHas( intf ); }
   std::vector< IntfId > intfsWanted() const override;

 private:
   void attachInputs() override;

   const Velto::Ptr< const Group > group_;
   Kiv::Watch< Group::intfAttr, MulticastSmBase, &MulticastSmBase::handleIntf > intfWatch_;
};

Velto::Ptr< IgmpSnoopingEthGroupSm >
IgmpSnoopingEthGroupSmIs( Velto::Ptr< MulticastHelper > helper,
                          Velto::Ptr< const Bridging::IgmpSnooping::VlanStatus > vlan,
                          Velto::Ptr< const Bridging::IgmpSnooping::EthGroupStatus > group );
Velto::Ptr< MulticastAddrSimpleSm >
MulticastAddrSimpleSmIs( Velto::Ptr< MulticastHelper > helper,
                         Velto::Ptr< const Bridging::Multicast::StaticGroup > group );

} // namespace Qon
