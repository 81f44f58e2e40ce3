// The smallest agent outside the tree: it overrides nothing, and shows what the library says to
// that.
//
//    a child, QON_NOOP_AGENT unset -> the library calls a hook -> its report, and abort()
//    a child, QON_NOOP_AGENT set   -> the same call is silent and returns

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Qon/include/framework/QonCommonSmData.h"
#include "Qon/include/topology/QonStpSm.h"
#include "platform/Kiv/TaskScheduler.h"

namespace {

/** A chip-specific agent that has no code for any chip yet. */
class MinimalStpSm : public Qon::StpSm {
 public:
   using StpSm::StpSm;
};

/** Starts the topology state machine, which settles the trapping of BPDUs with the chip. */
void
runAgent() {
   Kiv::VirtualScheduler scheduler;
   auto acsd = Qon::qonCommonSmDataFactory( "acsd" );
   acsd->initializedIs( true );
   auto stpSm =
         Qon::smIs< MinimalStpSm >( acsd, Velto::make< Bridging::Topology::Config >( "config" ),
                                    Velto::make< Bridging::Topology::Inst::Status >( "status" ),
                                    Velto::make< Qon::TopoHelper >() );
   stpSm->initializedIs( true );
   scheduler.runFor( 1 );
}

/** Runs the agent in a child. What it wrote to standard error goes to `words`; how it ended. */
int
inChild( bool noop, char * words, std::size_t size ) {
   int pipe[2];
   if ( ::pipe( pipe ) != 0 ) {
      return -1;
   }
   std::fflush( stdout );
   pid_t pid = fork();
   if ( pid == 0 ) {
      dup2( pipe[1], STDERR_FILENO );
      noop ? setenv( "QON_NOOP_AGENT", "1", 1 ) : unsetenv( "QON_NOOP_AGENT" );
      runAgent();
      _exit( 0 );
   }
   close( pipe[1] );
   std::size_t length = 0;
   for ( ssize_t n; ( n = read( pipe[0], words + length, size - 1 - length ) ) > 0; ) {
      length += std::size_t( n );
   }
   words[length] = 0;
   close( pipe[0] );
   int status = -1;
   waitpid( pid, &status, 0 );
   return status;
}

} // namespace

int
main() {
   std::printf( "libQon %s\n", QON_VERSION );
   char words[2000];

   int status = inChild( false, words, sizeof( words ) );
   bool reported = WIFSIGNALED( status ) && WTERMSIG( status ) == SIGABRT &&
                   std::strstr( words, "Call to unimplemented function" );
   std::printf( "without hooks the agent ends, and says:\n%s\n", words );

   status = inChild( true, words, sizeof( words ) );
   bool silent = WIFEXITED( status ) && WEXITSTATUS( status ) == 0 && !words[0];
   std::printf( "with QON_NOOP_AGENT set the agent goes on%s%s\n", words[0] ? ", but says " : "",
                words );
   return reported && silent ? 0 : 1;
}
