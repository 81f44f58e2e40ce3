#pragma once
// Layer-2 multicast groups: who their members are, which of the chip's groups they share, and what
// waits for what.
//
//    MulticastSmBase --- createMulticastGroup, addIntf, removeIntf, destroyMulticastGroup
//          |
//          v          membership changes     aggregates, ports, parity: MulticastReactorSm
//    MulticastHelper: entryList            <---------------------------'
//          |          groupList  (pending)  -> EthGroupReviewSm -> entry->syncWithHardware()
//          |          groupOverflowList (no room)                        |
//          |          groupDelList (to go)                               v
//          |          bitmapList: a set of ports -> its bitmap   chip: hooks of MulticastDataFactory.h
//          `-> MulticastOverflow: the flood set, the retry queue
//
// A group is pending, in hardware, without room, or to be deleted; membership changes make it pending, and
// the review compares what is wanted then with what it points at.
//
// Invariants
// 1. bitmapList has one bitmap for each distinct set of ports that an entry points at, by its bits; its
//    refCount, and that of the flood set, is the number of entries that point there.
// 2. The chip forwards a group to exactly its members, or floods it and has said so; never to fewer at
//    rest. Only ports that the shared data has (`intf`) are told to the chip.
// 3. An id in use names one group for as long as the group is not deleted from the chip; ids are 0 and
//    more. Two groups that are not to be deleted never have the same (address, VLAN).
// 4. Groups without a bitmap of their own are tried again in the order in which they overflowed, and no
//    group that comes later gets ahead of those that are pending.
// 5. Each message about room comes once on the way into the condition and, save where the group goes, once
//    on the way out.
// 6. A port keeps its number for ever. A group that never had a member is nowhere in the chip.
// 7. doCleanup() takes everything out of hardware; destruction calls no hook.
//
// Reads of the shared data: intf, lagToPort, portToLag, verifyData.
// Ownership: counts shared data, factory and entries; owns the review. State machines of groups count the
// helper, which points back without counting.

#include "Qon/include/framework/LagView.h"
#include "Qon/include/framework/SequenceMap.h"
#include "Qon/include/framework/WorkQueue.h"
#include "Qon/include/multicast/EthGroupReviewSm.h"
#include "Qon/include/multicast/GroupIds.h"
#include "Qon/include/multicast/MulticastOverflow.h"
#include "Qon/include/multicast/MulticastSmBase.h"

namespace Qon {

/** A group that waits: for a review, for room, or for its deletion. */
class PendingGroupListInfo {
   Bridging::MacVlanPair macVlan_;
   S64 groupIndex_ = -1; // the virtual group id
   KIV_VALUE( Qon, PendingGroupListInfo, macVlan, groupIndex )
};

/** The groups that an interface belongs to. */
class GroupMembership {
 public:
   U32 groups() const { return groups_.size(); }
   bool groupHas( S64 vGroup ) const { return groups_.has( vGroup ); }
   void groupIs( S64 vGroup ) { groups_.insert( vGroup ); }
   void groupDel( S64 vGroup ) { groups_.erase( vGroup ); }
   const GroupIds & ids() const { return groups_; }

 private:
   GroupIds groups_;
};

class MulticastHelper : public QonBaseHelper, public Checked {
   KIV_BODY( MulticastHelper, QonBaseHelper )
 public:
   using IntfId = Ulnet::IntfId;
   using Entry = HardwareL2MulticastEntry;
   using MacVlanPair = Bridging::MacVlanPair;
   using PendingList = Kiv::DenseMap< MacVlanPair, PendingGroupListInfo >;
   using DelList = Kiv::DenseMap< S64, PendingGroupListInfo >;
   using BitmapList = Kiv::DenseMap< QonTypes::Bitmap, Velto::Ptr< HardwareL2MulticastBitmap > >;
   using Memberships = Kiv::DenseMap< IntfId, GroupMembership >;

   struct Inputs {
      Velto::Ptr< QonCommonSmData > acsd;
      Velto::Ptr< MulticastDataFactory > factory;
      Velto::Ptr< const EthGroupReviewConfig > reviewConfig = nullptr; // null: the defaults
      Kiv::TimerWheel * wheel = Kiv::TimerWheel::current();
   };
   MulticastHelper( const String & name, Inputs inputs );
   ~MulticastHelper() override;

   // --- Groups ------------------------------------------------------------------------------------

