#pragma once
// Memory for many objects of one size that come and go in bursts.
//
// A general allocator keeps the small blocks of a burst apart and joins them, hundreds of
// thousands at one go, in some later call: that call takes longer than a whole slice may. Here
// blocks come from slabs of 64, and a slab goes back as a whole when its last block is free.
//
// Invariants
// 1. take() and give() take constant time.
// 2. Slabs with room are in the list; new blocks come from its first, slabs that get room again go
//    to its end. So the slabs of an old burst run empty. One empty slab is kept.
//
// No locks: one thread. A pool is never destroyed while blocks of it are out.

#include <cstddef>
#include <new>

#include "platform/Velto/Types.h"

namespace Qon {

template< std::size_t size >
class SlabPool {
   static constexpr U32 blocks = 64;

   struct Slab;
   struct Block {
      Slab * slab;
      union {
         Block * next; // when free
         alignas( __STDCPP_DEFAULT_NEW_ALIGNMENT__ / 2 ) unsigned char room[size];
      };
   };
   struct Slab {
      Slab * before = nullptr;
      Slab * after = nullptr;
      Block * free = nullptr;
      U32 used = 0;  // blocks that have ever been out
      U32 taken = 0; // blocks that are out
      Block block[blocks];
      Slab() {} // the blocks stay as they are
   };

 public:
   void * take() {
      if ( !first_ ) {
         append( new Slab );
      }
      Slab * slab = first_;
      Block * b = slab->free;
      if ( b ) {
         slab->free = b->next;
      } else {
         b = &slab->block[slab->used++];
         b->slab = slab;
      }
      if ( ++slab->taken == blocks ) {
         remove( slab );
      }
      return b->room;
   }
   void give( void * room ) {
      auto * b =
            reinterpret_cast< Block * >( static_cast< char * >( room ) - offsetof( Block, room ) );
      Slab * slab = b->slab;
      b->next = slab->free;
      slab->free = b;
      if ( slab->taken-- == blocks ) {
         append( slab );
      }
      if ( slab->taken == 0 && first_ != last_ ) {
         remove( slab );
         delete slab;
      }
   }

 private:
   void append( Slab * slab ) {
      slab->before = last_;
      slab->after = nullptr;
      ( last_ ? last_->after : first_ ) = slab;
      last_ = slab;
   }
   void remove( Slab * slab ) {
      ( slab->before ? slab->before->after : first_ ) = slab->after;
      ( slab->after ? slab->after->before : last_ ) = slab->before;
   }
   Slab * first_ = nullptr;
   Slab * last_ = nullptr;
};

} // namespace Qon
