#pragma once
// Blocks of IPv4 and of IPv6 addresses, each as small as it can be: for tables that hold a million.
// Ulnet::IpGenPrefix is for those that hold either kind.
//
// The bits behind the length are cleared when a block is made, so that equal blocks look alike, and a
// length of 0 is always the default route. That is also what the default constructor makes.

#include "platform/types/IpAddr.h"

namespace Ulnet {

namespace Detail {
struct Ipv4Block {
   static constexpr AddressFamily family = AddressFamily::ipv4;
   static constexpr U32 mostLength = 32;
   static constexpr const char * expected = "an IPv4 block such as 10.0.0.0/8";
   using Bytes = std::array< U8, 4 >;
};
struct Ipv6Block {
   static constexpr AddressFamily family = AddressFamily::ipv6;
   static constexpr U32 mostLength = 128;
   static constexpr const char * expected = "an IPv6 block such as 2001:db8::/32";
   using Bytes = std::array< U8, 16 >;
};
} // namespace Detail

/** A block of one family; its address is in network order. Ordered by address, then by length. */
template< class F >
class PrefixOf {
 public:
   using Bytes = typename F::Bytes;
   static constexpr AddressFamily family = F::family;
   static constexpr U32 mostLength = F::mostLength;

   PrefixOf() = default;
   /** Raises Velto::RangeError for a length that the family does not have. */
   PrefixOf( const Bytes & bytes, U32 length );
   /** Raises Velto::RangeError for one of the other family. */
   explicit PrefixOf( const IpGenPrefix & prefix );
   explicit PrefixOf( const Velto::String & text );

   const Bytes & bytes() const { return bytes_; }
   U32 length() const { return length_; }
   bool isDefaultRoute() const { return length_ == 0; }
   IpGenPrefix genPrefix() const;

   bool operator==( const PrefixOf & ) const = default;
   auto operator<=>( const PrefixOf & ) const = default;
   U64 hash() const { return Kiv::hashBytes( chars(), U32( bytes_.size() ) ) + length_; }
   Velto::String stringValue() const { return genPrefix().stringValue(); }

 private:
   const char * chars() const { return reinterpret_cast< const char * >( bytes_.data() ); }

   Bytes bytes_ = {};
   U8 length_ = 0;
};

using Prefix = PrefixOf< Detail::Ipv4Block >;
using Ip6Prefix = PrefixOf< Detail::Ipv6Block >;
extern template class PrefixOf< Detail::Ipv4Block >;
extern template class PrefixOf< Detail::Ipv6Block >;

} // namespace Ulnet
