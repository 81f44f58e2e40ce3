// Groups: how they begin, wait and end.

#include "Qon/include/multicast/QonMulticastHelper.h"

#include <algorithm>

#include "Qon/multicast/MulticastTrace.h"
#include "platform/Kiv/Describe.h"
#include "platform/Kiv/Restart.h"

KIV_DEFINE( Qon::MulticastHelper )

namespace Qon {

using QonTypes::TableAddStatus;

MulticastHelper::MulticastHelper( const String & name, Inputs inputs )
    : QonBaseHelper( name ), in_( std::move( inputs ) ) {
   auto config = in_.reviewConfig ? in_.reviewConfig
                                  : Velto::make< EthGroupReviewConfig >( "ethGroupReviewConfig" );
   review_ = smIs< EthGroupReviewSm >( this, std::move( config ), in_.wheel );
   review_->initializedIs( true );
}

/** Who points here is not to look for it any more. */
MulticastHelper::~MulticastHelper() {
   review_->kivDoZombieReactors();
   forEachEntry( []( Entry & entry ) { entry.sm_ = nullptr; } );
}

Velto::Ptr< MulticastHelper >
MulticastHelperIs( const String & name, MulticastHelper::Inputs inputs ) {
   return Velto::make< MulticastHelper >( name, std::move( inputs ) );
}

/** While a hook of the group is being called it is neither deleted nor replaced. */
class MulticastHelper::Busy {
 public:
   Busy( MulticastHelper & helper, const EntryPtr & entry ) : helper_( helper ), entry_( entry ) {
      entry_->busy_ = true;
      ++helper_.busy_;
   }
   Busy( const Busy & ) = delete;
   Busy & operator=( const Busy & ) = delete;
   ~Busy() {
      entry_->busy_ = false;
      --helper_.busy_;
   }

