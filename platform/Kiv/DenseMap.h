#pragma once
// Kiv::DenseMap: the hash map behind every keyed attribute. It keeps the order of insertion, on
// every platform alike, and may be changed while it is walked.
//
//    attribute or feature -> DenseMap< K, V > -> DenseBody (chunks, index, walks)
//
//    for ( auto && [key, value] : map ) { ... }               // may insert, erase, clear
//    for ( DenseMap< K, V >::Walk w( map ); w; ++w ) { ... }   // may even destroy the map
//
// Invariants
// 1. Order: a new key goes to the end. A value that is replaced keeps its place; a key that is
//    erased and inserted again goes to the end.
// 2. Addresses: inserting moves no entry, nor does moving or swapping maps. Erasing a key (erase(),
//    take()) may move other entries, but only when no walk is open and more than five eighths of
//    the places are holes, in a map with more than 64 places. So an entry stays where it is as
//    long as a walk is open or nothing is erased.
// 3. Before the destructor of an entry runs, the map is consistent and no longer holds the entry:
//    the destructor may change, or destroy, the map.
// 4. Cost: a look-up in an empty map does not hash; up to 8 keys are searched in order. No single
//    insert or erase takes longer than the splitting of one segment of the index; only clear(),
//    copying and destruction take time by the number of entries.
// 5. An empty map is one pointer. What its entries took is given back as they go, but for the last
//    chunk of a map that is not empty, which is filled anew.
//
// The map owns keys and values. Both must be movable, K copyable too; what is left of a moved one
// must be inert, and so must a constructor be that is noexcept: others may change the map. V may be
// an empty class (a set): it takes no room. No locks: one thread.

#include <memory>
#include <optional>
#include <type_traits>

#include "platform/Kiv/DenseBody.h"
#include "platform/Kiv/Hash.h"

namespace Kiv {

/** The value of a set's keys. */
struct Nothing {
   friend bool operator==( const Nothing &, const Nothing & ) = default;
};

template< class K, class V >
class DenseMap {
   struct Entry {
      template< class Key, class... A >
      explicit Entry( Key && k, A &&... a )
          : key( std::forward< Key >( k ) ), value( std::forward< A >( a )... ) {}
      K key;
      [[no_unique_address]] V value;
   };

 public:
   /** What a walk shows of an entry. */
   template< class Value >
   struct Shown {
      const K & key;
      Value & value;
   };

   /** A walk over the entries in order of insertion. It stays valid whatever happens to the map.
       Entries inserted while it is open are visited; entries erased before their turn are not.
       A walk that has come to the end is closed, as is one whose map is destroyed. If the map is
       moved or swapped, the walk stays with the entries. While a walk is open no entry moves,
       and no room between entries is given back: do not keep one open for long. */
   template< class Value >
   class WalkOf {
    public:
      /** Whether the walk is open. The current entry may have been erased all the same. */
      explicit operator bool() const { return walk_.body != nullptr; }
      WalkOf & operator++() {
         walk_.step();
         return *this;
      }
      /** Whether the current entry has not been erased since. */
      bool alive() const { return walk_.current != nullptr; }
      /** The current entry; the references hold until that entry is erased. Fatal when it is. */
      const K & key() const { return entry().key; }
      Value & value() const { return entry().value; }
      Shown< Value > operator*() const { return { entry().key, entry().value }; }
      bool operator!=( std::nullptr_t ) const { return walk_.body != nullptr; }

    protected:
      explicit WalkOf( DenseBody * body ) { walk_.open( body ); }

    private:
      friend class DenseMap;
      Entry & entry() const {
         VELTO_ASSERT( alive() );
         return *DenseMap::entryAt( walk_.current, walk_.at );
      }
      DenseWalk walk_;
   };
   struct Walk : WalkOf< V > {
      explicit Walk( DenseMap & map ) : WalkOf< V >( map.body_ ) {}
   };
   struct ConstWalk : WalkOf< const V > {
      explicit ConstWalk( const DenseMap & map ) : WalkOf< const V >( map.body_ ) {}
   };

   DenseMap() = default;
   DenseMap( const DenseMap & o ) {
      for ( auto && [key, value] : o ) {
         emplace( key, value );
      }
   }
   DenseMap( DenseMap && o ) noexcept : body_( std::exchange( o.body_, nullptr ) ) {}
   DenseMap & operator=( DenseMap o ) noexcept {
      swap( o );
      return *this;
   }
   ~DenseMap() {
      while ( DenseBody * body = std::exchange( body_, nullptr ) ) {
         DenseChunk * chunks = body->detach();
         delete body;
         destroy( chunks );
      }
   }
   void swap( DenseMap & o ) noexcept { std::swap( body_, o.body_ ); }
   friend void swap( DenseMap & a, DenseMap & b ) noexcept { a.swap( b ); }

   U32 size() const { return body_ ? body_->live : 0; }
   bool empty() const { return size() == 0; }

