#pragma once
// The writer's side of a table: positions, indexes, ring, and how they grow.
//
//    valueIs -> entry (under its sequence word) -> index -> ring -> head
//    valueDel -> entry -> index -> ring -> head; the position rests until the ring has passed it
//    every write -> one step of the index that is being built, if one is
//
// Invariants
// 1. A write publishes entry, index, ring and head, in this order.
// 2. Memory is taken in pieces of at most 256 KiB, before it is used. Where there is none left, the
//    write says false and has changed nothing.
// 3. Entries never move. A position gets another key only when the ring has passed its removal.
// 4. An index is at most half full when its successor is begun, and never more than three quarters.
//
// Only this process writes the memory; what it reads there is its own.

#include <deque>

#include "platform/Quarn/Server.h"
#include "platform/Quarn/View.h"

namespace Quarn {

/** Room of a table. Memory is taken as it is used; `most` only costs address space. */
struct Room {
   U32 most = 1u << 20; ///< keys at a time, at most 2^27
   /** Length of the ring of changes, made a power of two from 1,024 to 2^20; 0: a quarter of `most`.
       Counters, which are polled: 1,024. */
   U32 changes = 0;
};

/** A part of the memory file, taken piece by piece. */
struct Taken {
   U64 at = 0;
   U64 bytes = 0;
   U64 taken = 0;
};

class Table {
 public:
   Table( const Table & ) = delete;
   Table & operator=( const Table & ) = delete;

   U32 size() const { return size_; }
   U64 refused() const { return refused_; }
   bool complete() const { return complete_; }
   void completeIs( bool v );
   const String & fault() const { return fault_; }
   /** Memory that was taken so far. */
   U64 bytes() const;
   /** For tests: the memory that readers map. Null where there is none. */
   const std::shared_ptr< Mapping > & memory() const { return memory_; }

 protected:
   /** A null server: for nobody but this process. */
   Table( Server * server, const String & name, const Room & room, const TableType & type );
   ~Table();

   static constexpr U32 none = ~U32( 0 );

   /** What a key's hash leads to in one index. */
   class Slots {
    public:
      Slots() = default;
      Slots( U32 * slots, U32 bits ) : slots_( slots ), mask_( ( 1u << bits ) - 1 ) {}
      U32 slots() const { return mask_ + 1; }
      U32 * slot( U64 hash, U32 i ) const { return slots_ + ( ( U32( hash ) + i ) & mask_ ); }
      /** How many are not free. */
      U32 occupied() const { return occupied_; }
      /** Where the key's slot may be; null if none is free within the longest search. */
      U32 * room( U64 hash ) const;
      bool insert( U64 hash, U32 slot );
      void erase( U64 hash, U32 slot );
      void clear( U32 from, U32 to );

    private:
      U32 * slots_ = nullptr;
      U32 mask_ = 0;
      U32 occupied_ = 0;
   };

   /** @name Steps of a write */
   /** @{ */
   U32 * entry( U32 position ) const { return memory_->entry( position ); }
   /** A position for a new key, and memory for all that its write needs; none, which is counted, if
       there is no room. */
   U32 newPosition( U64 hash );
   /** Whether there is memory for one more change, which every write is. */
   bool mayChange() { return ring_.taken == ring_.bytes || takeRing(); }
   void beginEntry( U32 * entry ) {
      storeRelaxed( entry, U32( 2 * ( head_ + 1 ) - 1 ) );
      __atomic_thread_fence( __ATOMIC_RELEASE );
   }
   void endEntry( U32 * entry ) { storeRelease( entry, U32( 2 * ( head_ + 1 ) ) ); }
   void indexIs( U64 hash, U32 position );
   void indexDel( U64 hash, U32 position );
   void changed( U32 position ) {
      const U64 number = ++head_;
      storeRelaxed( memory_->ring() + ( number & ( memory_->geometry().shape.changes - 1 ) ),
                    position );
      storeHead( memory_->live(), number );
      if ( server_ ) {
         server_->changed();
      }
   }
   /** One step of the index that is being built. */
   void grow() {
      if ( building_ || 2 * slots_.occupied() > slots_.slots() ) [[unlikely]] {
         build();
      }
   }
   bool refuse( const char * why );
   /** @} */

   std::shared_ptr< Mapping > memory_;
   U64 seed_ = 0;
   U32 size_ = 0;
   Slots slots_; // of the index in force
   struct Resting {
      U32 position;
      U64 removed;
   };
   std::deque< Resting > resting_;
   U64 head_ = 0;

