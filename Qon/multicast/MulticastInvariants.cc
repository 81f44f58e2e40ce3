// What always holds, and what a verification run looks at.

#include <cstdio>

#include "Qon/multicast/MulticastTrace.h"

namespace Qon {

using Ulnet::IntfId;

// --- Invariants ------------------------------------------------------------------------------------

String
MulticastHelper::checkInvariants() const {
   for ( auto all = entryList_.begin(); all; ++all ) {
      const EntryPtr & entry = all.value();
      if ( const String broken = brokenEntry( *entry ); !broken.empty() ) {
         return shownGroup( entry->macVlan() ) + ": " + broken;
      }
   }
   for ( const PendingList * list : { &groupList_, &groupOverflowList_ } ) {
      for ( auto && [key, info] : *list ) {
         auto entry = entryList( info.groupIndex() );
         if ( !entry || entry->deleted() || entry->macVlan() != key || info.macVlan() != key ) {
            return shownGroup( key ) + " is pending, and no group";
         }
      }
   }
   for ( auto && [id, info] : groupDelList_ ) {
      if ( !entryListHas( id ) ) {
         return shownGroup( info.macVlan() ) + " is to be deleted, and no group";
      }
   }
   auto late = []( const Kiv::Clock * clock ) { return clock->idle(); };
   if ( ( pending() && late( review_->ethGroupClock() ) && !review_->reviewing() ) ||
        ( groupOverflowList_.size() && late( review_->ethGroupOverflowClock() ) ) ||
        ( groupDelList_.size() && late( review_->ethGroupDelClock() ) ) ) {
      return "groups wait, and no clock is armed for them";
   }
   return brokenBitmaps();
}

String
MulticastHelper::brokenEntry( const Entry & entry ) const {
   const bool floods = entry.bitmap_ && overflow_ && entry.bitmap_ == overflow_->floodBitmap();
   if ( floods != entry.overflowLogged() ) {
      return "floods and does not say so, or the other way round";
   }
   if ( entry.deleted() != groupDelList_.has( entry.vGroup() ) ) {
      return "deleted, and not queued for it";
   }
   const bool marked = overflow_ && overflow_->vGroupNeedingHwEntryHas( entry.vGroup() );
   if ( marked != ( entry.retry_ != 0 ) || ( marked && !floods ) ) {
      return "waits for a bitmap without a place, or has one and does not wait";
   }
   if ( floods && !marked && !entry.deleted() && !isPending( entry ) ) {
      return "floods, and is not tried again";
   }
   for ( auto & member : entry.physicalPorts() ) {
      const IntfId port = member.intf;
      auto groups = ( resolved( port ) ? portGroups_ : unresolvedPortGroups_ ).find( port );
      if ( !groups || !groups->groupHas( entry.vGroup() ) ) {
         return port.stringValue() + " does not know of its group";
      }
   }
   for ( auto & member : entry.lagPorts() ) {
      const IntfId lag = member.intf;
      auto groups = lagGroupMembership( lag );
      if ( !groups || !groups->groupHas( entry.vGroup() ) ) {
         return lag.stringValue() + " does not know of its group";
      }
   }
   if ( entry.bitmap_ && !floods ) {
      auto held = bitmapList_.find( entry.bitmap_->ports() );
      if ( !held || *held != entry.bitmap_ ) {
         return "points at a bitmap that is none";
      }
   }
   return {};
}

String
MulticastHelper::brokenBitmaps() const {
   struct Counts {
      U32 entries = 0;
      U32 macEntries = 0;
   };
   Kiv::DenseMap< const HardwareL2MulticastBitmap *, Counts > counts;
   U32 members = 0, known = 0;
   for ( auto all = entryList_.begin(); all; ++all ) {
      const EntryPtr & entry = all.value();
      members += entry->physicalPorts().size() + entry->lagPorts().size();
      if ( entry->bitmap_ ) {
         ++counts.emplace( entry->bitmap_.ptr() ).first->entries;
      }
      if ( entry->macBitmap_ ) {
         ++counts.emplace( entry->macBitmap_.ptr() ).first->macEntries;
      }
   }
   auto differs = [&]( const HardwareL2MulticastBitmap & bitmap ) {
      auto count = counts.find( &bitmap );
      const Counts held = count ? *count : Counts();
      return held.entries != bitmap.refCount_ || held.macEntries != bitmap.macEntries_;
   };
   for ( auto && [ports, bitmap] : bitmapList_ ) {
      if ( bitmap->ports() != ports || bitmap->groupIndex() < 0 || !bitmap->kept_ ) {
         return "the bitmap " + ports.stringValue() + " stands for something else";
      }
      if ( differs( *bitmap ) ) {
         return "the bitmap " + ports.stringValue() + " counts wrongly who points at it";
      }
      if ( bitmap->unused() && unused_.empty() ) {
         return "the bitmap " + ports.stringValue() + " is nobody's";
      }
   }
   if ( auto flood = overflow_ ? overflow_->floodBitmap() : nullptr; flood && differs( *flood ) ) {
      return "the flood set counts wrongly who points at it";
   }
   for ( const Memberships * memberships : { &portGroups_, &unresolvedPortGroups_, &lagGroups_ } ) {
      for ( auto && [intf, groups] : *memberships ) {
         known += groups.groups();
      }
   }
   return members == known ? String() : String( "an interface knows of a group that it is not in" );
}

// --- Verification ----------------------------------------------------------------------------------

bool
MulticastHelper::handleVerify( const MulticastSmBase::Ptr & sm ) {
   VerifyData * findings = acsd()->verifyData();
   if ( review_->reviewing() || pending() ) {
      QON_TRACE( multicastFacility, 5, "group review going on, deferring hardware check" );
      waitToVerify_ = true;
      return false;
   }
   waitToVerify_ = false;
   if ( entryListHas( -1 ) ) {
      if ( findings ) {
         QON_FINDING( findings, "Umm -1 has found its way into entryList" );
      }
      return false;
   }
   if ( sm->vGroup() < 0 ) {
      return true; // it is not wanted, or waits for somebody else's end
   }
   const EntryPtr entry( entryList( sm->vGroup() ) ); // findings are heard, too
   if ( !entry ) {
      char text[80];
      std::snprintf( text, sizeof( text ), "There is no entry in entryList for vGroup %lld",
                     static_cast< long long >( sm->vGroup() ) );
      if ( findings ) {
         QON_FINDING( findings, text );
      }
      return false;
   }
   return verifyEntry( *entry, *sm );
}

bool
MulticastHelper::verifyEntry( const Entry & entry, const MulticastSmBase & sm ) {
   U32 left = entry.physicalPorts().size() + entry.lagPorts().size();
   bool same = true;
   for ( IntfId intf : sm.intfsWanted() ) {
      same = same && entry.isMember( intf );
      left -= entry.isMember( intf );
   }
   for ( auto members : { &entry.physicalPorts(), &entry.lagPorts() } ) {
      for ( auto & member : *members ) {
         // One that is no member is kept for its router.
         left -= !sm.intfWanted( member.intf ) && sm.isRouterIntf( member.intf );
      }
   }
   const auto bitmap = entry.hwL2MulticastBitmap();
   const bool held = !bitmap || entry.overflowLogged() ||
                     ( bitmap->hardwarePhysicalShadow() == entry.desiredHardwarePorts() &&
                       bitmap->refCount() != 0 );
   VerifyData * findings = acsd()->verifyData();
   if ( ( !same || left != 0 ) && findings ) {
      QON_FINDING( findings, "Orvane doesn't match what's in our entry: " +
                                   shownGroup( entry.macVlan() ) + "\n" );
   }
   if ( !held && findings ) {
      QON_FINDING( findings,
                   "The bitmap is not what it should be: " + shownGroup( entry.macVlan() ) + "\n" );
   }
   return same && left == 0 && held;
}

} // namespace Qon
