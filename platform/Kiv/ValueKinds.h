#pragma once
// Kinds of data members that values are made of, besides those of Text.h, and sets of flags.
//
//    class Route {
//       Kiv::ValueList< Hop > hops_;              "{a, b}"
//       Kiv::ValueMap< U32, Hop > backups_;       "{1: a, 7: b}", by ascending key
//       Kiv::Ref< Peer > peer_;                   an entity: its name, or "None"
//       Kiv::Uncompared< U32 > hint_;             printed, but neither compared nor hashed
//       KIV_VALUE( Demo, Route, hops, backups, peer, hint )
//    };
//
//    class Reasons {
//       KIV_BITS( Demo, Reasons, U16, linkDown, changed )   // bit 0 first
//    };
//
// All of them compare with == and <=>, have hash() and stringValue(), and are read from that text
// again; only an entity cannot be found by its name.

#include <algorithm>
#include <compare>
#include <memory>
#include <utility>
#include <vector>

#include "platform/Kiv/Text.h"
#include "platform/Velto/Node.h"

namespace Kiv {

/** The elements of a list's text, "{a, b}", without their quotes. */
std::vector< Velto::String > elementsOf( const Velto::String & text );

/** Several values in order. */
template< class T >
class ValueList : public std::vector< T > {
 public:
   using std::vector< T >::vector;
   ValueList() = default;
   explicit ValueList( const Velto::String & text ) {
      for ( const auto & element : elementsOf( text ) ) {
         this->push_back( fromText< T >( element ) );
      }
   }
   U64 hash() const {
      U64 h = this->size();
      for ( const auto & element : *this ) {
         h = hashJoin( h, hashOf( element ) );
      }
      return h;
   }
   Velto::String stringValue() const {
      ValueWriter w;
      for ( const auto & element : *this ) {
         w.element( element );
      }
      return w.text();
   }
};

/** A map that is a value: in ascending order of its keys, so that equal ones look alike. An empty one
    is one pointer. Made for few entries: a change costs their number. */
template< class K, class V >
class ValueMap {
 public:
   using Entry = std::pair< K, V >;
   using Entries = std::vector< Entry >;

   ValueMap() = default;
   ValueMap( const ValueMap & o )
       : entries_( o.entries_ ? std::make_unique< Entries >( *o.entries_ ) : nullptr ) {}
   ValueMap( ValueMap && ) noexcept = default;
   ValueMap & operator=( ValueMap o ) noexcept {
      entries_.swap( o.entries_ );
      return *this;
   }
   explicit ValueMap( const Velto::String & text ) {
      for ( ValueReader r( "Kiv::ValueMap", text ); r.next(); ) {
         entryIs( fromText< K >( r.name() ), fromText< V >( r.value() ) );
      }
   }

   const Entries & entries() const {
      static const Entries none;
      return entries_ ? *entries_ : none;
   }
   auto begin() const { return entries().begin(); }
   auto end() const { return entries().end(); }
   U32 size() const { return U32( entries().size() ); }
   bool empty() const { return !entries_; }
   /** The value of `key`, or null. */
   const V * find( const K & key ) const {
      auto at = place( entries(), key );
      return at != entries().end() && at->first == key ? &at->second : nullptr;
   }
   void entryIs( const K & key, const V & value ) {
      if ( !entries_ ) {
         entries_ = std::make_unique< Entries >();
      }
      auto at = place( *entries_, key );
      if ( at != entries_->end() && at->first == key ) {
         at->second = value;
      } else {
         entries_->emplace( at, key, value );
      }
   }
   void entryDel( const K & key ) {
      if ( find( key ) ) {
         entries_->erase( place( *entries_, key ) );
         if ( entries_->empty() ) {
            entries_.reset();
         }
      }
   }
   void entryDelAll() { entries_.reset(); }

   friend bool operator==( const ValueMap & a, const ValueMap & b ) {
      return a.entries() == b.entries();
   }
   friend auto operator<=>( const ValueMap & a, const ValueMap & b ) {
      return a.entries() <=> b.entries();
   }
   U64 hash() const {
      U64 h = size();
      for ( const auto & [key, value] : entries() ) {
         h = hashJoin( hashJoin( h, hashOf( key ) ), hashOf( value ) );
      }
      return h;
   }
   Velto::String stringValue() const {
      ValueWriter w;
      for ( const auto & [key, value] : entries() ) {
         w.entry( key, value );
      }
      return w.text();
   }

