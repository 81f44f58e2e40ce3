#pragma once
// What a chip promises of storm control. An id, once given, keeps its meaning.

#include "conformance/Feature.h"

namespace QonConformance::Stormcontrol {

inline constexpr Contract level{
      "stormcontrol.level",
      "A level that is told holds on its port, whatever was told before, and on no other port." };
inline constexpr Contract nolimit{
      "stormcontrol.nolimit", "The default threshold is no limit: nothing is left of the level." };
inline constexpr Contract init{
      "stormcontrol.init", "After hwInit() the chip limits nothing, whatever it limited before." };
inline constexpr Contract version{
      "stormcontrol.version", "Every version is reported, when its levels hold and not before; a "
                              "version that was replaced is not reported any more." };
inline constexpr Contract reset{ "stormcontrol.reset",
                                 "After resetPortConfig() nothing is limited on the port." };
inline constexpr Contract trafficClass{
      "stormcontrol.class", "A traffic class has the threshold that it was told last." };
inline constexpr Contract verify{
      "stormcontrol.verify",
      "The verifying hooks find nothing in a chip that holds what it should." };
inline constexpr Contract destructor{
      "stormcontrol.destructor", "Destruction of the helper calls nothing and changes nothing." };
inline constexpr Contract random{
      "stormcontrol.random", "A random history of levels and members ends in what is wanted." };

inline constexpr const Contract * contracts[] = {
      &level, &nolimit, &init, &version, &reset, &trafficClass, &verify, &destructor, &random };

} // namespace QonConformance::Stormcontrol
