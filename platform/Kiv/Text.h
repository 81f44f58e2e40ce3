#pragma once
// Every value has one text form, and one way back from it.
//
//    toText( v ) ----> built-in kinds: here        "True", "42", "0.2", "forwarding"
//                 \--> v.stringValue()             "Ethernet3/1", "Value('Qon::QonLagPort', ** {...})"
//    fromText< T >( s ) -> built-in kinds: here
//                       \-> explicit T( const Velto::String & )
//    hashOf( v ) ----> Hash.h
//
// 1. fromText< T >( toText( v ) ) == v for every value.
// 2. A text that does not fit raises Velto::RangeError, whose one line says what was expected and
//    what was found.
// 3. Hashes are the same on every platform; for integers they are the number itself, so whoever
//    keeps a table mixes them again.
//
// Two macros give a type its text form:
//
//    enum class PortState : U8 { disabled, discarding };
//    KIV_ENUM( PortState, disabled, discarding )          // beside the enum, in its namespace
//
//    class QonLagPort {
//       bool collecting_ = false;
//       bool distributing_ = false;
//       KIV_VALUE( Qon, QonLagPort, collecting, distributing )
//    };
//
// KIV_VALUE stands behind the data members and lists them, without the trailing underscore, in the
// order of their declaration; the class is public from there on. It makes: default and full
// constructor, x(), xIs( v ), ==, <=> field by field, isEq(), hash(), stringValue() and the
// constructor from that text or from its shorter form "{collecting: True}". A field that the text leaves out keeps its default.

#include <compare>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/Kiv/Each.h"
#include "platform/Kiv/Hash.h"
#include "platform/Velto/Assert.h"
#include "platform/Velto/Types.h"

namespace Kiv {

/** One enumerator. */
struct EnumName {
   const char * name;
   S64 value;
};

/** The enumerators of one type; what kivEnumNames( e ) finds. */
struct EnumNames {
   const char * type;
   const EnumName * names;
   U32 count;
};

/** Raises "expected <expected>, found '<found>'". */
[[noreturn]] void textRefused( const Velto::String & expected, const Velto::String & found );

/** Continues the hash `seed` by one more part; order matters. */
constexpr U64
hashJoin( U64 seed, U64 part ) {
   const U64 h = ( seed ^ part ) * 0x9e3779b97f4a7c15ull + 0x632be59bd9b4e019ull;
   return h ^ ( h >> 32 );
}

namespace Detail {

Velto::String textOf( U64 value );
Velto::String textOf( S64 value );
Velto::String textOf( double value );
Velto::String textOf( const EnumNames & names, S64 value );
U64 unsignedOf( const Velto::String & text, U64 max );
S64 signedOf( const Velto::String & text, S64 min, S64 max );
double doubleOf( const Velto::String & text );
bool boolOf( const Velto::String & text );
S64 enumOf( const EnumNames & names, const Velto::String & text, S64 min, S64 max );

template< class T >
concept NamedEnum = std::is_enum_v< T > && requires( T e ) {
   kivEnumNames( e );
};

/** The limits of an integer type, without the weight of the standard header. */
template< class T >
constexpr U64 maxOf = std::is_signed_v< T > ? ( U64( 1 ) << ( 8 * sizeof( T ) - 1 ) ) - 1
                                            : ~U64( 0 ) >> ( 64 - 8 * sizeof( T ) );
template< class T >
constexpr S64 minOf = std::is_signed_v< T > ? -S64( maxOf< T > ) - 1 : 0;

} // namespace Detail

template< class T >
Velto::String
toText( const T & value ) {
   if constexpr ( std::is_same_v< T, bool > ) {
      return value ? "True" : "False";
   } else if constexpr ( Detail::NamedEnum< T > ) {
      return Detail::textOf( kivEnumNames( value ), S64( value ) );
   } else if constexpr ( std::is_enum_v< T > ) {
      return Detail::textOf( S64( value ) );
   } else if constexpr ( std::is_integral_v< T > && std::is_signed_v< T > ) {
      return Detail::textOf( S64( value ) );
   } else if constexpr ( std::is_integral_v< T > ) {
      return Detail::textOf( U64( value ) );
   } else if constexpr ( std::is_floating_point_v< T > ) {
      return Detail::textOf( double( value ) );
   } else if constexpr ( std::is_same_v< T, Velto::String > ) {
      return value;
   } else if constexpr ( Detail::Optional< T > ) {
      return value.has_value() ? toText( *value ) : Velto::String( "None" );
   } else {
      return value.stringValue();
   }
}

template< class T >
T
fromText( const Velto::String & text ) {
   if constexpr ( std::is_same_v< T, bool > ) {
      return Detail::boolOf( text );
   } else if constexpr ( std::is_enum_v< T > ) {
      using Number = std::underlying_type_t< T >;
      constexpr S64 max = S64( Detail::maxOf< Number > & Detail::maxOf< S64 > );
      if constexpr ( Detail::NamedEnum< T > ) {
         return T( Detail::enumOf( kivEnumNames( T() ), text, Detail::minOf< Number >, max ) );
      } else {
         return T( Detail::signedOf( text, Detail::minOf< Number >, max ) );
      }
   } else if constexpr ( std::is_integral_v< T > && std::is_signed_v< T > ) {
      return T( Detail::signedOf( text, Detail::minOf< T >, S64( Detail::maxOf< T > ) ) );
   } else if constexpr ( std::is_integral_v< T > ) {
      return T( Detail::unsignedOf( text, Detail::maxOf< T > ) );
   } else if constexpr ( std::is_floating_point_v< T > ) {
      return T( Detail::doubleOf( text ) );
   } else if constexpr ( std::is_same_v< T, Velto::String > ) {
      return text;
   } else if constexpr ( Detail::Optional< T > ) {
      return text == "None" ? T() : T( fromText< typename T::value_type >( text ) );
   } else {
      return T( text );
   }
}

/** @name Texts for people and tools */
/** @{ */
/** The parts between separators: one more than there are separators, some perhaps empty. */
std::vector< Velto::String > split( const Velto::String & text, char separator );
/** As a JSON string, with its quotes. */
Velto::String jsonQuoted( const Velto::String & text );
inline const char *
yesNo( bool v ) {
   return v ? "yes" : "no";
}
/** @} */

/** Puts the text of a record or a collection together. */
class ValueWriter {
 public:
   /** "Value('<type>', ** {'<field>': <value>, ...})" */
   explicit ValueWriter( const char * type );
   /** "{<key>: <value>, ...}" */
   ValueWriter() = default;

