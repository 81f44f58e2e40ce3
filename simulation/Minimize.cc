#include <csignal>
#include <cstring>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/Velto/Assert.h"
#include "simulation/Run.h"

namespace Sim {

namespace {

/** What a child tells, in memory shared with it. */
struct Verdict {
   U32 steps;
   bool whole;
   U64 transcript;
   char feature[32];
   char what[512];
};

template< U32 n >
void
copyText( char ( &to )[n], const String & text ) {
   std::strncpy( to, text.c_str(), n - 1 );
}

Verdict &
sharedVerdict() {
   static Verdict * verdict = [] {
      void * p = mmap( nullptr, sizeof( Verdict ), PROT_READ | PROT_WRITE,
                       MAP_SHARED | MAP_ANONYMOUS, -1, 0 );
      VELTO_ASSERT( p != MAP_FAILED );
      return static_cast< Verdict * >( p );
   }();
   return *verdict;
}

/** What a dead child said: the assertion's expression, or its last line. */
String
lastWords( const String & said, int status ) {
   auto at = said.find( "Assertion '" );
   if ( at != String::npos ) {
      return said.substr( at, said.find( '\n', at ) - at );
   }
   at = said.find( "ERROR: AddressSanitizer: " );
   if ( at != String::npos ) {
      return said.substr( at + 7, said.find( ' ', at + 25 ) - at - 7 );
   }
   if ( WIFSIGNALED( status ) && WTERMSIG( status ) == SIGPROF ) {
      return "no end of a run";
   }
   return "death: " + said.substr( 0, said.find( '\n' ) );
}

[[noreturn]] void
beJudged( const History & history, int errors ) {
   dup2( errors, STDERR_FILENO );
   for ( int signal : { SIGABRT, SIGSEGV, SIGFPE, SIGBUS, SIGPROF } ) {
      std::signal( signal, SIG_DFL );
   }
   limitTime();
   Verdict & verdict = sharedVerdict();
   stepsCountIn( verdict.steps );
   Outcome outcome = replay( history );
   copyText( verdict.feature, outcome.finding.feature );
   copyText( verdict.what, outcome.finding.what );
   verdict.transcript = outcome.transcript;
   verdict.whole = true;
   _exit( 0 );
}

String
readAll( int descriptor ) {
   String text;
   char buffer[4096];
   ssize_t got;
   while ( ( got = read( descriptor, buffer, sizeof buffer ) ) > 0 ) {
      text.append( buffer, size_t( got ) );
   }
   close( descriptor );
   return text;
}

class Minimizer {
 public:
   Minimizer( const History & history, void ( *progress )( U32 ) )
       : best_( history ), progress_( progress ) {}

   History minimized() {
      Outcome outcome = judge( best_ );
      if ( !outcome.finding ) {
         return best_;
      }
      key_ = outcome.finding.key();
      best_.events.resize( outcome.steps );
      U32 chunk = U32( best_.events.size() );
      while ( chunk > 1 ) {
         chunk = ( chunk + 1 ) / 2;
         bool dropped = dropChunks( chunk );
         if ( chunk == 1 && dropped ) {
            chunk = 2; // once more, until every single event is needed
         }
      }
      simplify();
      return best_;
   }

 private:
   bool accept( const History & candidate ) {
      Outcome outcome = judge( candidate );
      if ( !outcome.finding || outcome.finding.key() != key_ ) {
         return false;
      }
      best_ = candidate;
      best_.events.resize( outcome.steps );
      if ( progress_ ) {
         progress_( U32( best_.events.size() ) );
      }
      return true;
   }

   bool dropChunks( U32 chunk ) {
      bool dropped = false;
      U32 start = 0;
      while ( start < best_.events.size() && best_.events.size() > 1 ) {
         History candidate = best_;
         auto first = candidate.events.begin() + start;
         candidate.events.erase( first, start + chunk < candidate.events.size()
                                              ? first + chunk
                                              : candidate.events.end() );
         if ( accept( candidate ) ) {
            dropped = true;
         } else {
            start += chunk;
         }
      }
      return dropped;
   }

   /** Smaller numbers where they do as well. */
   void simplify() {
      for ( U32 i = 0; i < best_.events.size(); ++i ) {
         for ( U32 j = 0; j < mostArguments; ++j ) {
            for ( U32 value : { 0u, 1u } ) {
               History candidate = best_;
               if ( i < candidate.events.size() && candidate.events[i].args[j] > value ) {
                  candidate.events[i].args[j] = value;
                  accept( candidate );
               }
            }
         }
      }
   }

   History best_;
   String key_;
   void ( *progress_ )( U32 );
};

} // namespace

Outcome
judge( const History & history ) {
   Verdict & verdict = sharedVerdict();
   verdict = {};
   int ends[2];
   VELTO_ASSERT( pipe( ends ) == 0 );
   std::fflush( nullptr );
   pid_t child = fork();
   VELTO_ASSERT( child >= 0 );
   if ( child == 0 ) {
      beJudged( history, ends[1] );
   }
   close( ends[1] );
   String said = readAll( ends[0] );
   int status = 0;
   waitpid( child, &status, 0 );
   Outcome outcome;
   outcome.steps = verdict.steps;
   outcome.transcript = verdict.transcript;
   outcome.finding = { verdict.feature, verdict.what };
   if ( !verdict.whole ) {
      outcome.finding = { "fatal", lastWords( said, status ) };
   }
   return outcome;
}

History
minimize( const History & history, void ( *progress )( U32 ) ) {
   return Minimizer( history, progress ).minimized();
}

} // namespace Sim
