#include "agent/features/PacketFields.h"

namespace QonAgent {

using QonChip::AclPacket;

namespace {

constexpr char packet[] = "packet";

/** How a field is read into a packet. */
struct Reader {
   const char * name;
   void ( *read )( AclPacket & packet, const PacketField & field );
};

template< auto member >
void
readInto( AclPacket & to, const PacketField & field ) {
   to.*member = valueOf< std::remove_reference_t< decltype( to.*member ) > >( packet, field );
}

constexpr Reader readers[] = {
      { "dmac", readInto< &AclPacket::ethDst > },
      { "smac", readInto< &AclPacket::ethSrc > },
      { "ethertype", readInto< &AclPacket::etherType > },
      { "src", readInto< &AclPacket::src > },
      { "dst", readInto< &AclPacket::dst > },
      { "protocol", readInto< &AclPacket::protocol > },
      { "sport", readInto< &AclPacket::srcPort > },
      { "dport", readInto< &AclPacket::dstPort > },
      { "flags", readInto< &AclPacket::tcpFlags > },
      { "icmp", readInto< &AclPacket::icmpType > },
      { "code", readInto< &AclPacket::icmpCode > },
      { "fragment",
        []( AclPacket & to, const PacketField & field ) {
           to.fragment = field.value.empty() || valueOf< bool >( packet, field );
        } },
};

} // namespace

std::vector< PacketField >
packetFields( const String & text ) {
   std::vector< PacketField > fields;
   for ( const String & part : text.empty() ? std::vector< String >() : Kiv::split( text, ',' ) ) {
      const auto sign = part.find( '=' );
      fields.push_back(
            { part.substr( 0, sign ), sign == String::npos ? "" : part.substr( sign + 1 ) } );
   }
   return fields;
}

bool
setField( AclPacket & packet, const PacketField & field ) {
   for ( auto & reader : readers ) {
      if ( field.name == reader.name ) {
         reader.read( packet, field );
         return true;
      }
   }
   return false;
}

std::vector< String >
packetFieldNames() {
   std::vector< String > names;
   for ( auto & reader : readers ) {
      names.push_back( reader.name );
   }
   return names;
}

AclPacket
packetOf( const String & text ) {
   AclPacket packet;
   for ( auto & field : packetFields( text ) ) {
      if ( !setField( packet, field ) ) {
         throw Velto::RangeError( "packet: no field '" + field.name + "'; expected, for example, " +
                                  packetForm );
      }
   }
   return packet;
}

} // namespace QonAgent
