// Routes from a writer in another process to prefixes and adjacencies in the agent, through shared
// memory: the first load of a million, and changes at a rate. The floor keeps the same routes by hand,
// with one dense map of prefixes a class, and no tables between.
//
// Aims: 3 s of one core from the first write to the last prefix (writer and agent together), 10 ms for
// the longest turn, 48 bytes a route in the agent beyond its prefix; 100,000 changes a second kept up
// with.

#include <benchmark/benchmark.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <vector>

#include "agent/Agent.h"
#include "agent/features/FibFeature.h"
#include "agent/fib/FibWriter.h"
#include "agent/softchip/Chip.h"
#include "bench/PrefixFloor.h"
#include "bench/Ratio.h"
#include "bench/Turns.h"
#include "platform/Kiv/EventLoop.h"
#include "platform/Kiv/LogRecorder.h"

namespace {

using QonAgent::FibContent;
using Quarn::Fib::RouteKey;
using Velto::String;

constexpr U32 contents = 10000;   // sets of next hops
constexpr U32 perSecond = 100000; // changes
constexpr U32 perBurst = perSecond / 1000;

/** Two next hops, no two sets alike. */
FibContent
contentOf( U32 i ) {
   const auto hop = []( U32 n ) {
      return " 192.0." + std::to_string( n >> 8 & 255 ) + "." + std::to_string( n & 255 ) +
             "@Ethernet" + std::to_string( 1 + n % 64 );
   };
   return QonAgent::parseFibLine( "0 10.0.0.0/8" + hop( i ) + hop( i + contents ) )->content;
}

template< class P >
RouteKey
keyOf( U32 i ) {
   return RouteKey( Qon::VrfId( 0 ), Bench::prefixOf< P >( i ).genPrefix() );
}

/** Half of IPv4, half of IPv6. */
RouteKey
routeKey( U32 i ) {
   return i % 2 ? keyOf< Ulnet::Ip6Prefix >( i ) : keyOf< Ulnet::Prefix >( i );
}

U32
contentAt( U32 i ) {
   return U32( Kiv::mix( i ) % contents );
}

/** What the writer says of itself when it has written everything. */
struct Written {
   double seconds = 0; ///< of its processor
   double began = 0;   ///< by the clock of the wall
   double ended = 0;
};

/** A process that writes `routes` routes, says so, changes them for `seconds`, says so again, and serves
    the tables until it is killed. */
class Writer {
 public:
   Writer( const String & path, U32 routes, U32 seconds ) {
      int ends[2];
      if ( pipe( ends ) != 0 ) {
         std::abort();
      }
      says_ = ends[0];
      child_ = fork();
      if ( child_ == 0 ) {
         run( path, routes, seconds, ends[1] );
         _exit( 0 );
      }
      close( ends[1] );
   }
   ~Writer() {
      kill( child_, SIGKILL );
      waitpid( child_, nullptr, 0 );
      close( says_ );
   }
   /** Whether it has said something that was not read yet. */
   bool says() const {
      pollfd wait = { says_, POLLIN, 0 };
      return poll( &wait, 1, 0 ) == 1;
   }
   Written word() const {
      Written word;
      if ( read( says_, &word, sizeof( word ) ) != sizeof( word ) ) {
         std::abort();
      }
      return word;
   }

