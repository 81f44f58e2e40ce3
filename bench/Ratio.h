#pragma once
// Times a short operation and its floor in the same run.

#include <algorithm>
#include <chrono>

namespace Bench {

/** Nanoseconds a call of `f`: the best of several rounds of `calls` calls. */
template< class F >
double
nsPerCall( F && f, long calls = 2000000, int rounds = 5 ) {
   double best = 1e300;
   for ( int r = 0; r < rounds; ++r ) {
      auto start = std::chrono::steady_clock::now();
      for ( long i = 0; i < calls; ++i ) {
         f();
      }
      std::chrono::duration< double, std::nano > spent = std::chrono::steady_clock::now() - start;
      best = std::min( best, spent.count() / double( calls ) );
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
