#pragma once
// What a chip promises of multicast groups. An id, once given, keeps its meaning.

#include "conformance/Feature.h"

namespace QonConformance::Multicast {

inline constexpr Contract ports{
      "multicast.ports",
      "A MAC entry leads to a group with exactly the ports that were written last." };
inline constexpr Contract full{
      "multicast.full",
      "When its groups are used up the chip says so and keeps those that it has; a "
      "bitmap that ends when it was freed makes room for another." };
inline constexpr Contract deletion{ "multicast.delete",
                                    "Nothing is left of a group that was deleted." };
inline constexpr Contract init{
      "multicast.init", "When makeMulticastDataFactory() returns the chip has no group and no MAC "
                        "entry of one, whatever it had before." };
inline constexpr Contract copy{
      "multicast.copy", "Packets are copied to the CPU, or taken by it, as it was said last." };
inline constexpr Contract destructor{ "multicast.destructor",
                                      "Destruction of the hook objects calls nothing, and leaves "
                                      "groups and MAC entries as they are." };
inline constexpr Contract random{
      "multicast.random", "A random history of members and aggregates ends in what is wanted." };

inline constexpr const Contract * contracts[] = { &ports, &full,       &deletion, &init,
                                                  &copy,  &destructor, &random };

} // namespace QonConformance::Multicast