 private:
   static void run( const String & path, U32 routes, U32 seconds, int to ) {
      Kiv::EventLoop loop;
      Quarn::Server server( &loop, path );
      QonAgent::FibWriter writer( &server );
      std::vector< FibContent > content;
      for ( U32 i = 0; i < contents; ++i ) {
         content.push_back( contentOf( i ) );
      }
      tell( to, [&] {
         for ( U32 i = 0; i < routes; ++i ) {
            writer.routeIs( routeKey( i ), content[contentAt( i )] );
         }
         writer.completeIs( true );
      } );
      loop.runOnce( 0 );
      if ( seconds ) {
         serve( loop, 1 ); // the agent is at rest by then
         tell( to, [&] { change( loop, writer, content, routes, seconds ); } );
      }
      serve( loop, 1e9 );
   }
   template< class Act >
   static void tell( int to, Act && act ) {
      Written word;
      const double before = Bench::threadTime();
      word.began = Bench::wallTime() / 1e9;
      act();
      word.ended = Bench::wallTime() / 1e9;
      word.seconds = ( Bench::threadTime() - before ) / 1e9;
      if ( write( to, &word, sizeof( word ) ) != sizeof( word ) ) {
         std::abort();
      }
   }
   static void serve( Kiv::EventLoop & loop, double seconds ) {
      for ( const double end = Bench::wallTime() / 1e9 + seconds; Bench::wallTime() / 1e9 < end; ) {
         loop.runOnce( 0.1 );
      }
   }
   /** Each change gives a route other next hops; in bursts of a millisecond. */
   static void change( Kiv::EventLoop & loop, QonAgent::FibWriter & writer,
                       const std::vector< FibContent > & content, U32 routes, U32 seconds ) {
      const double start = Bench::wallTime() / 1e9;
      U32 at = 0;
      for ( U32 burst = 0; burst < seconds * 1000; ++burst ) {
         for ( double left; ( left = start + burst / 1000.0 - Bench::wallTime() / 1e9 ) > 0; ) {
            usleep( U32( left * 1e6 ) + 1 );
         }
         for ( U32 i = 0; i < perBurst; ++i ) {
            at = ( at + 7919 ) % routes;
            writer.routeIs( routeKey( at ), content[( contentAt( at ) + 1 + burst ) % contents] );
         }
         loop.runOnce( 0 ); // the end of the turn
      }
   }

   int says_;
   pid_t child_;
};

/** An agent that follows the tables, and nothing else; the chip has room for all of it. */
class Follower {
 public:
   explicit Follower( const String & path ) {
      feature_ = &dynamic_cast< QonAgent::FibFeature & >( *agent_.features().back() );
      feature_->attach( &loop, path );
      loop.turnWatchIs( &turns );
   }
   ~Follower() { loop.turnWatchIs( nullptr ); }
   QonAgent::FibReader & reader() { return *feature_->reader(); }
   U64 prefixes() {
      return U64( reader().routes( Ulnet::AddressFamily::ipv4 ) ) +
             reader().routes( Ulnet::AddressFamily::ipv6 );
   }
   bool idle() { return reader().idle() && feature_->installer()->idle(); }
   /** Until all that was seen is done, and nothing comes for a while. */
   void rest() {
      for ( U32 quiet = 0; quiet < 4; ) {
         loop.runOnce( 0.001 );
         quiet = idle() ? quiet + 1 : 0;
      }
   }

   Kiv::EventLoop loop;
   Bench::Turns turns;

 private:
   static SoftChip::Shape shape() {
      SoftChip::Shape shape;
      shape.adjacencies.adjacencies = 4 * contents;
      shape.adjacencies.ecmpGroups = 4 * contents;
      return shape;
   }
   Kiv::LogRecorder log_;
   SoftChip::Chip chip_{ loop, shape() };
   QonAgent::Agent agent_{ loop, chip_, { QonAgent::fibFeature() } };
   QonAgent::FibFeature * feature_;
};

/** A folder for the sockets. */
class Folder {
 public:
   Folder() {
      char path[] = "/tmp/fib-bench.XXXXXX";
      path_ = mkdtemp( path );
   }
   ~Folder() { std::filesystem::remove_all( path_ ); }
   String path() const { return path_ + "/fib"; }

