#pragma once
// Packets and frames as they are typed: "dmac=02:11:22:00:00:01,vlan=10,src=10.0.0.1,dport=80".
//
// What is not named is zero, or not there.

#include "chip/AclPart.h"

namespace QonAgent {

using Velto::String;

constexpr char packetForm[] = "src=10.0.0.1,dst=10.0.0.2,protocol=6,sport=1024,dport=80";

/** A field of a text: "dport" and "80". */
struct PacketField {
   String name;
   String value;
};
std::vector< PacketField > packetFields( const String & text );

/** Raises Velto::RangeError "WHAT: dport: expected ..., found 'x'". */
template< class T >
T
valueOf( const char * what, const PacketField & field ) {
   try {
      return Kiv::fromText< T >( field.value );
   } catch ( const Velto::RangeError & e ) {
      throw Velto::RangeError( String( what ) + ": " + field.name + ": " + e.what() );
   }
}

/** Sets a field of a packet; false: it has none of that name. Raises Velto::RangeError. */
bool setField( QonChip::AclPacket & packet, const PacketField & field );

std::vector< String > packetFieldNames();

/** Raises Velto::RangeError. */
QonChip::AclPacket packetOf( const String & text );

} // namespace QonAgent
