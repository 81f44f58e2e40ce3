#pragma once
// What a chip promises of tap aggregation. An id, once given, keeps its meaning.

#include "conformance/Feature.h"

namespace QonConformance::Tapagg {

inline constexpr Contract group{
      "tapagg.group",
      "A group has an id that is not 0 and nobody else's, and the same while it is allocated." };
inline constexpr Contract full{ "tapagg.full",
                                "A name without room gets 0 and leaves nothing; a group that is "
                                "freed makes room for one." };
inline constexpr Contract ports{ "tapagg.ports",
                                 "Tap ports and tool ports are in the groups, and have the "
                                 "settings, that were told last." };
inline constexpr Contract roles{
      "tapagg.roles", "What a port is as a tap port changes nothing of it as a tool port." };
inline constexpr Contract members{
      "tapagg.members", "Of a port-channel those members carry that were told to, in that group." };
inline constexpr Contract init{ "tapagg.init",
                                "After hwInit() the chip has no group, tap port or tool port." };
inline constexpr Contract cleanup{ "tapagg.cleanup",
                                   "Nothing is left in the chip when the mode was left." };
inline constexpr Contract verify{
      "tapagg.verify", "The verifying hooks find nothing in a chip that holds what it should." };
inline constexpr Contract destructor{
      "tapagg.destructor", "Destruction of the hook object calls nothing and changes nothing." };
inline constexpr Contract successor{
      "tapagg.successor", "A second hook object, made when the first is gone, changes nothing." };
inline constexpr Contract random{ "tapagg.random",
                                  "A random history of ports, groups and modes ends in what is "
                                  "configured." };

inline constexpr const Contract * contracts[] = { &group,      &full,      &ports,   &roles,
                                                  &members,    &init,      &cleanup, &verify,
                                                  &destructor, &successor, &random };

} // namespace QonConformance::Tapagg