 private:
   template< class All >
   static auto place( All & all, const K & key ) {
      return std::lower_bound( all.begin(), all.end(), key,
                               []( const Entry & e, const K & k ) { return e.first < k; } );
   }
   std::unique_ptr< Entries > entries_; // never an empty one
};

/** An entity, held and compared by identity. */
template< class T >
class Ref {
 public:
   Ref() = default;
   Ref( std::nullptr_t ) {}
   Ref( T * entity ) : entity_( entity ) {}
   Ref( const Velto::Ptr< T > & entity ) : entity_( entity ) {}
   /** Raises Velto::RangeError unless the text is "None". */
   explicit Ref( const Velto::String & text ) {
      if ( text != "None" ) {
         textRefused( "None: an entity has no text to be made from", text );
      }
   }
   T * ptr() const { return entity_.ptr(); }
   T * operator->() const { return ptr(); }
   explicit operator bool() const { return bool( entity_ ); }
   friend bool operator==( const Ref &, const Ref & ) = default;
   friend auto operator<=>( const Ref & a, const Ref & b ) {
      return std::compare_three_way()( a.ptr(), b.ptr() );
   }
   U64 hash() const { return hashOf( ptr() ); }
   Velto::String stringValue() const { return entity_ ? entity_->name() : "None"; }

 private:
   Velto::Ptr< T > entity_;
};

/** A part of a value that takes no part in what the value is: any two are equal. */
template< class T >
class Uncompared {
 public:
   Uncompared() = default;
   Uncompared( const T & value ) : value_( value ) {}
   explicit Uncompared( const Velto::String & text ) : value_( fromText< T >( text ) ) {}
   operator const T &() const { return value_; }
   friend bool operator==( const Uncompared &, const Uncompared & ) { return true; }
   friend auto operator<=>( const Uncompared &, const Uncompared & ) {
      return std::strong_ordering::equal;
   }
   U64 hash() const { return 0; }
   Velto::String stringValue() const { return toText( value_ ); }

 private:
   T value_{};
};

} // namespace Kiv

#define KIV_BIT_ONE_( x ) +1
#define KIV_BIT_ACCESS_( x )                                                                       \
   constexpr bool x() const {                                                                      \
      return value_ >> U32( Bit::x ) & 1;                                                          \
   }                                                                                               \
   constexpr void x##Is( bool v ) {                                                                \
      const KivWord bit = KivWord( U64( 1 ) << U32( Bit::x ) );                                    \
      value_ = KivWord( v ? value_ | bit : value_ & ~bit );                                        \
   }
#define KIV_BIT_WRITE_( x ) w.field( #x, x() );
#define KIV_BIT_READ_( x )                                                                         \
   if ( r.is( #x ) ) {                                                                             \
      x##Is( ::Kiv::fromText< bool >( r.value() ) );                                               \
      continue;                                                                                    \
   }

/** The whole body of a class that is a set of flags in one word, the first in bit 0. Makes: x() and
    xIs( bool ) of each flag, constructors of the word, of one `Bit` and of the text, value(), ==,
    <=>, |, &, ~ (within the named flags), hash() and stringValue(), which lists every flag. Bits
    without a name are dropped. The class is public from there on. */
#define KIV_BITS( ns, T, Word, ... )                                                               \
   using KivWord = Word;                                                                           \
   KivWord value_ = 0;                                                                             \
                                                                                                   \
 public:                                                                                           \
   enum class Bit : U8 { __VA_ARGS__ };                                                            \
   static constexpr KivWord allBits =                                                              \
         KivWord( ( U64( 1 ) << ( 0 KIV_EACH( KIV_BIT_ONE_, __VA_ARGS__ ) ) ) - 1 );               \
   constexpr T() = default;                                                                        \
   constexpr explicit T( KivWord value ) : value_( KivWord( value & allBits ) ) {}                 \
   constexpr explicit T( Bit bit ) : T( KivWord( U64( 1 ) << U32( bit ) ) ) {}                     \
   explicit T( const Velto::String & text ) {                                                      \
      KIV_READ_FIELDS_( ns, T, KIV_BIT_READ_, __VA_ARGS__ )                                        \
   }                                                                                               \
   constexpr KivWord value() const {                                                               \
      return value_;                                                                               \
   }                                                                                               \
   constexpr explicit operator bool() const {                                                      \
      return value_ != 0;                                                                          \
   }                                                                                               \
   KIV_EACH( KIV_BIT_ACCESS_, __VA_ARGS__ )                                                        \
   friend constexpr T operator|( T a, T b ) {                                                      \
      return T( KivWord( a.value_ | b.value_ ) );                                                  \
   }                                                                                               \
   friend constexpr T operator&( T a, T b ) {                                                      \
      return T( KivWord( a.value_ & b.value_ ) );                                                  \
   }                                                                                               \
   friend constexpr T operator~( T a ) {                                                           \
      return T( KivWord( ~a.value_ ) );                                                            \
   }                                                                                               \
   bool operator==( const T & ) const = default;                                                   \
   auto operator<=>( const T & ) const = default;                                                  \
   bool isEq( const T & other ) const {                                                            \
      return *this == other;                                                                       \
   }                                                                                               \
   U64 hash() const {                                                                              \
      return value_;                                                                               \
   }                                                                                               \
   Velto::String stringValue() const {                                                             \
      ::Kiv::ValueWriter w( #ns "::" #T );                                                         \
      KIV_EACH( KIV_BIT_WRITE_, __VA_ARGS__ )                                                      \
      return w.text();                                                                             \
   }
