#pragma once
// The hardware side of layer-2 multicast: what a chip-specific agent overrides.
//
//    MulticastHelper -> MulticastDataFactory: makes the chip's entries and bitmaps
//    EthGroupReviewSm -> HardwareL2MulticastEntry::syncWithHardware()
//         -> HardwareL2MulticastBitmap: createL2MulticastEntry(), writeGroupsToHardware()
//         -> updateMacTableEntry(): (group address, VLAN) -> the bitmap's group
//
// A bitmap stands for one of the chip's multicast groups: a set of ports. All groups that want the same
// ports share one. Bits are numbers that MulticastHelper::bitOf() gives to ports.
//
// Invariants
// 1. A bitmap's set is written before the first MAC entry points at it, and is emptied and given back
//    after the last one points elsewhere.
// 2. refCount is the number of entries that point at a bitmap. One at which nobody points any more is
//    freed: its chip's class returns the group in its destructor. One that is not freed when it ends
//    leaves the group as it is: the agent ends, and the chip goes on.
// 3. Every hook is done when it returns. One that raises has done nothing, and is called again.
// 4. One call at a time for an entry: what a hook changes is taken up when the review that called it goes
//    on.
//
// Ownership: the helper counts entries, entries count bitmaps; both die before the factory, and point
// back to the helper without counting.

#include "Qon/include/framework/Bitmap.h"
#include "Qon/include/framework/QonBaseSm.h"
#include "Qon/include/framework/QonPortLists.h"
#include "Qon/include/framework/Reconcile.h"
#include "Qon/include/multicast/GroupMembers.h"
#include "platform/types/Bridging.h"
#include "platform/types/TableAddStatus.h"
#include "platform/types/Ulnet.h"

namespace Qon {

class MulticastHelper;
class MulticastSmBase;

/** How the chip's bitmaps are to be: handed from one hook of the factory to the other as it is. */
class BitmapInfoType {
   U32 ports_ = 0; // that a bitmap may have; 0: whatever comes
   U32 kind_ = 0;  // in the chip's own terms
   KIV_VALUE( Qon, BitmapInfoType, ports, kind )
};

/** One multicast group of the chip: a set of ports. */
class HardwareL2MulticastBitmap : public QonBaseHelper {
   KIV_BODY( HardwareL2MulticastBitmap, QonBaseHelper )
 public:
   using IntfId = Ulnet::IntfId;
   static constexpr S64 noGroup = -1;

   HardwareL2MulticastBitmap( MulticastHelper * helper, const QonTypes::Bitmap & ports,
                              const BitmapInfoType & info );

   /** Takes a group of the chip. Returns its index, or noGroup if none is free: the object is dropped
       then, and nothing more is called. */
   virtual S64 createL2MulticastEntry();
   /** The group consists of these ports from now on: at first, and of none when it is about to be given
       back. */
   virtual void writeGroupsToHardware( const QonTypes::Bitmap & ports );
   /** The same for a group that was written before, and may differ all the same: after a parity error, or
       since an aggregate of lagList() went and came back, with other logical ports perhaps. */
   virtual void modifyGroupsInHardware( const QonTypes::Bitmap & ports );

   /** Knows of which ports the numbers are: portsOf(). */
   MulticastHelper * helper() const { return helper_; }
   /** The set that it stands for. */
   const QonTypes::Bitmap & ports() const { return ports_; }
   const BitmapInfoType & info() const { return info_; }
   S64 groupIndex() const { return groupIndex_; }
   U32 refCount() const { return refCount_; }
   /** What was written last; empty when that is not to be trusted. */
   const QonTypes::Bitmap & hardwarePhysicalShadow() const { return shadow_; }
   /** The aggregates that some of the ports came from, for any of the groups that came to point here, and
       that have not gone since. */
   const QonPortList & lagList() const { return lagList_; }
   bool lagRemoved() const { return lagRemoved_; }
   /** Whether the group is to be given back when this ends. */
   bool freed() const { return refCount_ == 0 && !written_; }
   /** Whether the chip's copy is to be written again. */
   bool stale() const { return !written_ || lagRemoved_; }

 private:
   friend class MulticastHelper;
   friend class HardwareL2MulticastEntry;

   bool unused() const { return refCount_ == 0 && macEntries_ == 0; }
   void lagsAdd( const QonPortList & lags );

   MulticastHelper * const helper_;
   QonTypes::Bitmap ports_;
   QonTypes::Bitmap shadow_;
   QonPortList lagList_;
   const BitmapInfoType info_;
   S64 groupIndex_ = noGroup;
   U32 refCount_ = 0;
   U32 macEntries_ = 0;   // of the chip, that may lead here
   U32 number_ = 0;       // of those that were ever made, from 0
   bool written_ = false; // and to be trusted
   bool kept_ = false;    // by the helper's list
   bool listed_ = false;  // among those that may have nobody any more
   bool wasWritten_ = false;
   bool lagRemoved_ = false;
};

/** One (group address, VLAN) and its members. */
class HardwareL2MulticastEntry : public QonBaseHelper {
   KIV_BODY( HardwareL2MulticastEntry, QonBaseHelper )
 public:
   using IntfId = Ulnet::IntfId;
   using TableAddStatus = QonTypes::TableAddStatus;
   using Members = GroupMembers;

   HardwareL2MulticastEntry( MulticastHelper * helper, S64 vGroup );

