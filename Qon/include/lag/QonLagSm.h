#pragma once
// Membership of aggregates: what the link-aggregation agent publishes becomes the maps that all
// features read, the kernel's device names, and the members of the hardware groups.
//
//    EthLagIntfStatusDir -> NestedSm_Status per aggregate -> claims of ports
//                                                               |
//    acsd.intf (managed?) ------------------------> reviewPort( port ) -> acsd.lagToPort,
//                                                               |         then acsd.portToLag
//    Mlag::Status, sharePeerLinkWithLag -> reviewPeerLinkOf( lag ) +-> LagProgSm -> hardware
//
// Invariants
// 1. portToLag is the inverse of lagToPort whenever a change of portToLag is published; a list is
//    written before the port's entry, on joining and on leaving.
// 2. A port that several aggregates list belongs to the one that listed it last; when that one
//    drops it, the one before takes it back.
// 3. A port leaves its hardware group before it enters another. The maps hold own members only;
//    what the peer link lends is in the hardware groups alone.
// 4. Every managed aggregate of the status directory has an entry in lagToPort, if an empty one.
// 5. A change costs as much as the group is large, whatever the number of aggregates.
// 6. One thing at a time: what a watcher of these maps changes is taken up when the step that it
//    interrupted is done, still inside the outermost call.
//
// Ownership: counts its inputs and outputs; owns the nested state machines. lagToPort, portToLag
// and lagInLacpFallbackIndividualMode of the shared data are written here alone.

#include <optional>

#include "Qon/include/framework/QonCommonSmData.h"
#include "Qon/include/framework/SmCollection.h"
#include "Qon/include/framework/WorkQueue.h"
#include "Qon/include/lag/LagClaims.h"
#include "Qon/include/lag/QonLagProgSm.h"
#include "platform/types/Mlag.h"

namespace Qon {

class LagSm : public QonBaseSm, public Checked {
   KIV_BODY( LagSm, QonBaseSm )
 public:
   /** Follows the status of one aggregate. */
   class NestedSm_Status : public QonBaseSm {
    public:
      using Status = Interface::EthLagIntfStatus;
      NestedSm_Status( LagSm * lagSm, Velto::Ptr< const Status > status );

      void handleInitialized() override;
      /** A member came, went, or changed its flags. */
      void handleIntf( const Ulnet::IntfId & member );
      void handleLacpFallbackEnabled();
      void handleDeviceName();
      /** The aggregate goes: its members, its entries, its device name. */
      void handleDel();

      /** @name Steps of the handlers above */
      /** @{ */
      /** Claims a member or drops it; who has the port is settled at the end of the handler. */
      void doUpdateMember( Ulnet::IntfId member, bool isMember );
      /** Claims the ports of the list, and drops all others; settled likewise. */
      void doUpdatePortList( const QonPortList & portList );
      /** Drops every member and then the entries; done on return. */
      void doCleanupLag();
      /** @} */

      Ulnet::IntfId lag() const { return status_->intfId(); }
      const Status * status() const { return status_.ptr(); }
      /** Between its start and handleDel(). */
      bool live() const { return live_; }
      /** The ports that the status lists, as far as they are heard of. */
      const KeySet< Ulnet::IntfId > & claims() const { return claims_; }

    private:
      /** Claims nothing any more; `act( port )` for what was claimed. */
      template< class Act >
      void claimsDel( Act && act );

      LagSm * lagSm_;
      const Velto::Ptr< const Status > status_;
      KeySet< Ulnet::IntfId > claims_;
      bool live_ = false;
      Kiv::Watch< Status::intfAttr, NestedSm_Status, &NestedSm_Status::handleIntf > intfWatch_;
      Kiv::Watch< Status::lacpFallbackEnabledAttr, NestedSm_Status,
                  &NestedSm_Status::handleLacpFallbackEnabled >
            fallbackWatch_;
      Kiv::Watch< Status::deviceNameAttr, NestedSm_Status, &NestedSm_Status::handleDeviceName >
            deviceNameWatch_;
   };