 private:
   String path_;
};

/** The same routes by hand: seconds. */
double
floorOfLoad( U32 routes ) {
   return Bench::nsOf( [&] {
             Bench::PlainLists< Ulnet::Prefix > v4( contents );
             Bench::PlainLists< Ulnet::Ip6Prefix > v6( contents );
             for ( U32 i = 0; i < routes; ++i ) {
                i % 2 ? v6.add( contentAt( i ), Bench::prefixOf< Ulnet::Ip6Prefix >( i ) )
                      : v4.add( contentAt( i ), Bench::prefixOf< Ulnet::Prefix >( i ) );
             }
             benchmark::DoNotOptimize( &v4 );
             benchmark::DoNotOptimize( &v6 );
          } ) /
          1e9;
}

/** Bytes of the prefixes themselves: address and length. */
double
prefixBytes( U32 routes ) {
   return double( routes / 2 ) * ( sizeof( Ulnet::Prefix ) + sizeof( Ulnet::Ip6Prefix ) );
}

void
load( benchmark::State & state ) {
   const U32 routes = U32( state.range( 0 ) );
   for ( auto _ : state ) {
      const Folder folder;
      const Writer writer( folder.path(), routes, 0 );
      Follower agent( folder.path() );
      const U64 before = Bench::bytesInUse();
      const double began = Bench::threadTime();
      while ( agent.prefixes() < routes || !agent.idle() ) {
         agent.loop.runOnce( 1 );
      }
      const double spent = ( Bench::threadTime() - began ) / 1e9;
      const double wall = Bench::wallTime() / 1e9;
      const Written written = writer.word();
      const double bytes = double( Bench::bytesInUse() - before );
      const double floor = floorOfLoad( routes );
      state.counters["s_one_core"] = written.seconds + spent;
      state.counters["s_writer"] = written.seconds;
      state.counters["s_agent"] = spent;
      state.counters["s_wall"] = wall - written.began;
      state.counters["s_floor"] = floor;
      state.counters["agent_to_floor"] = spent / floor;
      state.counters["ms_longest_turn"] = agent.turns.longest / 1e6;
      state.counters["bytes_a_route"] = ( bytes - prefixBytes( routes ) ) / routes;
      if ( const String wrong = agent.reader().checkInvariants(); !wrong.empty() ) {
         state.SkipWithError( wrong.c_str() );
      }
   }
}
BENCHMARK( load )->Arg( 100000 )->Arg( 1000000 )->Iterations( 1 )->Unit( benchmark::kSecond );

/** A million routes stand; then changes at a rate. How far the agent was behind at most, and when the last
    one was done after it was written. */
void
changes( benchmark::State & state ) {
   constexpr U32 routes = 1000000, seconds = 10;
   for ( auto _ : state ) {
      const Folder folder;
      const Writer writer( folder.path(), routes, seconds );
      Follower agent( folder.path() );
      while ( agent.prefixes() < routes || !agent.idle() ) {
         agent.loop.runOnce( 1 );
      }
      writer.word();
      agent.turns.longest = 0;
      const auto before = agent.reader().tables().front();
      const double began = Bench::threadTime();
      U64 behind = 0;
      while ( !writer.says() ) {
         agent.loop.runOnce( 0.01 );
         behind = std::max( behind, agent.reader().tables().front().behind );
      }
      const Written written = writer.word();
      while ( !agent.idle() ) {
         agent.loop.runOnce( 0 );
      }
      const double late = Bench::wallTime() / 1e9 - written.ended;
      const double spent = ( Bench::threadTime() - began ) / 1e9;
      agent.rest();
      const auto table = agent.reader().tables().front();
      state.counters["a_second"] =
            double( perSecond * seconds ) / ( written.ended - written.began );
      state.counters["ns_a_change"] = spent * 1e9 / ( perSecond * seconds );
      state.counters["writer_ns"] = written.seconds * 1e9 / ( perSecond * seconds );
      state.counters["behind_at_most"] = double( behind );
      state.counters["overtaken"] = double( table.overtaken - before.overtaken );
      state.counters["ms_late"] = late * 1e3;
      state.counters["ms_longest_turn"] = agent.turns.longest / 1e6;
      if ( const String wrong = agent.reader().checkInvariants(); !wrong.empty() ) {
         state.SkipWithError( wrong.c_str() );
      }
   }
}
BENCHMARK( changes )->Iterations( 1 )->Unit( benchmark::kSecond );

} // namespace
