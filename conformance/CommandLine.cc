// The program around the checks.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "conformance/Conformance.h"
#include "platform/Kiv/Printable.h"
#include "platform/Kiv/Text.h"

namespace QonConformance {

namespace {

constexpr int exitFindings = 1;
constexpr int exitUsage = 2;

constexpr char usage[] =
      "usage: %s [--list] [--only ID] [--seed N] [--steps N] [--json] [--version]\n"
      "Shows whether the hook classes of a chip keep the contracts of the library.\n"
      "  --list     the contracts: id and promise\n"
      "  --only ID  one contract (mac.full) or the contracts of a feature (mac)\n"
      "  --seed N   of the random histories; 1 unless given\n"
      "  --steps N  of each random history; 2000 unless given\n"
      "  --json     the result as JSON\n"
      "  --version  which version this is\n"
      "Exit codes: 0 no findings, 1 findings, 2 a wrong command line or no chip.\n";

using Kiv::printable;
using Result = Outcome::Result;

struct CommandLine {
   Options options;
   bool list = false;
   bool json = false;
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
      String option = argv[n];
      if ( option == "--list" || option == "--json" || option == "--help" || option == "-h" ) {
         ( option == "--list" ? line.list : option == "--json" ? line.json : line.help ) = true;
      } else if ( option == "--version" ) {
         line.version = true;
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

const char *
nameOf( Result result ) {
   switch ( result ) {
   case Result::ok:
      return "ok";
   case Result::broken:
      return "broken";
   case Result::skipped:
      return "skipped";
   case Result::notLooked:
      return "not looked at";
   }
   return "";
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

U32
count( const std::vector< Outcome > & outcomes, Result result ) {
   return U32( std::count_if( outcomes.begin(), outcomes.end(),
                              [&]( auto & outcome ) { return outcome.result == result; } ) );
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

void
printJson( const std::vector< Outcome > & outcomes, const std::vector< Finding > & findings ) {
   std::printf( "{\n \"checks\": [" );
   const char * between = "";
   for ( auto & outcome : outcomes ) {
      std::printf( "%s\n  {\"id\": %s, \"result\": \"%s\", \"why\": %s}", between,
                   Kiv::jsonQuoted( outcome.check ).c_str(), nameOf( outcome.result ),
                   Kiv::jsonQuoted( outcome.why ).c_str() );
      between = ",";
   }
   std::printf( "\n ],\n \"findings\": [" );
   between = "";
   for ( auto & f : findings ) {
      std::printf( "%s\n  {\"id\": %s,\n   \"promise\": %s,\n   \"done\": %s,\n"
                   "   \"expected\": %s,\n   \"found\": %s}",
                   between, Kiv::jsonQuoted( f.id ).c_str(), Kiv::jsonQuoted( f.promise ).c_str(),
                   Kiv::jsonQuoted( f.did ).c_str(), Kiv::jsonQuoted( f.expected ).c_str(),
                   Kiv::jsonQuoted( f.found ).c_str() );
      between = ",";
   }
   std::printf( "\n ]\n}\n" );
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
      auto outcomes = runChecks( make, line.options, line.json ? nullptr : printOutcome );
      auto findings = findingsOf( outcomes );
      if ( line.json ) {
         printJson( outcomes, findings );
      } else {
         printSummary( outcomes, findings );
      }
      return findings.empty() ? 0 : exitFindings;
   } catch ( const Velto::RangeError & e ) {
      std::fprintf( stderr, "%s: error: %s\n", std::filesystem::path( argv[0] ).filename().c_str(),
                    printable( e.what() ).c_str() );
      return exitUsage;
   }
}

} // namespace QonConformance
