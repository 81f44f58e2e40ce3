#pragma once
// What a Kiv::DenseMap consists of, as far as it does not depend on the types of key and value.
//
//    DenseMap< K, V > -> DenseBody -> chunks, in order of insertion -> places for entries
//                            |  \---> DenseIndex: hash -> position (chunk's id * 64 + place)
//                            \------> open walks
//
// Invariants
// 1. Places are filled from the first to the last and never again: the order of the chunks and
//    of the places in them is the order of insertion. A dead place is a hole.
// 2. A chunk in the list has a live entry. One that loses its last is taken out at once, so that
//    a map used as a queue holds no more chunks than its entries fill; only the last chunk stays as
//    long as there are others, and is filled anew: an entry that comes and goes takes no memory.
// 3. Chunks have 4 places in a small map and up to 64 in a larger one.
// 4. A chunk whose entry is being destroyed is pinned: it is neither merged nor deleted. If it is
//    dropped meanwhile, who unpins it deletes it.
//
// The body owns its chunks' memory, but not the lives of the entries in it.

#include <bit>
#include <new>
#include <utility>

#include "platform/Kiv/DenseIndex.h"
#include "platform/Kiv/WalkLink.h"

namespace Kiv {

struct DenseBody;

struct DenseChunk {
   U64 live = 0; // a bit for each place with an entry
   DenseChunk * before = nullptr;
   DenseChunk * after = nullptr;
   U32 id = 0; // valid while the index is on
   U8 room;
   U8 filled = 0; // places used up
   U8 count = 0;  // bits in `live`
   U8 pins = 0;
   bool dropped = false;

   explicit DenseChunk( U32 places ) : room( U8( places ) ) {}
   bool has( U32 place ) const { return live >> place & 1; }
   U32 position( U32 place ) const { return id * 64 + place; }

   /** Deletes a chunk that is out of the list, now or when it is unpinned. */
   void drop() {
      dropped = true;
      if ( pins == 0 ) {
         ::operator delete( this );
      }
   }
   void unpin() {
      if ( --pins == 0 && dropped ) {
         ::operator delete( this );
      }
   }
};

/** A walk's place in a body. It is known to the body while it is open. */
struct DenseWalk : WalkLink< DenseWalk > {
   DenseBody * body = nullptr;   // null when closed
   DenseChunk * chunk = nullptr; // where the search for the next entry begins; null when there
   U32 place = 0;                // is none in the body
   U32 at = 0;                   // the current entry, if any
   DenseChunk * current = nullptr;

   inline void open( DenseBody * of );
   inline void close();
   /** Steps to the next entry, or closes the walk behind the last. */
   inline void step();
};

struct DenseBody {
   U32 live = 0;
   U32 places = 0; // of all chunks
   DenseChunk * first = nullptr;
   DenseChunk * last = nullptr;
   DenseChunk * sparse = nullptr; // where the search for chunks to merge goes on
   DenseWalk * walks = nullptr;
   DenseChunk ** chunks = nullptr; // by id, while the index is on; id 0 is not used
   U32 chunksRoom = 0;
   U32 chunksUsed = 1;
   U32 freeIds = 0; // the first of the free ids; each holds the next
   DenseIndex index;

   DenseBody() = default;
   DenseBody( const DenseBody & ) = delete;
   DenseBody & operator=( const DenseBody & ) = delete;
   ~DenseBody() {
      while ( walks ) {
         walks->close();
      }
      delete[] chunks;
   }

   DenseChunk * chunkAt( U32 position ) const { return chunks[position / 64]; }
   /** The chunk whose next place is free; entries take `size` bytes, and begin `offset` bytes into
       the chunk. */
   DenseChunk * chunkWithRoom( U32 offset, U32 size );
   /** Makes the places of the last chunk, which has no entry, free again. */
   void rewind();
   /** The next place of the last chunk has an entry now. */
   void entryIs( DenseChunk * c ) {
      c->live |= U64( 1 ) << c->filled++;
      ++c->count;
      ++live;
   }
   /** The entry at `place` is dead. Its chunk must be pinned. */
   void entryDel( DenseChunk * c, U32 place );
   /** Takes all chunks out and returns the first. Walks go on with what is inserted next. */
   DenseChunk * detach();

   /** Gives every chunk an id and starts the index, which is still to be filled. */
   void indexStart();
   void idIs( DenseChunk * c );

