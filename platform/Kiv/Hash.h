#pragma once
// Hash values of keys, the same on every platform and in every build.
//
// hashOf() is cheap and may be weak (a number is its own hash); whoever places keys by hash, as
// Kiv::DenseMap does, passes it through mix() first.

#include <cstring>
#include <string_view>
#include <type_traits>

#include "platform/Velto/Node.h"
#include "platform/Velto/Types.h"

namespace Kiv {

/** Spreads every bit of `x` over the whole word; a bijection. */
constexpr U64
mix( U64 x ) {
   x ^= x >> 32;
   x *= 0xd6e8feb86659fd93ull;
   x ^= x >> 32;
   x *= 0xd6e8feb86659fd93ull;
   x ^= x >> 32;
   return x;
}

/** The hash of two hashes, in order. */
constexpr U64
hashCombine( U64 a, U64 b ) {
   return mix( a + 0x9e3779b97f4a7c15ull ) ^ ( b * 0xff51afd7ed558ccdull );
}

/** The hash of `length` bytes. Words are put together byte by byte, so that the order of bytes in
    the machine's words does not matter. */
inline U64
hashBytes( const char * bytes, U32 length ) {
   auto word = [bytes]( U32 at, U32 n ) {
      U64 w = 0;
      for ( U32 i = 0; i < n; ++i ) {
         w |= U64( U8( bytes[at + i] ) ) << ( 8 * i );
      }
      return w;
   };
   U64 h = length * 0x9e3779b97f4a7c15ull;
   U32 at = 0;
   for ( ; length - at >= 8; at += 8 ) {
      h = ( h ^ word( at, 8 ) ) * 0xff51afd7ed558ccdull;
      h ^= h >> 32;
   }
   h = ( h ^ word( at, length - at ) ) * 0xff51afd7ed558ccdull;
   return h ^ h >> 32;
}

namespace Detail {
template< class T >
concept Optional = requires( const T & v ) {
   typename T::value_type;
   v.has_value();
   *v;
};
} // namespace Detail

/** The hash of a key: a number, enumerator or bool is its own; a string by its bytes; a pointer
    by the address; everything else by its member `U64 hash() const`. */
template< class T >
inline U64
hashOf( const T & v ) {
   if constexpr ( std::is_enum_v< T > || std::is_integral_v< T > ) {
      return static_cast< U64 >( v );
   } else if constexpr ( std::is_floating_point_v< T > ) {
      double number = v == 0 ? 0 : v; // -0.0 equals 0.0
      U64 bits;
      std::memcpy( &bits, &number, sizeof( bits ) );
      return bits;
   } else if constexpr ( Detail::Optional< T > ) {
      return v.has_value() ? hashCombine( 1, hashOf( *v ) ) : 0;
   } else if constexpr ( std::is_convertible_v< const T &, std::string_view > ) {
      std::string_view s( v );
      return hashBytes( s.data(), U32( s.size() ) );
   } else if constexpr ( std::is_pointer_v< T > ) {
      return U64( reinterpret_cast< std::uintptr_t >( v ) );
   } else {
      return v.hash();
   }
}

template< class T >
inline U64
hashOf( const Velto::Ptr< T > & p ) {
   return hashOf( p.ptr() );
}

/** The hash of several parts of a key, in order. */
template< class A, class B, class... More >
inline U64
hashOf( const A & a, const B & b, const More &... more ) {
   U64 h = hashCombine( hashOf( a ), hashOf( b ) );
   ( ( h = hashCombine( h, hashOf( more ) ) ), ... );
   return h;
}

} // namespace Kiv
