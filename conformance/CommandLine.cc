// The program around the checks.

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "conformance/Report.h"
#include "platform/Kiv/Printable.h"
#include "platform/Kiv/Text.h"

namespace QonConformance {

namespace {

constexpr int exitFindings = 1;
constexpr int exitUsage = 2;

constexpr char usage[] =
      "usage: %s [--list] [--only ID] [--seed N] [--steps N] [--json] [--junit] [--version]\n"
      "Shows whether the hook classes of a chip keep the contracts of the library.\n"
      "  --list     the contracts: id and promise\n"
      "  --only ID  one contract (mac.full) or the contracts of a feature (mac)\n"
      "  --seed N   of the random histories; 1 unless given\n"
      "  --steps N  of each random history; 2000 unless given\n"
      "  --json     the result, or with --list the contracts, as JSON\n"
      "  --junit    the result as JUnit XML\n"
      "  --version  which version this is\n"
      "Exit codes: 0 no findings, 1 findings, 2 a wrong command line or no chip.\n";

using Kiv::printable;
using Result = Outcome::Result;

struct CommandLine {
   Options options;
   bool list = false;
   bool json = false;
   bool junit = false;
   bool help = false;
   bool version = false;
};

U64
number( const char * option, const char * text, U64 most ) {
   char * end = nullptr;
   U64 n = std::strtoull( text, &end, 10 );
   if ( *text < '0' || *text > '9' || *end || n > most ) {
      throw Velto::RangeError( String( option ) + ": expected a number up to " +
                               Kiv::toText( most ) + ", found '" + text + "'" );
   }
   return n;
}

CommandLine
parse( int argc, const char * const * argv ) {
   CommandLine line;
   auto value = [&]( int & n ) {
      if ( ++n >= argc ) {
         throw Velto::RangeError( String( argv[n - 1] ) + ": a value is missing" );
      }
      return argv[n];
   };
   for ( int n = 1; n < argc; ++n ) {
      const String option = argv[n];
      if ( option == "--list" || option == "--json" || option == "--help" || option == "-h" ) {
         ( option == "--list" ? line.list : option == "--json" ? line.json : line.help ) = true;
      } else if ( option == "--version" || option == "--junit" ) {
         ( option == "--version" ? line.version : line.junit ) = true;
      } else if ( option == "--only" ) {
         line.options.only = value( n );
      } else if ( option == "--seed" ) {
         line.options.seed = number( "--seed", value( n ), ~U64( 0 ) );
      } else if ( option == "--steps" ) {
         line.options.steps = U32( number( "--steps", value( n ), 10'000'000 ) );
      } else {
         throw Velto::RangeError( "unknown option '" + option + "', see --help" );
      }
   }
   if ( line.json && line.junit ) {
      throw Velto::RangeError( "--json and --junit: one of them" );
   }
   return line;
}

int
list( bool json ) {
   const char * between = "";
   std::printf( "%s", json ? "[" : "" );
   for ( auto contract : contracts() ) {
      if ( json ) {
         std::printf( "%s\n {\"id\": %s, \"promise\": %s}", between,
                      Kiv::jsonQuoted( contract->id ).c_str(),
                      Kiv::jsonQuoted( contract->promise ).c_str() );
      } else {
         std::printf( "%-16s %s\n", contract->id, contract->promise );
      }
      between = ",";
   }
   std::printf( "%s", json ? "\n]\n" : "" );
   return 0;
}

void
printOutcome( const Outcome & outcome ) {
   String result = nameOf( outcome.result );
   if ( outcome.result == Result::broken ) {
      result = "breaks";
      for ( auto & finding : outcome.findings ) {
         result += " " + finding.id;
      }
   } else if ( !outcome.why.empty() ) {
      result += ": " + outcome.why;
   }
   std::printf( "%-16s %s\n", outcome.check.c_str(), printable( result ).c_str() );
   std::fflush( stdout );
}

void
printSummary( const std::vector< Outcome > & outcomes, const std::vector< Finding > & findings ) {
   int n = 0;
   for ( auto & finding : findings ) {
      std::printf( "\n%d. %s: %s\n   done:     %s\n   expected: %s\n   found:    %s\n", ++n,
                   finding.id.c_str(), finding.promise.c_str(), printable( finding.did ).c_str(),
                   printable( finding.expected ).c_str(), printable( finding.found ).c_str() );
   }
   std::printf( "\n%d finding%s\n", n, n == 1 ? "" : "s" );
   for ( Result result : { Result::notLooked, Result::skipped } ) {
      if ( U32 checks = count( outcomes, result ) ) {
         std::printf( "%u of %u checks: %s\n", checks, U32( outcomes.size() ), nameOf( result ) );
      }
   }
}

} // namespace

int
conformanceMain( int argc, const char * const * argv, const MakeChip & make ) {
   try {
      CommandLine line = parse( argc, argv );
      if ( line.help ) {
         std::printf( usage, argv[0] );
         return 0;
      }
      if ( line.version ) {
         std::printf( "%s %s\n", std::filesystem::path( argv[0] ).filename().c_str(), QON_VERSION );
         return 0;
      }
      if ( line.list ) {
         return list( line.json );
      }
      const bool text = !line.json && !line.junit;
      auto outcomes = runChecks( make, line.options, text ? printOutcome : nullptr );
      auto findings = findingsOf( outcomes );
      if ( text ) {
         printSummary( outcomes, findings );
      } else {
         std::fputs( ( line.json ? asJson( outcomes ) : asJunit( outcomes ) ).c_str(), stdout );
      }
      return findings.empty() ? 0 : exitFindings;
   } catch ( const Velto::RangeError & e ) {
      std::fprintf( stderr, "%s: error: %s\n", std::filesystem::path( argv[0] ).filename().c_str(),
                    printable( e.what() ).c_str() );
      return exitUsage;
   }
}

} // namespace QonConformance
