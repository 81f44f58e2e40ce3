#pragma once
// What a key or a value of a shared table looks like: fields that lie in the same places in every
// process, 32 or 64 bit, whoever compiled it.
//
//    struct PortKey { U32 card = 0; U32 port = 0; };
//    QUARN_LAYOUT( PortKey, card, port )
//
//    QUARN_LAYOUT -> Fields of T -> faultOf< T >()      refused when compiled
//                                -> fingerprint< T >()  compared when a reader attaches
//
// Invariants
// 1. A field is an integer, an enumeration of a fixed type, an array of these, or another described
//    type. No bool (its other 254 values are undefined), no pointer, no floating point number.
// 2. All fields are named in the order in which they lie, none is missing, there is no padding: equal
//    values are equal bytes, and nothing else of a process's memory is published.
// 3. Each lies on its natural alignment (8 for a U64, also where the compiler would take 4).
// 4. The size of a key or a value is a multiple of 8: spare fields are named.
// 5. The fingerprint depends on the names, places and kinds of the fields and on nothing else.

#include <array>
#include <cstddef>
#include <string_view>
#include <type_traits>

#include "platform/Velto/Types.h"

namespace Quarn {

/** What is wrong with a layout. */
enum class Fault : U8 {
   none,
   notPlain,  ///< not trivially copyable, or no standard layout
   order,     ///< fields not in order, padding between them, or one that is not named
   missing,   ///< fields or padding behind the last one that is named
   alignment, ///< not on its natural alignment
   kind,      ///< bool, pointer, floating point, enumeration without a type, undescribed type
   size,      ///< not a multiple of 8
};

namespace Detail {

constexpr U64
mixed( U64 hash, U64 more ) {
   hash = ( hash ^ more ) * 0x9e3779b97f4a7c15ull;
   return hash ^ hash >> 29;
}

constexpr U64
mixed( U64 hash, std::string_view text ) {
   for ( char c : text ) {
      hash = mixed( hash, U64( static_cast< unsigned char >( c ) ) );
   }
   return mixed( hash, U64( text.size() ) );
}

/** What the layout needs to know of a field's type. `print` is 0 for a kind that is refused. */
struct Kind {
   U64 print = 0;
   U32 bytes = 0;
   U32 alignment = 1;
};

struct Field {
   std::string_view name;
   U32 at = 0;
   Kind kind;
};

template< class T >
concept Described = requires( const T * t ) {
   quarnFields( t );
};

template< class T >
concept FixedEnum = std::is_enum_v< T > && requires {
   T{ 0 };
};

template< class T >
struct IsStdArray : std::false_type {};
template< class E, std::size_t n >
struct IsStdArray< std::array< E, n > > : std::true_type {};

template< class T >
constexpr Kind kindOf();

constexpr Kind
arrayOf( const Kind & element, U32 count ) {
   const U64 print = element.print ? mixed( mixed( 'a', count ), element.print ) : 0;
   return { print, element.bytes * count, element.alignment };
}

template< class T >
constexpr U64
printOf( U64 print ) {
   for ( const Field & field : quarnFields( static_cast< const T * >( nullptr ) ) ) {
      print = mixed( mixed( mixed( print, field.name ), field.at ), field.kind.print );
   }
   return mixed( print, sizeof( T ) );
}

template< class T >
constexpr Fault
fieldFault() {
   if ( !std::is_trivially_copyable_v< T > || !std::is_standard_layout_v< T > ) {
      return Fault::notPlain;
   }
   U32 end = 0;
   for ( const Field & field : quarnFields( static_cast< const T * >( nullptr ) ) ) {
      if ( !field.kind.print ) {
         return Fault::kind;
      }
      if ( field.at % field.kind.alignment != 0 ) {
         return Fault::alignment;
      }
      if ( field.at != end ) {
         return Fault::order;
      }
      end += field.kind.bytes;
   }
   return end == sizeof( T ) ? Fault::none : Fault::missing;
}

template< class T >
constexpr U32
alignmentOf() {
   U32 most = 1;
   for ( const Field & field : quarnFields( static_cast< const T * >( nullptr ) ) ) {
      most = field.kind.alignment > most ? field.kind.alignment : most;
   }
   return most;
}

template< class T >
constexpr Kind
kindOf() {
   constexpr U32 bytes = sizeof( T );
   if constexpr ( std::is_array_v< T > ) {
      return arrayOf( kindOf< std::remove_extent_t< T > >(), std::extent_v< T > );
   } else if constexpr ( IsStdArray< T >::value ) {
      return arrayOf( kindOf< typename T::value_type >(), std::tuple_size_v< T > );
   } else if constexpr ( Described< T > ) {
      return { fieldFault< T >() == Fault::none ? printOf< T >( 'd' ) : 0, bytes,
               alignmentOf< T >() };
   } else if constexpr ( std::is_integral_v< T > && !std::is_same_v< T, bool > ) {
      return { mixed( std::is_signed_v< T > ? 's' : 'u', bytes ), bytes, bytes };
   } else if constexpr ( FixedEnum< T > ) {
      const Kind number = kindOf< std::underlying_type_t< T > >();
      return { number.print ? mixed( 'e', number.print ) : 0, bytes, bytes };
   } else {
      return {};
   }
}

template< class... F >
constexpr std::array< Field, sizeof...( F ) >
fields( F... f ) {
   return { f... };
}

} // namespace Detail

/** What is wrong with T as a key or a value; none if it can be one. */
template< Detail::Described T >
constexpr Fault
faultOf() {
   constexpr Fault fault = Detail::fieldFault< T >();
   return fault == Fault::none && sizeof( T ) % 8 != 0 ? Fault::size : fault;
}

/** What can be a key or a value. */
template< class T >
concept Plain = Detail::Described< T > && faultOf< T >()
== Fault::none;

/** The same number in every process that sees K and V in the same way. */
template< Plain K, Plain V >
constexpr U64
fingerprint() {
   return Detail::mixed( Detail::printOf< K >( 'k' ), Detail::printOf< V >( 'v' ) );
}

} // namespace Quarn

