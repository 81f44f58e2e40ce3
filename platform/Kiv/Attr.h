#pragma once
// Attributes: one line in the class body declares one, with its accessors, its publication and
// its place in the generic attribute interface.
//
//    class TopoConfig : public Kiv::Entity {
//       KIV_BODY( TopoConfig, Kiv::Entity )
//       KIV_ATTR( U32, topoId, 0 )                                     topoId(), topoIdIs( v )
//       KIV_PTR( TopoConfig, parent )                                  parent(), parentIs( p )
//       KIV_OWNED( VerifyData, verify )                                verify(), verifyIs( name ), verifyDel()
//       KIV_SET( Ulnet::IntfId, intf )                                 intfHas( k ), intfIs( k ), intfDel( k ), ...
//       KIV_MAP( Ulnet::IntfId, U32, vlan )                            vlan( k ), vlanIs( k, v ), vlanDel( k ), ...
//       KIV_ORDERED_MAP( U64, Command, cmd )                           likewise, in key order
//       KIV_ENTITIES( Ulnet::IntfId, TopoPortConfig, topoPortConfig )  topoPortConfigIs( k ) finds or creates
//       KIV_QUEUE( U8, freeId )                                        freeIdEnq( v ), freeIdDeq(), freeIdFront(), ...
//     public:
//       explicit TopoConfig( const Velto::String & name );
//    };
//    KIV_DEFINE( TopoConfig )      // in one source file
//
// Every keyed attribute also has xHas( k ), xDel( k ), xDelAll(), the count xs() and
// xIteratorConst(). The line of attribute x declares the tag xAttr, by which it is watched.
//
// Laws
// 1. A setter compares, stores, publishes. Equal writes and the removal of what is absent are
//    silent.
// 2. The value of an absent key is a value-initialised one (null for entities). References that
//    accessors return hold until the attribute changes.
// 3. A removed entry is out of the collection before watchers hear its key, and ends after.
// 4. xDelAll() empties the collection first, then publishes each key; a handler that raises costs
//    no other key its publication.
// 5. Walks stay valid while handlers insert and erase; what is inserted meanwhile is visited.
//    The current entry's key and value hold until that entry is erased.

#include <type_traits>

#include "platform/Kiv/DenseMap.h"
#include "platform/Kiv/Entity.h"
#include "platform/Kiv/Fifo.h"
#include "platform/Kiv/OrderedMap.h"
#include "platform/Kiv/TypeData.h"
#include "platform/Velto/Scope.h"

namespace Kiv {

/** How an accessor hands out a T: small plain values by value, others by reference. */
template< class T >
using Read =
      std::conditional_t< std::is_trivially_copyable_v< T > && sizeof( T ) <= 16, T, const T & >;

/** What an absent key reads as. */
template< class T >
const T &
absent() {
   static const T value{};
   return value;
}

/** A walk over a collection: `for ( auto i = x.intfIteratorConst(); i; ++i ) i.key()`, or
    `for ( auto && [ key, value ] : x.intfIteratorConst() )`. */
template< class Map >
class Iterator {
 public:
   explicit Iterator( const Map & map ) : walk_( const_cast< Map & >( map ) ) {}
   explicit operator bool() const { return bool( walk_ ); }
   Iterator & operator++() {
      ++walk_;
      return *this;
   }
   const auto & key() const { return walk_.key(); }
   const auto & value() const { return walk_.value(); }
   /** The entity, in a collection of entities. */
   auto ptr() const { return walk_.value().ptr(); }

   struct Entry {
      decltype( std::declval< typename Map::Walk >().key() ) key;
      const std::remove_reference_t< decltype( std::declval< typename Map::Walk >().value() ) > &
            value;
   };
   struct Cursor {
      Iterator * i;
      bool operator!=( std::nullptr_t ) const { return bool( *i ); }
      void operator++() { ++*i; }
      Entry operator*() const { return { i->key(), i->value() }; }
   };
   Cursor begin() { return { this }; }
   std::nullptr_t end() { return nullptr; }

 private:
   typename Map::Walk walk_;
};

} // namespace Kiv

#define KIV_BODY( Self, Base )                                                                     \
 public:                                                                                           \
   using KivSelf = Self;                                                                           \
   using KivBase = Base;                                                                           \
   static constexpr int kivFirst =                                                                 \
         decltype( Base::kivCount( ::Kiv::Rank< ::Kiv::maxAttributes >() ) )::value;               \
   static ::Kiv::Index< kivFirst > kivCount( ::Kiv::Rank< kivFirst > );                            \
   static const ::Kiv::TypeData kivTypeData;                                                       \
   const ::Kiv::TypeData * typeData() const override {                                             \
      return &kivTypeData;                                                                         \
   }                                                                                               \
                                                                                                   \
 private:

