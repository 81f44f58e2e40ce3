#pragma once
// What a chip promises of mirror sessions. An id, once given, keeps its meaning.

#include "conformance/Feature.h"

namespace QonConformance::Mirror {

inline constexpr Contract said{ "mirror.said",
                                "The number of sessions and the sessions that the chip holds are "
                                "said before the hook object is handed out." };
inline constexpr Contract held{ "mirror.held",
                                "What the hooks returned true for is in the chip, in the session's "
                                "group, until it is removed." };
inline constexpr Contract status{ "mirror.status",
                                  "The hardware status tells the sessions that the chip holds, "
                                  "with group, kind, destinations and sources." };
inline constexpr Contract direction{
      "mirror.direction", "A source that is removed and added again has its new direction." };
inline constexpr Contract last{
      "mirror.last", "All destinations that removeMirror() names go; with the last the session." };
inline constexpr Contract full{ "mirror.full",
                                "A session without room is refused and leaves nothing; when there "
                                "is room again it is accepted." };
inline constexpr Contract tunnel{ "mirror.tunnel",
                                  "A tunnel is made, updated in place, and gone when it is "
                                  "removed." };
inline constexpr Contract reconciled{
      "mirror.reconciled", "The chip says in time that sessions with a tunnel may be touched." };
inline constexpr Contract cleanup{ "mirror.cleanup",
                                   "Nothing is left in the chip when every session has gone." };
inline constexpr Contract destructor{
      "mirror.destructor", "Destruction of the hook object calls nothing and changes nothing." };
inline constexpr Contract successor{
      "mirror.successor", "A second hook object, made when the first is gone, says the sessions as "
                          "they were and lets them be." };
inline constexpr Contract random{ "mirror.random",
                                  "A random history of sessions ends in what is configured." };

inline constexpr const Contract * contracts[] = { &said,    &held,       &status,    &direction,
                                                  &last,    &full,       &tunnel,    &reconciled,
                                                  &cleanup, &destructor, &successor, &random };

} // namespace QonConformance::Mirror
