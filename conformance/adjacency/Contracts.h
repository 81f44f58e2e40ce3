#pragma once
// What a chip promises of adjacencies. An id, once given, keeps its meaning.

#include "conformance/Feature.h"

namespace QonConformance::Adjacency {

inline constexpr Contract answer{
      "adjacency.answer",
      "Each version is answered once, unless its adjacency is deleted before; what is answered "
      "programmed is in the chip by then." };
inline constexpr Contract held{
      "adjacency.held",
      "A programmed adjacency has exactly its next hops with their weights, and a "
      "group of its own if there are several." };
inline constexpr Contract fec{
      "adjacency.fec", "From the return of the hook on a FEC leads to the adjacency that it "
                       "was given last, or nowhere." };
inline constexpr Contract full{
      "adjacency.full", "What finds no room is answered so, leaves nothing and costs nobody his "
                        "place; a single next hop needs no group." };
inline constexpr Contract room{ "adjacency.room",
                                "When something goes for whose place somebody was refused, the "
                                "chip says that there is room, and there is." };
inline constexpr Contract deletion{
      "adjacency.delete", "Nothing is left of what is deleted, answered or not; its number is free "
                          "for another adjacency at once." };
inline constexpr Contract stale{ "adjacency.stale",
                                 "What another helper left forwards until a FEC is given anew; "
                                 "staleDel() takes the rest, and nothing else." };
inline constexpr Contract destructor{ "adjacency.destructor",
                                      "Destruction of the hook object calls nothing, and leaves "
                                      "what the chip holds as it is." };
inline constexpr Contract successor{
      "adjacency.successor",
      "A second hook object, made when the first is gone, changes nothing." };
inline constexpr Contract random{ "adjacency.random",
                                  "A random history of adjacencies and FECs ends in what was "
                                  "handed over." };

inline constexpr const Contract * contracts[] = {
      &answer, &held, &fec, &full, &room, &deletion, &stale, &destructor, &successor, &random };

} // namespace QonConformance::Adjacency
