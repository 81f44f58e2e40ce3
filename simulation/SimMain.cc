// qon-sim: runs an agent in virtual time on histories made from seeds, and checks it after every
// step.
//
//    qon-sim --seed 1 --seeds 200 --steps 20000
//    qon-sim --seed 17 --steps 20000 --minimize --out failure.txt
//    qon-sim --replay failure.txt
//
// Exit codes: 0 all held, 1 something did not, 2 the command line or a file is wrong.

#include <unistd.h>

#include <CLI/CLI.hpp>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <fstream>

#include "agent/base/Version.h"
#include "platform/Kiv/Printable.h"
#include "platform/Velto/Assert.h"
#include "simulation/Run.h"

namespace {

using namespace Sim;
using Clock = std::chrono::steady_clock;

struct Options {
   Plan plan;
   U32 seeds = 1;
   U32 steps = 20000;
   String faults, replay, out, transcript;
   bool minimize = false;
   bool list = false;
};

/** Steps done, and a line about them every few seconds. */
class Progress {
 public:
   void seedIs( U32 done, U32 of, U64 steps ) {
      steps_ = steps;
      auto now = Clock::now();
      if ( std::chrono::duration< double >( now - shown_ ).count() > ( terminal_ ? 1 : 10 ) ) {
         shown_ = now;
         std::fprintf( stderr, "%sseed %u of %u, %.0f steps a second%s", terminal_ ? "\r" : "",
                       done, of, perSecond(), terminal_ ? "   " : "\n" );
      }
   }
   /** Of the processor: others may be at work on the machine. */
   static double seconds() { return double( std::clock() ) / CLOCKS_PER_SEC; }
   double perSecond() const { return double( steps_ ) / std::max( seconds(), 1e-6 ); }
   void end() const {
      if ( terminal_ ) {
         std::fprintf( stderr, "\r%60s\r", "" );
      }
   }

