#pragma once
// Encapsulations that the tunnel agents publish, and the kinds of the tunnel table.

#include "platform/Kiv/ValueKinds.h"
#include "platform/types/EthAddr.h"
#include "platform/types/IpAddr.h"
#include "platform/types/Number.h"

namespace Ulnet {

using MplsLabel = Kiv::Number< struct MplsLabelTag, U32 >;

enum class MplsOp : U8 { mplsNoOp, mplsPush, mplsSwap, mplsPop };
KIV_ENUM( MplsOp, mplsNoOp, mplsPush, mplsSwap, mplsPop )

/** What becomes of a packet's labels; the outermost label of the stack comes first. */
class MplsLabelOperation {
   MplsOp op_ = MplsOp::mplsNoOp;
   Kiv::ValueList< MplsLabel > labelStack_;
   KIV_VALUE( Ulnet, MplsLabelOperation, op, labelStack )
};

} // namespace Ulnet

namespace Srv6 {

/** A segment identifier. */
class GenSid {
   Ulnet::IpGenAddr sid_;
   KIV_VALUE( Srv6, GenSid, sid )
};

} // namespace Srv6

namespace Tunnel {

/** The kinds of encapsulation that the tunnel table knows, by its numbers. */
struct TunnelTable {
   enum class Type : U8 {
      none = 0,
      mplsEncap = 1,
      greEncap = 2,
      ipSecEncap = 3,
      vxlanEncap = 4,
      ipInIpEncap = 5,
      srv6TunnelEncap = 6,
      srv6SidEncap = 7,
      gueEncap = 8,
      dsfEncap = 9,
   };
   KIV_NESTED_ENUM( Type, none, mplsEncap, greEncap, ipSecEncap, vxlanEncap, ipInIpEncap,
                    srv6TunnelEncap, srv6SidEncap, gueEncap, dsfEncap )

   static constexpr Type none() { return Type::none; }
   static constexpr Type mplsEncap() { return Type::mplsEncap; }
   static constexpr Type greEncap() { return Type::greEncap; }
   static constexpr Type ipSecEncap() { return Type::ipSecEncap; }
   static constexpr Type vxlanEncap() { return Type::vxlanEncap; }
   static constexpr Type ipInIpEncap() { return Type::ipInIpEncap; }
   static constexpr Type srv6TunnelEncap() { return Type::srv6TunnelEncap; }
   static constexpr Type srv6SidEncap() { return Type::srv6SidEncap; }
   static constexpr Type gueEncap() { return Type::gueEncap; }
   static constexpr Type dsfEncap() { return Type::dsfEncap; }
};

class GreTunnelInfo {
   Ulnet::IpGenAddr src_;
   Ulnet::IpGenAddr dst_;
   U8 tos_ = 0;
   U8 ttl_ = 0;
   U32 key_ = 0; // 0: none
   KIV_VALUE( Tunnel, GreTunnelInfo, src, dst, tos, ttl, key )
};

class GueTunnelInfo {
   Ulnet::IpGenAddr src_;
   Ulnet::IpGenAddr dst_;
   U16 dstPort_ = 0;
   KIV_VALUE( Tunnel, GueTunnelInfo, src, dst, dstPort )
};

/** A port of another chip of the same fabric. */
class DsfTunnelInfo {
   U32 dstSystemPort_ = 0;
   KIV_VALUE( Tunnel, DsfTunnelInfo, dstSystemPort )
};

} // namespace Tunnel
