#pragma once
// Kiv::OrderedMap: a map in ascending order of its keys, with the manners of Kiv::DenseMap. Only
// where the model says that order matters; a look-up costs the logarithm of the size.
//
//    for ( auto && [key, value] : map ) { ... }                 // may insert, erase, clear
//    for ( auto w = map.lowerBound( from ); w; ++w ) { ... }    // resumes a walk at a key
//
// Invariants
// 1. An entry stays where it is until it is erased.
// 2. Before the destructor of an entry runs, the map is consistent and no longer holds the entry.
// 3. A walk goes on behind the key it stands on, whatever has happened to that key. If the entry
//    is erased, the walk keeps a copy of the key.
// 4. An empty map is one pointer.
//
// The map owns keys and values. K must be copyable and ordered by <.

#include <map>
#include <optional>
#include <type_traits>
#include <utility>

#include "platform/Kiv/WalkLink.h"
#include "platform/Velto/Assert.h"

namespace Kiv {

template< class K, class V >
class OrderedMap {
   struct Body;
   using Entries = std::map< K, V >;
   using Place = typename Entries::iterator;

   /** A walk's place in a body, which knows it while it is open. */
   struct Step : WalkLink< Step > {
      Body * body = nullptr; // null when closed
      Place at;
      std::optional< K > behind; // the key it stood on, when `at` is no entry any more

      Step( Body * of, Place from ) {
         if ( of && from != of->entries.end() ) {
            body = of;
            at = from;
            this->link( of->walks );
         }
      }
      void close() {
         this->unlink();
         body = nullptr;
      }
      void lose() {
         if ( !behind ) {
            behind.emplace( at->first );
         }
      }
      void advance() {
         if ( !body ) {
            return;
         }
         at = behind ? body->entries.upper_bound( *behind ) : std::next( at );
         behind.reset();
         if ( at == body->entries.end() ) {
            close();
         }
      }
   };

   struct Body {
      Entries entries;
      Step * walks = nullptr;

      ~Body() {
         while ( walks ) {
            walks->close();
         }
      }
      /** Takes the entry out; it dies with what is returned. */
      typename Entries::node_type extract( Place p ) {
         for ( Step * w = walks; w; w = w->others() ) {
            if ( !w->behind && w->at == p ) {
               w->lose();
            }
         }
         return entries.extract( p );
      }
      Entries extractAll() {
         for ( Step * w = walks; w; w = w->others() ) {
            w->lose();
         }
         return std::exchange( entries, Entries() );
      }
   };

 public:
   template< class Value >
   struct Shown {
      const K & key;
      Value & value;
   };

   /** A walk in ascending order. It stays valid whatever happens to the map; entries inserted
       behind its current key are visited. A walk that has come to the end is closed, as is one
       whose map is destroyed. If the map is moved or swapped, it stays with the entries. */
   template< class Value >
   class WalkOf {
    public:
      explicit operator bool() const { return step_.body != nullptr; }
      WalkOf & operator++() {
         step_.advance();
         return *this;
      }
      /** Whether the current entry has not been erased since. */
      bool alive() const { return step_.body && !step_.behind; }
      /** The current entry; the references hold until that entry is erased. Fatal when it is. */
      const K & key() const { return entry().first; }
      Value & value() const { return entry().second; }
      Shown< Value > operator*() const { return { entry().first, entry().second }; }
      bool operator!=( std::nullptr_t ) const { return step_.body != nullptr; }

    private:
      friend class OrderedMap;
      WalkOf( Body * body, Place from ) : step_( body, from ) {}
      typename Entries::value_type & entry() const {
         VELTO_ASSERT( alive() );
         return *step_.at;
      }
      Step step_;
   };
   struct Walk : WalkOf< V > {
      explicit Walk( OrderedMap & map ) : WalkOf< V >( map.body_, map.first() ) {}

    private:
      friend class OrderedMap;
      Walk( Body * body, Place from ) : WalkOf< V >( body, from ) {}
   };
   struct ConstWalk : WalkOf< const V > {
      explicit ConstWalk( const OrderedMap & map ) : WalkOf< const V >( map.body_, map.first() ) {}

    private:
      friend class OrderedMap;
      ConstWalk( Body * body, Place from ) : WalkOf< const V >( body, from ) {}
   };

