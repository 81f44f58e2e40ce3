// The bitmaps: one for each set of ports, and the one that floods.

#include "Qon/multicast/MulticastTrace.h"

namespace Qon {

using QonTypes::Bitmap;

namespace {

/** Counts a hook while it is being called. */
class Calling {
 public:
   explicit Calling( U32 & count ) : count_( count ) { ++count_; }
   Calling( const Calling & ) = delete;
   Calling & operator=( const Calling & ) = delete;
   ~Calling() { --count_; }

 private:
   U32 & count_;
};

} // namespace

// --- Sets of ports ---------------------------------------------------------------------------------

MulticastHelper::BitmapPtr
MulticastHelper::bitmapFor( const Bitmap & ports ) {
   if ( auto held = bitmapList_.find( ports ) ) {
      ++( *held )->refCount_;
      return *held;
   }
   BitmapPtr bitmap = makeBitmap( ports );
   bitmap->kept_ = bitmapList_.emplace( ports, bitmap ).second;
   bitmap->refCount_ = 1;
   bool taken = false;
   const Velto::AtEnd undo( [&] {
      if ( !taken ) {
         bitmap->refCount_ = 0;
         dropBitmap( *bitmap );
      }
   } );
   taken = takeGroup( *bitmap );
   return taken ? bitmap : nullptr;
}

MulticastHelper::BitmapPtr
MulticastHelper::makeBitmap( const Bitmap & ports ) {
   const Calling calling( busy_ );
   if ( !bitmapInfo_ ) {
      bitmapInfo_ = factory()->getBitmapInfoType();
   }
   BitmapPtr bitmap = factory()->getHardwareL2MulticastBitmap( this, ports, *bitmapInfo_ );
   bitmap->number_ = bitmapsMade_++;
   return bitmap;
}

bool
MulticastHelper::takeGroup( HardwareL2MulticastBitmap & bitmap ) {
   const Calling calling( busy_ );
   QON_TELL_HOOK( HardwareL2MulticastBitmap, createL2MulticastEntry, bitmap.ports() );
   bitmap.groupIndex_ = bitmap.createL2MulticastEntry();
   return bitmap.groupIndex_ != HardwareL2MulticastBitmap::noGroup;
}

void
MulticastHelper::writeBitmap( HardwareL2MulticastBitmap & bitmap ) {
   const Calling calling( busy_ );
   // The hook may hear of an aggregate that goes, or of another parity error.
   bitmap.lagRemoved_ = false;
   bitmap.written_ = true;
   bool returned = false;
   const Velto::AtEnd judged( [&] { bitmap.written_ = bitmap.written_ && returned; } );
   if ( bitmap.wasWritten_ ) {
      QON_TRACE( multicastFacility, 5,
                 "Found bitmap with the correct bits but it has to be reprogrammed" );
      QON_TELL_HOOK( HardwareL2MulticastBitmap, modifyGroupsInHardware, bitmap.groupIndex(),
                     bitmap.ports() );
      bitmap.modifyGroupsInHardware( bitmap.ports() );
   } else {
      QON_TELL_HOOK( HardwareL2MulticastBitmap, writeGroupsToHardware, bitmap.groupIndex(),
                     bitmap.ports() );
      bitmap.writeGroupsToHardware( bitmap.ports() );
   }
   returned = bitmap.wasWritten_ = true;
   bitmap.shadow_ = bitmap.written_ ? bitmap.ports_ : Bitmap();
}

void
MulticastHelper::countDel( HardwareL2MulticastBitmap & bitmap, U32 & count ) {
   VELTO_ASSERT( count > 0 );
   --count;
   if ( bitmap.unused() && &bitmap != overflow()->floodBitmap() &&
        !std::exchange( bitmap.listed_, true ) ) {
      unused_.push_back( BitmapPtr( &bitmap ) );
   }
}

/** Whoever was without entries for a moment may have found some again, or have been freed since. */
void
MulticastHelper::freeUnused() {
   Velto::FirstError error;
   while ( !unused_.empty() ) {
      BitmapPtr bitmap = std::move( unused_.back() );
      unused_.pop_back();
      bitmap->listed_ = false;
      if ( bitmap->unused() && bitmap->kept_ ) {
         error.run( [&] { freeBitmap( std::move( bitmap ) ); } );
      }
   }
   error.pass();
}

void
MulticastHelper::emptyBitmap( HardwareL2MulticastBitmap & bitmap ) {
   const Calling calling( busy_ );
   bitmap.written_ = false;
   bitmap.shadow_.clear();
   QON_TELL_HOOK( HardwareL2MulticastBitmap, writeGroupsToHardware, bitmap.groupIndex(), Bitmap() );
   bitmap.writeGroupsToHardware( Bitmap() );
}

/** Once more if it raises. */
void
MulticastHelper::emptyBitmap( HardwareL2MulticastBitmap & bitmap, Velto::FirstError & error ) {
   if ( !error.run( [&] { emptyBitmap( bitmap ); } ) ) {
      error.run( [&] { emptyBitmap( bitmap ); } );
   }
}

void
MulticastHelper::freeHardwareBitmap( const Bitmap & ports ) {
   if ( auto held = bitmapList_.find( ports ) ) {
      freeBitmap( *held );
   }
}

void
MulticastHelper::dropBitmap( HardwareL2MulticastBitmap & bitmap ) {
   if ( std::exchange( bitmap.kept_, false ) ) {
      bitmapList_.erase( bitmap.ports() );
   }
}

void
MulticastHelper::freeBitmap( BitmapPtr bitmap ) {
   const Velto::Hold alive( this );
   VELTO_ASSERT( bitmap->refCount() == 0 );
   Velto::FirstError error;
   emptyBitmap( *bitmap, error );
   dropBitmap( *bitmap );
   bitmap = nullptr; // its group is free only now
   error.run( [&] { reviewFlood(); } );
   if ( overflow()->mcastEntryNeedingHwEntrys() ) {
      reviewOverflowedGroups();
   }
   error.pass();
}

// --- The set that floods, and the queue of those that use it ---------------------------------------

MulticastOverflow *
MulticastHelper::overflow() {
   if ( !overflow_ ) {
      overflow_ = Velto::make< MulticastOverflow >( "multicastOverflow" );
   }
   return overflow_.ptr();
}

void
MulticastHelper::addFloodEntry() {
   cleanupWanted_ = false; // somebody begins anew
   if ( !overflow()->floodBitmap() ) {
      for ( auto && [port, present] : acsd()->intfIteratorConst() ) {
         portPresenceIs( port, true );
      }
      BitmapPtr flood = makeBitmap( resolved_ );
      if ( !overflow()->floodBitmap() ) { // nor has one of the factory's hooks come here
         overflow()->floodBitmapIs( std::move( flood ) );
      }
   }
   reviewFlood();
}

/** Once the hook has returned that made a port come or go, if it was one of this set's own. */
void
MulticastHelper::reviewFlood() {
   if ( !overflow()->floodBitmap() ) {
      return;
   }
   floodWork_.ask( this, {}, [this]( Kiv::Nothing ) { programFlood(); } );
}

/** Brings the set that floods to the ports that there are. Without a group it tries to get one. */
void
MulticastHelper::programFlood() {
   const BitmapPtr flood( overflow()->floodBitmap() );
   if ( !flood ) {
      return;
   }
   if ( flood->ports() != resolved_ ) {
      flood->ports_ = resolved_;
      flood->written_ = false;
   }
   if ( flood->groupIndex() == HardwareL2MulticastBitmap::noGroup && !takeGroup( *flood ) ) {
      return;
   }
   if ( flood->stale() ) {
      writeBitmap( *flood );
   }
}

/** What raised when it was to be written. */
void
MulticastHelper::repairFlood() {
   auto flood = overflow()->floodBitmap();
   if ( flood && flood->groupIndex() != HardwareL2MulticastBitmap::noGroup && flood->stale() ) {
      reviewFlood();
   }
}

void
MulticastHelper::dropFlood( Velto::FirstError & error ) {
   if ( BitmapPtr flood = overflow()->floodBitmap(); flood ) {
      overflow()->floodBitmapIs( nullptr );
      if ( flood->groupIndex() != HardwareL2MulticastBitmap::noGroup ) {
         emptyBitmap( *flood, error );
      }
   }
}

void
MulticastHelper::reviewOverflowedGroups() {
   retryUntil_ = overflow()->lastPlace();
   moveRetries();
   if ( pending() ) {
      review_->kickReview();
   }
}

/** A few of those that are to be tried again. */
void
MulticastHelper::moveRetries() {
   for ( U32 moved = 0; moved < atOnce && retriesLeft(); ++moved ) {
      const EntryPtr entry = overflow()->mcastEntryNeedingHwEntryFront();
      overflow()->mcastEntryNeedingHwEntryDeq();
      entry->retry_ = 0;
      if ( overflow()->vGroupNeedingHwEntryHas( entry->vGroup() ) ) {
         overflow()->vGroupNeedingHwEntryDel( entry->vGroup() );
         groupOverflowList_.erase( entry->macVlan() );
         ++retries_;
         queueGroup( *entry );
      }
   }
}

void
MulticastHelper::handleParityEvent( const String & table ) {
   const Velto::Hold alive( this );
   Velto::FirstError error;
   if ( table == multicastTable ) {
      auto doubt = []( HardwareL2MulticastBitmap & bitmap ) {
         bitmap.shadow_.clear();
         bitmap.written_ = false;
      };
      for ( auto && [ports, bitmap] : bitmapList_ ) {
         doubt( *bitmap );
      }
      if ( auto flood = overflow()->floodBitmap() ) {
         doubt( *flood );
         error.run( [&] { reviewFlood(); } );
      }
   } else if ( table == macTable ) {
      ++macDoubts_; // no MAC entry counts as created any more
   } else {
      return;
   }
   queueAll();
   error.pass();
}

} // namespace Qon