 private:
   MulticastHelper & helper_;
   const EntryPtr entry_;
};

// --- How a group begins ----------------------------------------------------------------------------

void
MulticastHelper::vGroupInc() {
   vGroup_ = S64( U64( vGroup_ ) + 1 );
   if ( vGroup_ < 0 ) {
      vGroup_ = 0;
   }
}

S64
MulticastHelper::createMulticastGroup( const MulticastSmBase::Ptr & sm ) {
   Entry * const former = entryOf( sm->macVlan() );
   if ( mustWait( sm->macVlan(), former ) ) {
      waitFor( sm->macVlan(), sm.ptr() );
      return -1;
   }
   if ( former && !former->deleted() ) {
      queueDeletion( *former );
   }
   while ( entryListHas( vGroup_ ) ) {
      vGroupInc();
   }
   const S64 id = vGroup_;
   vGroupInc();
   Velto::FirstError error;
   if ( EntryPtr entry = makeEntry( sm->macVlan(), id, error ) ) {
      entry->sm_ = sm.ptr();
      sm->vGroup_ = id;
      entryList_.emplace( U64( id ), std::move( entry ) );
   } else {
      error.run( [&] { offer( sm->macVlan() ); } );
   }
   error.pass();
   return id;
}

/** Whoever asks for the same (address, VLAN) meanwhile waits; if nothing comes of it, it is next. A factory
    that raises is asked once more. */
MulticastHelper::EntryPtr
MulticastHelper::makeEntry( const MacVlanPair & key, S64 vGroup, Velto::FirstError & error ) {
   EntryPtr entry;
   auto make = [&] { entry = factory()->getHardwareL2MulticastEntry( this, vGroup ); };
   beginning_.push_back( key );
   ++busy_;
   if ( !error.run( make ) ) {
      error.run( make );
   }
   --busy_;
   std::erase( beginning_, key );
   return entry;
}

/** Somebody has the group, or stands before: of those who wait the first is next. One whose state
    machine ended without a word is nobody's. */
bool
MulticastHelper::mustWait( const MacVlanPair & key, const Entry * entry ) const {
   return std::find( beginning_.begin(), beginning_.end(), key ) != beginning_.end() ||
          ( entry && ( entry->sm_ || entry->busy_ || waiting_.has( key ) ) );
}

void
MulticastHelper::waitFor( const MacVlanPair & key, MulticastSmBase * sm ) {
   auto & line = *waiting_.emplace( key ).first;
   if ( std::find( line.begin(), line.end(), sm ) == line.end() ) {
      line.push_back( sm );
   }
}

void
MulticastHelper::createMulticastAddr( const Ulnet::EthAddr & addr, U32 vlan, S64 vGroup ) {
   const Velto::Hold alive( this );
   const MacVlanPair key( addr, Bridging::VlanIdOrNone( Bridging::VlanId( vlan ) ) );
   const EntryPtr entry( entryList( vGroup ) );
   if ( !entry || entry->deleted() ) {
      QON_TRACE( multicastFacility, 1, "No group for ", shownGroup( key ), ": ", vGroup );
      return;
   }
   VELTO_ASSERT( !entry->addressed_ || entry->macVlan() == key );
   auto [id, fresh] = idOf_.emplace( key, vGroup ); // nobody else takes it meanwhile
   const EntryPtr former( fresh ? nullptr : entryList( std::exchange( *id, vGroup ) ) );
   entry->macVlan_ = key;
   entry->addressed_ = true;
   Velto::FirstError error;
   if ( former && former != entry ) {
      VELTO_ASSERT( former->deleted() );
      error.run( [&] { endGroup( former, true ); } );
   }
   if ( entry->hadMember_ ) {
      queueGroup( *entry );
      review_->kickReview();
   }
   error.pass();
}

// --- The lists in which groups wait ----------------------------------------------------------------

/** Behind all others; one that is pending already keeps its place. */
void
MulticastHelper::queueGroup( Entry & entry ) {
   if ( followingHas_.empty() ) {
      pendingIs( entry );
   } else {
      follow( entry.vGroup() );
   }
}

void
MulticastHelper::pendingIs( Entry & entry ) {
   if ( !entry.reviewable() ) {
      return;
   }
   const MacVlanPair key = entry.macVlan();
   const S64 groupIndex = entry.vGroup();
   auto [held, fresh] = groupList_.emplace( key, PendingGroupListInfo( key, groupIndex ) );
   if ( held->groupIndex() != groupIndex ) {
      VELTO_ASSERT( groupList( key ).groupIndex() == groupIndex );
   }
}

/** Many at once are noted by their ids, and looked at in steps: the first at once, the others as the review
    goes on. */
void
MulticastHelper::queueGroupsOf( const GroupMembership * groups ) {
   if ( groups ) {
      groups->ids().forEach( [this]( S64 id ) { follow( id ); } );
      moveFollowing();
   }
   if ( pending() ) {
      review_->kickReview();
   }
}

void
MulticastHelper::queueAll() {
   forEachEntry( [this]( Entry & entry ) { follow( entry.vGroup() ); } );
   moveFollowing();
   review_->kickReview();
}

void
MulticastHelper::follow( S64 id ) {
   if ( followingHas_.insert( id ) ) {
      following_.enq( id );
   }
}

/** Some have been deleted since, or have never had a member. */
void
MulticastHelper::moveFollowing() {
   for ( U32 moved = 0; moved < atOnce && !following_.empty(); ++moved ) {
      if ( Entry * const entry = takeFollowing() ) {
         pendingIs( *entry );
      }
   }
}

/** Out of everything that would have it looked at again. */
void
MulticastHelper::forgetPending( Entry & entry ) {
   const MacVlanPair & key = entry.macVlan();
   for ( PendingList * list : { &groupList_, &groupOverflowList_ } ) {
      if ( auto info = list->find( key ); info && info->groupIndex() == entry.vGroup() ) {
         list->erase( key );
      }
   }
   followingHas_.erase( entry.vGroup() );
   overflow()->vGroupNeedingHwEntryDel( entry.vGroup() );
   overflow()->mcastEntryNeedingHwEntryDel( std::exchange( entry.retry_, 0 ) );
}

/** Whose turn it is, who is pending no more; null if nobody of those looked at waits any more. */
MulticastHelper::Entry *
MulticastHelper::takeFirst() {
   if ( !groupList_.empty() ) {
      const PendingGroupListInfo info = groupList_.front().value;
      groupList_.erase( info.macVlan() );
      Entry * const entry = entryList( info.groupIndex() );
      return entry && !entry->deleted() ? entry : nullptr;
   }
   for ( U32 looked = 0; looked < atOnce && !following_.empty(); ++looked ) {
      if ( Entry * const entry = takeFollowing(); entry && entry->reviewable() ) {
         return entry;
      }
   }
   return nullptr;
}

MulticastHelper::Entry *
MulticastHelper::takeFollowing() {
   const S64 id = following_.front();
   following_.deq();
   return followingHas_.erase( id ) ? entryList( id ) : nullptr;
}

void
MulticastHelper::reviewFirst() {
   moveRetries();
   const EntryPtr entry( takeFirst() );
   if ( !entry ) {
      return;
   }
   const Busy busy( *this, entry );
   TableAddStatus status = TableAddStatus::notNow;
   const Velto::AtEnd noted( [&] { synced( *entry, status ); } );
   status = entry->syncWithHardware();
}

/** Also of one whose hooks raised: if it floods, it goes on waiting for a bitmap. */
void
MulticastHelper::synced( Entry & entry, TableAddStatus status ) {
   if ( entry.deleted() ) {
      return;
   }
   if ( entry.overflowLogged() ) {
      entry.waitForBitmap();
   }
   if ( status == TableAddStatus::full || status == TableAddStatus::notNow ) {
      overflowListIs( entry );
   } else {
      groupOverflowList_.erase( entry.macVlan() );
   }
}

void
MulticastHelper::overflowListIs( Entry & entry ) {
   const bool first = groupOverflowList_.empty();
   groupOverflowList_.emplace( entry.macVlan(),
                               PendingGroupListInfo( entry.macVlan(), entry.vGroup() ) );
   if ( first ) {
      review_->kickOverflow();
   }
}

/** Whoever waits for a bitmap has its turn by the queue. */
void
MulticastHelper::reviewFirstOverflowed() {
   const PendingGroupListInfo info = groupOverflowList_.front().value;
   groupOverflowList_.erase( info.macVlan() );
   if ( auto entry = entryList( info.groupIndex() ); entry && !entry->retry_ ) {
      ++retries_;
      queueGroup( *entry );
   }
}

// --- How a group ends ------------------------------------------------------------------------------

void
MulticastHelper::destroyMulticastGroup( const MulticastSmBase::Ptr & sm ) {
   const EntryPtr entry( entryList( sm->vGroup() ) );
   forget( sm.ptr() );
   if ( entry && !entry->deleted() ) {
      queueDeletion( *entry );
   }
}

void
MulticastHelper::queueDeletion( Entry & entry ) {
   QON_TRACE( multicastFacility, 5, "Queuing group ", entry.vGroup(), " for deletion" );
   deletionListIs( entry );
   review_->kickDel();
}

void
MulticastHelper::deletionListIs( Entry & entry ) {
   forgetPending( entry );
   entry.deleted_ = true;
   groupDelList_.emplace( entry.vGroup(), PendingGroupListInfo( entry.macVlan(), entry.vGroup() ) );
}

void
MulticastHelper::forget( MulticastSmBase * sm ) {
   if ( auto entry = entryList( sm->vGroup() ); entry && entry->sm_ == sm ) {
      entry->sm_ = nullptr;
   }
   const MacVlanPair & key = sm->macVlan();
   if ( auto line = waiting_.find( key ) ) {
      std::erase( *line, sm );
      if ( line->empty() ) {
         waiting_.erase( key );
      }
   }
}

void
MulticastHelper::deleteFirst() {
   const S64 id = groupDelList_.front().key;
   const EntryPtr entry( entryList( id ) );
   groupDelList_.erase( id );
   if ( entry ) {
      endGroup( entry, false ); // queues it again if its time has not come
   }
}

void
MulticastHelper::destroySoftwareState( S64 vGroup ) {
   if ( const EntryPtr entry( entryList( vGroup ) ); entry ) {
      endGroup( entry, false );
   } else {
      QON_TRACE( multicastFacility, 1, "No group to destroy: ", vGroup );
   }
}

/** When a hook raises it is called once more: in another run, or at once if this is the last try. */
void
MulticastHelper::endGroup( const EntryPtr & entry, bool lastTry ) {
   const Velto::Hold alive( this );
   const EntryPtr held = entry;
   deletionListIs( *held );
   if ( held->busy_ ) {
      review_->kickDel();
      return;
   }
   removeMembership( *held );
   Velto::FirstError error;
   {
      const Busy busy( *this, held );
      if ( !error.run( [&] { held->dropMacEntry(); } ) ) {
         if ( !lastTry && !std::exchange( held->deletionRaised_, true ) ) {
            review_->kickDel();
            error.pass();
         }
         error.run( [&] { held->dropMacEntry(); } );
      }
      held->macEntryIs( nullptr );
      held->pointAt( nullptr );
      error.run( [&] { freeUnused(); } );
   }
   forgetGroup( held );
   error.run( [&] { offer( held->macVlan() ); } );
   error.pass();
}

void
MulticastHelper::forgetGroup( const EntryPtr & entry ) {
   if ( entry->sm_ ) {
      entry->sm_->vGroup_ = -1;
      entry->sm_ = nullptr;
   }
   entryList_.erase( U64( entry->vGroup() ) );
   groupDelList_.erase( entry->vGroup() );
   if ( auto id = idOf_.find( entry->macVlan() ); id && *id == entry->vGroup() ) {
      idOf_.erase( entry->macVlan() );
   }
}

/** The (address, VLAN) is free: to whoever waits longest for it. */
void
MulticastHelper::offer( const MacVlanPair & key ) {
   Velto::FirstError error;
   while ( !idOf_.has( key ) && waiting_.has( key ) ) {
      const MulticastSmBase::Ptr sm( waiting_.find( key )->front() );
      forget( sm.ptr() );
      error.run( [&] { sm->handleIndexValid(); } );
   }
   error.pass();
}

void
MulticastHelper::doCleanup() {
   if ( Kiv::agentRestarting() ) {
      review_->stopReview();
      return;
   }
   const Velto::Hold alive( this );
   waiting_.clear();
   if ( busy_ ) {
      forEachEntry( [this]( Entry & entry ) { queueDeletion( entry ); } );
      cleanupWanted_ = true;
      review_->kickDel();
      return;
   }
   cleanupWanted_ = false;
   Velto::FirstError error;
   while ( entryList_.size() ) {
      const EntryPtr entry = entryList_.begin().value();
      error.run( [&] { endGroup( entry, true ); } );
   }
   dropFlood( error );
   review_->stopReview();
   error.pass();
}

void
MulticastHelper::deleteOrphans() {
   forEachEntry( [this]( Entry & entry ) {
      if ( !entry.sm_ && !entry.deleted() ) {
         queueDeletion( entry );
      }
   } );
}

} // namespace Qon
