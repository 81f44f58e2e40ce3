#pragma once
// The road of a frame through the chip in software: what becomes of it, and why.
//
//    Frame -> the stages of Stages.h, one after the other: each drops it, or says what it did
//          -> for each interface that was chosen, the stages of ports -> a copy that leaves, or not
//
// A stage reads the frame as it is by now and the chip's tables: never the configuration, and never
// a state machine. It changes no table: what a frame teaches is no business of the road.

#include <vector>

#include "platform/types/Bridging.h"
#include "platform/types/Ulnet.h"

namespace SoftChip {

using Ulnet::IntfId;
using Velto::String;

class Chip;

/** A frame that arrives. */
struct Frame {
   IntfId port;
   Ulnet::EthAddr destination;
   Ulnet::EthAddr source;
   Bridging::VlanIdOrNone vlan; ///< of its tag; none: it has no tag
};

/** A copy that leaves. */
struct Copy {
   IntfId port;
   Bridging::VlanIdOrNone tag; ///< none: without a tag
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
   Bridging::VlanIdOrNone vlan;
   bool flooded = false;
   std::vector< IntfId > targets; ///< ports and aggregates that it shall leave by
   std::vector< Copy > mirrored;
};

/** A copy of it on its way to one target. */
struct Way {
   IntfId target;
   Copy copy; ///< its port is the target until a member of it is chosen
   std::vector< Copy > mirrored;
};

/** What a stage came to. */
struct Verdict {
   bool goesOn;
   String what;
};

} // namespace SoftChip
