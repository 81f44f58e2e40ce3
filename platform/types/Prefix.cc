#include "platform/types/Prefix.h"

#include <algorithm>

namespace Ulnet {

template< class F >
PrefixOf< F >::PrefixOf( const Bytes & bytes, U32 length )
    : bytes_( bytes ), length_( U8( length ) ) {
   if ( length > mostLength ) {
      throw Velto::RangeError( "prefix length " + Kiv::toText( length ) + " is more than " +
                               Kiv::toText( mostLength ) );
   }
   U32 at = length / 8;
   if ( length % 8 ) {
      bytes_[at++] &= U8( 0xff00u >> length % 8 );
   }
   std::fill( bytes_.begin() + at, bytes_.end(), U8( 0 ) );
}

template< class F >
PrefixOf< F >::PrefixOf( const IpGenPrefix & prefix ) : length_( U8( prefix.length() ) ) {
   if ( prefix.family() != family ) {
      Kiv::textRefused( F::expected, prefix.stringValue() );
   }
   std::copy_n( prefix.address().bytes().begin(), bytes_.size(), bytes_.begin() );
}

template< class F >
PrefixOf< F >::PrefixOf( const Velto::String & text ) : PrefixOf( IpGenPrefix( text ) ) {}

template< class F >
IpGenPrefix
PrefixOf< F >::genPrefix() const {
   if constexpr ( family == AddressFamily::ipv6 ) {
      return IpGenPrefix( IpGenAddr::ipv6( bytes_ ), length_ );
   } else {
      const U32 value =
            U32( bytes_[0] ) << 24 | U32( bytes_[1] ) << 16 | U32( bytes_[2] ) << 8 | bytes_[3];
      return IpGenPrefix( IpGenAddr::ipv4( value ), length_ );
   }
}

template class PrefixOf< Detail::Ipv4Block >;
template class PrefixOf< Detail::Ipv6Block >;

} // namespace Ulnet
