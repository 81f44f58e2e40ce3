#pragma once
// The one source of chance: the same numbers from the same seed on every platform.
//
// Not for secrets. Also a generator for the standard library's algorithms.

#include "platform/Velto/Types.h"

namespace Kiv {

/** Scrambles a number; neighbours give unrelated results. */
constexpr U64
scrambled( U64 x ) {
   x ^= x >> 30;
   x *= 0xbf58476d1ce4e5b9ull;
   x ^= x >> 27;
   x *= 0x94d049bb133111ebull;
   return x ^ ( x >> 31 );
}

class Rng {
 public:
   explicit Rng( U64 seed ) : state_( scrambled( seed + step ) ) {}

   U64 next() { return scrambled( state_ += step ); }
   /** 0 to n - 1; 0 for an n of 0. */
   U32 below( U32 n ) { return U32( ( ( next() >> 32 ) * n ) >> 32 ); }
   /** low to high, both included. */
   U32 between( U32 low, U32 high ) { return low + below( high - low + 1 ); }
   bool percent( U32 chance ) { return below( 100 ) < chance; }
   bool oneIn( U32 n ) { return below( n ) == 0; }
   /** A source of its own for `purpose`, which draws nothing from this one. */
   Rng fork( U64 purpose ) const { return Rng( state_ ^ scrambled( purpose ) ); }

   using result_type = U64;
   static constexpr U64 min() { return 0; }
   static constexpr U64 max() { return ~U64( 0 ); }
   U64 operator()() { return next(); }

 private:
   static constexpr U64 step = 0x9e3779b97f4a7c15ull;
   U64 state_;
};

} // namespace Kiv
