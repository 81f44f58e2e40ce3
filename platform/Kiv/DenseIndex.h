#pragma once
// The index of a Kiv::DenseMap: from the hash of a key to the entry's position.
//
//    root table (high hash bits) -> segment of up to 1,024 slots (low hash bits) -> position
//
// Invariants
// 1. A slot is one word: empty, removed, or five bits of the hash and the position. The hash
//    itself is not stored; who moves slots asks the map for the hashes of their positions.
// 2. A segment is at most five eighths full, removed slots included. A full one is split in two
//    by the next bit of the hash, so no single add() moves more than one segment's slots.
// 3. Segment s serves the hashes that begin with its `depth` bits: a run of
//    2^( depth_ - s.depth ) neighbouring roots points to it.
// 4. Keys with equal hashes cannot be split: then the segment grows instead.
//
// The index owns its segments and nothing else.

#include <algorithm>
#include <new>
#include <utility>

#include "platform/Velto/Assert.h"

namespace Kiv {

class DenseIndex {
 public:
   /** Positions are below 2^positionBits and not below firstPosition. */
   static constexpr U32 positionBits = 27;
   static constexpr U32 firstPosition = 64;

   /** Tells the (mixed) hashes of the keys at `n` positions. */
   struct Hasher {
      const void * of;
      void ( *hashes )( const void * of, const U32 * positions, U64 * hashes, U32 n );
   };

   DenseIndex() = default;
   DenseIndex( const DenseIndex & ) = delete;
   DenseIndex & operator=( const DenseIndex & ) = delete;
   ~DenseIndex() { stop(); }

   bool on() const { return roots_ != nullptr; }
   /** Makes an empty index. */
   void start();
   /** Gives all memory back. */
   void stop();

   /** The position among those of `hash` for which match( position ), or 0. */
   template< class Match >
   U32 find( U64 hash, Match && match ) const {
      const Root & root = roots_[rootOf( hash )];
      const U32 * slots = slotsOf( root.segment );
      U32 tag = tagOf( hash );
      for ( U32 i = U32( hash ) & root.mask;; i = ( i + 1 ) & root.mask ) {
         U32 slot = slots[i];
         // The subtraction rules out `empty` and `removed` too.
         if ( ( slot ^ tag ) - firstPosition < positionLimit - firstPosition &&
              match( slot ^ tag ) ) {
            return slot ^ tag;
         }
         if ( slot == empty ) {
            return 0;
         }
      }
   }
   void add( U64 hash, U32 position, const Hasher & hasher );
   void remove( U64 hash, U32 position, const Hasher & hasher );
   /** Fetches what a look-up of `hash` will read. */
   void prefetch( U64 hash ) const {
      const Root & root = roots_[rootOf( hash )];
      __builtin_prefetch( slotsOf( root.segment ) + ( U32( hash ) & root.mask ) );
   }
   /** The entry at position `from` is at `to` now. */
   void moved( U64 hash, U32 from, U32 to ) { *slotOf( hash, from ) = tagOf( hash ) | to; }

 private:
   static constexpr U32 empty = 0;
   static constexpr U32 removed = 1;
   static constexpr U32 positionLimit = U32( 1 ) << positionBits;
   static constexpr U32 leastBits = 4;
   static constexpr U32 segmentBits = 10;
   static constexpr U32 mostDepth = 20;

   struct Segment {
      U32 live;   // slots with a position
      U32 filled; // those and the removed ones
      U32 bits;   // of the number of slots
      U32 depth;  // hash bits that all keys in here share
      U32 room() const { return U32( 1 ) << bits; }
   };
   struct Root {
      Segment * segment;
      U32 mask;
   };

   static U32 tagOf( U64 hash ) { return U32( hash ) & ~( positionLimit - 1 ); }
   static U32 * slotsOf( Segment * s ) { return reinterpret_cast< U32 * >( s + 1 ); }
   U32 rootOf( U64 hash ) const { return U32( hash >> 32 ) >> 1 >> ( 31 - depth_ ); }

   Segment * segmentIs( U32 bits, U32 depth );
   void segmentDel( Segment * s );
   /** Points the roots of `s` to it; `hash` is any that it serves. */
   void rootsAre( U64 hash, Segment * s );
   static void place( Segment * s, U64 hash, U32 position );
   U32 * slotOf( U64 hash, U32 position ) const;

