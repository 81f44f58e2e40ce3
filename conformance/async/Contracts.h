#pragma once
// What a chip promises of operations that complete later. An id, once given, keeps its meaning.

#include "conformance/Feature.h"

namespace QonConformance::Async {

inline constexpr Contract handler{
      "async.handler", "handleAsyncOperationResult() is overridden, and hears the first result." };
inline constexpr Contract once{
      "async.once",
      "Every request is concluded once: in its turn, or replaced by a newer one of its key." };
inline constexpr Contract numbers{ "async.numbers",
                                   "An operation has a priority and, of its key, a sequence number "
                                   "from the helper; both are below "
                                   "those before, or the key began anew." };
inline constexpr Contract inside{
      "async.inside",
      "An answer inside of the call that hands an operation over concludes it like a "
      "later one." };
inline constexpr Contract moment{
      "async.moment", "Results of one moment are all heard: no two of them are the same." };
inline constexpr Contract timeout{
      "async.timeout", "An operation without an answer is given up or tried again when its time is "
                       "over, and keeps no other from its turn." };
inline constexpr Contract late{
      "async.late",
      "An answer that comes behind a newer one, behind the end of its operation's time "
      "or once more concludes nothing and changes no entry." };
inline constexpr Contract held{
      "async.held",
      "What is concluded without an error is in the chip by then; an error is passed on "
      "as it was reported." };
inline constexpr Contract newest{ "async.newest",
                                  "At rest an entry is as its newest request wants it." };
inline constexpr Contract destructor{ "async.destructor",
                                      "The end of the state machine, in the middle of an operation "
                                      "or of a conclusion, calls nothing "
                                      "and changes nothing; answers that come then reach nobody." };
inline constexpr Contract successor{
      "async.successor",
      "A second state machine, made when the first is gone, finds the entries as "
      "they were and hears nothing that is meant for the first." };
inline constexpr Contract random{
      "async.random", "A random history of requests, answers and lost answers ends in the newest "
                      "requests." };

inline constexpr const Contract * contracts[] = { &handler, &once,       &numbers,   &inside,
                                                  &moment,  &timeout,    &late,      &held,
                                                  &newest,  &destructor, &successor, &random };

} // namespace QonConformance::Async