 private:
   friend class Server;
   bool take( Taken & part, U64 upTo );
   bool takeRing();
   void build();
   void beginBuild();
   void clearOn();
   void moveOn();
   U32 slotOf( U64 hash, U32 position ) const {
      const U32 bits = memory_->geometry().positionBits;
      return slotTag( hash, bits ) | ( position + 1 );
   }

   Server * server_;
   String name_;
   TableType type_;
   String fault_;
   Handle file_;
   Taken ring_;
   Taken entries_;
   std::array< Taken, 64 > indexes_ = {};
   U32 used_ = 0;
   U32 index_ = 0; // in force
   U32 indexChanges_ = 0;
   bool building_ = false;
   U32 buildIndex_ = 0;
   U32 cleared_ = 0; // slots of the index that is being built
   U32 moved_ = 0;   // positions that it has
   Slots build_;
   U64 refused_ = 0;
   bool logged_ = false;
   bool complete_ = false;
};

/** A table of keys and values of so many words. */
template< U32 keyWords, U32 valueWords >
class TableOf : public Table {
 public:
   TableOf( Server * server, const String & name, const Room & room, const TableType & type )
       : Table( server, name, room, type ) {}

   bool valueIs( const Words< keyWords > & key, const Words< valueWords > & value );
   bool valueDel( const Words< keyWords > & key );
   /** The words of the value, in the table itself. */
   const U32 * value( const Words< keyWords > & key ) const {
      const U32 position = find( key, hashOf( key ) );
      return position == none ? nullptr : entry( position ) + 2 + keyWords;
   }

 private:
   U64 hashOf( const Words< keyWords > & key ) const {
      return hashOfWords( key.data(), keyWords, seed_ );
   }
   U32 find( const Words< keyWords > & key, U64 hash ) const;
   void store( U32 * words, const U32 * from, U32 n ) {
      for ( U32 i = 0; i < n; ++i ) {
         storeRelaxed( words + i, from[i] );
      }
   }
};

template< U32 keyWords, U32 valueWords >
U32
TableOf< keyWords, valueWords >::find( const Words< keyWords > & key, U64 hash ) const {
   if ( !memory_ ) {
      return none;
   }
   const U32 positionBits = memory_->geometry().positionBits;
   const U32 positionMask = ( 1u << positionBits ) - 1;
   const U32 tag = slotTag( hash, positionBits );
   for ( U32 i = 0; i < Geometry::longestSearch; ++i ) {
      const U32 slot = *slots_.slot( hash, i );
      if ( slot == 0 ) {
         return none;
      }
      if ( ( slot & ~positionMask ) != tag || slot == slotRemoved ) {
         continue;
      }
      const U32 position = ( slot & positionMask ) - 1;
      if ( std::memcmp( entry( position ) + 2, key.data(), keyWords * 4 ) == 0 ) {
         return position;
      }
   }
   return none;
}

template< U32 keyWords, U32 valueWords >
bool
TableOf< keyWords, valueWords >::valueIs( const Words< keyWords > & key,
                                          const Words< valueWords > & value ) {
   const U64 hash = hashOf( key );
   U32 position = find( key, hash );
   const bool isNew = position == none;
   if ( !isNew &&
        std::memcmp( entry( position ) + 2 + keyWords, value.data(), valueWords * 4 ) == 0 ) {
      return true;
   }
   if ( !memory_ || !mayChange() ) {
      return refuse( "has no memory" );
   }
   grow();
   if ( isNew && ( position = newPosition( hash ) ) == none ) {
      return false;
   }
   U32 * words = entry( position );
   beginEntry( words );
   if ( isNew ) {
      storeRelaxed( words + 1, entryPresent );
      store( words + 2, key.data(), keyWords );
   }
   store( words + 2 + keyWords, value.data(), valueWords );
   endEntry( words );
   if ( isNew ) {
      indexIs( hash, position );
      ++size_;
   }
   changed( position );
   return true;
}

template< U32 keyWords, U32 valueWords >
bool
TableOf< keyWords, valueWords >::valueDel( const Words< keyWords > & key ) {
   const U64 hash = hashOf( key );
   const U32 position = find( key, hash );
   if ( position == none ) {
      return false;
   }
   if ( !mayChange() ) {
      return refuse( "has no memory" );
   }
   grow();
   U32 * words = entry( position );
   beginEntry( words );
   storeRelaxed( words + 1, entryRemoved );
   endEntry( words );
   indexDel( hash, position );
   --size_;
   changed( position );
   resting_.push_back( { position, head_ } );
   return true;
}

} // namespace Quarn
