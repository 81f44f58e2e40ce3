#pragma once
// VLANs in the hardware: who is a member, who may forward, and what the chip has taken.
//
//    features -> requestPortVlanMembershipChange()  --.
//    VlanTopoHelper -> doHandlePortState(),           |--> hardware membership, generation
//                      setPortsBlocked()            --'        |
//                                                         pacing clock
//    chip <- doCreateHwVlan(), doUpdateVlan() <----------------'
//    chip -> updateVlanDone() -> completedVlanUpdateStatus -> whoever waits for a generation
//
// A chip-specific agent derives from this class, overrides doCreateHwVlan() and doUpdateVlan(),
// and reads what a VLAN is to hold with forEachHwPort().
//
// Invariants
// 1. Hardware membership is the requested membership of the ports that forward; ports of the
//    recirculation feature stay when they would have to leave.
// 2. A port forwards in a VLAN unless told otherwise: setPortsBlocked() tells of all ports, those
//    not seen yet included.
// 3. One update of a VLAN is under way at a time, for the latest generation when it started. What
//    changes meanwhile starts it again when it is done, and only the last one is published.
// 4. A generation is published as completed only when the chip reported success, or when the VLAN
//    has gone. A failed VLAN is tried again with its next change, at the latest after
//    retryInterval.
//
// Layout: ports are numbered as they appear, and keep their number. A VLAN keeps one cache line for each 64 ports, which
// holds all that is known of them.
//
// Ownership: points to the shared data without counting it, which counts this.

#include <vector>

#include "Qon/include/framework/QonCommonSmData.h"
#include "Qon/include/topology/VlanTypes.h"
#include "platform/Kiv/Clock.h"

namespace Qon {

class VlanHelper : public VlanHelperBase, public Checked {
   KIV_BODY( VlanHelper, VlanHelperBase )
   KIV_MAP( Bridging::VlanId, U64, completedVlanUpdateStatus ) // last completed generation
 public:
   using VlanId = Bridging::VlanId;
   using IntfId = Ulnet::IntfId;

   /** Seconds after which a failed VLAN is tried again. */
   static constexpr Kiv::Seconds retryInterval = 5.0;

   VlanHelper( const String & name, const QonCommonSmData * acsd );
   ~VlanHelper() override;

   /** `setOverride` sets the membership to the flags, `expand` adds the directions to what there
       is. Another kind is fatal. */
   U64 requestPortVlanMembershipChange( PortVlanMembershipChangeKind kind, IntfId port, VlanId vlan,
                                        bool tagged, bool ingress, bool egress ) override;
   /** Adds the port to the hardware membership, unless its state in the VLAN blocks it. An
       override calls this one. Fatal for a sub-interface. */
   void doAddPortToVlan( IntfId port, VlanId vlan, bool tagged, bool ingress,
                         bool egress ) override;
   /** Takes the port out of the hardware membership, unless the recirculation feature needs it. An
       override calls this one. */
   void doRemovePortFromVlan( IntfId port, VlanId vlan ) override;

   /** @name Port states */
   /** @{ */
   /** Whether the port forwards in the VLAN. Returns the generation to wait for; 0 when nothing
       had to be programmed. An override calls this one; it may report completions from within. */
   virtual U64 doHandlePortState( IntfId intf, VlanId vlan, bool forwarding );
   /** No port forwards in the VLAN until told otherwise. Returns as doHandlePortState(). */
   virtual U64 setPortsBlocked( VlanId vlan );
   /** @} */

   /** The chip is done with the doUpdateVlan() that is under way; may be called from within it.
       The chip reports once for each call, also for a VLAN that has gone meanwhile. */
   void updateVlanDone( VlanId vlan, VlanProgrammingStatus programmingStatus );
   /** The VLAN is there, and in the chip, though it may have no members. */
   U64 vlanIs( VlanId vlan );
   /** The VLAN has gone: nobody is a member. Whoever waits for it waits no more. The states of the
       ports are kept. */
   void vlanDel( VlanId vlan );