   /** Brings the chip to what is wanted, by the hooks below. An override may add to it, and calls it.
       `full`: the entry floods, or has no MAC entry, for lack of room; it is tried again when there is
       room, and every EthGroupReviewConfig::overflowPause. `notNow` likewise. `failed` is not tried again
       before something changes. */
   virtual TableAddStatus syncWithHardware();
   /** Lets the chip's MAC entry of macAddr() and vlanId() lead to hwL2MulticastBitmap()->groupIndex();
       there may be one that leads elsewhere. Of anything but `success` and `handedOver` the entry that
       there may be is deleted. */
   virtual TableAddStatus updateMacTableEntry();
   /** Deletes the chip's MAC entry; there may be none. */
   virtual void deleteMacTableEntry();
   /** What the chip's agent remembers of the MAC entry is not to be trusted (a parity error): the next
       updateMacTableEntry() writes it, whatever is remembered. */
   virtual void deleteHwShadowedMacTableEntry();

   MulticastHelper * helper() const { return helper_; }
   S64 vGroup() const { return vGroup_; }
   Ulnet::EthAddr macAddr() const { return macVlan_.mac(); }
   U32 vlanId() const { return macVlan_.vlan(); }
   const Bridging::MacVlanPair & macVlan() const { return macVlan_; }

   /** The requested members. */
   const Members & physicalPorts() const { return physicalPorts_; }
   const Members & lagPorts() const { return lagPorts_; }
   /** The aggregates that desiredHardwarePorts() came from. */
   const QonPortList & lag() const { return lag_; }
   /** As of the last sync. */
   const QonTypes::Bitmap & desiredHardwarePorts() const { return desired_; }
   /** What it points at: its own set, the flood set, or null before the first sync. */
   HardwareL2MulticastBitmap * hwL2MulticastBitmap() const { return bitmap_.ptr(); }

   bool overflowLogged() const { return overflowLogged_; }
   bool macTableOverflowLogged() const { return macTableOverflowLogged_; }
   /** Since when it floods, by Kiv::now(); never if it does not. */
   Kiv::Seconds overflowTime() const { return overflowTime_; }
   /** False since a parity error of the MAC table, too, until the entry is written again. */
   bool macTableEntryCreated() const;
   /** Whether it waits for its deletion. */
   bool deleted() const { return deleted_; }
   bool isMember( IntfId intf ) const {
      return physicalPorts_.has( intf ) || lagPorts_.has( intf );
   }
   /** Whether a sync has taken the member up. */
   bool isSynced( IntfId intf ) const;

   void overflowLoggedIs( bool v );
   void handleOverflowLogged();

 private:
   friend class MulticastHelper;

   /** Whether there is something to be brought into hardware. */
   bool reviewable() const { return !deleted() && addressed_ && hadMember_; }
   bool inSync() const;
   TableAddStatus reviewBitmap();
   TableAddStatus overflow();
   void waitForBitmap();
   void pointAt( Velto::Ptr< HardwareL2MulticastBitmap > bitmap );
   TableAddStatus reviewMacEntry();
   void macEntryRefused( TableAddStatus status );
   void doubtMacEntry();
   void dropMacEntry();
   void macEntryIs( Velto::Ptr< HardwareL2MulticastBitmap > bitmap );

   MulticastHelper * const helper_;
   MulticastSmBase * sm_ = nullptr; // whose group it is
   const S64 vGroup_;
   Bridging::MacVlanPair macVlan_;
   Members physicalPorts_;
   Members lagPorts_;
   QonPortList lag_;
   QonTypes::Bitmap desired_;
   Velto::Ptr< HardwareL2MulticastBitmap > bitmap_;
   Velto::Ptr< HardwareL2MulticastBitmap > macBitmap_; // that the chip's MAC entry may lead to
   U64 retry_ = 0;                                     // its place in the retry queue; 0 is none
   Kiv::Seconds overflowTime_ = Kiv::never;
   U32 syncs_ = 0;
   U32 macDoubts_ = 0; // of MulticastHelper's, as of when the MAC entry was written
   bool addressed_ = false;
   bool hadMember_ = false;
   bool overflowLogged_ = false;
   bool macTableOverflowLogged_ = false;
   bool macTableEntryCreated_ = false;
   bool deleted_ = false;
   bool deletionRaised_ = false;
   bool busy_ = false; // one of its hooks is being called
};

class MulticastDataFactory : public QonBaseHelper {
   KIV_BODY( MulticastDataFactory, QonBaseHelper )
 public:
   explicit MulticastDataFactory( const String & name = "multicastDataFactory" )
       : QonBaseHelper( name ) {}

   /** Makes the chip's entry for a group; without effects in the chip. */
   virtual Velto::Ptr< HardwareL2MulticastEntry >
   getHardwareL2MulticastEntry( MulticastHelper * helper, S64 vGroup );
   /** Makes the chip's bitmap for a set of ports; without effects in the chip. */
   virtual Velto::Ptr< HardwareL2MulticastBitmap >
   getHardwareL2MulticastBitmap( MulticastHelper * helper, const QonTypes::Bitmap & ports,
                                 const BitmapInfoType & info );
   /** The limit of (group address, VLAN) pairs; asked whenever a message names it. */
   virtual U32 getMaxL2MulticastGroups();
   /** Asked once, before the first bitmap. */
   virtual BitmapInfoType getBitmapInfoType();
};

} // namespace Qon
