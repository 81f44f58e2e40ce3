#pragma once
// What a word of a command line can become: for the shells of those who type.
//
//    "show mac vlan 1" -> 1, 10, 100 ...      "get acsd/por" -> acsd/portToLag[

#include "agent/Agent.h"

namespace QonAgent {

/** What the last word can become, by the command and the arguments before it. At most
    `mostCompletions` of them; a path is completed up to its next piece. */
std::vector< String > completions( Agent & agent, const std::vector< ShowCommand > & shows,
                                   const std::vector< String > & words );

inline constexpr std::size_t mostCompletions = 1000;

} // namespace QonAgent