 private:
   bool terminal_ = isatty( STDERR_FILENO ) != 0;
   Clock::time_point shown_ = Clock::now();
   U64 steps_ = 0;
};

unsigned long long
wide( U64 number ) {
   return number;
}

void
printFailure( const History & history, const Outcome & outcome ) {
   std::printf( "FAILED: seed %llu, step %u: %s: %s\n%s", wide( history.plan.seed ), outcome.steps,
                outcome.finding.feature.c_str(), outcome.finding.what.c_str(),
                lastEvents( history.events, outcome.steps ).c_str() );
}

/** Shrinks a history that fails, if that is wanted, and writes it. */
int
failed( const Options & options, const History & history, const Outcome & outcome ) {
   printFailure( history, outcome );
   if ( options.minimize ) {
      History small = minimize( history, []( U32 events ) {
         if ( isatty( STDERR_FILENO ) ) {
            std::fprintf( stderr, "\r%u events left   ", events );
         }
      } );
      std::fprintf( stderr, "\n" );
      std::printf( "minimized to %u events:\n%s", U32( small.events.size() ),
                   lastEvents( small.events, U32( small.events.size() ) ).c_str() );
      String path = options.out.empty() ? "qon-sim-failure.txt" : options.out;
      small.write( path );
      std::printf( "written to %s\n", Kiv::printable( path ).c_str() );
   } else if ( !options.out.empty() ) {
      history.write( options.out );
   }
   return 1;
}

std::FILE *
opened( const String & path ) {
   if ( path.empty() ) {
      return nullptr;
   }
   std::FILE * file = std::fopen( path.c_str(), "w" );
   if ( !file ) {
      throw Velto::RangeError( path + ": cannot be written" );
   }
   return file;
}

void
checkFeatures( const Plan & plan ) {
   for ( auto & name : plan.features ) {
      if ( featureKind( name ) == featureKinds().size() ) {
         String known;
         for ( auto & kind : featureKinds().subspan( 1 ) ) {
            known += String( " " ) + kind.name;
         }
         throw Velto::RangeError( "no feature \"" + name + "\"; there are:" + known );
      }
   }
}

int
runReplay( const Options & options ) {
   History history = History::read( options.replay );
   checkFeatures( history.plan );
   Outcome outcome =
         options.minimize ? judge( history ) : replay( history, opened( options.transcript ) );
   if ( outcome.finding ) {
      return failed( options, history, outcome );
   }
   std::printf( "%u events, all held, transcript %016llx\n", outcome.steps,
                wide( outcome.transcript ) );
   return 0;
}

int
runSeeds( const Options & options ) {
   Progress progress;
   std::FILE * transcript = opened( options.transcript );
   U64 steps = 0, together = 0;
   Plan plan = options.plan;
   for ( U32 done = 0; done < options.seeds; ++done, ++plan.seed ) {
      limitTime();
      // What dies must not take the minimizer with it.
      Outcome outcome = options.minimize ? judge( historyOf( plan, options.steps ) )
                                         : simulate( plan, options.steps, transcript );
      steps += outcome.steps;
      together = Kiv::scrambled( together ^ outcome.transcript );
      progress.seedIs( done + 1, options.seeds, steps );
      if ( outcome.finding ) {
         progress.end();
         return failed( options, historyOf( plan, options.steps ), outcome );
      }
      if ( options.list ) {
         std::printf( "seed %llu transcript %016llx\n", wide( plan.seed ),
                      wide( outcome.transcript ) );
      }
   }
   progress.end();
   std::printf( "%u seeds, %llu steps, all held, transcript %016llx\n", options.seeds,
                wide( steps ), wide( together ) );
   std::fprintf( stderr, "%.1f s of the processor, %.0f steps a second\n", progress.seconds(),
                 progress.perSecond() );
   return 0;
}

void
readFaults( Options & options ) {
   std::ifstream in( options.faults );
   if ( !options.faults.empty() && !in ) {
      throw Velto::RangeError( options.faults + ": cannot be read" );
   }
   String line;
   while ( std::getline( in, line ) ) {
      if ( !line.empty() && line[0] != '#' ) {
         options.plan.faults.push_back( line );
      }
   }
}

} // namespace

int
main( int argc, char ** argv ) {
   Options options;
   CLI::App app( "Runs an agent on histories made from seeds and checks it after every step." );
   app.add_option( "--seed", options.plan.seed, "The first seed" )->capture_default_str();
   app.add_option( "--seeds", options.seeds, "How many seeds" )->capture_default_str();
   app.add_option( "--steps", options.steps, "Steps of each" )->capture_default_str();
   app.add_option( "--faults", options.faults,
                   "A plan of the chip's faults in place of the seed's" );
   app.add_option( "--features", options.plan.features, "Only these, separated by commas" )
         ->delimiter( ',' );
   app.add_flag( "--minimize", options.minimize, "Shrink the history of a failure and write it" );
   app.add_option( "--replay", options.replay, "Run the history of this file" );
   app.add_option( "--out", options.out, "Where the history of a failure is written" );
   app.add_option( "--transcript", options.transcript, "Write what happened, a line each" );
   app.add_flag( "--list", options.list, "Print the transcript's number of every seed" );
   app.set_version_flag( "--version", "qon-sim " + QonAgent::agentVersion() );
   app.failure_message( []( const CLI::App *, const CLI::Error & e ) {
      return "qon-sim: error: " + Kiv::printable( e.what() ) + "; --help tells more\n";
   } );
   try {
      app.parse( argc, argv );
   } catch ( const CLI::ParseError & error ) {
      return app.exit( error ) == 0 ? 0 : 2;
   }
   try {
      checkFeatures( options.plan );
      readFaults( options );
      reportDeath( 1 );
      return options.replay.empty() ? runSeeds( options ) : runReplay( options );
   } catch ( const Velto::RangeError & error ) {
      std::fprintf( stderr, "qon-sim: error: %s\n", Kiv::printable( error.what() ).c_str() );
      return 2;
   }
}
