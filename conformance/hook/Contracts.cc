// What holds for the hooks of every feature.

#include "conformance/Feature.h"

namespace QonConformance::Hook {

constexpr Contract missing{ "hook.missing", "Every hook that the library calls is overridden." };

constexpr const Contract * contracts[] = { &missing };
constexpr LastWords lastWords[] = { { "Call to unimplemented function", missing },
                                    { "must be implemented by derived class", missing } };

extern const Feature feature{
      "hook", contracts, {}, lastWords, []( const QonChip::Chip & ) { return String(); } };

} // namespace QonConformance::Hook
