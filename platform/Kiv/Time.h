#pragma once
// The one place where the time comes from.

#include "platform/Velto/Types.h"

namespace Kiv {

/** Seconds; +infinity is "never". */
using Seconds = double;

/** Where Kiv::now() reads the time. The scheduler in charge installs its own; a test may install
    one that steps, or that advances with every read. */
class TimeSource {
 public:
   virtual ~TimeSource() = default;
   /** Seconds since a fixed moment of the source's choice; never falls. */
   virtual Seconds now() = 0;
};

/** The current time in seconds, by the installed source (the system's monotonic clock when none
    is installed). */
Seconds now();

/** Installs `source` and returns the one before; null is the system's monotonic clock. The
    source stays the caller's and must outlive its installation. */
TimeSource * timeSourceIs( TimeSource * source );

/** How often now() has been called in this process. */
U64 timeReads();

extern const Seconds never;

} // namespace Kiv
