#include "agent/features/FrameFields.h"

namespace QonAgent {

using Bridging::VlanIdOrNone;
using SoftChip::Frame;
using Velto::RangeError;

namespace {

constexpr char frameText[] = "frame";
constexpr U16 ipv4Type = 0x0800, ipv6Type = 0x86dd;

VlanIdOrNone
vlanOf( const PacketField & field ) {
   return valueOf< Bridging::VlanId >( frameText, field );
}

U8
hexDigit( char c, std::size_t at ) {
   const U8 lower = U8( c | 0x20 );
   if ( ( c < '0' || c > '9' ) && ( lower < 'a' || lower > 'f' ) ) {
      throw RangeError( "frame: bytes: expected hexadecimal digits, found '" + String( 1, c ) +
                        "' at " + Kiv::toText( at ) );
   }
   return U8( c <= '9' ? c - '0' : lower - 'a' + 10 );
}

std::vector< U8 >
octetsOf( const String & text ) {
   if ( text.size() % 2 ) {
      throw RangeError( "frame: bytes: expected two digits for each, found " +
                        Kiv::toText( text.size() ) + " digits" );
   }
   std::vector< U8 > octets;
   for ( std::size_t i = 0; i < text.size(); i += 2 ) {
      octets.push_back( U8( hexDigit( text[i], i ) << 4 | hexDigit( text[i + 1], i + 1 ) ) );
   }
   return octets;
}

void
setField( Frame & frame, const PacketField & field ) {
   if ( field.name == "vlan" ) {
      frame.tags.outer = vlanOf( field );
   } else if ( field.name == "inner" ) {
      frame.tags.inner = vlanOf( field );
   } else if ( field.name == "priority" ) {
      frame.priority = valueOf< U8 >( frameText, field );
   } else if ( !setField( frame.packet, field ) ) {
      throw RangeError( "frame: no field '" + field.name + "'; expected, for example, " +
                        frameForm );
   }
}

/** What fields cannot say together. */
void
check( const Frame & frame ) {
   if ( frame.tags.outer.isNone() && !frame.tags.inner.isNone() ) {
      throw RangeError( "frame: inner: a frame without a tag has no inner one" );
   }
   if ( frame.priority > 7 ) {
      throw RangeError( "frame: priority: expected 0 to 7, found " +
                        Kiv::toText( frame.priority ) );
   }
   const auto & packet = frame.packet;
   if ( !packet.src.isNull() && !packet.dst.isNull() &&
        packet.src.family() != packet.dst.family() ) {
      throw RangeError( "frame: dst: expected an address of the family of src, found " +
                        packet.dst.stringValue() );
   }
}

/** The octets of a frame, as far as they were read. */
class Octets {
 public:
   explicit Octets( const std::vector< U8 > & all ) : all_( all ) {}

   /** The next header, of so many octets, is read from here. */
   void begin( const char * header, std::size_t size ) {
      at_ += header_;
      header_ = size;
      if ( all_.size() - at_ < size ) {
         throw RangeError( "frame: ends in the " + String( header ) + ": expected " +
                           Kiv::toText( size ) + " octets from " + Kiv::toText( at_ ) +
                           " on, found " + Kiv::toText( all_.size() - at_ ) );
      }
   }
   /** It is longer than it seemed. */
   void extend( const char * header, std::size_t size ) {
      header_ = 0;
      begin( header, size );
   }
   U8 octet( std::size_t i ) const { return all_[at_ + i]; }
   U16 number( std::size_t i ) const { return U16( octet( i ) << 8 | octet( i + 1 ) ); }
   U64 address( std::size_t i ) const {
      return U64( number( i ) ) << 32 | U64( number( i + 2 ) ) << 16 | number( i + 4 );
   }

