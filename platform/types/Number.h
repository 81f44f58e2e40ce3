#pragma once
// Numbers that must not be mistaken for one another.

#include <compare>

#include "platform/Kiv/Text.h"
#include "platform/Velto/Types.h"

namespace Kiv {

/** A number with a meaning of its own: `using FecId = Kiv::Number< struct FecIdTag, U64 >`. */
template< class Tag, class N >
class Number {
 public:
   constexpr Number() = default;
   constexpr explicit Number( N value ) : value_( value ) {}
   explicit Number( const Velto::String & text ) : value_( fromText< N >( text ) ) {}

   constexpr N value() const { return value_; }
   bool operator==( const Number & ) const = default;
   auto operator<=>( const Number & ) const = default;
   U64 hash() const { return U64( value_ ); }
   Velto::String stringValue() const { return toText( value_ ); }

 private:
   N value_ = 0;
};

/** A version: 63 bits of number, and a flag in the top bit. Ordered by the number, then by the
    flag, so that flagged 5 comes before plain 6. Its text is the whole 64-bit number. */
template< class Tag >
class VersionId {
 public:
   constexpr VersionId() = default;
   constexpr explicit VersionId( U64 raw ) : raw_( raw ) {}
   constexpr VersionId( U64 value, bool flag )
       : raw_( ( value & ~topBit ) | ( flag ? topBit : 0 ) ) {}
   explicit VersionId( const Velto::String & text ) : raw_( fromText< U64 >( text ) ) {}

   constexpr U64 raw() const { return raw_; }
   constexpr U64 value() const { return raw_ & ~topBit; }
   constexpr bool flag() const { return raw_ & topBit; }

   bool operator==( const VersionId & ) const = default;
   std::strong_ordering operator<=>( const VersionId & other ) const {
      auto byValue = value() <=> other.value();
      return byValue != 0 ? byValue : flag() <=> other.flag();
   }
   U64 hash() const { return raw_; }
   Velto::String stringValue() const { return toText( raw_ ); }

 private:
   static constexpr U64 topBit = U64( 1 ) << 63;
   U64 raw_ = 0;
};

} // namespace Kiv
