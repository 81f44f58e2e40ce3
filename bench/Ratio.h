#pragma once
// Times a short operation and its floor in the same run. What counts is the processor's time for this
// thread: others that run meanwhile do not.

#include <algorithm>
#include <vector>

#include "bench/Machine.h"

namespace Bench {

/** So many instead of `calls` or `rounds`: what is counted does not vary, and is slow. */
inline long
fewer( long wanted, long counted ) {
   return counts() ? std::min( wanted, counted ) : wanted;
}

/** Nanoseconds a call of `f`: the best of several rounds of `calls` calls. */
template< class F >
double
nsPerCall( F && f, long calls = 2000000, int rounds = 5 ) {
   double best = 1e300;
   calls = fewer( calls, 1000 );
   rounds = int( fewer( rounds, 1 ) );
   for ( int r = 0; r < rounds; ++r ) {
      const double start = spent();
      for ( long i = 0; i < calls; ++i ) {
         f();
      }
      best = std::min( best, ( spent() - start ) / double( calls ) );
   }
   return best;
}

inline double
median( std::vector< double > of ) {
   std::nth_element( of.begin(), of.begin() + of.size() / 2, of.end() );
   return of[of.size() / 2];
}

/** Nanoseconds a call, and how many times those of the floor. */
struct Compared {
   double ours, floor, ratio;
};

/** Library and floor by turns, in many short rounds: a machine that changes its speed meanwhile does so for
    both. Medians, that of the ratios too. */
class Rounds {
 public:
   void add( double ours, double floor ) {
      ours_.push_back( ours );
      floor_.push_back( floor );
      ratio_.push_back( ours / floor );
   }
   Compared result() const { return { median( ours_ ), median( floor_ ), median( ratio_ ) }; }

 private:
   std::vector< double > ours_, floor_, ratio_;
};

/** `calls` calls of each a round. */
template< class Ours, class Floor >
Compared
compared( Ours && ours, Floor && floor, long calls, int rounds = 51 ) {
   Rounds all;
   rounds = int( fewer( rounds, 3 ) );
   for ( int r = 0; r < rounds; ++r ) {
      const double first = nsPerCall( ours, calls, 1 );
      all.add( first, nsPerCall( floor, calls, 1 ) );
   }
   return all.result();
}

/** Nanoseconds that one run of `f` takes. */
template< class F >
double
nsOf( F && f ) {
   return nsPerCall( f, 1, 1 );
}

} // namespace Bench
