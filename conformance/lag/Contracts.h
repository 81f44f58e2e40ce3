#pragma once
// What a chip promises of link aggregation. An id, once given, keeps its meaning.

#include "conformance/Feature.h"

namespace QonConformance::Lag {

inline constexpr Contract result{
      "lag.result", "Every member that shall be in a group gets a result that is not 'pending'." };
inline constexpr Contract flags{ "lag.flags",
                                 "A member with success carries the flags that were asked "
                                 "for, in the chip as in its status." };
inline constexpr Contract reported{
      "lag.reported", "A member without success is reported with neither flag: it does nothing." };
inline constexpr Contract shared{
      "lag.shared",
      "A lent member is in the group that it is lent to, marked as lent, in the chip as "
      "in its status, and stays in its own." };
inline constexpr Contract hardwarePort{
      "lag.port", "A member is programmed with its hardware port, and follows when that changes." };
inline constexpr Contract removed{
      "lag.removed", "What leaves the configuration leaves the chip and its status." };
inline constexpr Contract single{ "lag.single",
                                  "A port is an own member of one group at most, at any moment." };
inline constexpr Contract readd{
      "lag.readd", "A group that had gone and comes back is programmed like a new one." };
inline constexpr Contract full{ "lag.full",
                                "Without room the result is 'noLag' or 'noMember', and it "
                                "becomes success when there is room again." };
inline constexpr Contract cleanup{ "lag.cleanup",
                                   "Nothing is left in the chip when every group has gone." };
inline constexpr Contract destructor{
      "lag.destructor", "Destruction of the programmer calls nothing and changes nothing." };
inline constexpr Contract successor{
      "lag.successor", "A second programmer, made when the first is gone, finds the groups as they "
                       "were, lets them be and reports nothing of the first one's." };
inline constexpr Contract random{ "lag.random",
                                  "A random history of groups ends in what is configured." };

inline constexpr const Contract * contracts[] = {
      &result, &flags, &reported, &shared,     &hardwarePort, &removed, &single,
      &readd,  &full,  &cleanup,  &destructor, &successor,    &random };

} // namespace QonConformance::Lag
