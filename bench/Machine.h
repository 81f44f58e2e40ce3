#pragma once
// What a benchmark reads of the machine: time, instructions, memory.
//
// Under `scripts/bench NAME --instructions` a figure that else is nanoseconds is a number of
// instructions: the same for the same program and inputs, whatever the machine does besides.

#include <malloc.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>

#if __has_include( <valgrind/callgrind.h> )
#include <valgrind/callgrind.h>
#else
#define CALLGRIND_DUMP_STATS_AT( name )
#define CALLGRIND_ZERO_STATS
#endif

#include "platform/Velto/Types.h"

namespace Bench {

inline double
nanoseconds( clockid_t clock ) {
   timespec now;
   clock_gettime( clock, &now );
   return double( now.tv_sec ) * 1e9 + double( now.tv_nsec );
}

/** The processor's time for this thread, in nanoseconds. */
inline double
threadTime() {
   return nanoseconds( CLOCK_THREAD_CPUTIME_ID );
}

/** In nanoseconds, with the time in which this thread waits. */
inline double
wallTime() {
   return nanoseconds( CLOCK_MONOTONIC );
}

/** The folder that the counter writes into; null where nothing is counted. */
inline const char *
counts() {
   static const char * const folder = std::getenv( "QON_BENCH_COUNTS" );
   return folder;
}

/** Instructions up to now, of all threads; from one call to the next, the call itself excluded. */
inline double
instructions() {
   static double before = 0;
   static unsigned part = 0;
   CALLGRIND_DUMP_STATS_AT( "spent" );
   const std::string name = std::string( counts() ) + "/" + std::to_string( getpid() ) + "." +
                            std::to_string( ++part );
   std::ifstream file( name );
   for ( std::string line; std::getline( file, line ); ) {
      if ( line.starts_with( "summary: " ) ) {
         before += std::strtod( line.c_str() + 9, nullptr );
      }
   }
   unlink( name.c_str() );
   CALLGRIND_ZERO_STATS;
   return before;
}

/** What has been spent so far: nanoseconds of the processor, or instructions. What short operations
    take is never measured one by one: a call may cost milliseconds. */
inline double
spent() {
   return counts() ? instructions() : threadTime();
}

/** Of the allocator, its own headers included. */
inline U64
bytesInUse() {
   const auto info = mallinfo2();
   return U64( info.uordblks ) + info.hblkhd;
}

} // namespace Bench