   /** The next virtual group id, if it is free. */
   S64 vGroup() const { return vGroup_; }
   void vGroupIs( S64 vGroup ) { vGroup_ = vGroup; }
   /** By one; behind the largest comes 0. */
   void vGroupInc();

   /** A new group's id, which is `sm->vGroup()` from now on, though something may be raised; -1 if somebody
       else has the (address, VLAN): `sm->handleIndexValid()` is called when it is free. */
   S64 createMulticastGroup( const MulticastSmBase::Ptr & sm );
   /** Raises Velto::RangeError for a VLAN that is none. A group of that (address, VLAN) which waits for
       its deletion is deleted first. */
   void createMulticastAddr( const Ulnet::EthAddr & addr, U32 vlan, S64 vGroup );
   /** Adding a member twice, removing an absent one, and what is said of an unknown group or of one that
       waits for its deletion changes nothing. */
   void addIntf( IntfId intf, S64 vGroup );
   void removeIntf( IntfId intf, S64 vGroup );
   /** Queues the group of `sm` for deletion; `sm` waits for nothing any more. */
   void destroyMulticastGroup( const MulticastSmBase::Ptr & sm );
   /** Deletes a group from the chip and from everything here, at once. One whose hook is just being called
       is queued. */
   void destroySoftwareState( S64 vGroup );

   // --- Inputs ------------------------------------------------------------------------------------

   /** The members of an aggregate are others than before, or there are none any more. */
   void addOrRemoveLag( IntfId lag );
   /** A port became a member of some aggregate, or of none. */
   void addOrRemoveLagPort( IntfId port, bool present );
   /** Traffic of the peer link is dropped at the port, or is no more: its groups are looked at. */
   void addOrRemoveMlagIntfPort( IntfId port );
   /** The shared data has the port, or has it no more. */
   void handleAcsdIntf( IntfId intf );
   /** Memory of the chip went bad: `table` is one of the two below; others are not of interest. */
   void handleParityEvent( const String & table );
   static constexpr char macTable[] = "mac";
   static constexpr char multicastTable[] = "multicast";

   // --- Bitmaps -----------------------------------------------------------------------------------

   /** Takes the chip's group for the set that floods, if there is none yet; before any group needs it. */
   void addFloodEntry();
   /** Empties and gives back the bitmap of a set at which nobody points; whoever waits for one is reviewed. */
   void freeHardwareBitmap( const QonTypes::Bitmap & ports );
   /** Whoever waits for a bitmap is pending, in the order of the queue: the first few hundred at once, the
       others as the review goes on. Who finds none again stands at the end, and waits for the next call. */
   void reviewOverflowedGroups();
   /** The place of a group among those that wait for a bitmap, from 1; 0: it does not wait. */
   U32 placeInQueue( const Entry & entry ) const {
      return entry.retry_ ? overflow_->before( entry.retry_ ) + 1 : 0;
   }
   /** The number of a port; gives it one if it has none. */
   U32 bitOf( IntfId port );
   /** Null: no port has the number. */
   IntfId portOf( U32 bit ) const { return bit < portOfBit_.size() ? portOfBit_[bit] : IntfId(); }
   std::vector< IntfId > portsOf( const QonTypes::Bitmap & bits ) const;
   /** Those that have a number, and the aggregates that groups are expanded by. */
   const std::vector< IntfId > & portsKnown() const { return portOfBit_; }
   std::vector< IntfId > lagsKnown() const;

   // --- Checks, and the end -----------------------------------------------------------------------

   /** Compares the group with what its state machine wants, and with what it points at; differences are
       findings. False: there were some, or groups are being reviewed, and it has to be looked at again. */
   bool handleVerify( const MulticastSmBase::Ptr & sm );
   bool waitToVerify() const { return waitToVerify_; }
   String checkInvariants() const override;
   /** Takes all groups and the flood set out of the chip; called by one of its hooks, as soon as that has
       returned. While the agent restarts they stay there. */
   void doCleanup();
   /** Queues the groups for deletion that no state machine has, since theirs ended without a word. */
   void deleteOrphans();

   // --- What there is -----------------------------------------------------------------------------

   QonCommonSmData * acsd() const { return in_.acsd.ptr(); }
   MulticastDataFactory * factory() const { return in_.factory.ptr(); }
   EthGroupReviewSm * ethGroupReviewSm() const { return review_.ptr(); }
   Kiv::TimerWheel * wheel() const { return in_.wheel; }
   /** Made when it is asked for first. */
   MulticastOverflow * overflow();