   /** What LagSm works with. `acsd` and `ethLagIntfStatusDir` must be there, the others may be
       null: what they stand for is left out then. */
   struct Inputs {
      Velto::Ptr< QonCommonSmData > acsd;
      Velto::Ptr< const Interface::EthLagIntfStatusDir > ethLagIntfStatusDir;
      Velto::Ptr< Lag::Input::IntfDeviceNameDir > lagInputIntfDeviceNameDir;
      Velto::Ptr< const Mlag::Status > mlagStatus;
      Velto::Ptr< VerifyData > verifyData;
      Velto::Ptr< LagProgSm > lagProgSm;
   };
   explicit LagSm( Inputs inputs );

   void handleInitialized() override;
   void kivDoZombieReactors() override;

   /** Whether the agent takes care of the interface: a port-channel, a port in acsd.intf, and
       every port while acsd.intf is empty. An override must depend on acsd.intf of that interface
       alone. */
   virtual bool isIntfManaged( Ulnet::IntfId intf ) const;

   /** The state machine of an aggregate's status, or null. */
   NestedSm_Status * status( Ulnet::IntfId lag ) const { return status_.sm( lag ); }
   /** An aggregate's own members, without what the peer link lends. */
   const QonLagPortList & localMember( Ulnet::IntfId lag ) const {
      return acsd()->lagToPort( lag );
   }
   bool localMemberHas( Ulnet::IntfId lag ) const { return acsd()->lagToPortHas( lag ); }

   using ShareMap = Kiv::DenseMap< Ulnet::IntfId, bool >;
   /** Whether the aggregate takes the members of the MLAG peer link into its hardware group while
       MLAG is established and redirects MAC addresses. Kept across the aggregate's deletion. */
   bool sharePeerLinkWithLag( Ulnet::IntfId lag ) const;
   void sharePeerLinkWithLagIs( const Ulnet::IntfId & lag, bool share );
   void sharePeerLinkWithLagDel( const Ulnet::IntfId & lag );
   void sharePeerLinkWithLagDelAll();
   /** Whether it was ever said; false is a setting, too. */
   bool sharePeerLinkWithLagHas( Ulnet::IntfId lag ) const { return share_.has( lag ); }
   Kiv::Iterator< ShareMap > sharePeerLinkWithLagIteratorConst() const {
      return Kiv::Iterator< ShareMap >( share_ );
   }
   U32 sharePeerLinkWithLags() const { return share_.size(); }
   /** The peer link whose members the aggregate has now; null is none. */
   Ulnet::IntfId sharedPeerLink( Ulnet::IntfId lag ) const;

   /** Compares the maps with the status directory, a finding for each difference, and asks for a
       retry if there are any. */
   void handleVerify();
   /** The same once more, without asking for a retry. */
   void handleRetryVerify();
   String checkInvariants() const override;

   QonCommonSmData * acsd() const { return in_.acsd.ptr(); }
   const Interface::EthLagIntfStatusDir * ethLagIntfStatusDir() const {
      return in_.ethLagIntfStatusDir.ptr();
   }
   Lag::Input::IntfDeviceNameDir * lagInputIntfDeviceNameDir() const {
      return in_.lagInputIntfDeviceNameDir.ptr();
   }
   const Mlag::Status * mlagStatus() const { return in_.mlagStatus.ptr(); }
   LagProgSm * lagProgSm() const { return in_.lagProgSm.ptr(); }
   VerifyData * verifyData() const { return in_.verifyData.ptr(); }

   /** The aggregates that have a state machine. */
   std::vector< Ulnet::IntfId > statusKeys() const { return status_.heldKeys(); }

