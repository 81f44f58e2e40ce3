#pragma once
// The memory of one shared table: where everything lies, and how it is made, passed on and mapped.
//
//    page 0     Constants (never change) | head | state            each on lines of its own
//    ring       the positions that changed, by number of the change
//    indexes    two for each power of two: tag and position of the key
//    entries    sequence word, state, key, value
//
// Invariants
// 1. All words that change are 32 bits wide and are touched by the functions below only, so that
//    processes of 32 and 64 bit share a table. Little-endian machines only.
// 2. The writer's memory file has its final size from the start, and is sealed: nobody can change its
//    size, and nobody but the writer's own map can write. It costs what was taken of it.
// 3. A reader believes nothing: it checks seals, kind and size before it maps, copies the constants
//    once and checks the copy; every position, count and place it reads later is bounded.
// 4. A child of a fork has none of the maps and descriptors.
//
// Ownership: a Mapping unmaps what it mapped, a Handle closes its descriptor.

#include <array>
#include <cstring>
#include <memory>

#include "platform/Quarn/Layout.h"
#include "platform/Velto/Types.h"

namespace Quarn {

using Velto::String;

/** Changes when the memory of tables is arranged differently. */
constexpr U32 layoutVersion = 1;

/** @name Words that two processes touch */
/** @{ */
inline U32
loadRelaxed( const U32 * word ) {
   return __atomic_load_n( word, __ATOMIC_RELAXED );
}
inline U32
loadAcquire( const U32 * word ) {
   return __atomic_load_n( word, __ATOMIC_ACQUIRE );
}
inline void
storeRelaxed( U32 * word, U32 v ) {
   __atomic_store_n( word, v, __ATOMIC_RELAXED );
}
inline void
storeRelease( U32 * word, U32 v ) {
   __atomic_store_n( word, v, __ATOMIC_RELEASE );
}
/** @} */

/** A key or a value, as words. */
template< U32 n >
using Words = std::array< U32, n >;

template< class T >
constexpr U32 wordsIn = sizeof( T ) / sizeof( U32 );

template< class T >
Words< wordsIn< T > >
wordsOf( const T & value ) {
   Words< wordsIn< T > > words;
   std::memcpy( words.data(), &value, sizeof( T ) );
   return words;
}

template< class T >
T
valueOf( const Words< wordsIn< T > > & words ) {
   T value;
   std::memcpy( static_cast< void * >( &value ), words.data(), sizeof( T ) );
   return value;
}

/** Where a key of `n` words is searched, by the seed of its table. */
inline U64
hashOfWords( const U32 * words, U32 n, U64 seed ) {
   U64 hash = seed;
   for ( U32 i = 0; i < n; i += 2 ) {
      hash ^= words[i] | U64( words[i + 1] ) << 32;
      hash *= 0xff51afd7ed558ccdull;
      hash ^= hash >> 32;
   }
   hash *= 0xc4ceb9fe1a85ec53ull;
   return hash ^ hash >> 29;
}

/** What reader and writer must have in common. */
struct TableType {
   U64 fingerprint = 0;
   U32 keyBytes = 0;
   U32 valueBytes = 0;
};

template< Plain K, Plain V >
constexpr TableType
tableType() {
   return { fingerprint< K, V >(), sizeof( K ), sizeof( V ) };
}

/** What a table is made for. */
struct Shape {
   U32 keyBytes = 0;
   U32 valueBytes = 0;
   U32 most = 0;    ///< keys at a time
   U32 changes = 0; ///< length of the ring, a power of two
   bool operator==( const Shape & ) const = default;
};

/** The first part of page 0. Written before anybody else has the file. */
struct Constants {
   static constexpr U32 magicWord = 0x6e726151;
   U32 magic = magicWord;
   U32 version = layoutVersion;
   U64 fingerprint = 0;
   U64 generation = 0;
   U64 seed = 0; ///< of the keys' hashes: nobody can choose keys that collide
   Shape shape;
};
static_assert( sizeof( Constants ) == 48 );

/** The rest of page 0. */
struct Live {
   /** Number of the last change: high, low, and high once more; read and written in opposite
       orders, so that the halves belong together where the outer ones agree. */
   alignas( 64 ) U32 head[3];
   alignas( 64 ) U32 used; ///< positions that were ever given to a key
   U32 index;    ///< index in force: its number in the low byte, above it how often it changed
   U32 complete; ///< 1: the writer has written all that it knows
};

/** Where the parts of a table lie; the same for everybody who knows its shape. */
struct Geometry {
   static constexpr U32 fewestSlotBits = 10;
   static constexpr U32 mostKeys = 1u << 27;
   static constexpr U32 fewestChanges = 1024;
   static constexpr U32 mostChanges = 1u << 20;
   static constexpr U32 longestSearch = 1024; // slots