   /** The value of `key`, or null. */
   V * find( const K & key ) {
      U64 hash;
      Place p = search( key, hash );
      return p.chunk ? &entryAt( p.chunk, p.at )->value : nullptr;
   }
   const V * find( const K & key ) const { return const_cast< DenseMap * >( this )->find( key ); }
   bool has( const K & key ) const { return find( key ) != nullptr; }

   /** The value of `key`, which is made of `args` if the key is new; and whether it is. */
   template< class... A >
   std::pair< V *, bool > emplace( const K & key, A &&... args );
   /** Erases `key`, which may lie in the entry itself. Returns whether it was there. */
   bool erase( const K & key );
   /** Erases `key` if `goes( V & )` says so, which may change the value, and not the map. Returns
       whether it was erased. */
   template< class Goes >
   bool eraseIf( const K & key, Goes && goes );
   /** Erases `key` and returns the value it had. */
   std::optional< V > take( const K & key );
   /** Erases all. The entries die in order, when the map is empty already. */
   void clear();

   /** The first entry. Fatal when there is none. */
   Shown< V > front() { return shownFront< V >(); }
   Shown< const V > front() const { return shownFront< const V >(); }

   Walk begin() { return Walk( *this ); }
   ConstWalk begin() const { return ConstWalk( *this ); }
   std::nullptr_t end() const { return nullptr; }

 private:
   struct Place {
      DenseChunk * chunk = nullptr;
      U32 at = 0;
   };
   static constexpr U32 mostUnindexed = 8;

   static constexpr U32 entryOffset() {
      static_assert( alignof( Entry ) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__ );
      return ( sizeof( DenseChunk ) + alignof( Entry ) - 1 ) / alignof( Entry ) * alignof( Entry );
   }
   static Entry * entryAt( DenseChunk * c, U32 place ) {
      return reinterpret_cast< Entry * >( reinterpret_cast< char * >( c ) + entryOffset() ) + place;
   }
   static U64 hashFor( const K & key ) { return mix( hashOf( key ) ); }
   static void hashes( const void * of, const U32 * positions, U64 * out, U32 n ) {
      auto * body = static_cast< const DenseBody * >( of );
      for ( U32 i = 0; i < n; ++i ) {
         __builtin_prefetch( entryAt( body->chunkAt( positions[i] ), positions[i] % 64 ) );
      }
      for ( U32 i = 0; i < n; ++i ) {
         out[i] = hashFor( entryAt( body->chunkAt( positions[i] ), positions[i] % 64 )->key );
      }
   }
   DenseIndex::Hasher hasher() const { return { body_, hashes }; }

   template< class Value >
   Shown< Value > shownFront() const {
      VELTO_ASSERT( !empty() );
      Entry * e = entryAt( body_->first, U32( std::countr_zero( body_->first->live ) ) );
      return { e->key, e->value };
   }
   /** Calls act( chunk, place ) for the entries from chunk `c` up to `last`. */
   template< class Act >
   static void forEach( DenseChunk * c, DenseChunk * last, Act && act ) {
      for ( DenseChunk * end = last->after; c != end; c = c->after ) {
         for ( U64 rest = c->live; rest; rest &= rest - 1 ) {
            act( c, U32( std::countr_zero( rest ) ) );
         }
      }
   }
   Place search( const K & key, U64 & hash ) const;
   Place searchChunks( const K & key ) const;
   template< class... A >
   Entry * append( U64 hash, A &&... args );
   void startIndex();
   void erasePlace( Place p, U64 hash );
   void merge();
   static void destroy( DenseChunk * chunks );

