#pragma once
// IP addresses and prefixes of either family.

#include <array>
#include <compare>

#include "platform/Kiv/Text.h"
#include "platform/Velto/Types.h"

namespace Ulnet {

enum class AddressFamily : U8 { none, ipv4, ipv6 };
KIV_ENUM( AddressFamily, none, ipv4, ipv6 )

/** An IPv4 address, an IPv6 address, or none (the default; its text is empty). IPv6 prints in its
    shortest form, in lower case. Ordered by family, then by the bytes. */
class IpGenAddr {
 public:
   using Bytes = std::array< U8, 16 >;

   IpGenAddr() = default;
   explicit IpGenAddr( const Velto::String & text );
   static IpGenAddr ipv4( U32 value );
   static IpGenAddr ipv6( const Bytes & bytes );

   AddressFamily family() const { return family_; }
   bool isNull() const { return family_ == AddressFamily::none; }
   bool isIpv4() const { return family_ == AddressFamily::ipv4; }
   bool isIpv6() const { return family_ == AddressFamily::ipv6; }
   /** 32, 128, or 0 for none. */
   U32 bitLength() const;
   /** In network order; an IPv4 address has four, the rest is zero. */
   const Bytes & bytes() const { return bytes_; }
   /** The address with all but its first `length` bits cleared. */
   IpGenAddr masked( U32 length ) const;

   bool operator==( const IpGenAddr & ) const = default;
   auto operator<=>( const IpGenAddr & ) const = default;
   U64 hash() const;
   Velto::String stringValue() const;

 private:
   AddressFamily family_ = AddressFamily::none;
   Bytes bytes_ = {};
};

/** An address block, "10.0.0.0/8", "2001:db8::/32"; none by default. The bits behind the length are
    cleared when it is made; a text without a length is one address. */
class IpGenPrefix {
 public:
   IpGenPrefix() = default;
   explicit IpGenPrefix( const Velto::String & text );
   /** Raises Velto::RangeError for a length that the family does not have. */
   IpGenPrefix( const IpGenAddr & address, U32 length );

   const IpGenAddr & address() const { return address_; }
   U32 length() const { return length_; }
   AddressFamily family() const { return address_.family(); }
   bool isNull() const { return address_.isNull(); }
   bool contains( const IpGenAddr & address ) const;
   /** The leading ones that the length stands for. */
   IpGenAddr mask() const;

   bool operator==( const IpGenPrefix & ) const = default;
   auto operator<=>( const IpGenPrefix & ) const = default;
   U64 hash() const;
   Velto::String stringValue() const;

 private:
   IpGenAddr address_;
   U8 length_ = 0;
};

} // namespace Ulnet
