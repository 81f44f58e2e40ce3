// What a client sends to the agent's socket: requests of qonctl and commands of verification.

#include <sys/socket.h>
#include <unistd.h>

#include "agent/server/Console.h"
#include "fuzz/Fuzz.h"
#include "fuzz/World.h"

namespace {

constexpr unsigned mostRounds = 2000;

/** Reads what has been answered. */
void
drain( int fd ) {
   char piece[65536];
   while ( recv( fd, piece, sizeof( piece ), MSG_DONTWAIT ) > 0 ) {
   }
}

} // namespace

FUZZ( socket ) {
   Fuzz::World< Kiv::EventLoop > world;
   world.load( Fuzz::smallSwitch );
   world.agent.inputsRead();
   QonAgent::Console console( world.agent );
   int ends[2];
   VELTO_ASSERT( socketpair( AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends ) == 0 );
   bool ended = false;
   {
      QonAgent::Connection connection(
            world.scheduler, ends[0],
            [&]( auto & from, const Fuzz::String & line ) { console.line( from, line ); },
            [&]( auto & ) { ended = true; } );
      const Fuzz::String bytes = input.rest();
      send( ends[1], bytes.data(), bytes.size(), MSG_NOSIGNAL );
      shutdown( ends[1], SHUT_WR );
      // A watch keeps the connection: then there is nothing more to come once all is read.
      for ( unsigned round = 0; round < mostRounds && !ended; ++round ) {
         world.scheduler.runOnce( 0 );
         drain( ends[1] );
      }
   }
   close( ends[1] );
}
