#pragma once
// Which time of day it is, or was, at a time of Kiv::now(). For those who read it: nothing depends on
// it.

#include <optional>

#include "platform/Kiv/Time.h"

namespace Kiv {

/** A source that passes on the time of another one. */
class PassingTimeSource : public TimeSource {
 public:
   /** Null: the system's clock. */
   virtual TimeSource * former() const = 0;
};

/** The time of day at a time of now(), in seconds since 1970; nothing while the source has a time of
    its own. */
std::optional< Seconds > timeOfDay( Seconds at );

} // namespace Kiv
