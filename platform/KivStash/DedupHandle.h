#pragma once
// Deduplicated values: equal values are held once, counted, and copied before they are changed.
//
//    DedupHandle -> shared value (in the DedupTable while anybody holds it)
//
// Invariants
// 1. Two handles of one table are equal exactly when their values are.
// 2. A value leaves the table with its last handle.

#include "platform/Kiv/DenseMap.h"
#include "platform/Velto/Node.h"

namespace KivStash {

template< class T >
class DedupTable;

/** A counted, immutable value of a DedupTable; null by default. */
template< class T >
class DedupHandle {
 public:
   DedupHandle() = default;

   const T & operator*() const { return node_->value; }
   const T * operator->() const { return &node_->value; }
   explicit operator bool() const { return bool( node_ ); }
   /** How many handles share the value. */
   U32 useCount() const { return node_ ? node_->useCount() : 0; }
   friend bool operator==( const DedupHandle &, const DedupHandle & ) = default;

 private:
   friend class DedupTable< T >;
   struct Shared : Velto::Node {
      Shared( DedupTable< T > * t, const T & v ) : table( t ), value( v ) {}
      ~Shared() override {
         if ( table ) {
            table->values_.erase( value );
         }
      }
      DedupTable< T > * table;
      const T value;
   };
   explicit DedupHandle( Shared * node ) : node_( node ) {}
   Velto::Ptr< Shared > node_;
};

/** Where equal values meet. Must be hashable and comparable; outlived by no requirement: handles
    that outlive the table keep their values. */
template< class T >
class DedupTable {
 public:
   DedupTable() = default;
   DedupTable( const DedupTable & ) = delete;
   DedupTable & operator=( const DedupTable & ) = delete;
   ~DedupTable() {
      for ( auto && [key, shared] : values_ ) {
         shared->table = nullptr;
      }
   }

   /** The handle of `value`, shared with everybody who holds an equal one. */
   DedupHandle< T > handle( const T & value ) {
      if ( auto held = values_.find( value ) ) {
         return DedupHandle< T >( *held );
      }
      auto fresh = Velto::make< Shared >( this, value );
      values_.emplace( value, fresh.ptr() );
      return DedupHandle< T >( fresh.ptr() );
   }
   /** `handle` with `change( copy )` applied to a copy of its value; the old value stays as it is
       for everybody else. */
   template< class F >
   DedupHandle< T > changed( const DedupHandle< T > & handle, F && change ) {
      T copy( *handle );
      change( copy );
      return this->handle( copy );
   }
   U32 size() const { return values_.size(); }

 private:
   using Shared = typename DedupHandle< T >::Shared;
   friend Shared;
   Kiv::DenseMap< T, Shared * > values_;
};

} // namespace KivStash
