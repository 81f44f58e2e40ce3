// The chip by itself: runs agents over it, one after the other, and goes on holding what it holds.
//
//    piped-chip "agent --once -e hosts.jsonl" "agent --once -e hosts.jsonl"
//
// Each command finds the chip in $CHIP_FD. Behind each a line tells what the chip holds, and how many
// entries the command changed.

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>

#include "Server.h"

int
main( int argc, char ** argv ) {
   Piped::Server chip;
   for ( int n = 1; n < argc; ++n ) {
      int ends[2];
      if ( ::socketpair( AF_UNIX, SOCK_STREAM, 0, ends ) != 0 ) {
         return 2;
      }
      const pid_t agent = ::fork();
      if ( agent == 0 ) {
         ::close( ends[0] );
         ::setenv( "CHIP_FD", std::to_string( ends[1] ).c_str(), 1 );
         ::execl( "/bin/sh", "sh", "-c", argv[n], nullptr );
         ::_exit( 127 );
      }
      ::close( ends[1] );
      const U64 before = chip.changes();
      chip.serve( ends[0] );
      ::close( ends[0] );
      int status = 0;
      ::waitpid( agent, &status, 0 );
      std::printf( "chip: %zu hosts, %llu entries changed\n", chip.hosts(),
                   static_cast< unsigned long long >( chip.changes() - before ) );
      std::fflush( stdout );
      if ( !WIFEXITED( status ) || WEXITSTATUS( status ) != 0 ) {
         return 1;
      }
   }
   return 0;
}
