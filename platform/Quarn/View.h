#pragma once
// How a table's memory is read while another process writes it.
//
//    find( key ) -> index in force -> slots by tag -> entry, under its sequence word
//    changes( own, ... ) -> ring -> entries -> was the ring overwritten meanwhile?
//
// Invariants
// 1. An entry is read whole or not at all: its sequence word is even and the same before and after.
// 2. Nothing waits: 32 tries in all, then it is busy. A search looks at 1,024 slots at most.
// 3. No number that is read is believed: each is bounded by the checked constants before it is used.

#include "platform/Quarn/Memory.h"

namespace Quarn {

/** Answer of a look-up. Busy: it is being written, or its writer died in it. */
enum class Found : U8 { no, yes, busy };

/** What an entry's second word says. */
enum EntryState : U32 { entryFree = 0, entryPresent = 1, entryRemoved = 2 };

/** Its numbers have 31 bits: whether `a` is one of the 2^30 behind `b`. */
constexpr bool
isBehind( U32 a, U32 b ) {
   const U32 distance = ( a - b ) & 0x7fffffff;
   return distance - 1 < 1u << 30;
}

/** An index slot: 0 is free, all ones a removed key, else the key's tag and its position + 1. */
constexpr U32 slotRemoved = ~U32( 0 );

constexpr U32
slotTag( U64 hash, U32 positionBits ) {
   return U32( hash >> 32 ) >> positionBits << positionBits;
}

/** A number of changes, of which the upper half changes last when it is written. */
inline void
storeHead( Live & live, U64 number ) {
   if ( U32( number ) == 0 ) [[unlikely]] {
      storeRelease( &live.head[0], U32( number >> 32 ) );
   }
   storeRelease( &live.head[1], U32( number ) );
   if ( U32( number ) == 0 ) [[unlikely]] {
      storeRelease( &live.head[2], U32( number >> 32 ) );
   }
}

template< U32 keyWords, U32 valueWords >
class ViewOf {
 public:
   struct Entry {
      U32 sequence = 0;
      U32 state = 0;
      Words< keyWords > key;
      Words< valueWords > value;
      U32 number() const { return sequence >> 1; }
   };
   static constexpr U32 mostTries = 32;

   explicit ViewOf( const Mapping & memory ) : m_( memory ) {}

   /** Of positions that were ever used. */
   U32 used() const {
      const U32 used = loadAcquire( &m_.live().used );
      return used < m_.geometry().positions ? used : m_.geometry().positions;
   }
   /** Number of the last change; `otherwise` if its writer died while it wrote that. */
   U64 head( U64 otherwise ) const {
      const Live & live = m_.live();
      for ( U32 tries = 0; tries < mostTries; ++tries ) {
         const U32 high = loadAcquire( &live.head[2] );
         const U32 low = loadAcquire( &live.head[1] );
         if ( loadAcquire( &live.head[0] ) == high ) {
            return U64( high ) << 32 | low;
         }
      }
      return otherwise;
   }

   /** False for one that is being written. `position` is below positions. */
   bool read( U32 position, Entry * to ) const {
      U32 tries = mostTries;
      return read( position, to, &tries );
   }

   Found find( const Words< keyWords > & key, Entry * to ) const {
      const U64 hash = hashOfWords( key.data(), keyWords, m_.constants().seed );
      U32 tries = mostTries;
      while ( true ) {
         const U32 force = loadAcquire( &m_.live().index );
         const Found found = search( force & 0xff, hash, key, to, &tries );
         __atomic_thread_fence( __ATOMIC_ACQUIRE );
         // Another index came into force meanwhile: the old one may be overwritten.
         const bool sure = found == Found::yes ||
                           ( found == Found::no && loadRelaxed( &m_.live().index ) == force );
         if ( sure || tries == 0 || --tries == 0 ) {
            return sure ? found : Found::busy;
         }
      }
   }

