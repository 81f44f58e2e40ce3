#pragma once
// VLANs, MAC entries and spanning-tree port states.

#include "platform/Kiv/Text.h"
#include "platform/types/EthAddr.h"

namespace Bridging {

/** A VLAN number, 1 to 4094; 1 by default. */
class VlanId {
 public:
   constexpr VlanId() = default;
   /** Raises Velto::RangeError outside the range. */
   explicit VlanId( U32 value );
   explicit VlanId( const Velto::String & text );

   constexpr U16 value() const { return value_; }
   constexpr operator U16() const { return value_; }
   bool operator==( const VlanId & ) const = default;
   auto operator<=>( const VlanId & ) const = default;
   U64 hash() const { return value_; }
   Velto::String stringValue() const;

 private:
   U16 value_ = 1;
};

/** A VLAN number, or 0 where there is none. Prints as the number; reads "None" too. */
class VlanIdOrNone {
 public:
   constexpr VlanIdOrNone() = default;
   constexpr VlanIdOrNone( VlanId vlan ) : value_( vlan ) {}
   /** Raises Velto::RangeError above 4094. */
   explicit VlanIdOrNone( U32 value );
   explicit VlanIdOrNone( const Velto::String & text );

   constexpr U16 value() const { return value_; }
   constexpr operator U16() const { return value_; }
   constexpr bool isNone() const { return value_ == 0; }
   bool operator==( const VlanIdOrNone & ) const = default;
   auto operator<=>( const VlanIdOrNone & ) const = default;
   U64 hash() const { return value_; }
   Velto::String stringValue() const;

 private:
   U16 value_ = 0;
};

/** The key of a MAC entry; eight bytes. */
class MacVlanPair {
   Ulnet::EthAddr mac_;
   VlanIdOrNone vlan_;
   KIV_VALUE( Bridging, MacVlanPair, mac, vlan )
};

/** How a MAC entry came to be, from the weakest to the strongest claim. */
enum class EntryType : U8 {
   unknown,
   learnedDynamic,
   learnedRemote,
   peerDynamic,
   evpnDynamic,
   configuredDynamic,
   authenticated,
   peerAuthenticated,
   peerStatic,
   configuredStatic,
   routerMac,
   drop,
};
KIV_ENUM( EntryType, unknown, learnedDynamic, learnedRemote, peerDynamic, evpnDynamic,
          configuredDynamic, authenticated, peerAuthenticated, peerStatic, configuredStatic,
          routerMac, drop )

} // namespace Bridging

namespace Bridging::Topology {

/** The spanning-tree state of a port. */
enum class PortState : U8 {
   disabled = 0,
   discarding = 1,
   learning = 2,
   forwarding = 3,
   blocking = 4
};
KIV_ENUM( PortState, disabled, discarding, learning, forwarding, blocking )

/** When and how often a port's wanted state changed; echoed back as it is. */
class TopoPortChangeInfo {
   U64 changeCount_ = 0;
   double changeTime_ = 0;
   KIV_VALUE( Bridging::Topology, TopoPortChangeInfo, changeCount, changeTime )
};

} // namespace Bridging::Topology