   static void movePart( const U32 * positions, U32 n, Segment * zero, Segment * one,
                         const Hasher & hasher );
   static void moveAll( Segment * from, Segment * zero, Segment * one, const Hasher & hasher );
   void makeRoom( U64 hash, const Hasher & hasher );
   bool maySplit( const Segment * s ) const;
   void split( U64 hash, const Hasher & hasher );
   void resize( U64 hash, U32 bits, const Hasher & hasher );
   void shrink( U64 hash, const Hasher & hasher );
   void rootTableIs( U32 depth );

   Root * roots_ = nullptr;
   U32 depth_ = 0;
   U32 segments_ = 0;
};

inline DenseIndex::Segment *
DenseIndex::segmentIs( U32 bits, U32 depth ) {
   U32 bytes = ( U32( 1 ) << bits ) * sizeof( U32 );
   auto * s = new ( ::operator new( sizeof( Segment ) + bytes ) ) Segment{ 0, 0, bits, depth };
   std::fill_n( slotsOf( s ), s->room(), empty );
   ++segments_;
   return s;
}

inline void
DenseIndex::segmentDel( Segment * s ) {
   ::operator delete( s );
   --segments_;
}

inline void
DenseIndex::rootsAre( U64 hash, Segment * s ) {
   U32 spare = depth_ - s->depth;
   U32 first = rootOf( hash ) >> spare << spare;
   std::fill_n( roots_ + first, U32( 1 ) << spare, Root{ s, s->room() - 1 } );
}

/** Makes the root table one for `depth` bits: deeper than now, or 0. */
inline void
DenseIndex::rootTableIs( U32 depth ) {
   auto * roots = new Root[U32( 1 ) << depth];
   for ( U32 i = 0; roots_ && i < U32( 1 ) << depth; ++i ) {
      roots[i] = depth > depth_ ? roots_[i >> ( depth - depth_ )] : roots_[0];
   }
   delete[] std::exchange( roots_, roots );
   depth_ = depth;
}

inline void
DenseIndex::start() {
   rootTableIs( 0 );
   rootsAre( 0, segmentIs( leastBits, 0 ) );
}

inline void
DenseIndex::stop() {
   for ( U32 i = 0; roots_ && i < U32( 1 ) << depth_; ) {
      Segment * s = roots_[i].segment;
      i += U32( 1 ) << ( depth_ - s->depth );
      segmentDel( s );
   }
   delete[] std::exchange( roots_, nullptr );
   depth_ = 0;
}

inline void
DenseIndex::place( Segment * s, U64 hash, U32 position ) {
   U32 * slots = slotsOf( s );
   U32 mask = s->room() - 1;
   U32 i = U32( hash ) & mask;
   while ( slots[i] > removed ) {
      i = ( i + 1 ) & mask;
   }
   s->filled += slots[i] == empty;
   ++s->live;
   slots[i] = tagOf( hash ) | position;
}

inline U32 *
DenseIndex::slotOf( U64 hash, U32 position ) const {
   const Root & root = roots_[rootOf( hash )];
   U32 * slots = slotsOf( root.segment );
   U32 i = U32( hash ) & root.mask;
   while ( slots[i] != ( tagOf( hash ) | position ) ) {
      VELTO_ASSERT( slots[i] != empty );
      i = ( i + 1 ) & root.mask;
   }
   return slots + i;
}

inline void
DenseIndex::add( U64 hash, U32 position, const Hasher & hasher ) {
   Segment * s = roots_[rootOf( hash )].segment;
   while ( ( s->filled + 1 ) * 8 > s->room() * 5 )
      [[unlikely]] {
         makeRoom( hash, hasher );
         s = roots_[rootOf( hash )].segment;
      }
   place( s, hash, position );
}

inline void
DenseIndex::remove( U64 hash, U32 position, const Hasher & hasher ) {
   Segment * s = roots_[rootOf( hash )].segment;
   U32 * slots = slotsOf( s );
   U32 mask = s->room() - 1;
   U32 i = U32( slotOf( hash, position ) - slots );
   --s->live;
   slots[i] = removed;
   if ( slots[( i + 1 ) & mask] == empty ) {
      // No search goes on behind this slot: it and the removed ones before it become empty.
      for ( ; slots[i] == removed; i = ( i - 1 ) & mask ) {
         slots[i] = empty;
         --s->filled;
      }
   }
   if ( s->live * 8 < s->room() ) [[unlikely]] {
      shrink( hash, hasher );
   }
}

inline void
DenseIndex::movePart( const U32 * positions, U32 n, Segment * zero, Segment * one,
                      const Hasher & hasher ) {
   U64 hashes[64];
   hasher.hashes( hasher.of, positions, hashes, n );
   for ( U32 i = 0; i < n; ++i ) {
      bool bit = zero != one && ( hashes[i] >> ( 64 - one->depth ) & 1 );
      place( bit ? one : zero, hashes[i], positions[i] );
   }
}

/** Places what `from` holds in `zero` or `one`, by the last bit of their depth. */
inline void
DenseIndex::moveAll( Segment * from, Segment * zero, Segment * one, const Hasher & hasher ) {
   U32 positions[64];
   U32 n = 0;
   const U32 * slots = slotsOf( from );
   for ( U32 i = 0; i < from->room(); ++i ) {
      positions[n] = slots[i] & ( positionLimit - 1 );
      n += slots[i] > removed; // no branch: it could not be predicted
      if ( n == 64 ) {
         movePart( positions, std::exchange( n, 0 ), zero, one, hasher );
      }
   }
   movePart( positions, n, zero, one, hasher );
}

inline void
DenseIndex::makeRoom( U64 hash, const Hasher & hasher ) {
   Segment * s = roots_[rootOf( hash )].segment;
   if ( s->live * 2 <= s->room() ) {
      resize( hash, s->bits, hasher );
   } else if ( s->bits < segmentBits || !maySplit( s ) ) {
      resize( hash, s->bits + 1, hasher );
   } else {
      split( hash, hasher );
   }
}

inline bool
DenseIndex::maySplit( const Segment * s ) const {
   if ( s->bits > segmentBits ) {
      return false;
   }
   // A root table much larger than the number of segments is a sign of many equal hashes.
   return s->depth < depth_ || ( depth_ < mostDepth && U32( 1 ) << depth_ <= 4 * segments_ + 16 );
}

inline void
DenseIndex::split( U64 hash, const Hasher & hasher ) {
   Segment * s = roots_[rootOf( hash )].segment;
   U32 depth = s->depth + 1;
   if ( depth > depth_ ) {
      rootTableIs( depth );
   }
   Segment * zero = segmentIs( s->bits, depth );
   Segment * one = segmentIs( s->bits, depth );
   moveAll( s, zero, one, hasher );
   U64 bit = U64( 1 ) << ( 64 - depth );
   rootsAre( hash & ~bit, zero );
   rootsAre( hash | bit, one );
   segmentDel( s );
}

inline void
DenseIndex::resize( U64 hash, U32 bits, const Hasher & hasher ) {
   Segment * s = roots_[rootOf( hash )].segment;
   Segment * other = segmentIs( bits, s->depth );
   moveAll( s, other, other, hasher );
   rootsAre( hash, other );
   segmentDel( s );
}

/** Joins the sparse segment of `hash` with its neighbour, or makes it smaller. */
inline void
DenseIndex::shrink( U64 hash, const Hasher & hasher ) {
   Segment * s = roots_[rootOf( hash )].segment;
   U32 least = s->depth == 0 ? leastBits : segmentBits;
   if ( s->bits > least ) {
      resize( hash, std::max( s->bits - 2, least ), hasher );
      return;
   }
   if ( s->depth == 0 ) {
      return;
   }
   Segment * other = roots_[rootOf( hash ^ U64( 1 ) << ( 64 - s->depth ) )].segment;
   if ( other->depth != s->depth || other->bits != s->bits ||
        ( s->live + other->live ) * 4 > s->room() ) {
      return;
   }
   Segment * joined = segmentIs( s->bits, s->depth - 1 );
   moveAll( s, joined, joined, hasher );
   moveAll( other, joined, joined, hasher );
   rootsAre( hash, joined );
   segmentDel( s );
   segmentDel( other );
   if ( joined->depth == 0 ) {
      rootTableIs( 0 );
   }
}

} // namespace Kiv