   /** @name What there is */
   /** @{ */
   struct UpdateState {
      U64 requested = 0;
      U64 completed = 0;
      bool inProgress = false;
      bool failed = false;
      Kiv::Seconds since = 0; // when the oldest change that is not completed was requested
   };
   UpdateState updateState( VlanId vlan ) const;
   VlanMembership membership( IntfId port, VlanId vlan ) const;
   VlanMembership hwMembership( IntfId port, VlanId vlan ) const;
   bool forwards( IntfId port, VlanId vlan ) const;
   /** Calls `act( IntfId, VlanMembership )` for every port that the chip is to hold, by number. */
   template< class Act >
   void forEachHwPort( VlanId vlan, Act && act ) const {
      forEachPort( vlan, true, act );
   }
   /** Likewise for every port whose membership is requested. */
   template< class Act >
   void forEachMember( VlanId vlan, Act && act ) const {
      forEachPort( vlan, false, act );
   }
   String checkInvariants() const override;
   /** When what failed is tried again; never: nothing did. */
   Kiv::Seconds retryTime() const { return retryClock_->time(); }
   /** How often a VLAN was. */
   U64 retries() const { return retries_; }
   /** @} */

 private:
   /** 64 ports of a VLAN, a bit each. */
   struct Block {
      U64 tagged = 0, ingress = 0, egress = 0;
      U64 forwarding = 0;
      U64 hwTagged = 0, hwIngress = 0, hwEgress = 0;

      U64 members() const { return ingress | egress; }
      U64 hwMembers() const { return hwIngress | hwEgress; }
   };
   struct Vlan {
      std::vector< Block > blocks;
      bool othersForward = true; // the ports beyond the blocks
      bool created = false;      // in the chip
      bool queued = false;
      bool inProgress = false;
      bool failed = false;
      U64 requested = 0;
      U64 programming = 0;
      U64 completed = 0;
      Kiv::Seconds since = 0;
   };
   static constexpr Kiv::Seconds pacingBudget = 0.003; // for the chip, in one turn

   static U64 bitOf( U32 port ) { return U64( 1 ) << ( port % 64 ); }
   static VlanMembership wantedOf( const Block & b, U64 bit ) {
      return { ( b.tagged & bit ) != 0, ( b.ingress & bit ) != 0, ( b.egress & bit ) != 0 };
   }
   static VlanMembership hwOf( const Block & b, U64 bit ) {
      return { ( b.hwTagged & bit ) != 0, ( b.hwIngress & bit ) != 0, ( b.hwEgress & bit ) != 0 };
   }
   template< class Act >
   void forEachPort( VlanId vlan, bool hw, Act && act ) const {
      const auto & blocks = vlan_[vlan].blocks;
      for ( U32 i = 0; i < blocks.size(); ++i ) {
         const Block & b = blocks[i];
         for ( U64 rest = hw ? b.hwMembers() : b.members(); rest; rest &= rest - 1 ) {
            const U64 bit = rest & -rest;
            act( port_[i * 64 + U32( __builtin_ctzll( rest ) )],
                 hw ? hwOf( b, bit ) : wantedOf( b, bit ) );
         }
      }
   }
   Block & blockOf( Vlan & v, U32 port ) {
      if ( port / 64 >= v.blocks.size() ) [[unlikely]] {
         grow( v, port );
      }
      return v.blocks[port / 64];
   }
   const Block * blockOf( IntfId port, VlanId vlan, U64 & bit ) const;
   void grow( Vlan & v, U32 port );
   U32 portNumber( IntfId intf );
   bool applyMembership( Vlan & v, VlanId vlan, U32 port );
   bool inRecirc( IntfId port ) const;
   String vlanFault( const Vlan & v ) const;
   void handleFeatureSet( const IntfId & lag );
   void handlePortToLag( const IntfId & port );
   U64 request( Vlan & v, VlanId vlan );
   void start( VlanId vlan );
   String hwPortsText( VlanId vlan ) const;
   void enqueue( Vlan & v, VlanId vlan );
   void handlePacing();
   void handleRetry();

   const QonCommonSmData * acsd_;
   Kiv::DenseMap< IntfId, U32 > portNumber_;
   std::vector< IntfId > port_;
   U32 lastPort_ = 0; // the number that was asked for last
   std::vector< Vlan > vlan_;
   U64 generation_ = 0;
   Kiv::Fifo< VlanId > queue_;
   std::vector< VlanId > failed_;
   U64 retries_ = 0;
   Kiv::ClockReactor< VlanHelper, &VlanHelper::handlePacing > pacingClock_;
   Kiv::ClockReactor< VlanHelper, &VlanHelper::handleRetry > retryClock_;
   Kiv::Watch< QonCommonSmData::lagToFeatureSetAttr, VlanHelper, &VlanHelper::handleFeatureSet >
         featureWatch_;
   Kiv::Watch< QonCommonSmData::portToLagAttr, VlanHelper, &VlanHelper::handlePortToLag >
         portToLagWatch_;
};

} // namespace Qon