   // What can be read by name; sharePeerLinkWithLag can be set, too.
   KIV_DECLARE(
         status, Ulnet::IntfId, NestedSm_Status,
         template children< KivT, Ulnet::IntfId, &KivT::status, &KivT::statusKeys >( "status" ) )
   KIV_DECLARE(
         localMember, Ulnet::IntfId, QonLagPortList,
         template mapOf< KivT, &KivT::acsd, QonCommonSmData::lagToPortAttr >( "localMember" ) )
   KIV_DECLARE( ethLagIntfStatusDir, void, const Interface::EthLagIntfStatusDir,
                template pointer< KivT, const Interface::EthLagIntfStatusDir,
                                  &KivT::ethLagIntfStatusDir >( "ethLagIntfStatusDir" ) )
   KIV_DECLARE( acsd, void, QonCommonSmData,
                template pointer< KivT, QonCommonSmData, &KivT::acsd >( "acsd" ) )
   KIV_DECLARE( verifyData, void, VerifyData,
                template pointer< KivT, VerifyData, &KivT::verifyData >( "verifyData" ) )
   KIV_DECLARE( lagProgSm, void, LagProgSm,
                template pointer< KivT, LagProgSm, &KivT::lagProgSm >( "lagProgSm" ) )
   KIV_DECLARE( mlagStatus, void, const Mlag::Status,
                template pointer< KivT, const Mlag::Status, &KivT::mlagStatus >( "mlagStatus" ) )
   KIV_DECLARE( sharePeerLinkWithLag, Ulnet::IntfId, bool,
                template map< KivT, Kiv::AttrKind::map, Ulnet::IntfId, bool, &KivT::share_,
                              &KivT::sharePeerLinkWithLagIs, &KivT::sharePeerLinkWithLagDel,
                              &KivT::sharePeerLinkWithLagDelAll >( "sharePeerLinkWithLag" ) )

   void handleIntfStatus( const Ulnet::IntfId & lag );
   void handleManagedIntf( const Ulnet::IntfId & intf );
   void handleMlagStateOrPeerLinkIntf();
   void handleMlagFastMacRedirection();

   /** Takes the port out of `lag`, in which it is, before it enters another. */
   void doScrubMember( Ulnet::IntfId port, Ulnet::IntfId lag );
   /** Lends the aggregate the peer link's members, or takes them back, as MLAG is now. `portList`
       are its own members. */
   void maybeSharePeerLinkWithLag( Ulnet::IntfId lag, const QonLagPortList & portList );
   /** Makes `peerLink` the one that lends its members to `lag`; null is none. `portList` are the own
       members, which stay. `forceUpdate` looks at the lent members even if the link is the same. */
   void addOrRemovePeerLink( Ulnet::IntfId lag, Ulnet::IntfId peerLink,
                             const QonLagPortList & portList, bool forceUpdate );

 private:
   Velto::Ptr< NestedSm_Status >
   makeStatusSm( const Ulnet::IntfId & lag,
                 const Velto::Ptr< const Interface::EthLagIntfStatus > & status );
   void cleanUpStatusSm( const Ulnet::IntfId & lag, NestedSm_Status * sm );

   /** A question whose answer may have changed, and that is looked at when its turn comes. */
   enum class What : U8 {
      entry,         // is there an entry in lagToPort for this aggregate?
      port,          // which aggregate has this port?
      fallback,      // is this aggregate in individual mode?
      peerLinkOf,    // does this aggregate take members from the peer link, and from which?
      peerLinkOfAll, // the same for every aggregate that is set to
      borrowers,     // what do the aggregates that took the peer link's members have of it now?
   };
   struct Work {
      What what;
      Ulnet::IntfId intf;
   };

   /** Later, for every aggregate that is followed. */
   void laterForAll( What what );
   void later( What what, Ulnet::IntfId intf = Ulnet::IntfId() ) { work_.add( { what, intf } ); }
   void settle();
   void review( const Work & work );

   void reviewEntry( Ulnet::IntfId lag );
   void reviewDeviceName( Ulnet::IntfId lag );
   void reviewPort( Ulnet::IntfId port );
   void reviewFallback( Ulnet::IntfId lag );
   void reviewHardware( Ulnet::IntfId lag, Ulnet::IntfId port, bool leaving );

