#pragma once
// Ethernet addresses.

#include <compare>

#include "platform/Kiv/Text.h"
#include "platform/Velto/Types.h"

namespace Ulnet {

/** A MAC address; six bytes, ordered as the number they make. Prints as "01:00:5e:00:00:01"; reads
    that in capitals too, with dashes, and as "0100.5e00.0001". */
class EthAddr {
 public:
   constexpr EthAddr() = default;
   explicit EthAddr( const Velto::String & text );
   /** The low 48 bits of `value`. */
   constexpr explicit EthAddr( U64 value )
       : high_( U16( value >> 32 ) ), middle_( U16( value >> 16 ) ), low_( U16( value ) ) {}

   static constexpr EthAddr allOnes() { return EthAddr( ~U64( 0 ) ); }

   U64 value() const { return U64( high_ ) << 32 | U64( middle_ ) << 16 | low_; }
   bool isZero() const { return *this == EthAddr(); }
   /** Group addresses; the broadcast address is one. */
   bool isMulticast() const { return high_ & 0x0100; }
   bool isBroadcast() const { return *this == allOnes(); }

   bool operator==( const EthAddr & ) const = default;
   auto operator<=>( const EthAddr & ) const = default;
   U64 hash() const { return value(); }
   Velto::String stringValue() const;

 private:
   U16 high_ = 0;
   U16 middle_ = 0;
   U16 low_ = 0;
};

/** The addresses that equal `addr` in the bits of `mask`. */
class EthAddrWithMask {
   EthAddr addr_;
   EthAddr mask_ = EthAddr::allOnes();
   KIV_VALUE( Ulnet, EthAddrWithMask, addr, mask )
};

} // namespace Ulnet