   template< class V >
   void field( const char * name, const V & value ) {
      add( name, value );
   }
   template< class K, class V >
   void entry( const K & key, const V & value ) {
      add( part( key ), value );
   }
   template< class K >
   void element( const K & key ) {
      separate();
      body_ += part( key );
   }
   Velto::String text() const;

 private:
   /** A string that could not be told from its surroundings is put into quotes. */
   template< class V >
   static Velto::String part( const V & value ) {
      if constexpr ( std::is_same_v< V, Velto::String > ) {
         return quotedIfNeeded( value );
      } else {
         return toText( value );
      }
   }
   template< class V >
   void add( const Velto::String & name, const V & value ) {
      separate();
      body_ += type_ ? "'" + name + "': " : name + ": ";
      body_ += part( value );
   }
   void separate();
   static Velto::String quotedIfNeeded( const Velto::String & text );

   const char * type_ = nullptr;
   Velto::String body_;
};

/** Takes such a text apart: while ( next() ) look at name() and value(). Quotes are gone from
    both; commas inside quotes, braces, brackets and parentheses do not separate. */
class ValueReader {
 public:
   /** The text of a record of this type, long or short form. */
   ValueReader( const char * type, const Velto::String & text );

   bool next();
   bool is( const char * name ) const { return fields_[at_].first == name; }
   const Velto::String & name() const { return fields_[at_].first; }
   const Velto::String & value() const { return fields_[at_].second; }
   template< class T >
   void get( T & field ) const {
      field = fromText< T >( value() );
   }
   [[noreturn]] void refuseField() const;
   /** Raises the same error with the type and the field before it. */
   [[noreturn]] void refuseValue( const Velto::RangeError & why ) const;

 private:
   const char * type_;
   std::vector< std::pair< Velto::String, Velto::String > > fields_;
   U32 at_ = 0;
   bool started_ = false;
};

namespace Detail {
/** Nothing converts to it: keeps a record of one string from having two string constructors. */
class NoArgument {
 public:
   operator Velto::String &&() const; // never defined

 private:
   NoArgument();
};
template< class T, bool only >
using Argument = std::conditional_t< only && std::is_same_v< T, Velto::String >, NoArgument, T >;
} // namespace Detail

} // namespace Kiv

