#pragma once
// Interface identifiers: a type and up to three numbers, and a sub-interface number behind a dot.
//
//    "Ethernet3"  "Ethernet3/1/2"  "Ethernet3/1.100"  "Port-Channel10"  "Port-Channel10.5"
//    "Vlan10"  "Tunnel1"  "Recirc-Channel1"  "InternalRecirc1"  "Cpu"  ""
//
// 1. An identifier is one 64-bit number: copying, comparing and hashing it cost as much.
// 2. Order: the null identifier, then by type, then by the numbers (Ethernet9 < Ethernet10,
//    Ethernet3 < Ethernet3.1 < Ethernet3/1).
// 3. A name has exactly one spelling: no leading zeros, capitals as shown.
// 4. A sub-interface is a kind of its own: Ethernet3.100 is no Ethernet interface and
//    Port-Channel10.5 no port-channel; SubIntfId::parent() leads back to them.

#include <compare>

#include "platform/Velto/Types.h"

namespace Ulnet {

/** What the part of a name before the numbers says. Sub-interfaces have their parent's. */
enum class IntfType : U8 {
   none = 0,
   ethernet = 1,
   portChannel = 2,
   recircChannel = 3,
   vlan = 4,
   tunnel = 5,
   loopback = 6,
   management = 7,
   cpu = 8,
   internalRecirc = 9,
   vxlan = 10,
   internal = 109, ///< ports inside the switch that carry access lists like outside ones
};

class IntfId {
 public:
   /** The null identifier; its name is empty. */
   constexpr IntfId() = default;
   /** Raises Velto::RangeError for a text that names no interface. */
   explicit IntfId( const Velto::String & name );
   /** Ranges: 2^20 - 1, 1023 and 127 for the numbers, 2^18 - 1 for the sub-interface; 0 for `sub`
       is none. Raises Velto::RangeError for numbers that the type does not have. */
   IntfId( IntfType type, U32 count, U32 first, U32 second, U32 third, U32 sub );

   bool isNull() const { return bits_ == 0; }
   explicit operator bool() const { return bits_ != 0; }
   bool operator==( const IntfId & ) const = default;
   auto operator<=>( const IntfId & ) const = default;
   U64 hash() const { return bits_; }
   Velto::String stringValue() const;

   IntfType type() const { return IntfType( bits_ >> 57 ); }
   /** How many numbers stand before the dot. */
   U32 count() const { return bits_ & 3; }
   /** Number `i` of those before the dot, from 0; 0 where there is none. */
   U32 number( U32 i ) const;
   /** The number behind the dot; 0 is none. */
   U32 sub() const { return U32( bits_ >> 2 ) & 0x3ffff; }

 private:
   U64 bits_ = 0; // type 7, numbers 20, 10 and 7, sub-interface 18, count 2
};

struct GenericIntfId {
   /** How many numbers the identifier has, the one behind the dot included. */
   static U32 parts( IntfId id ) { return id.count() + ( id.sub() ? 1 : 0 ); }
   /** Number `i` of those, from 0. */
   static U32 part( IntfId id, U32 i );
   static U32 typeId( IntfId id ) { return U32( id.type() ); }
   static bool isGenericIntfId( IntfId id ) { return id.type() == IntfType::internal; }
};

struct SubIntfId {
   static bool isSubIntfId( IntfId id ) { return id.sub() != 0; }
   static U32 subId( IntfId id ) { return id.sub(); }
   /** The interface that carries this one; `id` itself when it is no sub-interface. */
   static IntfId parent( IntfId id ) { return id.sub() ? intfId( id, 0 ) : id; }
   static IntfId intfId( IntfId parent, U32 sub );
};

/** What the plain kinds have in common. */
template< IntfType kind >
struct PlainIntfId {
   static bool is( IntfId id ) { return id.type() == kind && id.sub() == 0; }
   static IntfId intfId( U32 number ) { return IntfId( kind, 1, number, 0, 0, 0 ); }
};

struct EthIntfId : PlainIntfId< IntfType::ethernet > {
   static bool isEthIntfId( IntfId id ) { return is( id ); }
};

struct PortChannelIntfId : PlainIntfId< IntfType::portChannel > {
   /** True for recirculation channels too. */
   static bool isPortChannelIntfId( IntfId id ) { return is( id ) || isRecirc( id ); }
   static bool isRecirc( IntfId id ) { return id.type() == IntfType::recircChannel; }
   static U32 portChannelNum( IntfId id ) { return id.number( 0 ); }
};

struct VlanIntfId : PlainIntfId< IntfType::vlan > {
   static bool isVlanIntfId( IntfId id ) { return is( id ); }
   static U32 vlanNum( IntfId id ) { return id.number( 0 ); }
};

struct TunnelIntfId : PlainIntfId< IntfType::tunnel > {
   static bool isTunnelIntfId( IntfId id ) { return is( id ); }
};

struct InternalRecircIntfId : PlainIntfId< IntfType::internalRecirc > {
   static bool isInternalRecircIntfId( IntfId id ) { return is( id ); }
};

struct CpuIntfId {
   static bool isCpuIntfId( IntfId id ) { return id.type() == IntfType::cpu; }
   static IntfId intfId() { return IntfId( IntfType::cpu, 0, 0, 0, 0, 0 ); }
};

} // namespace Ulnet
