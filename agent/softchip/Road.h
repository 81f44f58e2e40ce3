#pragma once
// The road of a frame through the chip in software: what becomes of it, and why.
//
//    Frame -> the stages of Stages.h, one after the other: each drops it, or says what it did
//          -> for each interface that was chosen, the stages of ports -> a copy that leaves, or not
//
// A stage reads the frame as it is by now and the chip's tables: never the configuration, and never
// a state machine. It changes no table: what a frame teaches is no business of the road.

#include <vector>

#include "chip/AclPart.h"
#include "platform/types/Bridging.h"

namespace SoftChip {

using QonChip::AclPacket;
using Ulnet::IntfId;
using Velto::String;

class Chip;

/** The first tags of a frame; the inner one is none if the outer one is. */
struct Tags {
   Bridging::VlanIdOrNone outer, inner;
   /** Without an outer tag, the inner one is the outer one. */
   Tags onTheWire() const { return outer.isNone() ? Tags{ inner, {} } : *this; }
   bool operator==( const Tags & ) const = default;
};
/** "without a tag", "with tag 10", "with tags 10 and 20". */
String shown( const Tags & tags );

/** A frame that arrives. */
struct Frame {
   Frame() = default;
   Frame( IntfId at, Ulnet::EthAddr destination, Ulnet::EthAddr source,
          Bridging::VlanIdOrNone vlan ) {
      port = at;
      packet.ethDst = destination;
      packet.ethSrc = source;
      tags.outer = vlan;
   }

   IntfId port;
   AclPacket packet;
   Tags tags;
   U8 priority = 0; ///< 0 to 7: the traffic class
};

/** A copy that leaves; by interface "Cpu" if it goes to the processor. */
struct Copy {
   IntfId port;
   Tags tags;
   std::vector< String > changes; ///< what else of it is not as it arrived, in words
   bool operator==( const Copy & ) const = default;
};

/** What became of a frame. */
struct Passage {
   struct Step {
      String stage;
      String what;
   };
   std::vector< Step > steps;
   std::vector< Copy > copies;
};

/** A frame on its road. */
struct Travel {
   Frame frame;
   IntfId intf; ///< where it came in: the port, or the aggregate that it is a member of
   Tags tags;   ///< as it is by now; the outer one is its VLAN, once it has one
   bool flooded = false;
   std::vector< IntfId > targets; ///< ports and aggregates that it shall leave by
   std::vector< Copy > aside;     ///< copies that leave, whatever becomes of the frame

   Bridging::VlanIdOrNone vlan() const { return tags.outer; }
};

/** A copy of it on its way to one target. */
struct Way {
   IntfId target;
   Copy copy;                 ///< its port is the target until a member of it is chosen
   std::vector< Copy > aside; ///< copies that leave, whatever becomes of this one
};

/** What a stage came to. */
struct Verdict {
   bool goesOn;
   String what;
};

} // namespace SoftChip