   Entry * entryList( S64 vGroup ) const {
      auto entry = entryList_.find( U64( vGroup ) );
      return entry ? entry->ptr() : nullptr;
   }
   bool entryListHas( S64 vGroup ) const { return entryList_.has( U64( vGroup ) ); }
   U32 entryLists() const { return entryList_.size(); }
   /** Calls `act( Entry & )` for each group; it does not change them. */
   template< class Act >
   void forEachEntry( Act && act ) const {
      for ( auto all = entryList_.begin(); all; ++all ) {
         act( *all.value() );
      }
   }
   /** The group of an (address, VLAN), to be deleted or not; null if there is none. */
   Entry * entryOf( const MacVlanPair & key ) const {
      auto id = idOf_.find( key );
      return id ? entryList( *id ) : nullptr;
   }
   const BitmapList & bitmapList() const { return bitmapList_; }
   const PendingList & groupList() const { return groupList_; }
   /** Whether there is work for the review. */
   bool pending() const { return !groupList_.empty() || !followingHas_.empty() || retriesLeft(); }
   /** Whether the group waits for its review: in groupList(), or as one of many that follow those. */
   bool isPending( const Entry & entry ) const {
      return groupList_.has( entry.macVlan() ) || followingHas_.has( entry.vGroup() );
   }
   /** How often a group was tried again because there had been no room for it. */
   U64 retries() const { return retries_; }
   const PendingList & groupOverflowList() const { return groupOverflowList_; }
   const DelList & groupDelList() const { return groupDelList_; }
   const PendingGroupListInfo & groupList( const MacVlanPair & key ) const {
      auto info = groupList_.find( key );
      return info ? *info : Kiv::absent< PendingGroupListInfo >();
   }
   const Memberships & portGroupMembership() const { return portGroups_; }
   const Memberships & unresolvedPortGroupMembership() const { return unresolvedPortGroups_; }
   const Memberships & lagGroupMembership() const { return lagGroups_; }
   const GroupMembership * lagGroupMembership( IntfId lag ) const { return lagGroups_.find( lag ); }
   /** The members of an aggregate, as groups are expanded by. */
   const QonPortList & lagPortMembership( IntfId lag ) const {
      auto held = lags_.find( lag );
      return held ? held->ports : Kiv::absent< QonPortList >();
   }
   /** The aggregate of a member; each member is in one of the two. */
   IntfId hardwarePortToLag( IntfId port ) const { return lagOf( hardwarePortToLag_, port ); }
   IntfId unresolvedHardwarePortToLag( IntfId port ) const {
      return lagOf( unresolvedPortToLag_, port );
   }
   bool allLagPorts( IntfId port ) const {
      return hardwarePortToLag_.has( port ) || unresolvedPortToLag_.has( port );
   }

 private:
   friend class HardwareL2MulticastEntry;
   friend class EthGroupReviewSm;
   friend class MulticastSmBase;
   using EntryPtr = Velto::Ptr< Entry >;
   using BitmapPtr = Velto::Ptr< HardwareL2MulticastBitmap >;
   using PortToLag = Kiv::DenseMap< IntfId, IntfId >;

   static constexpr U32 atOnce = 256; // groups that a step makes pending

   struct Port {
      U32 bit;
      bool resolved;
   };
   struct LagMembers {
      QonPortList ports;
      QonTypes::Bitmap bits; // of those that are resolved
   };

   // Lists
   void queueGroup( Entry & entry );
   void pendingIs( Entry & entry );
   void queueGroupsOf( const GroupMembership * groups );
   void queueAll();
   void follow( S64 id );
   void moveFollowing();
   void forgetPending( Entry & entry );
   Entry * takeFirst();
   Entry * takeFollowing();
   /** Reviews the first pending group. */
   void reviewFirst();
   void synced( Entry & entry, QonTypes::TableAddStatus status );
   void reviewFirstOverflowed();
   void overflowListIs( Entry & entry );
   /** Whether some of those that are to be tried again are still in the queue. */
   bool retriesLeft() const {
      const U64 first = overflow_ ? overflow_->firstPlace() : 0;
      return first != 0 && first <= retryUntil_;
   }
   void moveRetries();
   void deleteFirst();

