#include "platform/types/IpAddr.h"

#include <arpa/inet.h>
#include <cstring>

#include "platform/Kiv/Text.h"

namespace Ulnet {

IpGenAddr::IpGenAddr( const Velto::String & text ) {
   bool terminated = text.find( '\0' ) == Velto::String::npos;
   if ( terminated && inet_pton( AF_INET, text.c_str(), bytes_.data() ) == 1 ) {
      family_ = AddressFamily::ipv4;
   } else if ( terminated && inet_pton( AF_INET6, text.c_str(), bytes_.data() ) == 1 ) {
      family_ = AddressFamily::ipv6;
   } else if ( !text.empty() ) {
      Kiv::textRefused( "an IPv4 or IPv6 address", text );
   }
}

IpGenAddr
IpGenAddr::ipv4( U32 value ) {
   IpGenAddr address;
   address.family_ = AddressFamily::ipv4;
   for ( U32 i = 0; i < 4; ++i ) {
      address.bytes_[i] = U8( value >> ( 24 - 8 * i ) );
   }
   return address;
}

IpGenAddr
IpGenAddr::ipv6( const Bytes & bytes ) {
   IpGenAddr address;
   address.family_ = AddressFamily::ipv6;
   address.bytes_ = bytes;
   return address;
}

U32
IpGenAddr::bitLength() const {
   return isIpv6() ? 128 : isIpv4() ? 32 : 0;
}

IpGenAddr
IpGenAddr::masked( U32 length ) const {
   IpGenAddr address = *this;
   for ( U32 bit = length; bit < bitLength(); ++bit ) {
      address.bytes_[bit / 8] &= U8( ~( 0x80u >> bit % 8 ) );
   }
   return address;
}

U64
IpGenAddr::hash() const {
   U64 h = U64( family_ );
   for ( U32 i = 0; i < bytes_.size(); i += 8 ) {
      U64 part = 0;
      for ( U32 k = 0; k < 8; ++k ) {
         part = part << 8 | bytes_[i + k];
      }
      h = Kiv::hashJoin( h, part );
   }
   return h;
}

Velto::String
IpGenAddr::stringValue() const {
   if ( isNull() ) {
      return "";
   }
   char buffer[INET6_ADDRSTRLEN];
   inet_ntop( isIpv4() ? AF_INET : AF_INET6, bytes_.data(), buffer, sizeof( buffer ) );
   return buffer;
}

IpGenPrefix::IpGenPrefix( const Velto::String & text ) {
   if ( text.empty() ) {
      return;
   }
   Velto::String::size_type slash = text.find( '/' );
   try {
      IpGenAddr address( text.substr( 0, slash ) );
      U32 length = slash == Velto::String::npos ? address.bitLength()
                                                : Kiv::fromText< U32 >( text.substr( slash + 1 ) );
      *this = IpGenPrefix( address, length );
   } catch ( const Velto::RangeError & ) {
      Kiv::textRefused( "a prefix such as 10.0.0.0/8 or 2001:db8::/32", text );
   }
}

IpGenPrefix::IpGenPrefix( const IpGenAddr & address, U32 length )
    : address_( address.masked( length ) ), length_( U8( length ) ) {
   if ( address.isNull() || length > address.bitLength() ) {
      throw Velto::RangeError( "prefix length " + Kiv::toText( length ) +
                               " does not fit the address '" + address.stringValue() + "'" );
   }
}

bool
IpGenPrefix::contains( const IpGenAddr & address ) const {
   return !isNull() && address.masked( length_ ) == address_;
}

IpGenAddr
IpGenPrefix::mask() const {
   IpGenAddr::Bytes ones;
   ones.fill( 0xff );
   if ( isNull() ) {
      return IpGenAddr();
   }
   IpGenAddr all = address_.isIpv4() ? IpGenAddr::ipv4( ~0u ) : IpGenAddr::ipv6( ones );
   return all.masked( length_ );
}

U64
IpGenPrefix::hash() const {
   return Kiv::hashJoin( address_.hash(), length_ );
}

Velto::String
IpGenPrefix::stringValue() const {
   return isNull() ? "" : address_.stringValue() + "/" + Kiv::toText( length_ );
}

} // namespace Ulnet
