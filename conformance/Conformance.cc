#include "conformance/Conformance.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "conformance/Trial.h"

namespace QonConformance {

namespace {

// What a child says, a line each: its kind, and texts between separators.
constexpr char saysDone = '.', saysDid = 'd', saysSkipped = 's', saysBroken = 'b';
constexpr char separator = '\x1f';
constexpr std::size_t wordsKept = 2; // lines of what a process that died wrote, and the last

std::vector< Check >
allChecks() {
   std::vector< Check > all;
   for ( auto checks : { &macChecks(), &vlanChecks(), &topoChecks(), &lagChecks() } ) {
      all.insert( all.end(), checks->begin(), checks->end() );
   }
   return all;
}

/** "mac" of "mac.full". */
String
featureOf( const String & id ) {
   return id.substr( 0, id.find( '.' ) );
}

Finding
finding( const String & id, const String & did, const String & expected, const String & found ) {
   for ( auto & contract : contracts() ) {
      if ( id == contract.id ) {
         return { id, contract.promise, did, expected, found };
      }
   }
   return { id, "", did, expected, found };
}

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
      say( fd, saysDone, "" );
   } catch ( const Skipped & skipped ) {
      say( fd, saysSkipped, skipped.why );
   } catch ( const Broken & broken ) {
      auto & f = broken.finding;
      say( fd, saysBroken,
           f.id + separator + f.did + separator + f.expected + separator + f.found );
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
   std::vector< String > lines( 1 );
   for ( char c : text ) {
      if ( c == '\n' ) {
         lines.emplace_back();
      } else {
         lines.back() += c;
      }
   }
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
   for ( std::size_t at = 0, end; ( end = said.find( '\n', at ) ) != String::npos; at = end + 1 ) {
      remains.lines.push_back( said.substr( at, end - at ) );
   }
   while ( waitpid( pid, &remains.status, 0 ) < 0 && errno == EINTR ) {
   }
   remains.words = gist( contentOf( errors ) );
   std::fclose( errors );
   return remains;
}

/** A process that died without a verdict. */
Finding
deathOf( const Check & check, const Options & options, const Remains & remains ) {
   String did;
   constexpr std::size_t kept = 6;
   std::vector< String > history;
   for ( auto & line : remains.lines ) {
      if ( line[0] == saysDid ) {
         history.push_back( line.substr( 1 ) );
      }
   }
   for ( std::size_t n = history.size() > kept ? history.size() - kept : 0; n < history.size();
         ++n ) {
      did += ( did.empty() ? "" : "; " ) + history[n];
   }
   String id = check.id;
   if ( remains.words.find( "Call to unimplemented function" ) != String::npos ) {
      id = "hook.missing";
   } else if ( remains.words.find( "unexpected mac program status" ) != String::npos ) {
      id = "mac.status";
   }
   bool hung = WIFSIGNALED( remains.status ) && WTERMSIG( remains.status ) == SIGALRM;
   String found =
         hung ? "it did not return within " + Kiv::toText( options.secondsToHang ) + " s"
         : WIFSIGNALED( remains.status )
               ? String( "the process died: " ) + strsignal( WTERMSIG( remains.status ) )
               : "the process ended with status " + Kiv::toText( WEXITSTATUS( remains.status ) );
   if ( !remains.words.empty() ) {
      found += "; it wrote: " + remains.words;
   }
   return finding( id, did, "an agent that goes on", found );
}

Outcome
outcomeOf( const MakeChip & make, const Options & options, const Check & check ) {
   Remains remains = runChild( make, options, check );
   Outcome outcome{ check.id, "", {} };
   String last = remains.lines.empty() ? String() : remains.lines.back();
   char verdict = last.empty() ? 0 : last[0];
   if ( verdict == saysSkipped ) {
      outcome.skipped = last.substr( 1 );
   } else if ( verdict == saysBroken ) {
      std::vector< String > parts( 1 );
      for ( char c : last.substr( 1 ) ) {
         if ( c == separator ) {
            parts.emplace_back();
         } else {
            parts.back() += c;
         }
      }
      parts.resize( 4 );
      outcome.findings.push_back( finding( parts[0], parts[1], parts[2], parts[3] ) );
   } else if ( verdict != saysDone || remains.status != 0 ) {
      outcome.findings.push_back( deathOf( check, options, remains ) );
   }
   return outcome;
}

/** Which checks tell something of `only`. */
std::vector< Check >
checksFor( const String & only ) {
   bool known = only.empty();
   bool own = false;
   for ( auto & contract : contracts() ) {
      known |= only == contract.id || only == featureOf( contract.id );
   }
   if ( !known ) {
      throw Velto::RangeError( "there is no contract or feature '" + only + "'" );
   }
   auto all = allChecks();
   for ( auto & check : all ) {
      own |= only == check.id;
   }
   std::erase_if( all, [&]( const Check & check ) {
      return own ? only != check.id
                 : !only.empty() && only != "hook.missing" && only != "hook" &&
                         featureOf( only ) != featureOf( check.id );
   } );
   return all;
}

} // namespace

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
