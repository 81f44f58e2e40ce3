#pragma once
// Times a short operation and its floor in the same run. What counts is the processor's time for this
// thread: others that run meanwhile do not.

#include <time.h>

#include <algorithm>

namespace Bench {

/** The processor's time for this thread, in nanoseconds. */
inline double
spent() {
   timespec now;
   clock_gettime( CLOCK_THREAD_CPUTIME_ID, &now );
   return double( now.tv_sec ) * 1e9 + double( now.tv_nsec );
}

/** Nanoseconds a call of `f`: the best of several rounds of `calls` calls. */
template< class F >
double
nsPerCall( F && f, long calls = 2000000, int rounds = 5 ) {
   double best = 1e300;
   for ( int r = 0; r < rounds; ++r ) {
      const double start = spent();
      for ( long i = 0; i < calls; ++i ) {
         f();
      }
      best = std::min( best, ( spent() - start ) / double( calls ) );
   }
   return best;
}

/** Nanoseconds that one run of `f` takes. */
template< class F >
double
nsOf( F && f ) {
   return nsPerCall( f, 1, 1 );
}

} // namespace Bench