/** Gives attribute `x` the next index and declares its tag and its description. */
#define KIV_DECLARE( x, K, V, ... )                                                                \
 public:                                                                                           \
   struct x##Attr {                                                                                \
      using Owner = KivSelf;                                                                       \
      using Key = K;                                                                               \
      using Value = V;                                                                             \
      static constexpr int index =                                                                 \
            decltype( kivCount( ::Kiv::Rank< ::Kiv::maxAttributes >() ) )::value;                  \
   };                                                                                              \
   static ::Kiv::Index< x##Attr::index + 1 > kivCount( ::Kiv::Rank< x##Attr::index + 1 > );        \
   template< class KivD, class KivT >                                                              \
   static constexpr auto kivDesc( KivD *, KivT *, ::Kiv::Index< x##Attr::index > ) {               \
      return KivD::__VA_ARGS__;                                                                    \
   }

#define KIV_ATTR( T, x, ... )                                                                      \
   KIV_DECLARE( x, void, T, template scalar< KivT, T, &KivT::x##_, &KivT::x##Is >( #x ) )          \
   ::Kiv::Read< T > x() const {                                                                    \
      return x##_;                                                                                 \
   }                                                                                               \
   void x##Is( ::Kiv::Read< T > v ) {                                                              \
      if ( x##_ == v ) {                                                                           \
         return;                                                                                   \
      }                                                                                            \
      x##_ = v;                                                                                    \
      this->kivPublish( x##Attr::index );                                                          \
   }                                                                                               \
                                                                                                   \
 private:                                                                                          \
   T x##_{ __VA_ARGS__ };

#define KIV_PTR( T, x )                                                                            \
   KIV_DECLARE( x, void, T, template pointer< KivT, T, &KivT::x >( #x ) )                          \
   T * x() const {                                                                                 \
      return x##_.ptr();                                                                           \
   }                                                                                               \
   void x##Is( ::Velto::Ptr< T > v ) {                                                             \
      if ( x##_ == v ) {                                                                           \
         return;                                                                                   \
      }                                                                                            \
      std::swap( x##_, v );                                                                        \
      this->kivPublish( x##Attr::index );                                                          \
   }                                                                                               \
   void x##Del() {                                                                                 \
      x##Is( nullptr );                                                                            \
   }                                                                                               \
                                                                                                   \
 private:                                                                                          \
   ::Velto::Ptr< T > x##_;

#define KIV_OWNED( T, x )                                                                          \
   KIV_DECLARE( x, void, T,                                                                        \
                template owned< KivT, T, &KivT::x, &KivT::x##Is, &KivT::x##Del >( #x ) )           \
   T * x() const {                                                                                 \
      return x##_.ptr();                                                                           \
   }                                                                                               \
   template< class... A >                                                                          \
   ::Velto::Ptr< T > x##Is( const ::Velto::String & name, const A &... args ) {                    \
      if ( x##_ ) {                                                                                \
         return x##_;                                                                              \
      }                                                                                            \
      auto fresh = ::Velto::make< T >( name, args... );                                            \
      x##_ = fresh;                                                                                \
      this->kivPublish( x##Attr::index );                                                          \
      return fresh;                                                                                \
   }                                                                                               \
   void x##Del() {                                                                                 \
      if ( ::Velto::Ptr< T > gone = std::move( x##_ ) ) {                                          \
         this->kivPublish( x##Attr::index );                                                       \
      }                                                                                            \
   }                                                                                               \
                                                                                                   \
 private:                                                                                          \
   ::Velto::Ptr< T > x##_;

/** What all keyed collections have in common. */
#define KIV_KEYED( K, x, Map )                                                                     \
   bool x##Has( const K & k ) const {                                                              \
      return x##_.has( k );                                                                        \
   }                                                                                               \
   void x##Del( const K & k ) {                                                                    \
      if ( !this->kivWatched() ) {                                                                 \
         x##_.erase( k );                                                                          \
         return;                                                                                   \
      }                                                                                            \
      const K key( k );                                                                            \
      if ( auto gone = x##_.take( key ) ) {                                                        \
         this->kivDeliver( x##Attr::index, &key );                                                 \
      }                                                                                            \
   }                                                                                               \
   void x##DelAll() {                                                                              \
      Map gone( std::move( x##_ ) );                                                               \
      ::Kiv::DeathNotice notice( this->kivSelfEntity() );                                          \
      ::Velto::FirstError error;                                                                   \
      for ( ::Kiv::Iterator< Map > i( gone ); i && notice.alive() && this->kivWatched(); ++i ) {   \
         error.run( [&] { this->kivDeliver( x##Attr::index, &i.key() ); } );                       \
      }                                                                                            \
      error.pass();                                                                                \
   }                                                                                               \
   U32 x##s() const {                                                                              \
      return x##_.size();                                                                          \
   }                                                                                               \
   ::Kiv::Iterator< Map > x##IteratorConst() const {                                               \
      return ::Kiv::Iterator< Map >( x##_ );                                                       \
   }                                                                                               \
                                                                                                   \
 private:                                                                                          \
   Map x##_;

#define KIV_SET( K, x )                                                                            \
   KIV_DECLARE(                                                                                    \
         x, K, void,                                                                               \
         template set< KivT, K, &KivT::x##_, &KivT::x##Is, &KivT::x##Del, &KivT::x##DelAll >(      \
               #x ) )                                                                              \
   using x##Map = ::Kiv::DenseMap< K, ::Kiv::Nothing >;                                            \
   bool x( const K & k ) const {                                                                   \
      return x##_.has( k );                                                                        \
   }                                                                                               \
   void x##Is( const K & k ) {                                                                     \
      if ( x##_.emplace( k ).second ) {                                                            \
         this->kivPublish( x##Attr::index, k );                                                    \
      }                                                                                            \
   }                                                                                               \
   KIV_KEYED( K, x, x##Map )

#define KIV_ANY_MAP( K, V, x, MapType, kind )                                                      \
   KIV_DECLARE( x, K, V,                                                                           \
                template map< KivT, kind, K, V, &KivT::x##_, &KivT::x##Is, &KivT::x##Del,          \
                              &KivT::x##DelAll >( #x ) )                                           \
   using x##Map = MapType;                                                                         \
   ::Kiv::Read< V > x( const K & k ) const {                                                       \
      auto v = x##_.find( k );                                                                     \
      return v ? *v : ::Kiv::absent< V >();                                                        \
   }                                                                                               \
   void x##Is( const K & k, ::Kiv::Read< V > v ) {                                                 \
      auto [slot, fresh] = x##_.emplace( k, v );                                                   \
      if ( !fresh ) {                                                                              \
         if ( *slot == v ) {                                                                       \
            return;                                                                                \
         }                                                                                         \
         *slot = v;                                                                                \
      }                                                                                            \
      this->kivPublish( x##Attr::index, k );                                                       \
   }                                                                                               \
   KIV_KEYED( K, x, x##Map )

#define KIV_COMMA ,
#define KIV_MAP( K, V, x )                                                                         \
   KIV_ANY_MAP( K, V, x, ::Kiv::DenseMap< K KIV_COMMA V >, ::Kiv::AttrKind::map )
#define KIV_ORDERED_MAP( K, V, x )                                                                 \
   KIV_ANY_MAP( K, V, x, ::Kiv::OrderedMap< K KIV_COMMA V >, ::Kiv::AttrKind::orderedMap )

#define KIV_ENTITIES( K, T, x )                                                                    \
   KIV_DECLARE( x, K, T,                                                                           \
                template entities< KivT, K, T, &KivT::x, &KivT::x##Is, &KivT::x##Del,              \
                                   &KivT::x##DelAll, &KivT::x##_ >( #x ) )                         \
   using x##Map = ::Kiv::DenseMap< K, ::Velto::Ptr< T > >;                                         \
   T * x( const K & k ) const {                                                                    \
      auto v = x##_.find( k );                                                                     \
      return v ? v->ptr() : nullptr;                                                               \
   }                                                                                               \
   template< class... A >                                                                          \
   ::Velto::Ptr< T > x##Is( const K & k, const A &... args ) {                                     \
      if ( auto held = x##_.find( k ) ) {                                                          \
         return *held;                                                                             \
      }                                                                                            \
      auto fresh = ::Velto::make< T >( k, args... );                                               \
      x##_.emplace( k, fresh );                                                                    \
      this->kivPublish( x##Attr::index, k );                                                       \
      return fresh;                                                                                \
   }                                                                                               \
   KIV_KEYED( K, x, x##Map )

#define KIV_QUEUE( T, x )                                                                          \
   KIV_DECLARE(                                                                                    \
         x, void, T,                                                                               \
         template queue< KivT, T, &KivT::x##_, &KivT::x##Enq, &KivT::x##Deq, &KivT::x##DelAll >(   \
               #x ) )                                                                              \
   const T & x##Front() const {                                                                    \
      return x##_.front();                                                                         \
   }                                                                                               \
   const T & x##Back() const {                                                                     \
      return x##_.back();                                                                          \
   }                                                                                               \
   bool x##Has( ::Kiv::Read< T > v ) const {                                                       \
      return x##_.has( v );                                                                        \
   }                                                                                               \
   void x##Enq( ::Kiv::Read< T > v ) {                                                             \
      x##_.enq( v );                                                                               \
      this->kivPublish( x##Attr::index );                                                          \
   }                                                                                               \
   void x##Deq() {                                                                                 \
      if ( !x##_.empty() ) {                                                                       \
         [[maybe_unused]] T gone( x##_.front() );                                                  \
         x##_.deq();                                                                               \
         this->kivPublish( x##Attr::index );                                                       \
      }                                                                                            \
   }                                                                                               \
   void x##DelAll() {                                                                              \
      if ( !x##_.empty() ) {                                                                       \
         auto gone( std::move( x##_ ) );                                                           \
         this->kivPublish( x##Attr::index );                                                       \
      }                                                                                            \
   }                                                                                               \
   U32 x##s() const {                                                                              \
      return x##_.size();                                                                          \
   }                                                                                               \
                                                                                                   \
 private:                                                                                          \
   ::Kiv::Fifo< T > x##_;