   Geometry() = default;
   /** Of a sound shape. */
   explicit Geometry( const Shape & shape );
   /** Whether a shape can be one. */
   static bool sound( const Shape & shape );

   Shape shape;
   U32 positions =
         0; ///< of entries: one for each key, and for removed ones while the ring has them
   U32 positionBits = 0; ///< of an index slot; the others are the key's tag
   U32 indexes = 0;
   U32 stride = 0;
   U64 ringAt = 0;
   U64 indexAt = 0;
   U64 entriesAt = 0;
   U64 bytes = 0;

   U32 slotBits( U32 index ) const { return fewestSlotBits + index / 2; }
   /** Of an index, from indexAt on. Two have each size: 0 and 1, 2 and 3, ... */
   U64 indexOffset( U32 index ) const;
};

/** A descriptor, closed at the end, in children of forks too. */
class Handle {
 public:
   Handle() { enlist(); }
   explicit Handle( int fd ) : fd_( fd ) { enlist(); }
   Handle( Handle && o ) noexcept : fd_( o.release() ) { enlist(); }
   Handle & operator=( Handle && o ) noexcept;
   ~Handle();

   int get() const { return fd_; }
   explicit operator bool() const { return fd_ >= 0; }
   int release();
   void reset();

 private:
   void enlist();
   static void closeAllInChild();
   int fd_ = -1;
   Handle * before_ = nullptr; // of all handles
   Handle * after_ = nullptr;
};

/** A table's memory in this process. */
class Mapping {
 public:
   Mapping( const Mapping & ) = delete;
   Mapping & operator=( const Mapping & ) = delete;
   ~Mapping();

   /** A new, empty memory file and the writer's map of it; null with `why` if there is none. */
   static std::shared_ptr< Mapping > make( const Constants & constants, Handle * file,
                                           String * why );
   /** What a reader was handed, if that is a table of this type; null with `why` if not. */
   static std::shared_ptr< Mapping > attach( int file, const TableType & type, String * why );

   const Geometry & geometry() const { return geometry_; }
   /** The constants, as they were checked. */
   const Constants & constants() const { return constants_; }
   Live & live() const { return *reinterpret_cast< Live * >( base_ + liveAt ); }
   U32 * ring() const { return reinterpret_cast< U32 * >( base_ + geometry_.ringAt ); }
   U32 * index( U32 number ) const { return indexes_[number]; }
   U32 * entry( U32 position ) const {
      return reinterpret_cast< U32 * >( entries_ + std::size_t( position ) * geometry_.stride );
   }

 private:
   static constexpr U32 liveAt = 64;
   Mapping( void * base, const Constants & constants );
   Geometry geometry_;
   Constants constants_;
   char * base_;
   char * entries_;
   std::array< U32 *, 64 > indexes_ = {};
};

/** A small sealed memory file, which both sides may write; none if there is no memory. */
Handle makePage();
/** The reader's map of such a page; null if `file` is none. unmapPage() ends it. */
U32 * mapPage( int file );
void unmapPage( U32 * page );

} // namespace Quarn