// The switch lets the compiler name an enumerator that the list lacks.
#define KIV_ENUM_CASE_( x ) case KivE::x:
#define KIV_ENUM_NAME_( x ) { #x, S64( KivE::x ) },
#define KIV_ENUM_TABLE_( prefix, E, ... )                                                          \
   prefix inline ::Kiv::EnumNames kivEnumNames( E e ) {                                            \
      using KivE = E;                                                                              \
      static constexpr ::Kiv::EnumName names[] = { KIV_EACH( KIV_ENUM_NAME_, __VA_ARGS__ ) };      \
      switch ( e ) {                                                                               \
         KIV_EACH( KIV_ENUM_CASE_, __VA_ARGS__ )                                                   \
         break;                                                                                    \
      }                                                                                            \
      return { #E, names, sizeof( names ) / sizeof( names[0] ) };                                  \
   }

/** Gives an enum its text form; stands after the enum in the same namespace. */
#define KIV_ENUM( E, ... ) KIV_ENUM_TABLE_(, E, __VA_ARGS__ )
/** The same for an enum inside a class. */
#define KIV_NESTED_ENUM( E, ... ) KIV_ENUM_TABLE_( friend, E, __VA_ARGS__ )

#define KIV_VALUE_ONLY_( x, ... ) true __VA_OPT__( &&false )
#define KIV_VALUE_ARG_( x ) ::Kiv::Detail::Argument< decltype( x##_ ), kivOneField > x##KivArg
#define KIV_VALUE_INIT_( x ) x##_( KIV_VALUE_TAKE_( x ) )
#define KIV_VALUE_TAKE_( x ) static_cast< decltype( x##_ ) && >( x##KivArg )
#define KIV_VALUE_ACCESS_( x )                                                                     \
   const decltype( x##_ ) & x() const {                                                            \
      return x##_;                                                                                 \
   }                                                                                               \
   void x##Is( decltype( x##_ ) value ) {                                                          \
      x##_ = std::move( value );                                                                   \
   }
#define KIV_VALUE_HASH_( x ) h = ::Kiv::hashJoin( h, ::Kiv::hashOf( x##_ ) );
#define KIV_VALUE_WRITE_( x ) w.field( #x, x##_ );
#define KIV_VALUE_READ_( x )                                                                       \
   if ( r.is( #x ) ) {                                                                             \
      r.get( x##_ );                                                                               \
      continue;                                                                                    \
   }

/** Reads `text`: read( x ) for each field of the text that is one of the list. */
#define KIV_READ_FIELDS_( ns, T, read, ... )                                                       \
   ::Kiv::ValueReader r( #ns "::" #T, text );                                                      \
   while ( r.next() ) {                                                                            \
      try {                                                                                        \
         KIV_EACH( read, __VA_ARGS__ )                                                             \
      } catch ( const Velto::RangeError & e ) {                                                    \
         r.refuseValue( e );                                                                       \
      }                                                                                            \
      r.refuseField();                                                                             \
   }

/** Makes a value of the data members listed, which stand before it. `ns` is the namespace (or
    the enclosing class) that the text form names. */
#define KIV_VALUE( ns, T, ... )                                                                    \
 public:                                                                                           \
   T() = default;                                                                                  \
   explicit T( const Velto::String & text ){ KIV_READ_FIELDS_(                                     \
         ns, T, KIV_VALUE_READ_,                                                                   \
         __VA_ARGS__ ) } KIV_VALUE_OPERATIONS_( ns, T,                                             \
                                                __VA_ARGS__ ) static constexpr bool kivOneField =  \
         KIV_VALUE_ONLY_( __VA_ARGS__ );                                                           \
   explicit( kivOneField ) T( KIV_EACH_COMMA( KIV_VALUE_ARG_, __VA_ARGS__ ) )                      \
       : KIV_EACH_COMMA( KIV_VALUE_INIT_, __VA_ARGS__ ) {}

#define KIV_VALUE_OPERATIONS_( ns, T, ... )                                                        \
   KIV_EACH( KIV_VALUE_ACCESS_, __VA_ARGS__ )                                                      \
   bool operator==( const T & ) const = default;                                                   \
   auto operator<=>( const T & ) const = default;                                                  \
   bool isEq( const T & other ) const {                                                            \
      return *this == other;                                                                       \
   }                                                                                               \
   U64 hash() const {                                                                              \
      U64 h = 0;                                                                                   \
      KIV_EACH( KIV_VALUE_HASH_, __VA_ARGS__ )                                                     \
      return h;                                                                                    \
   }                                                                                               \
   Velto::String stringValue() const {                                                             \
      ::Kiv::ValueWriter w( #ns "::" #T );                                                         \
      KIV_EACH( KIV_VALUE_WRITE_, __VA_ARGS__ )                                                    \
      return w.text();                                                                             \
   }