   // The begin and the end of a group
   class Busy;
   EntryPtr makeEntry( const MacVlanPair & key, S64 vGroup, Velto::FirstError & error );
   void endGroup( const EntryPtr & entry, bool lastTry );
   void forgetGroup( const EntryPtr & entry );
   void offer( const MacVlanPair & key );
   bool mustWait( const MacVlanPair & key, const Entry * entry ) const;
   void waitFor( const MacVlanPair & key, MulticastSmBase * sm );
   /** `sm` is no more. */
   void forget( MulticastSmBase * sm );
   void queueDeletion( Entry & entry );
   void deletionListIs( Entry & entry );

   // Membership
   bool resolved( IntfId port ) const;
   Memberships & membershipsOf( IntfId intf );
   static void leave( Memberships & of, IntfId intf, S64 vGroup );
   void leaveLag( IntfId lag, S64 vGroup );
   void removeMembership( Entry & entry );
   void computeDesired( Entry & entry );
   void reviewLag( IntfId lag );
   void bitsOfLag( LagMembers & lag );
   void lagGone( IntfId lag );
   bool portPresenceIs( IntfId port, bool present );
   static IntfId lagOf( const PortToLag & map, IntfId port ) {
      auto lag = map.find( port );
      return lag ? *lag : IntfId();
   }

   // Bitmaps
   /** With a count for the caller; null: the chip has no group for it. */
   BitmapPtr bitmapFor( const QonTypes::Bitmap & ports );
   BitmapPtr makeBitmap( const QonTypes::Bitmap & ports );
   bool takeGroup( HardwareL2MulticastBitmap & bitmap );
   void writeBitmap( HardwareL2MulticastBitmap & bitmap );
   void emptyBitmap( HardwareL2MulticastBitmap & bitmap );
   void emptyBitmap( HardwareL2MulticastBitmap & bitmap, Velto::FirstError & error );
   void reviewFlood();
   void programFlood();
   void repairFlood();
   void dropFlood( Velto::FirstError & error );
   void countDel( HardwareL2MulticastBitmap & bitmap, U32 & count );
   void freeUnused();
   void freeBitmap( BitmapPtr bitmap );
   void dropBitmap( HardwareL2MulticastBitmap & bitmap );

   String brokenEntry( const Entry & entry ) const;
   String brokenBitmaps() const;
   bool verifyEntry( const Entry & entry, const MulticastSmBase & sm );

   const Inputs in_;
   Velto::Ptr< EthGroupReviewSm > review_;
   Velto::Ptr< MulticastOverflow > overflow_;
   std::optional< BitmapInfoType > bitmapInfo_;
   U32 bitmapsMade_ = 0;
   bool waitToVerify_ = false;
   bool cleanupWanted_ = false;
   U32 busy_ = 0;       // hooks that are being called
   U32 macDoubts_ = 0;  // parity errors of the MAC table
   U64 retryUntil_ = 0; // the last place of those that are to be tried again
   U64 retries_ = 0;
   S64 vGroup_ = 0;

   SequenceMap< EntryPtr > entryList_;
   Kiv::DenseMap< MacVlanPair, S64 > idOf_;
   Kiv::DenseMap< MacVlanPair, std::vector< MulticastSmBase * > > waiting_;
   std::vector< MacVlanPair > beginning_; // whose entry the factory is making
   WorkQueue< Kiv::Nothing > floodWork_;
   BitmapList bitmapList_;
   std::vector< BitmapPtr > unused_; // those that may have nobody any more
   PendingList groupList_;
   Kiv::Fifo< S64 > following_; // ids of groups that are pending behind them, in order,
   GroupIds followingHas_;      // and those of them that are so still
   PendingList groupOverflowList_;
   DelList groupDelList_;

   Kiv::DenseMap< IntfId, Port > ports_;
   std::vector< IntfId > portOfBit_;
   QonTypes::Bitmap resolved_; // the ports that the shared data has
   Memberships portGroups_;
   Memberships unresolvedPortGroups_;
   Memberships lagGroups_;
   Kiv::DenseMap< IntfId, LagMembers > lags_;
   PortToLag hardwarePortToLag_;
   PortToLag unresolvedPortToLag_;
};

Velto::Ptr< MulticastHelper > MulticastHelperIs( const String & name,
                                                 MulticastHelper::Inputs inputs );

} // namespace Qon
