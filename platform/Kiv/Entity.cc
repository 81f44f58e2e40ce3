#include "platform/Kiv/Entity.h"

#include <cstdlib>
#include <new>
#include <utility>

#include "platform/Kiv/ChangeCounts.h"

namespace Kiv {

namespace {

struct Delivery;
Delivery * deliveries = nullptr;

ChangeCounts * counts = nullptr;

/** A delivery under way: who is next, and the last one of those who hear this change. */
struct Delivery {
   Delivery( WatchBase * first, WatchBase * last )
       : outer( deliveries ), next( first ), last( last ) {
      deliveries = this;
   }
   ~Delivery() { deliveries = outer; }
   Delivery( const Delivery & ) = delete;
   Delivery & operator=( const Delivery & ) = delete;

   Delivery * outer;
   WatchBase * next;
   WatchBase * last;
};

DeathNotice * notices = nullptr;

const String noName;

} // namespace

Entity::Entity( const String & name ) : name_( name.empty() ? nullptr : new String( name ) ) {}

Entity::~Entity() {
   for ( DeathNotice * n = notices; n; n = n->outer_ ) {
      if ( n->entity_ == this ) {
         n->entity_ = nullptr;
      }
   }
   if ( watches_ ) {
      for ( int i = 0; i < watches_->lists; ++i ) {
         while ( WatchBase * w = watches_->list[i].first ) {
            w->detach();
         }
      }
      std::free( watches_ );
   }
   delete name_;
}

const String &
Entity::name() const {
   return name_ ? *name_ : noName;
}

ChangeCounts::ChangeCounts() : outer_( std::exchange( counts, this ) ) {}

ChangeCounts::~ChangeCounts() {
   for ( ChangeCounts ** c = &counts; *c; c = &( *c )->outer_ ) {
      if ( *c == this ) {
         *c = outer_;
         return;
      }
   }
}

void
Entity::kivDeliver( int attribute, const void * key ) const {
   for ( ChangeCounts * c = counts; c; c = c->outer_ ) {
      ++*c->byType_.emplace( typeData() ).first;
   }
   const WatchTable & table = *watches_;
   if ( table.list[0].first ) [[unlikely]] {
      DeathNotice notice( this );
      deliverTo( attribute + 1, key, attribute );
      if ( notice.alive() ) {
         deliverTo( 0, key, attribute );
      }
      return;
   }
   deliverTo( attribute + 1, key, attribute );
}

inline void
Entity::deliverTo( int slot, const void * key, int attribute ) const {
   const WatchTable & table = *watches_;
   if ( slot >= table.lists ) {
      return;
   }
   const List list = table.list[slot];
   if ( list.first == list.last ) {
      // Nobody comes after a lone watcher, so that nothing has to be known after it.
      if ( list.first && list.first->owner_->kivHears() ) {
         list.first->deliver_( *list.first, key, attribute );
      }
      return;
   }
   Delivery d( list.first, list.last );
   while ( WatchBase * w = d.next ) {
      d.next = w == d.last ? nullptr : w->next_;
      if ( w->owner_->kivHears() ) [[likely]] {
         w->deliver_( *w, key, attribute );
      }
   }
}

Entity::List &
Entity::listOf( int slot ) const {
   int have = watches_ ? watches_->lists : 0;
   if ( slot >= have ) {
      int want = slot + 1;
      auto bytes = sizeof( WatchTable ) + sizeof( List ) * U32( slot );
      auto table = static_cast< WatchTable * >( std::realloc( watches_, bytes ) );
      VELTO_ASSERT( table );
      for ( int i = have; i < want; ++i ) {
         new ( &table->list[i] ) List();
      }
      table->lists = want;
      watches_ = table;
   }
   return watches_->list[slot];
}

void
Entity::link( WatchBase * watch ) const {
   List & list = listOf( watch->slot_ );
   watch->prev_ = list.last;
   watch->next_ = nullptr;
   ( list.last ? list.last->next_ : list.first ) = watch;
   list.last = watch;
}

void
Entity::unlink( WatchBase * watch ) const {
   for ( Delivery * d = deliveries; d; d = d->outer ) {
      if ( d->next == watch ) {
         d->next = watch == d->last ? nullptr : watch->next_;
      }
      if ( d->last == watch ) {
         d->last = watch->prev_;
      }
   }
   List & list = watches_->list[watch->slot_];
   ( watch->prev_ ? watch->prev_->next_ : list.first ) = watch->next_;
   ( watch->next_ ? watch->next_->prev_ : list.last ) = watch->prev_;
}

void
WatchBase::detach() {
   if ( entity_ ) {
      entity_->unlink( this );
      entity_ = nullptr;
   }
}

void
WatchBase::attachTo( const Entity * entity, int slot, Velto::Node * owner ) {
   detach();
   if ( entity ) {
      entity_ = entity;
      slot_ = slot;
      owner_ = owner;
      entity->link( this );
   }
}

DeathNotice::DeathNotice( const Entity * entity ) : entity_( entity ), outer_( notices ) {
   notices = this;
}

DeathNotice::~DeathNotice() {
   notices = outer_;
}

} // namespace Kiv
