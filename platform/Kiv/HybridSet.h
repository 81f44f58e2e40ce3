#pragma once
// Kiv::HybridSet: a set that is nearly always empty or has one key. The one is kept in the object;
// from the second on all are in a hash set.
//
//    KIV_HYBRID_SET( Fec, fec, handleFec )     // in an entity: as KIV_SET, and handleFec( k ) first
//
// Invariants
// 1. It is the same set in both forms. A set that has become empty starts in the object again.
// 2. A walk stays valid while keys come and go, whichever form the set takes on: it visits what was
//    there and is not erased before its turn, and what comes meanwhile; it may end where all keys go
//    at once. The set outlives its walks.
// 3. Order of insertion.

#include <optional>
#include <utility>

#include "platform/Kiv/Attr.h"

namespace Kiv {

template< class K >
class HybridSet {
 public:
   HybridSet() = default;
   HybridSet( HybridSet && o ) noexcept
       : many_( std::move( o.many_ ) ), one_( std::move( o.one_ ) ),
         inlined_( std::exchange( o.inlined_, false ) ), came_( o.came_ ) {}
   HybridSet & operator=( const HybridSet & ) = delete;

   U32 size() const { return inlined_ ? 1 : many_.size(); }
   bool empty() const { return size() == 0; }
   bool has( const K & k ) const { return inlined_ ? one_ == k : many_.has( k ); }
   /** Something if `k` is there, else null. */
   const void * find( const K & k ) const { return has( k ) ? this : nullptr; }
   /** Whether `k` is new. */
   bool insert( const K & k ) {
      if ( empty() ) {
         one_ = k;
         ++came_;
         return inlined_ = true;
      }
      if ( inlined_ && one_ != k ) {
         many_.emplace( one_ );
         inlined_ = false;
      }
      return !inlined_ && many_.emplace( k ).second;
   }
   /** Whether `k` was there. */
   bool erase( const K & k ) {
      if ( inlined_ && one_ == k ) {
         inlined_ = false;
         return true;
      }
      if ( !many_.empty() && many_.front().key == k ) {
         ++came_;
      }
      return many_.erase( k );
   }

   class Walk {
    public:
      explicit Walk( const HybridSet & set ) : set_( &set ) { open(); }
      explicit operator bool() const { return open_; }
      Walk & operator++() {
         if ( walk_ ) {
            if ( *walk_ ) { // it ends with what DelAll took away
               ++*walk_;
            }
            settle();
         } else if ( const bool same = came_ == set_->came_; set_->inlined_ ) {
            same ? void( open_ = false ) : showOne();
         } else {
            open();
            if ( open_ && same && walk_->alive() && walk_->key() == one_ ) {
               ++*this; // it was shown when it was in the object
            }
         }
         return *this;
      }
      const K & key() const { return walk_ ? walk_->key() : one_; }
      const Nothing & value() const { return nothing; }
      bool alive() const {
         return walk_ ? walk_->alive() : came_ == set_->came_ && set_->has( one_ );
      }

    private:
      using Many = DenseMap< K, Nothing >;
      void open() {
         if ( !set_->inlined_ ) {
            walk_.emplace( const_cast< Many & >( set_->many_ ) );
         }
         settle();
      }
      /** On what the walk shows; where that has ended, on what has come into the object since. */
      void settle() {
         if ( walk_ && *walk_ ) {
            open_ = true;
            return;
         }
         walk_.reset();
         set_->inlined_ ? showOne() : void( open_ = false );
      }
      void showOne() {
         one_ = set_->one_;
         came_ = set_->came_;
         open_ = true;
      }
      static constexpr Nothing nothing{};
      const HybridSet * set_;
      std::optional< typename Many::Walk > walk_;
      K one_{};
      U16 came_ = 0;
      bool open_ = false;
   };

 private:
   DenseMap< K, Nothing > many_; // empty while the only key is in the object
   K one_{};
   bool inlined_ = false;
   U16 came_ = 0; // changes when a key comes into the object, and when the first of many goes
};

} // namespace Kiv

/** An attribute as KIV_SET makes it. The entity's own `handler( const K & )` hears of each change
    before those who watch do; all of them hear it, whoever raises. */
#define KIV_HYBRID_SET( K, x, handler )                                                            \
   KIV_DECLARE(                                                                                    \
         x, K, void,                                                                               \
         template set< KivT, K, &KivT::x##_, &KivT::x##Is, &KivT::x##Del, &KivT::x##DelAll >(      \
               #x ) )                                                                              \
   using x##Map = ::Kiv::HybridSet< K >;                                                           \
   bool x( const K & k ) const {                                                                   \
      return x##_.has( k );                                                                        \
   }                                                                                               \
   bool x##Has( const K & k ) const {                                                              \
      return x##_.has( k );                                                                        \
   }                                                                                               \
   void x##Is( const K & k ) {                                                                     \
      const K key( k );                                                                            \
      if ( x##_.insert( key ) ) {                                                                  \
         x##Changed( key );                                                                        \
      }                                                                                            \
   }                                                                                               \
   void x##Del( const K & k ) {                                                                    \
      const K key( k );                                                                            \
      if ( x##_.erase( key ) ) {                                                                   \
         x##Changed( key );                                                                        \
      }                                                                                            \
   }                                                                                               \
   void x##DelAll() {                                                                              \
      const ::Velto::Hold alive( this );                                                           \
      const x##Map gone( std::move( x##_ ) );                                                      \
      ::Velto::FirstError error;                                                                   \
      for ( typename x##Map::Walk i( gone ); i; ++i ) {                                            \
         error.run( [&] { handler( i.key() ); } );                                                 \
      }                                                                                            \
      for ( typename x##Map::Walk i( gone ); i && this->kivWatched(); ++i ) {                      \
         error.run( [&] { this->kivPublish( x##Attr::index, i.key() ); } );                        \
      }                                                                                            \
      error.pass();                                                                                \
   }                                                                                               \
   U32 x##s() const {                                                                              \
      return x##_.size();                                                                          \
   }                                                                                               \
   ::Kiv::Iterator< x##Map > x##IteratorConst() const {                                            \
      return ::Kiv::Iterator< x##Map >( x##_ );                                                    \
   }                                                                                               \
                                                                                                   \
 private:                                                                                          \
   void x##Changed( const K & key ) {                                                              \
      const ::Velto::Hold alive( this );                                                           \
      ::Velto::FirstError error;                                                                   \
      error.run( [&] { handler( key ); } );                                                        \
      error.run( [&] { this->kivPublish( x##Attr::index, key ); } );                               \
      error.pass();                                                                                \
   }                                                                                               \
   [[no_unique_address]] x##Map x##_;
