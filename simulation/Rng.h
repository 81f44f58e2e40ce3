#pragma once
// The one source of chance: the same numbers from the same seed on every platform.

#include "platform/Velto/Types.h"

namespace Sim {

/** Scrambles a number; neighbours give unrelated results. */
constexpr U64
mixed( U64 x ) {
   x ^= x >> 30;
   x *= 0xbf58476d1ce4e5b9ull;
   x ^= x >> 27;
   x *= 0x94d049bb133111ebull;
   return x ^ ( x >> 31 );
}

class Rng {
 public:
   explicit Rng( U64 seed ) : state_( mixed( seed + step ) ) {}

   U64 next() { return mixed( state_ += step ); }
   /** 0 to n - 1; 0 for an n of 0. */
   U32 below( U32 n ) { return U32( ( ( next() >> 32 ) * n ) >> 32 ); }
   /** low to high, both included. */
   U32 between( U32 low, U32 high ) { return low + below( high - low + 1 ); }
   bool percent( U32 chance ) { return below( 100 ) < chance; }
   /** A source of its own for `purpose`, which draws nothing from this one. */
   Rng fork( U64 purpose ) const { return Rng( state_ ^ mixed( purpose ) ); }

 private:
   static constexpr U64 step = 0x9e3779b97f4a7c15ull;
   U64 state_;
};

} // namespace Sim
