#include "conformance/Conformance.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "conformance/Trial.h"
#include "platform/Kiv/Text.h"

namespace QonConformance {

namespace {

using Result = Outcome::Result;

// What a child says, a line each: its kind, and texts between separators.
constexpr char saysDone = '.', saysDid = 'd', saysNotLooked = 'n', saysSkipped = 's',
               saysBroken = 'b';
constexpr char separator = '\x1f';
constexpr std::size_t wordsKept = 2; // lines of what a process that died wrote, and the last

class Pipe {
 public:
   Pipe() { VELTO_ASSERT( pipe2( fd_, O_CLOEXEC ) == 0 ); }
   ~Pipe() {
      close( fd_[0] );
      closeWriter();
   }
   Pipe( const Pipe & ) = delete;
   Pipe & operator=( const Pipe & ) = delete;
   int reader() const { return fd_[0]; }
   int writer() const { return fd_[1]; }
   void closeWriter() {
      if ( fd_[1] >= 0 ) {
         close( fd_[1] );
         fd_[1] = -1;
      }
   }

 private:
   int fd_[2];
};

void
say( int fd, char kind, const String & text ) {
   String line = kind + text;
   for ( char & c : line ) {
      c = c == '\n' ? ' ' : c;
   }
   line += '\n';
   for ( std::size_t at = 0; at < line.size(); ) {
      ssize_t n = write( fd, line.data() + at, line.size() - at );
      if ( n <= 0 ) {
         _exit( 3 );
      }
      at += std::size_t( n );
   }
}

[[noreturn]] void
child( const MakeChip & make, const Options & options, const Check & check, int fd ) {
   alarm( options.secondsToHang );
   try {
      Trial trial( make, options, [fd]( const String & what ) { say( fd, saysDid, what ); } );
      check.make( trial );
      bool looked = trial.whyNotLooked().empty();
      say( fd, looked ? saysDone : saysNotLooked, trial.whyNotLooked() );
   } catch ( const Skipped & skipped ) {
      say( fd, saysSkipped, skipped.why );
   } catch ( const Broken & broken ) {
      auto & f = broken.finding;
      say( fd, saysBroken,
           f.id + separator + f.promise + separator + f.did + separator + f.expected + separator +
                 f.found );
   } catch ( const std::exception & e ) {
      // It would end the agent.
      std::fprintf( stderr, "an exception that nobody caught: %s\n", e.what() );
      std::abort();
   }
   _exit( 0 );
}

/** What a child left behind. */
struct Remains {
   std::vector< String > lines; ///< what it said
   String words;                ///< the gist of what it wrote to standard error
   int status = 0;
};

String
gist( const String & text ) {
   auto lines = Kiv::split( text, '\n' );
   std::erase( lines, "" );
   String last;
   for ( std::size_t n = 0; n < lines.size(); ++n ) {
      // The beginning says what it is, the end where it led to.
      if ( n < wordsKept || n + 1 == lines.size() ) {
         last += ( last.empty() ? "" : " / " ) + lines[n];
      }
   }
   return last;
}

String
contentOf( std::FILE * file ) {
   String text;
   char piece[4096];
   std::rewind( file );
   while ( std::size_t n = std::fread( piece, 1, sizeof( piece ), file ) ) {
      text.append( piece, n );
   }
   return text;
}

Remains
runChild( const MakeChip & make, const Options & options, const Check & check ) {
   Pipe pipe;
   std::FILE * errors = std::tmpfile();
   VELTO_ASSERT( errors );
   std::fflush( nullptr );
   pid_t pid = fork();
   VELTO_ASSERT( pid >= 0 );
   if ( pid == 0 ) {
      dup2( fileno( errors ), STDERR_FILENO );
      child( make, options, check, pipe.writer() );
   }
   pipe.closeWriter();
   Remains remains;
   String said;
   char piece[16384];
   for ( ssize_t n; ( n = read( pipe.reader(), piece, sizeof( piece ) ) ) != 0; ) {
      said.append( piece, n > 0 ? std::size_t( n ) : 0 );
   }
   remains.lines = Kiv::split( said, '\n' );
   remains.lines.pop_back(); // what follows the last end of a line: nothing, or half a line
   while ( waitpid( pid, &remains.status, 0 ) < 0 && errno == EINTR ) {
   }
   remains.words = gist( contentOf( errors ) );
   std::fclose( errors );
   return remains;
}

/** What the last words of a process break. */
const Contract &
contractOf( const Check & check, const String & words ) {
   for ( auto feature : features() ) {
      for ( auto & last : feature->lastWords ) {
         if ( words.find( last.words ) != String::npos ) {
            return last.contract;
         }
      }
   }
   return check.contract;
}

String
howItDied( const Options & options, const Remains & remains ) {
   int status = remains.status;
   String found;
   if ( WIFSIGNALED( status ) && WTERMSIG( status ) == SIGALRM ) {
      found = "it did not return within " + Kiv::toText( options.secondsToHang ) + " s";
   } else if ( WIFSIGNALED( status ) ) {
      found = String( "the process died: " ) + strsignal( WTERMSIG( status ) );
   } else {
      found = "the process ended with status " + Kiv::toText( WEXITSTATUS( status ) );
   }
   return remains.words.empty() ? found : found + "; it wrote: " + remains.words;
}

/** A process that died without a verdict. */
Finding
deathOf( const Check & check, const Options & options, const Remains & remains ) {
   constexpr std::size_t kept = 6;
   std::vector< String > history;
   for ( auto & line : remains.lines ) {
      if ( line[0] == saysDid ) {
         history.push_back( line.substr( 1 ) );
      }
   }
   String did;
   for ( std::size_t n = history.size() > kept ? history.size() - kept : 0; n < history.size();
         ++n ) {
      did += ( did.empty() ? "" : "; " ) + history[n];
   }
   const Contract & contract = contractOf( check, remains.words );
   return { contract.id, contract.promise, did, "an agent that goes on",
            howItDied( options, remains ) };
}

Outcome
outcomeOf( const MakeChip & make, const Options & options, const Check & check ) {
   Remains remains = runChild( make, options, check );
   String last = remains.lines.empty() ? String() : remains.lines.back();
   char verdict = last.empty() ? 0 : last[0];
   String what = last.empty() ? last : last.substr( 1 );
   Outcome outcome{ check.contract.id, Result::broken, "", {} };
   if ( verdict == saysBroken ) {
      auto parts = Kiv::split( what, separator );
      parts.resize( 5 );
      outcome.findings = { { parts[0], parts[1], parts[2], parts[3], parts[4] } };
   } else if ( verdict == saysDid || verdict == 0 || remains.status != 0 ) {
      outcome.findings = { deathOf( check, options, remains ) };
   } else {
      outcome.result = verdict == saysSkipped     ? Result::skipped
                       : verdict == saysNotLooked ? Result::notLooked
                                                  : Result::ok;
      outcome.why = what;
   }
   return outcome;
}

/** "mac" of "mac.full". */
String
featureOf( const String & id ) {
   return id.substr( 0, id.find( '.' ) );
}

/** Which checks tell something of `only`. */
std::vector< Check >
checksFor( const String & only ) {
   std::vector< Check > all, ofFeature, own;
   bool everyFeature = only.empty(), known = only.empty();
   for ( auto feature : features() ) {
      bool meant = featureOf( only ) == feature->name;
      everyFeature |= meant && feature->checks.empty();
      for ( auto contract : feature->contracts ) {
         known |= only == contract->id || only == feature->name;
      }
      for ( auto & check : feature->checks ) {
         all.push_back( check );
         if ( meant ) {
            ofFeature.push_back( check );
         }
         if ( only == check.contract.id ) {
            own.push_back( check );
         }
      }
   }
   if ( !known ) {
      throw Velto::RangeError( "there is no contract or feature '" + only + "'" );
   }
   return everyFeature ? all : own.empty() ? ofFeature : own;
}

} // namespace

std::vector< const Contract * >
contracts() {
   std::vector< const Contract * > all;
   for ( auto feature : features() ) {
      all.insert( all.end(), feature->contracts.begin(), feature->contracts.end() );
   }
   return all;
}

std::vector< Outcome >
runChecks( const MakeChip & make, const Options & options,
           const std::function< void( const Outcome & ) > & report ) {
   std::vector< Outcome > outcomes;
   for ( auto & check : checksFor( options.only ) ) {
      outcomes.push_back( outcomeOf( make, options, check ) );
      if ( report ) {
         report( outcomes.back() );
      }
   }
   return outcomes;
}

std::vector< Finding >
findingsOf( const std::vector< Outcome > & outcomes ) {
   std::vector< Finding > findings;
   for ( auto & outcome : outcomes ) {
      for ( auto & finding : outcome.findings ) {
         bool known = std::any_of( findings.begin(), findings.end(),
                                   [&]( auto & other ) { return other.id == finding.id; } );
         if ( !known ) {
            findings.push_back( finding );
         }
      }
   }
   return findings;
}

} // namespace QonConformance
