// What the numbering and the acknowledgement of asynchronous operations cost, from a thousand to a
// million keys, each against the same work on plain structs and the standard library's hash map.
//
// Each line shows the time of one operation (ns), that of the floor (floor_ns) and ratio_to_floor.
// The costs of a key grow with the table by what the caches take, for the floor as well:
// `growth` is the cost against that with a thousand keys, `floor_growth` the floor's.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <map>
#include <unordered_map>

#include "Qon/include/framework/QonAck.h"
#include "Qon/include/framework/QonAsyncBaseSm.h"
#include "bench/Ratio.h"
#include "platform/Kiv/Rng.h"

namespace {

using Qon::Ack::VersionIdPassedToPdFec;
using Velto::String;

constexpr U32 leastOperations = 200000;
constexpr int rounds = 5;

struct FecIdHash {
   std::size_t operator()( const Quarn::Fib::FecId & id ) const {
      return std::size_t( Kiv::mix( id.hash() ) );
   }
};

/** The floor: a counter, a map and a record that know no watchers. */
struct PlainHelper {
   U32 priority = ~U32( 0 );
   std::unordered_map< String, U16 > sequence;

   [[gnu::noinline]] U32 nextPriority() { return --priority; }
   [[gnu::noinline]] U16 getNextSequence( const String & key ) {
      auto [at, fresh] = sequence.try_emplace( key, 65535 );
      return fresh ? at->second : --at->second;
   }
   [[gnu::noinline]] void sequenceDel( const String & key ) { sequence.erase( key ); }
};

struct PlainListener {
   virtual ~PlainListener() = default;
   virtual void hear() = 0;
};
struct PlainAcks {
   VersionIdPassedToPdFec passed;
   PlainListener * listener = nullptr;

   [[gnu::noinline]] void update( const VersionIdPassedToPdFec & record ) {
      U8 generation = U8( passed.genId() + 1 );
      passed = record;
      passed.genIdIs( generation );
      listener->hear();
   }
};
struct PlainEar : PlainListener {
   explicit PlainEar( PlainAcks * a ) : acks( a ) {}
   void hear() override { heard += acks->passed.fecId().value(); }
   PlainAcks * acks;
   U64 heard = 0;
};

using Acks = Qon::Ack::QonFecAckSmConfig;
class Ear : public Velto::Node {
 public:
   explicit Ear( Acks * acks ) : acks_( acks ) {
      hasNotificationActiveIs( true );
      watch_.attach( this, acks );
   }
   void handlePassed() { heard += acks_->passedToPdFec().fecId().value(); }
   U64 heard = 0;