/** Describes T: all of its fields in order. Stands behind T, in T's namespace. */
#define QUARN_LAYOUT( T, ... )                                                                     \
   constexpr auto quarnFields( const T * ) {                                                       \
      using QuarnType = T;                                                                         \
      return ::Quarn::Detail::fields( QUARN_EACH( __VA_ARGS__ ) );                                 \
   }

#define QUARN_FIELD( name )                                                                        \
   ::Quarn::Detail::Field {                                                                        \
#name, U32( offsetof( QuarnType, name ) ),                                                   \
            ::Quarn::Detail::kindOf < decltype( QuarnType::name )>()                               \
   }
#define QUARN_PARENS ()
#define QUARN_EACH( ... ) __VA_OPT__( QUARN_AGAIN( QUARN_STEP( __VA_ARGS__ ) ) )
#define QUARN_STEP( name, ... )                                                                    \
   QUARN_FIELD( name ) __VA_OPT__(, QUARN_STEP_LATER QUARN_PARENS( __VA_ARGS__ ) )
#define QUARN_STEP_LATER() QUARN_STEP
#define QUARN_AGAIN( ... ) QUARN_AGAIN3( QUARN_AGAIN3( QUARN_AGAIN3( __VA_ARGS__ ) ) )
#define QUARN_AGAIN3( ... ) QUARN_AGAIN2( QUARN_AGAIN2( QUARN_AGAIN2( __VA_ARGS__ ) ) )
#define QUARN_AGAIN2( ... ) QUARN_AGAIN1( QUARN_AGAIN1( QUARN_AGAIN1( __VA_ARGS__ ) ) )
#define QUARN_AGAIN1( ... ) __VA_ARGS__