 private:
   const std::vector< U8 > & all_;
   std::size_t at_ = 0, header_ = 0;
};

/** Ports, flags, type and code: what lists look at behind the IP header. */
void
readPayload( Octets & octets, QonChip::AclPacket & packet ) {
   constexpr U8 icmp = 1, tcp = 6, udp = 17, icmpv6 = 58, sctp = 132;
   if ( packet.fragment ) {
      return;
   }
   if ( packet.protocol == tcp || packet.protocol == udp || packet.protocol == sctp ) {
      octets.begin( "ports", packet.protocol == tcp ? 14 : 4 );
      packet.srcPort = octets.number( 0 );
      packet.dstPort = octets.number( 2 );
      packet.tcpFlags = packet.protocol == tcp ? octets.octet( 13 ) : U8( 0 );
   } else if ( packet.protocol == ( packet.src.isIpv4() ? icmp : icmpv6 ) ) {
      octets.begin( "ICMP header", 2 );
      packet.icmpType = octets.octet( 0 );
      packet.icmpCode = octets.octet( 1 );
   }
}

void
readIpv4( Octets & octets, QonChip::AclPacket & packet ) {
   octets.begin( "IPv4 header", 20 );
   const U8 words = octets.octet( 0 ) & 15;
   if ( octets.octet( 0 ) >> 4 != 4 || words < 5 ) {
      throw RangeError( "frame: expected an IPv4 header of at least 5 words, found " +
                        Kiv::toText( octets.octet( 0 ) >> 4 ) + ", " + Kiv::toText( words ) +
                        " words" );
   }
   octets.extend( "IPv4 header", 4u * words );
   packet.src = Ulnet::IpGenAddr::ipv4( U32( octets.number( 12 ) ) << 16 | octets.number( 14 ) );
   packet.dst = Ulnet::IpGenAddr::ipv4( U32( octets.number( 16 ) ) << 16 | octets.number( 18 ) );
   packet.protocol = octets.octet( 9 );
   packet.fragment = octets.number( 6 ) & 0x1fff;
   readPayload( octets, packet );
}

Ulnet::IpGenAddr
ipv6Address( const Octets & octets, std::size_t at ) {
   Ulnet::IpGenAddr::Bytes bytes;
   for ( std::size_t i = 0; i < bytes.size(); ++i ) {
      bytes[i] = octets.octet( at + i );
   }
   return Ulnet::IpGenAddr::ipv6( bytes );
}

/** Headers between the IPv6 header and the protocol are passed over. */
void
readIpv6( Octets & octets, QonChip::AclPacket & packet ) {
   constexpr U8 hopByHop = 0, routing = 43, fragment = 44, destination = 60;
   octets.begin( "IPv6 header", 40 );
   packet.src = ipv6Address( octets, 8 );
   packet.dst = ipv6Address( octets, 24 );
   U8 next = octets.octet( 6 );
   while ( !packet.fragment &&
           ( next == hopByHop || next == routing || next == fragment || next == destination ) ) {
      const bool whole = next != fragment;
      octets.begin( "IPv6 extension header", 8 );
      next = octets.octet( 0 );
      packet.fragment = !whole && ( octets.number( 2 ) & 0xfff8 );
      if ( whole ) {
         octets.extend( "IPv6 extension header", 8 + 8u * octets.octet( 1 ) );
      }
   }
   packet.protocol = next;
   readPayload( octets, packet );
}

/** The first two tags; further ones are what follows. A tag of VLAN 0 says the priority alone. */
U16
readTags( Octets & octets, Frame & frame ) {
   U16 type = octets.number( 12 );
   for ( U32 tags = 0; ( type == 0x8100 || type == 0x88a8 || type == 0x9100 ) && tags < 2;
         ++tags ) {
      octets.begin( "VLAN tag", 4 );
      type = octets.number( 2 );
      const U16 vlan = octets.number( 0 ) & 0xfff;
      frame.priority = tags == 0 ? U8( octets.number( 0 ) >> 13 ) : frame.priority;
      if ( vlan == 0xfff ) {
         throw RangeError( "frame: VLAN tag: expected a VLAN up to 4094, found 4095" );
      }
      ( frame.tags.outer.isNone() ? frame.tags.outer : frame.tags.inner ) =
            VlanIdOrNone( U32( vlan ) );
   }
   return type;
}

} // namespace

std::vector< String >
frameFieldNames() {
   auto names = packetFieldNames();
   names.insert( names.end(), { "vlan", "inner", "priority", "bytes" } );
   return names;
}

Frame
frameOf( Ulnet::IntfId port, const String & text ) {
   const auto fields = packetFields( text );
   if ( fields.size() == 1 && fields[0].name == "bytes" ) {
      return wireFrame( port, octetsOf( fields[0].value ) );
   }
   Frame frame;
   frame.port = port;
   for ( auto & field : fields ) {
      setField( frame, field );
   }
   check( frame );
   auto & packet = frame.packet;
   if ( packet.etherType == 0 && !packet.src.isNull() ) {
      packet.etherType = packet.src.isIpv4() ? ipv4Type : ipv6Type;
   }
   return frame;
}

Frame
wireFrame( Ulnet::IntfId port, const std::vector< U8 > & bytes ) {
   Octets octets( bytes );
   octets.begin( "Ethernet header", 14 );
   Frame frame( port, Ulnet::EthAddr( octets.address( 0 ) ), Ulnet::EthAddr( octets.address( 6 ) ),
                {} );
   frame.packet.etherType = readTags( octets, frame );
   if ( frame.packet.etherType == ipv4Type ) {
      readIpv4( octets, frame.packet );
   } else if ( frame.packet.etherType == ipv6Type ) {
      readIpv6( octets, frame.packet );
   }
   return frame;
}

} // namespace QonAgent