   DenseBody * body_ = nullptr;
};

/** Where `key` is. Tells its hash too if the map has an index. */
template< class K, class V >
inline typename DenseMap< K, V >::Place
DenseMap< K, V >::search( const K & key, U64 & hash ) const {
   hash = 0;
   if ( empty() ) {
      return {};
   }
   if ( !body_->index.on() ) {
      return searchChunks( key );
   }
   hash = hashFor( key );
   U32 position = body_->index.find(
         hash, [&]( U32 p ) { return entryAt( body_->chunkAt( p ), p % 64 )->key == key; } );
   return position ? Place{ body_->chunkAt( position ), position % 64 } : Place{};
}

template< class K, class V >
typename DenseMap< K, V >::Place
DenseMap< K, V >::searchChunks( const K & key ) const {
   for ( DenseChunk * c = body_->first; c; c = c->after ) {
      for ( U64 rest = c->live; rest; rest &= rest - 1 ) {
         U32 at = U32( std::countr_zero( rest ) );
         if ( entryAt( c, at )->key == key ) {
            return { c, at };
         }
      }
   }
   return {};
}

template< class K, class V >
template< class... A >
std::pair< V *, bool >
DenseMap< K, V >::emplace( const K & key, A &&... args ) {
   U64 hash;
   if ( Place p = search( key, hash ); p.chunk ) {
      return { &entryAt( p.chunk, p.at )->value, false };
   }
   constexpr bool inert =
         std::is_nothrow_copy_constructible_v< K > && std::is_nothrow_constructible_v< V, A &&... >;
   if constexpr ( inert ) {
      return { &append( hash, key, std::forward< A >( args )... )->value, true };
   } else {
      Entry fresh( key, std::forward< A >( args )... );
      // The constructor may have changed the map.
      if ( Place p = search( fresh.key, hash ); p.chunk ) {
         return { &entryAt( p.chunk, p.at )->value, false };
      }
      return { &append( hash, std::move( fresh ) )->value, true };
   }
}

/** A new entry made of `args`. */
template< class K, class V >
template< class... A >
inline typename DenseMap< K, V >::Entry *
DenseMap< K, V >::append( U64 hash, A &&... args ) {
   if ( !body_ ) {
      body_ = new DenseBody;
   }
   DenseChunk * c = body_->chunkWithRoom( entryOffset(), sizeof( Entry ) );
   Entry * e = new ( entryAt( c, c->filled ) ) Entry( std::forward< A >( args )... );
   body_->entryIs( c );
   if ( body_->index.on() ) {
      body_->index.add( hash, c->position( c->filled - 1 ), hasher() );
   } else if ( body_->live > mostUnindexed ) {
      startIndex();
   }
   return e;
}

template< class K, class V >
void
DenseMap< K, V >::startIndex() {
   body_->indexStart();
   forEach( body_->first, body_->last, [&]( DenseChunk * c, U32 at ) {
      body_->index.add( hashFor( entryAt( c, at )->key ), c->position( at ), hasher() );
   } );
}

template< class K, class V >
bool
DenseMap< K, V >::erase( const K & key ) {
   return eraseIf( key, []( V & ) { return true; } );
}

template< class K, class V >
template< class Goes >
bool
DenseMap< K, V >::eraseIf( const K & key, Goes && goes ) {
   U64 hash;
   Place p = search( key, hash );
   const bool erased = p.chunk && goes( entryAt( p.chunk, p.at )->value );
   if ( erased ) {
      erasePlace( p, hash );
   }
   return erased;
}

template< class K, class V >
std::optional< V >
DenseMap< K, V >::take( const K & key ) {
   std::optional< V > taken;
   U64 hash;
   if ( Place p = search( key, hash ); p.chunk ) {
      taken.emplace( std::move( entryAt( p.chunk, p.at )->value ) );
      erasePlace( p, hash );
   }
   return taken;
}

/** Takes the entry out of everything, then destroys it. Touches nothing of the map afterwards. */
template< class K, class V >
void
DenseMap< K, V >::erasePlace( Place p, U64 hash ) {
   ++p.chunk->pins;
   if ( body_->index.on() ) {
      body_->index.remove( hash, p.chunk->position( p.at ), hasher() );
   }
   body_->entryDel( p.chunk, p.at );
   if ( body_->live == 0 && !body_->walks ) {
      delete std::exchange( body_, nullptr );
   } else if ( body_->live == 0 ) {
      body_->detach();
   } else if ( body_->wantsMerge() ) {
      merge();
   }
   std::destroy_at( entryAt( p.chunk, p.at ) );
   p.chunk->unpin();
}

/** Moves the entries of two neighbouring chunks into one. */
template< class K, class V >
void
DenseMap< K, V >::merge() {
   DenseChunk * into = body_->mergeable();
   if ( !into ) {
      return;
   }
   DenseChunk * second = into->after;
   U64 hashOfEach[64];
   if ( body_->index.on() ) {
      U32 n = 0;
      forEach( into, second, [&]( DenseChunk * c, U32 at ) {
         hashOfEach[n] = hashFor( entryAt( c, at )->key );
         body_->index.prefetch( hashOfEach[n++] );
      } );
   }
   U32 to = 0;
   forEach( into, second, [&]( DenseChunk * from, U32 at ) {
      if ( from != into || at != to ) {
         Entry * e = entryAt( from, at );
         if ( body_->index.on() ) {
            body_->index.moved( hashOfEach[to], from->position( at ), into->position( to ) );
         }
         new ( entryAt( into, to ) ) Entry( std::move( *e ) );
         std::destroy_at( e );
      }
      ++to;
   } );
   into->live = to < 64 ? ( U64( 1 ) << to ) - 1 : ~U64( 0 );
   into->filled = into->count = U8( to );
   body_->chunkDel( second );
}

template< class K, class V >
void
DenseMap< K, V >::clear() {
   if ( !body_ ) {
      return;
   }
   DenseChunk * chunks = body_->detach();
   if ( !body_->walks ) {
      delete std::exchange( body_, nullptr );
   }
   destroy( chunks );
}

template< class K, class V >
void
DenseMap< K, V >::destroy( DenseChunk * chunks ) {
   while ( chunks ) {
      DenseChunk * c = std::exchange( chunks, chunks->after );
      if constexpr ( !std::is_trivially_destructible_v< Entry > ) {
         for ( U64 rest = c->live; rest; rest &= rest - 1 ) {
            std::destroy_at( entryAt( c, U32( std::countr_zero( rest ) ) ) );
         }
      }
      c->drop();
   }
}

} // namespace Kiv
