#pragma once
// The forwarding table as routing agents write it into shared memory, and forwarding agents read it.
//
//    "route"  RouteKey { VRF, family, prefix, length } -> Route { FEC id, priority }
//    "fec"    FecKey { FEC id }                        -> Fec { type, vias, version, flags }
//    "via"    ViaKey { FEC id, index }                 -> Via { next hop, interface, weight, version }
//
// Invariants
// 1. The writer writes the vias of a FEC, then the FEC, then deletes the vias behind its last one. All
//    have the FEC's version, which comes from one counter of the writer for all FECs and is never used
//    twice while it runs.
// 2. A reader that finds a via missing, or of another version than the FEC's, keeps what it had: a
//    change of the FEC or of one of its vias is still to come.
// 3. A route may be there before its FEC.

#include "platform/Quarn/Layout.h"
#include "platform/types/IntfId.h"
#include "platform/types/IpAddr.h"
#include "platform/types/Routing.h"
#include "platform/types/VrfId.h"

namespace Quarn::Fib {

/** Names of the tables. */
constexpr const char * routeTable = "route";
constexpr const char * fecTable = "fec";
constexpr const char * viaTable = "via";

/** An address of either family; the bytes that its family does not have are zero. */
struct Address {
   U8 bytes[16] = {};

   Address() = default;
   explicit Address( const Ulnet::IpGenAddr & address );
   Ulnet::IpGenAddr genAddr( Ulnet::AddressFamily family ) const;
   bool operator==( const Address & ) const = default;
};
QUARN_LAYOUT( Address, bytes )

struct RouteKey {
   U32 vrf = 0;
   Ulnet::AddressFamily family = Ulnet::AddressFamily::none;
   U8 length = 0;
   U16 spare = 0;
   Address address;

   RouteKey() = default;
   RouteKey( Qon::VrfId vrf, const Ulnet::IpGenPrefix & prefix );
   Qon::VrfId vrfId() const { return Qon::VrfId( vrf ); }
   /** Raises Velto::RangeError for a length that the family does not have. */
   Ulnet::IpGenPrefix prefix() const;
   bool operator==( const RouteKey & ) const = default;
};
QUARN_LAYOUT( RouteKey, vrf, family, length, spare, address )

struct Route {
   U64 fec = 0;
   U32 priority = 0;
   U32 spare = 0;

   GlobalFecId fecId() const { return GlobalFecId( fec ); }
   bool operator==( const Route & ) const = default;
};
QUARN_LAYOUT( Route, fec, priority, spare )

struct FecKey {
   U64 fec = 0;

   FecKey() = default;
   explicit FecKey( GlobalFecId id ) : fec( id.value() ) {}
   GlobalFecId fecId() const { return GlobalFecId( fec ); }
   bool operator==( const FecKey & ) const = default;
};
QUARN_LAYOUT( FecKey, fec )

enum class FecType : U32 { unset, forward, drop, local, nextHopGroup };
KIV_ENUM( FecType, unset, forward, drop, local, nextHopGroup )

struct Fec {
   FecType type = FecType::unset;
   U32 vias = 0; ///< how many: indexes 0 to vias - 1
   U32 version = 0;
   U32 flags = 0;

   bool operator==( const Fec & ) const = default;
};
QUARN_LAYOUT( Fec, type, vias, version, flags )

struct ViaKey {
   U64 fec = 0;
   U32 index = 0;
   U32 spare = 0;

   ViaKey() = default;
   ViaKey( GlobalFecId id, U32 i ) : fec( id.value() ), index( i ) {}
   GlobalFecId fecId() const { return GlobalFecId( fec ); }
   bool operator==( const ViaKey & ) const = default;
};
QUARN_LAYOUT( ViaKey, fec, index, spare )

/** An interface, by the parts of its name. */
struct Intf {
   U32 first = 0;
   U32 sub = 0;
   U16 second = 0;
   U8 third = 0;
   U8 count = 0;
   Ulnet::IntfType type = Ulnet::IntfType::none;
   U8 spare[3] = {};

   Intf() = default;
   explicit Intf( Ulnet::IntfId intf );
   /** Raises Velto::RangeError for numbers that its type does not have. */
   Ulnet::IntfId intfId() const;
   bool operator==( const Intf & ) const = default;
};
QUARN_LAYOUT( Intf, first, sub, second, third, count, type, spare )

struct Via {
   Address nextHop;
   Intf intf;
   Ulnet::AddressFamily family = Ulnet::AddressFamily::none; ///< of the next hop; none: attached
   U8 labels = 0;                                            ///< how many are pushed
   U16 spare = 0;
   U32 label[3] = {}; ///< the outermost first
   U32 weight = 1;
   U32 version = 0; ///< the FEC's

   static constexpr U32 mostLabels = 3;
   Ulnet::IpGenAddr nextHopAddr() const { return nextHop.genAddr( family ); }
   bool operator==( const Via & ) const = default;
};
QUARN_LAYOUT( Via, nextHop, intf, family, labels, spare, label, weight, version )

} // namespace Quarn::Fib