   /** A change as it was found in the ring. */
   struct Change {
      U64 number;
      U32 position;
      bool told; ///< whether it is to be told: it is whole, and will not be told once more
      Entry entry;
   };
   /** The changes behind `own`, at most `n` of them and none behind `limit`; how many, or -1 if the
       writer has overwritten some of them. `limit` is a head that was read. */
   int changes( U64 own, U64 limit, Change * to, U32 n ) const;

 private:
   bool read( U32 position, Entry * to, U32 * tries ) const;
   Found search( U32 index, U64 hash, const Words< keyWords > & key, Entry * to,
                 U32 * tries ) const;

   const Mapping & m_;
};

template< U32 keyWords, U32 valueWords >
bool
ViewOf< keyWords, valueWords >::read( U32 position, Entry * to, U32 * tries ) const {
   const U32 * entry = m_.entry( position );
   while ( true ) {
      const U32 before = loadAcquire( entry );
      if ( ( before & 1 ) == 0 ) {
         to->sequence = before;
         to->state = loadRelaxed( entry + 1 );
         for ( U32 i = 0; i < keyWords; ++i ) {
            to->key[i] = loadRelaxed( entry + 2 + i );
         }
         for ( U32 i = 0; i < valueWords; ++i ) {
            to->value[i] = loadRelaxed( entry + 2 + keyWords + i );
         }
         __atomic_thread_fence( __ATOMIC_ACQUIRE );
         if ( loadRelaxed( entry ) == before ) {
            return true;
         }
      }
      if ( *tries == 0 || --*tries == 0 ) {
         return false;
      }
   }
}

template< U32 keyWords, U32 valueWords >
Found
ViewOf< keyWords, valueWords >::search( U32 index, U64 hash, const Words< keyWords > & key,
                                        Entry * to, U32 * tries ) const {
   const Geometry & g = m_.geometry();
   if ( index >= g.indexes ) {
      return Found::no;
   }
   const U32 * slots = m_.index( index );
   const U32 mask = ( 1u << g.slotBits( index ) ) - 1;
   const U32 positionMask = ( 1u << g.positionBits ) - 1;
   const U32 tag = slotTag( hash, g.positionBits );
   Found found = Found::no;
   for ( U32 i = 0; i < Geometry::longestSearch; ++i ) {
      const U32 slot = loadAcquire( slots + ( ( U32( hash ) + i ) & mask ) );
      if ( slot == 0 ) {
         break;
      }
      const U32 position = ( slot & positionMask ) - 1;
      if ( ( slot & ~positionMask ) != tag || position >= g.positions ) {
         continue;
      }
      if ( !read( position, to, tries ) ) {
         found = Found::busy;
      } else if ( to->state == entryPresent && to->key == key ) {
         return Found::yes;
      }
   }
   return found;
}

template< U32 keyWords, U32 valueWords >
int
ViewOf< keyWords, valueWords >::changes( U64 own, U64 limit, Change * to, U32 n ) const {
   const U32 length = m_.geometry().shape.changes;
   if ( limit < own || limit - own >= length ) {
      return -1;
   }
   n = U32( limit - own < n ? limit - own : n );
   for ( U32 i = 0; i < n; ++i ) {
      to[i].number = own + 1 + i;
      to[i].position = loadRelaxed( m_.ring() + ( ( own + 1 + i ) & ( length - 1 ) ) );
      if ( to[i].position < m_.geometry().positions ) {
         __builtin_prefetch( m_.entry( to[i].position ) );
      }
   }
   const U32 last = used();
   for ( U32 i = 0; i < n; ++i ) {
      Change & change = to[i];
      change.told = change.position < last && read( change.position, &change.entry );
      const U32 number = U32( change.number ) & 0x7fffffff;
      if ( change.told && change.entry.number() != number ) {
         // Changed again: told at its last place, if that is one which we come to.
         change.told = isBehind( change.entry.number(), U32( limit ) & 0x7fffffff );
      }
   }
   __atomic_thread_fence( __ATOMIC_ACQUIRE );
   const U64 now = head( own );
   return now >= own && now - own < length ? int( n ) : -1;
}

} // namespace Quarn