   /** Whether it is time to merge chunks: five eighths of the places are holes, and nobody
       walks. */
   bool wantsMerge() const { return places / 8 * 3 > live + 24 && !walks; }
   /** A chunk whose successor's entries fit into it too, or null; looks at a few only. */
   DenseChunk * mergeable();
   /** Takes the (now empty) chunk out of the list and drops it. */
   void chunkDel( DenseChunk * c );
};

inline void
DenseBody::idIs( DenseChunk * c ) {
   if ( freeIds ) {
      c->id = freeIds;
      freeIds = U32( reinterpret_cast< std::uintptr_t >( chunks[freeIds] ) );
   } else {
      if ( chunksUsed == chunksRoom || !chunks ) {
         U32 room = chunks ? chunksRoom * 2 : 8;
         VELTO_ASSERT( room <= U32( 1 ) << ( DenseIndex::positionBits - 6 ) );
         auto ** more = new DenseChunk *[room];
         std::copy_n( chunks, chunks ? chunksUsed : 0, more );
         delete[] std::exchange( chunks, more );
         chunksRoom = room;
      }
      c->id = chunksUsed++;
   }
   chunks[c->id] = c;
}

inline void
DenseBody::indexStart() {
   for ( DenseChunk * c = first; c; c = c->after ) {
      idIs( c );
   }
   index.start();
}

inline void
DenseBody::rewind() {
   if ( last->pins ) {
      if ( last->filled == last->room ) {
         chunkDel( last );
      }
      return;
   }
   last->filled = 0;
   for ( DenseWalk * w = walks; w; w = w->others() ) {
      if ( w->chunk == last ) {
         w->place = 0;
      }
   }
}

inline DenseChunk *
DenseBody::chunkWithRoom( U32 offset, U32 size ) {
   if ( last && last->count == 0 ) {
      rewind();
   }
   if ( last && last->filled < last->room ) {
      return last;
   }
   U32 room = live < 4 ? 4 : live >= 64 ? 64 : std::bit_ceil( live );
   auto * c = new ( ::operator new( offset + room * size ) ) DenseChunk( room );
   if ( index.on() ) {
      idIs( c );
   }
   c->before = last;
   ( last ? last->after : first ) = c;
   last = c;
   places += room;
   for ( DenseWalk * w = walks; w; w = w->others() ) {
      if ( !w->chunk ) {
         w->chunk = c;
         w->place = 0;
      }
   }
   return c;
}

inline void
DenseBody::entryDel( DenseChunk * c, U32 place ) {
   c->live &= ~( U64( 1 ) << place );
   --c->count;
   --live;
   for ( DenseWalk * w = walks; w; w = w->others() ) {
      if ( w->current == c && w->at == place ) {
         w->current = nullptr;
      }
   }
   if ( c->count == 0 && c != last ) {
      chunkDel( c );
   }
   if ( live == 0 && last ) {
      chunkDel( last );
   }
}

inline void
DenseBody::chunkDel( DenseChunk * c ) {
   for ( DenseWalk * w = walks; w; w = w->others() ) {
      if ( w->chunk == c ) {
         w->chunk = c->after ? c->after : c->before;
         w->place = c->after || !c->before ? 0 : c->before->filled;
      }
   }
   ( c->before ? c->before->after : first ) = c->after;
   ( c->after ? c->after->before : last ) = c->before;
   if ( sparse == c ) {
      sparse = c->after;
   }
   if ( index.on() ) {
      chunks[c->id] = reinterpret_cast< DenseChunk * >( std::uintptr_t( freeIds ) );
      freeIds = c->id;
   }
   places -= c->room;
   c->drop();
}

inline DenseChunk *
DenseBody::detach() {
   for ( DenseWalk * w = walks; w; w = w->others() ) {
      w->chunk = w->current = nullptr;
      w->place = 0;
   }
   index.stop();
   delete[] std::exchange( chunks, nullptr );
   chunksUsed = 1;
   chunksRoom = freeIds = live = places = 0;
   last = sparse = nullptr;
   return std::exchange( first, nullptr );
}

inline DenseChunk *
DenseBody::mergeable() {
   for ( int looks = 0; looks < 3; ++looks ) {
      DenseChunk * c = sparse ? sparse : first;
      DenseChunk * next = c ? c->after : nullptr;
      if ( next && !c->pins && !next->pins && c->count + next->count <= c->room ) {
         sparse = c;
         return c;
      }
      sparse = next;
   }
   return nullptr;
}

inline void
DenseWalk::open( DenseBody * of ) {
   if ( of && of->live ) {
      body = of;
      chunk = of->first;
      link( of->walks );
      step();
   }
}

inline void
DenseWalk::close() {
   unlink();
   body = nullptr;
   current = nullptr;
}

inline void
DenseWalk::step() {
   while ( chunk ) {
      U64 rest = place < 64 ? chunk->live >> place : 0;
      if ( rest ) {
         at = place + U32( std::countr_zero( rest ) );
         current = chunk;
         place = at + 1;
         return;
      }
      if ( !chunk->after ) {
         break;
      }
      chunk = chunk->after;
      place = 0;
   }
   close();
}

} // namespace Kiv
