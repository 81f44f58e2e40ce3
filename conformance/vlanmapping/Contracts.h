#pragma once
// What a chip promises of VLAN mapping, first generation. An id, once given, keeps its meaning.

#include "conformance/Feature.h"

namespace QonConformance::Vlanmapping {

inline constexpr Contract held{
      "vlanmapping.held",
      "A translation that is answered with success is in the chip, on that port and in that "
      "direction, and no other is." };
inline constexpr Contract latest{
      "vlanmapping.latest",
      "Of several additions and updates of a key the mapping of the last one holds." };
inline constexpr Contract removed{
      "vlanmapping.removed",
      "A translation that is removed is gone on return; removing what is not there does nothing." };
inline constexpr Contract full{
      "vlanmapping.full",
      "A chip that has no room says full, and keeps what it has; room that becomes free is used." };
inline constexpr Contract answered{ "vlanmapping.answered",
                                    "What is handed over is answered in the status directory." };
inline constexpr Contract destructor{
      "vlanmapping.destructor",
      "Destruction of the state machine calls nothing and changes nothing." };
inline constexpr Contract successor{
      "vlanmapping.successor", "A second state machine, made when the first is gone, finds the "
                               "translations as they were." };
inline constexpr Contract random{
      "vlanmapping.random",
      "A random history of wishes of both sources and of members ends in what their owners want." };

inline constexpr const Contract * contracts[] = { &held,     &latest,     &removed,   &full,
                                                  &answered, &destructor, &successor, &random };

} // namespace QonConformance::Vlanmapping