   OrderedMap() = default;
   OrderedMap( const OrderedMap & o ) {
      if ( !o.empty() ) {
         body_ = new Body{ o.body_->entries };
      }
   }
   OrderedMap( OrderedMap && o ) noexcept : body_( std::exchange( o.body_, nullptr ) ) {}
   OrderedMap & operator=( OrderedMap o ) noexcept {
      swap( o );
      return *this;
   }
   ~OrderedMap() {
      while ( Body * body = std::exchange( body_, nullptr ) ) {
         Entries dying = body->extractAll();
         delete body;
      }
   }
   void swap( OrderedMap & o ) noexcept { std::swap( body_, o.body_ ); }
   friend void swap( OrderedMap & a, OrderedMap & b ) noexcept { a.swap( b ); }

   U32 size() const { return body_ ? U32( body_->entries.size() ) : 0; }
   bool empty() const { return size() == 0; }

   /** The value of `key`, or null. */
   V * find( const K & key ) {
      if ( empty() ) {
         return nullptr;
      }
      Place p = body_->entries.find( key );
      return p == body_->entries.end() ? nullptr : &p->second;
   }
   const V * find( const K & key ) const { return const_cast< OrderedMap * >( this )->find( key ); }
   bool has( const K & key ) const { return find( key ) != nullptr; }

   /** The value of `key`, which is made of `args` if the key is new; and whether it is. */
   template< class... A >
   std::pair< V *, bool > emplace( const K & key, A &&... args ) {
      if ( V * there = find( key ) ) {
         return { there, false };
      }
      // Made first: the constructor may change this map.
      Entries made;
      made.try_emplace( key, std::forward< A >( args )... );
      if ( !body_ ) {
         body_ = new Body{};
      }
      auto result = body_->entries.insert( made.extract( made.begin() ) );
      return { &result.position->second, result.inserted };
   }
   /** Erases `key`, which may lie in the entry itself. Returns whether it was there. */
   bool erase( const K & key ) { return bool( extract( key ) ); }
   /** Erases `key` and returns the value it had. */
   std::optional< V > take( const K & key ) {
      std::optional< V > taken;
      if ( auto dying = extract( key ) ) {
         taken.emplace( std::move( dying.mapped() ) );
      }
      return taken;
   }
   /** Erases all. The entries die when the map is empty already. */
   void clear() {
      if ( body_ ) {
         Entries dying = body_->extractAll();
         dropIfIdle();
      }
   }

   /** The first entry. Fatal when there is none. */
   Shown< V > front() {
      VELTO_ASSERT( !empty() );
      return { body_->entries.begin()->first, body_->entries.begin()->second };
   }
   Shown< const V > front() const {
      VELTO_ASSERT( !empty() );
      return { body_->entries.begin()->first, body_->entries.begin()->second };
   }

   /** A walk from the first key that is not less than `key`. */
   Walk lowerBound( const K & key ) { return Walk( body_, notLess( key ) ); }
   ConstWalk lowerBound( const K & key ) const { return ConstWalk( body_, notLess( key ) ); }
   /** A walk from the first key that is greater than `key`. */
   Walk upperBound( const K & key ) { return Walk( body_, greater( key ) ); }
   ConstWalk upperBound( const K & key ) const { return ConstWalk( body_, greater( key ) ); }

   Walk begin() { return Walk( *this ); }
   ConstWalk begin() const { return ConstWalk( *this ); }
   std::nullptr_t end() const { return nullptr; }

 private:
   Place first() const { return body_ ? body_->entries.begin() : Place(); }
   Place notLess( const K & key ) const {
      return body_ ? body_->entries.lower_bound( key ) : Place();
   }
   Place greater( const K & key ) const {
      return body_ ? body_->entries.upper_bound( key ) : Place();
   }
   typename Entries::node_type extract( const K & key ) {
      typename Entries::node_type dying;
      if ( body_ ) {
         Place p = body_->entries.find( key );
         if ( p != body_->entries.end() ) {
            dying = body_->extract( p );
            dropIfIdle();
         }
      }
      return dying;
   }
   void dropIfIdle() {
      if ( body_->entries.empty() && !body_->walks ) {
         delete std::exchange( body_, nullptr );
      }
   }

   Body * body_ = nullptr;
};

} // namespace Kiv
