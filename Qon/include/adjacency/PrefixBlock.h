#pragma once
// Some prefixes in one piece of memory, from two to some hundreds: what a list of a forwarding class
// mostly has. Who has more needs a Kiv::DenseMap, which grows in steps.
//
//    header | slots: 6 bits of the hash, 10 of the place | places: prefixes in order of insertion
//
// Invariants
// 1. At most five eighths of the slots are filled: each place that was used up since the block was made
//    has one, also where its prefix has gone.
// 2. The block does not know its size; who holds it does, so that a look-up reads a slot and a place
//    and nothing else.
// 3. Making another one, the only thing that takes time by its size, moves 640 prefixes at most.

#include <cstring>
#include <new>

#include "platform/Kiv/Hash.h"

namespace Qon {

template< class P >
class PrefixBlock {
 public:
   static constexpr U32 leastBits = 3;
   static constexpr U32 mostBits = 10;

   /** How many prefixes a block of 2^bits slots holds. */
   static constexpr U32 room( U32 bits ) { return ( 5u << bits ) / 8; }
   static PrefixBlock * make( U32 bits ) {
      const U32 bytes = sizeof( PrefixBlock ) + ( 2u << bits ) + room( bits ) * U32( sizeof( P ) );
      auto * block = new ( ::operator new( bytes ) ) PrefixBlock;
      std::memset( block->slots(), 0xff, 2u << bits );
      return block;
   }
   static void free( PrefixBlock * block ) { ::operator delete( block ); }

   U32 live() const { return live_; }
   bool full( U32 bits ) const { return used_ == room( bits ); }
   bool has( U32 bits, const P & p ) const {
      return slots()[search( bits, p, hashFor( p ) )] != empty;
   }
   /** Adds a prefix that is not there, where there is room. */
   void add( U32 bits, const P & p ) {
      const U64 hash = hashFor( p );
      U32 i = U32( hash ) & mask( bits );
      while ( slots()[i] != empty ) {
         i = ( i + 1 ) & mask( bits );
      }
      slots()[i] = U16( tagOf( hash ) | used_ );
      new ( places( bits ) + used_++ ) P( p );
      ++live_;
   }
   /** Whether it was there. */
   bool remove( U32 bits, const P & p ) {
      U16 & slot = slots()[search( bits, p, hashFor( p ) )];
      if ( slot == empty ) {
         return false;
      }
      slot = removed;
      --live_;
      return true;
   }
   /** Calls act( prefix ) for each, in order of insertion. */
   template< class Act >
   void each( U32 bits, Act && act ) const {
      bool at[640];
      std::memset( at, live_ == used_, used_ );
      for ( U32 i = 0; live_ != used_ && i <= mask( bits ); ++i ) {
         const U32 place = slots()[i] & placeMask;
         if ( place < used_ ) {
            at[place] = true;
         }
      }
      for ( U32 i = 0; i < used_; ++i ) {
         if ( at[i] ) {
            act( places( bits )[i] );
         }
      }
   }

 private:
   static constexpr U16 empty = 0xffff;
   static constexpr U16 removed = 0xfffe;
   static constexpr U32 placeMask = 0x3ff;
   static_assert( alignof( P ) == 1 && room( mostBits ) == 640 );

   static U64 hashFor( const P & p ) { return Kiv::mix( p.hash() ); }
   static U32 tagOf( U64 hash ) { return U32( hash >> 58 ) << 10; }
   static U32 mask( U32 bits ) { return ( 1u << bits ) - 1; }

   U16 * slots() { return reinterpret_cast< U16 * >( this + 1 ); }
   const U16 * slots() const { return const_cast< PrefixBlock * >( this )->slots(); }
   P * places( U32 bits ) { return reinterpret_cast< P * >( slots() + ( 1u << bits ) ); }
   const P * places( U32 bits ) const {
      return const_cast< PrefixBlock * >( this )->places( bits );
   }

   /** The slot of `p`, or an empty one. */
   U32 search( U32 bits, const P & p, U64 hash ) const {
      const P * all = places( bits );
      for ( U32 i = U32( hash ) & mask( bits );; i = ( i + 1 ) & mask( bits ) ) {
         const U32 slot = slots()[i];
         if ( const U32 place = slot ^ tagOf( hash );
              place < room( mostBits ) && all[place] == p ) {
            return i;
         }
         if ( slot == empty ) {
            return i;
         }
      }
   }

   U16 live_ = 0;
   U16 used_ = 0; // places, also of what has gone
};

} // namespace Qon
