#pragma once
// Qon::SequenceMap: a map from numbers to values, in ascending order of the numbers, for numbers
// that are mostly handed out one after the other (transaction ids).
//
//    key = book (upper bits) | page (6 bits) | place (6 bits)
//    books_ (ordered) -> Book: 64 pages -> Page: 64 places
//
// Invariants
// 1. A value stays where it is until it is erased.
// 2. Before the destructor of a value runs, the map is consistent and no longer holds it.
// 3. A walk goes on behind the key it stands on, whatever has happened to that key.
// 4. Numbers in sequence cost about nine bytes each beside the value's own, and a constant time;
//    numbers far apart are as right, but each costs up to two blocks of 64 places.
//
// The map owns its values. V must be movable, with a cheap default that stands for nothing.

#include <bit>
#include <memory>
#include <utility>

#include "platform/Kiv/OrderedMap.h"

namespace Qon {

template< class V >
class SequenceMap {
   template< class Child >
   struct Block {
      U64 live = 0; // a bit for each place that is taken
      Child at[64] = {};
      bool has( U32 place ) const { return live >> place & 1; }
   };
   using Page = Block< V >;
   using Book = Block< std::unique_ptr< Page > >;

   static U32 placeOf( U64 key ) { return U32( key ) & 63; }
   static U32 pageInBook( U64 key ) { return U32( key >> 6 ) & 63; }
   static U64 pageOf( U64 key ) { return key >> 6; }
   static U64 bookOf( U64 key ) { return key >> 12; }

 public:
   /** A walk in ascending order. It may be kept while the map changes, but not longer than the
       map; entries inserted behind its current key are visited. */
   class Walk {
    public:
      explicit Walk( const SequenceMap & map ) : Walk( map, 0 ) {}
      explicit operator bool() const { return value_ != nullptr; }
      Walk & operator++() {
         value_ = key_ == ~U64( 0 ) ? nullptr : map_->notLess( ++key_ );
         return *this;
      }
      const U64 & key() const { return key_; }
      /** Holds until the entry is erased. */
      const V & value() const { return *value_; }

    private:
      friend class SequenceMap;
      Walk( const SequenceMap & map, U64 from ) : map_( &map ), key_( from ) {
         value_ = map_->notLess( key_ );
      }
      const SequenceMap * map_;
      U64 key_;
      const V * value_;
   };

   SequenceMap() = default;
   SequenceMap( const SequenceMap & ) = delete;
   SequenceMap & operator=( const SequenceMap & ) = delete;

   U32 size() const { return size_; }
   bool empty() const { return size_ == 0; }

   /** The value of `key`, or null. */
   V * find( U64 key ) const {
      Page * page = turnTo( key );
      return page && page->has( placeOf( key ) ) ? &page->at[placeOf( key )] : nullptr;
   }
   bool has( U64 key ) const { return find( key ) != nullptr; }
   /** Enters `value`; false, and nothing happens, if the key is taken. */
   bool emplace( U64 key, V value );
   /** Erases `key`; whether it was there. */
   bool erase( U64 key );

   Walk begin() const { return Walk( *this ); }
   /** A walk from the first key that is not less than `key`. */
   Walk lowerBound( U64 key ) const { return Walk( *this, key ); }

 private:
   /** The page of `key`, or null. */
   Page * turnTo( U64 key ) const {
      if ( page_ && pageNumber_ == pageOf( key ) ) [[likely]] {
         return page_;
      }
      auto book = books_.find( bookOf( key ) );
      if ( !book || !( *book )->has( pageInBook( key ) ) ) {
         return nullptr;
      }
      pageNumber_ = pageOf( key );
      return page_ = ( *book )->at[pageInBook( key )].get();
   }
   Page * makePage( U64 key );
   void dropPage( U64 key );
   const V * notLess( U64 & key ) const;
   const V * firstBehindPage( U64 & key ) const;
   /** The first value of the first page of `book` from `page` on; `key` becomes its key. */
   static const V * firstIn( const Book & book, U64 number, U32 page, U64 & key );

   Kiv::OrderedMap< U64, std::unique_ptr< Book > > books_;
   U32 size_ = 0;
   mutable U64 pageNumber_ = 0;    // of the page
   mutable Page * page_ = nullptr; // used last
};

template< class V >
typename SequenceMap< V >::Page *
SequenceMap< V >::makePage( U64 key ) {
   auto & book = *books_.emplace( bookOf( key ) ).first;
   if ( !book ) {
      book = std::make_unique< Book >();
   }
   book->live |= U64( 1 ) << pageInBook( key );
   book->at[pageInBook( key )] = std::make_unique< Page >();
   return turnTo( key );
}

template< class V >
void
SequenceMap< V >::dropPage( U64 key ) {
   auto & book = *books_.find( bookOf( key ) );
   book->live &= ~( U64( 1 ) << pageInBook( key ) );
   book->at[pageInBook( key )].reset();
   page_ = nullptr;
   if ( !book->live ) {
      books_.erase( bookOf( key ) );
   }
}

template< class V >
bool
SequenceMap< V >::emplace( U64 key, V value ) {
   Page * page = turnTo( key );
   if ( !page ) {
      page = makePage( key );
   } else if ( page->has( placeOf( key ) ) ) {
      return false;
   }
   page->live |= U64( 1 ) << placeOf( key );
   page->at[placeOf( key )] = std::move( value );
   ++size_;
   return true;
}

template< class V >
bool
SequenceMap< V >::erase( U64 key ) {
   Page * page = turnTo( key );
   if ( !page || !page->has( placeOf( key ) ) ) {
      return false;
   }
   [[maybe_unused]] V dying = std::exchange( page->at[placeOf( key )], V() );
   page->live &= ~( U64( 1 ) << placeOf( key ) );
   --size_;
   if ( !page->live ) {
      dropPage( key );
   }
   return true;
}

template< class V >
const V *
SequenceMap< V >::firstIn( const Book & book, U64 number, U32 page, U64 & key ) {
   if ( page > 63 || !( book.live >> page ) ) {
      return nullptr;
   }
   page += U32( std::countr_zero( book.live >> page ) );
   const Page & found = *book.at[page];
   U32 place = U32( std::countr_zero( found.live ) );
   key = number << 12 | page << 6 | place;
   return &found.at[place];
}

/** The value of the first key in a later page than that of `key`, which becomes that key. */
template< class V >
const V *
SequenceMap< V >::firstBehindPage( U64 & key ) const {
   U64 number = bookOf( key );
   if ( auto book = books_.find( number ) ) {
      if ( auto value = firstIn( **book, number, pageInBook( key ) + 1, key ) ) {
         return value;
      }
   }
   auto later = books_.upperBound( number );
   return later ? firstIn( *later.value(), later.key(), 0, key ) : nullptr;
}

/** The value of the first key that is not less than `key`, which becomes that key. */
template< class V >
const V *
SequenceMap< V >::notLess( U64 & key ) const {
   Page * page = turnTo( key );
   if ( U64 rest = page ? page->live >> placeOf( key ) : 0 ) [[likely]] {
      key += U32( std::countr_zero( rest ) );
      return &page->at[placeOf( key )];
   }
   return firstBehindPage( key );
}

} // namespace Qon