 private:
   Acks * acks_;
   Kiv::Watch< Acks::passedToPdFecAttr, Ear, &Ear::handlePassed > watch_;
};

/** `n` keys, in an order that no allocator follows. */
struct Load {
   explicit Load( U32 n ) {
      for ( U32 i = 0; i < n; ++i ) {
         routes.push_back( "10." + std::to_string( i >> 16 ) + "." +
                           std::to_string( i >> 8 & 255 ) + "." + std::to_string( i & 255 ) +
                           "/32" );
         VersionIdPassedToPdFec record;
         record.fecIdIs( Quarn::Fib::FecId( Kiv::mix( i ) ) );
         fecs.push_back( record );
      }
      std::shuffle( routes.begin(), routes.end(), Kiv::Rng( 1 ) );
   }
   std::vector< String > routes;
   std::vector< VersionIdPassedToPdFec > fecs;
};

struct Costs {
   double priority = 1e9, number = 1e9, first = 1e9, start = 1e9, ack = 1e9, wait = 1e9;
};

/** Keeps in `best` the least time of one of `items` operations. */
template< class Work >
void
measure( double & best, U32 items, Work work ) {
   U32 times = std::max( 1u, leastOperations / items );
   best = std::min( best, Bench::nsPerCall( work, times, 1 ) / items );
}

/** The first number of each key, the next ones, and the start of all of them again. */
template< class Helper >
void
numberKeys( Costs & c, Helper & helper, const Load & load ) {
   U32 n = U32( load.routes.size() );
   U64 sum = 0;
   auto numberAll = [&] {
      for ( auto & key : load.routes ) {
         sum += helper.getNextSequence( key );
      }
   };
   c.first = std::min( c.first, Bench::nsOf( numberAll ) / n );
   measure( c.number, n, numberAll );
   c.start = std::min( c.start, Bench::nsOf( [&] {
                                   for ( auto & key : load.routes ) {
                                      helper.sequenceDel( key );
                                   }
                                } ) / n );
   measure( c.priority, n, [&] {
      for ( U32 i = 0; i < n; ++i ) {
         sum += helper.nextPriority();
      }
   } );
   benchmark::DoNotOptimize( sum );
}

void
runLibrary( Costs & c, const Load & load ) {
   U32 n = U32( load.fecs.size() );
   numberKeys( c, *Qon::qonAsyncBaseHelperFactory(), load );
   auto acks = Velto::make< Acks >( Routing::Hardware::FecAckSupport::fecAckSupported );
   auto ear = Velto::make< Ear >( acks.ptr() );
   measure( c.ack, n, [&] {
      for ( auto & record : load.fecs ) {
         acks->updatePassedToPdFec( record );
      }
   } );
   auto queue = Velto::make< Qon::Ack::AdjToAckQueue >( 1 );
   measure( c.wait, n, [&] {
      for ( auto & record : load.fecs ) {
         queue->fecAckIs( record.fecId(), record );
      }
      for ( auto & record : load.fecs ) {
         queue->fecAckDel( record.fecId() );
      }
   } );
   benchmark::DoNotOptimize( ear->heard );
}

void
runFloor( Costs & c, const Load & load ) {
   U32 n = U32( load.fecs.size() );
   PlainHelper helper;
   numberKeys( c, helper, load );
   PlainAcks acks;
   PlainEar ear( &acks );
   acks.listener = &ear;
   measure( c.ack, n, [&] {
      for ( auto & record : load.fecs ) {
         acks.update( record );
      }
   } );
   std::unordered_map< Quarn::Fib::FecId, VersionIdPassedToPdFec, FecIdHash > queue;
   measure( c.wait, n, [&] {
      for ( auto & record : load.fecs ) {
         queue.insert_or_assign( record.fecId(), record );
      }
      for ( auto & record : load.fecs ) {
         queue.erase( record.fecId() );
      }
   } );
   benchmark::DoNotOptimize( ear.heard );
}

/** The library's costs and the floor's, measured once and in turns. */
const std::pair< Costs, Costs > &
bothFor( U32 n ) {
   static std::map< U32, std::pair< Costs, Costs > > known;
   auto [at, fresh] = known.try_emplace( n );
   if ( fresh ) {
      Load load( n );
      for ( int i = 0; i < rounds; ++i ) {
         runFloor( at->second.second, load );
         runLibrary( at->second.first, load );
      }
   }
   return at->second;
}

void
compare( benchmark::State & state, double Costs::*what ) {
   auto & [library, floor] = bothFor( U32( state.range( 0 ) ) );
   auto & [small, smallFloor] = bothFor( 1000 );
   for ( auto _ : state ) {
      state.SetIterationTime( library.*what * 1e-9 );
   }
   state.counters["ns"] = library.*what;
   state.counters["floor_ns"] = floor.*what;
   state.counters["ratio_to_floor"] = library.*what / ( floor.*what );
   state.counters["growth"] = library.*what / ( small.*what );
   state.counters["floor_growth"] = floor.*what / ( smallFloor.*what );
}

[[maybe_unused]] const bool registered = [] {
   const struct {
      const char * name;
      double Costs::*what;
   } lines[] = {
         { "priority", &Costs::priority },       { "sequence_next", &Costs::number },
         { "sequence_first", &Costs::first },    { "sequence_del", &Costs::start },
         { "acknowledge_watched", &Costs::ack }, { "wait_and_leave", &Costs::wait },
   };
   for ( auto & line : lines ) {
      benchmark::RegisterBenchmark( line.name, compare, line.what )
            ->Arg( 1000 )
            ->Arg( 10000 )
            ->Arg( 100000 )
            ->Arg( 1000000 )
            ->Iterations( 1 )
            ->UseManualTime();
   }
   return true;
}();

} // namespace
