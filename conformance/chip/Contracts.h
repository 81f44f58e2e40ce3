#pragma once
// What a chip promises as a whole. An id, once given, keeps its meaning.

#include "conformance/Feature.h"

namespace QonConformance::Chip {

inline constexpr Contract pump{
      "chip.pump", "pump() lets the chip work and leaves virtual time to whoever called it." };
inline constexpr Contract ports{
      "chip.ports", "Ports are there, each once, and each hardware port number is one port's." };

inline constexpr const Contract * contracts[] = { &pump, &ports };

} // namespace QonConformance::Chip
