// What the tap costs a hook: nobody listens, and one listener, against the bare virtual call.

#include <benchmark/benchmark.h>

#include "Qon/include/framework/HookTap.h"
#include "bench/Ratio.h"
#include "platform/types/Ulnet.h"

namespace {

using Ulnet::IntfId;
using Velto::String;

class Chip {
 public:
   virtual ~Chip() = default;
   virtual void setState( S32 topoId, const String & topo, IntfId intf, U32 state ) {
      sum += U64( topoId ) + topo.size() + intf.number( 0 ) + state;
   }
   U64 sum = 0;
};

/** So that the compiler cannot know which chip it is. */
class Other : public Chip {
 public:
   void setState( S32, const String &, IntfId, U32 ) override { ++sum; }
};

class Listener : public Qon::HookListener {
 public:
   void hookCalled( const char *, const String & arguments ) override {
      length += arguments.size();
   }
   U64 length = 0;
};

__attribute__( ( noinline ) ) void
bare( Chip * chip, S32 topoId, const String & topo, IntfId intf, U32 state ) {
   chip->setState( topoId, topo, intf, state );
}

__attribute__( ( noinline ) ) void
tapped( Chip * chip, S32 topoId, const String & topo, IntfId intf, U32 state ) {
   QON_HOOK( Chip, chip, setState, topoId, topo, intf, state );
}

void
hooks( benchmark::State & state ) {
   Chip chip;
   Other other;
   const String topo = "Mst1";
   const IntfId intf = Ulnet::EthIntfId::intfId( 7 );
   U32 n = 0;
   auto measure = [&]( auto call, long calls ) {
      return Bench::nsPerCall(
            [&] {
               ++n;
               call( n == 0 ? &other : &chip, 1, topo, intf, n );
            },
            calls, 9 );
   };
   const double floor = measure( bare, 5'000'000 );
   const double unheard = measure( tapped, 5'000'000 );
   double heard;
   {
      Listener listener;
      heard = measure( tapped, 200'000 );
      benchmark::DoNotOptimize( listener.length );
   }
   for ( auto _ : state ) {
      tapped( &chip, 1, topo, intf, 3 );
   }
   benchmark::DoNotOptimize( chip.sum );
   state.counters["ns_bare"] = floor;
   state.counters["ns_unheard"] = unheard;
   state.counters["ns_heard"] = heard;
   state.counters["to_bare"] = unheard / floor;
}
BENCHMARK( hooks );

} // namespace

BENCHMARK_MAIN();