   bool wanted( Ulnet::IntfId lag ) const;
   Ulnet::IntfId ownerOf( Ulnet::IntfId port ) const;
   void addMember( Ulnet::IntfId lag, Ulnet::IntfId port );
   void removeMember( Ulnet::IntfId lag, Ulnet::IntfId port );
   void membersChanged( Ulnet::IntfId lag );
   void entryDel( Ulnet::IntfId lag );

   void clearStaleDeviceNames();
   void repairMaps();
   void reviewStatuses();
   void settleAll();
   void removeStaleGroups();

   bool mlagEstablished() const;
   Ulnet::IntfId wantedPeerLink( Ulnet::IntfId lag ) const;
   std::vector< Ulnet::IntfId > peerLinkMembers( Ulnet::IntfId peerLink ) const;
   std::optional< QonLagPort > lentFlags( Ulnet::IntfId lag, Ulnet::IntfId port ) const;
   void reviewPeerLinkOf( Ulnet::IntfId lag );
   void reviewPeerLinkOfAll();
   void reviewBorrowers();

   /** Each reports what it finds. */
   void verifyLagToPort() const;
   void verifyStatus() const;
   void verifyStatusMembers( const Interface::EthLagIntfStatus & status ) const;
   void verifyDeviceNames() const;
   void verifyPortToLag() const;
   bool runVerify() const;

   const Inputs in_;
   WorkQueue< Work > work_;
   bool reading_ = false;  // a start has not read all claims yet: nothing is settled
   bool ownFirst_ = false; // a start puts ports into their aggregates; what is lent comes after it
   bool changed_ = false;  // the maps, since verification was last asked for
   bool allManaged_ = true;
   LagClaims claims_;
   ShareMap share_; // sharePeerLinkWithLag
   Kiv::DenseMap< Ulnet::IntfId, Ulnet::IntfId >
         borrowed_; // aggregate -> peer link whose members it has
   VerifyCheck check_;
   SmCollection< Ulnet::IntfId, Velto::Ptr< const Interface::EthLagIntfStatus >, NestedSm_Status,
                 LagSm, &LagSm::makeStatusSm, &LagSm::cleanUpStatusSm >
         status_{ this };
   Kiv::Watch< Interface::EthLagIntfStatusDir::intfStatusAttr, LagSm, &LagSm::handleIntfStatus >
         statusWatch_;
   Kiv::Watch< QonCommonSmData::intfAttr, LagSm, &LagSm::handleManagedIntf > reactAcsd_;
   Kiv::Watch< Mlag::Status::mlagStateAttr, LagSm, &LagSm::handleMlagStateOrPeerLinkIntf >
         mlagStateWatch_;
   Kiv::Watch< Mlag::Status::peerLinkIntfAttr, LagSm, &LagSm::handleMlagStateOrPeerLinkIntf >
         peerLinkWatch_;
   Kiv::Watch< Mlag::Status::fastMacRedirectionAttr, LagSm, &LagSm::handleMlagFastMacRedirection >
         redirectionWatch_;
   Kiv::Watch< VerifyData::reverifyAttr, LagSm, &LagSm::handleRetryVerify > reverifyWatch_;
};

/** Any but the first two may be null, see LagSm::Inputs. */
Velto::Ptr< LagSm > LagSmIs( Velto::Ptr< QonCommonSmData > acsd,
                             Velto::Ptr< const Interface::EthLagIntfStatusDir > ethLagIntfStatusDir,
                             Velto::Ptr< Lag::Input::IntfDeviceNameDir > lagInputIntfDeviceNameDir,
                             Velto::Ptr< const Mlag::Status > mlagStatus,
                             Velto::Ptr< VerifyData > verifyData,
                             Velto::Ptr< LagProgSm > lagProgSm = nullptr );

} // namespace Qon
