#pragma once
// Deduplicated values: equal values are held once, counted, and copied before they are changed.
//
//    DedupHandle -> shared value (in the DedupTable while anybody holds it)
//    Ptr< Node > -> Dedupable node (in a DedupSet, where its kind has reasons to be a node of its own)
//
// Invariants
// 1. Two handles are equal exactly when their values are; of one table they are then the same.
// 2. A table holds exactly the values that are held by somebody else; its own references do not
//    count. A value leaves with its last handle, or is taken out to be changed (makeSole).
// 3. What is in a table does not change.
// 4. A table may end before what it holds: the values stay, and are in no table any more.

#include <compare>

#include "platform/Kiv/DenseMap.h"
#include "platform/Kiv/Text.h"
#include "platform/Velto/Node.h"

namespace KivStash {

template< class T >
class DedupSet;

/** A counted node that can stand in a DedupSet. T derives from it, names as `Content` what tells
    equals (with ==), returns it by `dedupContent()`, and calls dedupLeave() in its destructor. */
template< class T >
class Dedupable : public Velto::Node {
 public:
   /** Whether it is in a set: then it must not be changed, whoever holds it. */
   bool interned() const { return set_ != nullptr; }
   /** Takes it out of its set, if it is in one. */
   void dedupLeave() {
      if ( auto set = std::exchange( set_, nullptr ) ) {
         set->forget( *static_cast< T * >( this ), hash_ );
      }
   }

 protected:
   Dedupable() = default;

 private:
   friend class DedupSet< T >;
   const DedupSet< T > * set_ = nullptr;
   U64 hash_ = 0;
};

/** Where equal nodes meet; holds them without counting. What it remembers are no values of its own,
    so that whoever may only look at the set can still intern. */
template< class T >
class DedupSet {
   using Content = typename T::Content;

 public:
   DedupSet() = default;
   DedupSet( const DedupSet & ) = delete;
   DedupSet & operator=( const DedupSet & ) = delete;
   ~DedupSet() {
      for ( auto && [key, node] : members_ ) {
         node->set_ = nullptr;
      }
   }

   /** The member that equals `content`, whose hash is `hash`; null if there is none. */
   Velto::Ptr< T > find( const Content & content, U64 hash ) const {
      auto held = members_.find( Member{ &content, hash } );
      return Velto::Ptr< T >( held ? *held : nullptr );
   }
   /** The member that equals `node`: `node` itself from now on, if there was none. */
   Velto::Ptr< T > intern( const Velto::Ptr< T > & node, U64 hash ) const {
      VELTO_ASSERT( !node->set_ || node->set_ == this );
      auto [held, fresh] = members_.emplace( Member{ &node->dedupContent(), hash }, node.ptr() );
      if ( fresh ) {
         node->set_ = this;
         node->hash_ = hash;
      }
      return Velto::Ptr< T >( *held );
   }
   U32 size() const { return members_.size(); }

 private:
   friend class Dedupable< T >;
   struct Member {
      const Content * content;
      U64 contentHash;
      U64 hash() const { return contentHash; }
      bool operator==( const Member & o ) const {
         return content == o.content || ( contentHash == o.contentHash && *content == *o.content );
      }
   };
   void forget( const T & node, U64 hash ) const {
      members_.erase( Member{ &node.dedupContent(), hash } );
   }

   mutable Kiv::DenseMap< Member, T * > members_;
};

/** Makes `node` one that only this pointer holds and that is in no set, so that it can be changed:
    a shared one is replaced by `copy( *node )`, which is sole; another one leaves its set. */
template< class T, class Copy >
void
makeSole( Velto::Ptr< T > & node, Copy && copy ) {
   if ( node->useCount() > 1 ) {
      node = copy( *node );
   } else if constexpr ( requires { node->dedupLeave(); } ) {
      node->dedupLeave();
   }
}

template< class T >
class DedupTable;

/** A counted, immutable value; null by default. Usually of a DedupTable. */
template< class T >
class DedupHandle {
 public:
   DedupHandle() = default;
   /** A value of its own, of the text that stringValue() gives; "None" is the null handle. */
   explicit DedupHandle( const Velto::String & text ) {
      if ( text != "None" ) {
         *this = alone( Kiv::fromText< T >( text ) );
      }
   }
   /** The handle of a value that is in no table. */
   static DedupHandle alone( const T & value ) {
      return DedupHandle( Velto::make< Shared >( value, Kiv::hashOf( value ) ) );
   }

   const T & operator*() const { return node_->value; }
   const T * operator->() const { return &node_->value; }
   explicit operator bool() const { return bool( node_ ); }
   /** How many handles share the value. */
   U32 useCount() const { return node_ ? node_->useCount() : 0; }
   U64 hash() const { return node_ ? node_->valueHash : 0; }
   Velto::String stringValue() const {
      return node_ ? Kiv::toText( node_->value ) : Velto::String( "None" );
   }

   friend bool operator==( const DedupHandle & a, const DedupHandle & b ) {
      return a.node_ == b.node_ || ( a.node_ && b.node_ && a.hash() == b.hash() && *a == *b );
   }
   /** Null first, then by value. */
   friend auto operator<=>( const DedupHandle & a,
                            const DedupHandle & b ) requires std::three_way_comparable< T > {
      using Order = std::compare_three_way_result_t< T >;
      if ( a.node_ == b.node_ ) {
         return Order( std::strong_ordering::equal );
      }
      return a.node_ && b.node_ ? *a <=> *b : Order( bool( a ) <=> bool( b ) );
   }

 private:
   friend class DedupTable< T >;
   struct Shared final : Dedupable< Shared > {
      using Content = T;
      Shared( const T & v, U64 h ) : valueHash( h ), value( v ) {}
      ~Shared() override { this->dedupLeave(); }
      const T & dedupContent() const { return value; }
      const U64 valueHash; // beside the count
      const T value;
   };
   explicit DedupHandle( Velto::Ptr< Shared > node ) : node_( std::move( node ) ) {}
   Velto::Ptr< Shared > node_;
};

/** Where equal values meet. T is hashable and comparable. */
template< class T >
class DedupTable {
 public:
   /** The handle of `value`, shared with everybody who holds an equal one. */
   DedupHandle< T > handle( const T & value ) {
      const U64 hash = Kiv::hashOf( value );
      if ( auto held = values_.find( value, hash ) ) {
         return DedupHandle< T >( std::move( held ) );
      }
      return DedupHandle< T >( values_.intern( Velto::make< Shared >( value, hash ), hash ) );
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
   DedupSet< Shared > values_;
};

} // namespace KivStash
