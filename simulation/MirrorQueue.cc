#include "simulation/MirrorQueue.h"

#include <algorithm>
#include <vector>

#include "platform/Kiv/TypeData.h"

namespace Sim {

namespace {

std::vector< U32 >
freeGroups( const Qon::QonCommonSmData & acsd ) {
   std::vector< U32 > ids;
   acsd.typeData()->find( "freeMirrorSession" )->each( acsd, [&]( const void *, const void * id ) {
      ids.push_back( *static_cast< const U8 * >( id ) );
   } );
   return ids;
}

} // namespace

void
MirrorQueue::follow( Qon::QonCommonSmData * acsd ) {
   acsd_ = acsd;
   names_.attach( acsd, [this]( const String & name ) { named( name ); } );
}

void
MirrorQueue::start( U32 groups, bool agentFills, const std::map< String, U32 > & kept,
                    const std::map< String, U32 > & stale ) {
   groups_ = groups;
   agentFills_ = agentFills;
   owners_ = kept;
   free_.clear();
   if ( agentFills ) {
      for ( U32 id : freeGroups( *acsd_ ) ) {
         free_.push_back( id );
      }
      for ( auto & [name, id] : stale ) {
         if ( std::find( free_.begin(), free_.end(), id ) == free_.end() ) {
            free_.push_back( id );
         }
      }
   } else {
      startOwn();
   }
   std::erase_if( free_, [&]( U32 id ) {
      return std::any_of( kept.begin(), kept.end(),
                          [&]( auto & entry ) { return entry.second == id; } );
   } );
}

void
MirrorQueue::startOwn() {
   free_.clear();
   for ( U32 id = 0; id < groups_; ++id ) {
      free_.push_back( id );
   }
}

/** Sessions live on beyond a number that shrinks, but not without any group. */
void
MirrorQueue::resize( U32 groups ) {
   const U32 was = std::exchange( groups_, groups );
   if ( agentFills_ || groups == was ) {
      return;
   }
   if ( was == 0 ) {
      startOwn();
   } else if ( groups < was ) {
      std::erase_if( free_, [&]( U32 id ) { return id >= groups; } );
   }
   for ( U32 id = was; was && id < groups; ++id ) {
      if ( std::none_of( owners_.begin(), owners_.end(),
                         [&]( auto & entry ) { return entry.second == id; } ) ) {
         free_.push_back( id );
      }
   }
}

void
MirrorQueue::named( const String & name ) {
   if ( !acsd_->mirrorSessionNameToIdHas( name ) ) {
      auto owner = owners_.find( name );
      if ( owner != owners_.end() ) {
         if ( agentFills_ || owner->second < groups_ ) {
            free_.push_back( owner->second );
         }
         owners_.erase( owner );
      }
      return;
   }
   const U32 id = acsd_->mirrorSessionNameToId( name );
   auto [owner, fresh] = owners_.try_emplace( name, id );
   if ( !fresh && owner->second == id ) {
      return; // taken over
   }
   if ( !fresh || free_.empty() || free_.front() != id ) {
      report_( "order: " + name + " has the group " + std::to_string( id ) );
   }
   owner->second = id;
   std::erase( free_, id );
}

String
MirrorQueue::check() const {
   auto expected = free_.begin();
   for ( U32 id : freeGroups( *acsd_ ) ) {
      if ( expected == free_.end() || *expected != id ) {
         return "order: the group " + std::to_string( id ) + " is free out of turn";
      }
      ++expected;
   }
   return expected == free_.end() ? "" : "order: a group is missing in the queue";
}

} // namespace Sim
