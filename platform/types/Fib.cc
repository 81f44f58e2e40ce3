#include "platform/types/Fib.h"

#include <algorithm>

namespace Quarn::Fib {

static_assert( Plain< RouteKey > && Plain< Route > && Plain< FecKey > && Plain< Fec > &&
               Plain< ViaKey > && Plain< Via > );

Address::Address( const Ulnet::IpGenAddr & address ) {
   std::copy( address.bytes().begin(), address.bytes().end(), bytes );
}

Ulnet::IpGenAddr
Address::genAddr( Ulnet::AddressFamily family ) const {
   if ( family == Ulnet::AddressFamily::ipv4 ) {
      return Ulnet::IpGenAddr::ipv4( U32( bytes[0] ) << 24 | U32( bytes[1] ) << 16 |
                                     U32( bytes[2] ) << 8 | bytes[3] );
   }
   if ( family != Ulnet::AddressFamily::ipv6 ) {
      return Ulnet::IpGenAddr();
   }
   Ulnet::IpGenAddr::Bytes all;
   std::copy( std::begin( bytes ), std::end( bytes ), all.begin() );
   return Ulnet::IpGenAddr::ipv6( all );
}

RouteKey::RouteKey( Qon::VrfId vrfId, const Ulnet::IpGenPrefix & prefix )
    : vrf( vrfId.value() ), family( prefix.family() ), length( U8( prefix.length() ) ),
      address( prefix.address() ) {}

Ulnet::IpGenPrefix
RouteKey::prefix() const {
   return Ulnet::IpGenPrefix( address.genAddr( family ), length );
}

Intf::Intf( Ulnet::IntfId intf )
    : first( intf.number( 0 ) ), sub( intf.sub() ), second( U16( intf.number( 1 ) ) ),
      third( U8( intf.number( 2 ) ) ), count( U8( intf.count() ) ), type( intf.type() ) {}

Ulnet::IntfId
Intf::intfId() const {
   return type == Ulnet::IntfType::none ? Ulnet::IntfId()
                                        : Ulnet::IntfId( type, count, first, second, third, sub );
}

} // namespace Quarn::Fib
