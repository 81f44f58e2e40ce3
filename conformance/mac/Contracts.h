#pragma once
// What a chip promises of MAC addresses. An id, once given, keeps its meaning.

#include "conformance/Feature.h"

namespace QonConformance::Mac {

inline constexpr Contract answer{
      "mac.answer", "Every command that is written is answered, once the chip is done." };
inline constexpr Contract unasked{
      "mac.unasked",
      "Answers are for commands in flight: none for a transaction that is unknown, "
      "or whose answer was acted on. Until then a later answer replaces one before." };
inline constexpr Contract early{
      "mac.early", "A command is answered with success when the chip holds it, not before." };
inline constexpr Contract status{ "mac.status",
                                  "An answer is success, failed, busy, full or parity error." };
inline constexpr Contract held{
      "mac.held", "A host that was answered with success is in the table, at its port." };
inline constexpr Contract newest{ "mac.newest",
                                  "At rest the table holds the newest wish for every key." };
inline constexpr Contract readd{
      "mac.readd", "Adding a host that is there succeeds and makes no second entry." };
inline constexpr Contract vlans{ "mac.vlans", "The same address in two VLANs is two hosts." };
inline constexpr Contract absent{ "mac.absent", "Removing a host that is not there is harmless." };
inline constexpr Contract full{ "mac.full",
                                "A table without room answers 'full', keeps what it holds, "
                                "and takes the rest when there is room again." };
inline constexpr Contract move{
      "mac.move", "A host that is in the table moves to another port though there is no room." };
inline constexpr Contract flush{
      "mac.flush", "A flush is answered and removes the hosts that it names and no others." };
inline constexpr Contract order{
      "mac.order",
      "A flush takes what was written before it and nothing that is written after it." };
inline constexpr Contract shadow{
      "mac.shadow", "A command that is meant for the software's shadow is answered, too." };
inline constexpr Contract cleanup{ "mac.cleanup",
                                   "Nothing is left in the table when every host was removed." };
inline constexpr Contract destructor{
      "mac.destructor", "Destruction of the programmer calls nothing and changes nothing." };
inline constexpr Contract successor{
      "mac.successor", "A second programmer, made when the first is gone, finds the table "
                       "as it was and hears nothing that is meant for the first." };
inline constexpr Contract random{
      "mac.random", "A random history of hosts and flushes ends in the newest wishes." };

inline constexpr const Contract * contracts[] = {
      &answer, &unasked, &early, &status, &held,   &newest,  &readd,      &vlans,     &absent,
      &full,   &move,    &flush, &order,  &shadow, &cleanup, &destructor, &successor, &random };

} // namespace QonConformance::Mac
