#pragma once
// A server with an agent behind it on a real socket, and clients whose every byte a test decides.

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "agent/base/Json.h"
#include "agent/server/Console.h"
#include "agent/server/SocketServer.h"
#include "tests/agent/AgentWorld.h"

namespace Tests {

/** What may be called as often as the loop should go round while a test waits. */
template< class Done >
bool
eventually( Kiv::EventLoop & loop, Done done ) {
   for ( int i = 0; i < 2000 && !done(); ++i ) {
      loop.runOnce( 0.005 );
   }
   return done();
}

class SocketClient {
 public:
   SocketClient( Kiv::EventLoop & loop, const String & path )
       : loop_( loop ), fd_( QonAgent::connectTo( path ) ) {
      EXPECT_GE( fd_, 0 );
   }
   ~SocketClient() { leave(); }
   SocketClient( const SocketClient & ) = delete;

   void leave() {
      if ( fd_ >= 0 ) {
         close( fd_ );
      }
      fd_ = -1;
   }
   void endInput() { shutdown( fd_, SHUT_WR ); }
   /** Sends as much as is taken, running the loop when the socket is full. */
   void send( const String & bytes ) {
      std::size_t sent = 0;
      for ( int i = 0; sent < bytes.size() && i < 4000; ++i ) {
         ssize_t n =
               ::send( fd_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT );
         if ( n < 0 && errno != EAGAIN ) {
            return;
         }
         sent += n > 0 ? std::size_t( n ) : 0;
         loop_.runOnce( 0 );
      }
   }
   /** The next line; "" if none comes. */
   String line() {
      eventually( loop_, [&] { return in_.find( '\n' ) != String::npos || !receive(); } );
      auto end = in_.find( '\n' );
      if ( end == String::npos ) {
         return "";
      }
      String line = in_.substr( 0, end );
      in_.erase( 0, end + 1 );
      return line;
   }
   /** Everything until `mark`. */
   String upTo( const String & mark ) {
      eventually( loop_, [&] { return in_.find( mark ) != String::npos || !receive(); } );
      return std::exchange( in_, "" );
   }
   /** Whether the server has ended the connection. */
   bool ended() {
      return eventually( loop_, [&] { return !receive(); } );
   }

 private:
   /** False once the connection has ended. */
   bool receive() {
      char piece[65536];
      ssize_t n = recv( fd_, piece, sizeof( piece ), MSG_DONTWAIT );
      in_.append( piece, n > 0 ? std::size_t( n ) : 0 );
      return n > 0 || ( n < 0 && errno == EAGAIN );
   }

   Kiv::EventLoop & loop_;
   int fd_;
   String in_;
};

/** The agent runs on the loop, in real time. */
class ServerWorld {
 public:
   ServerWorld() {
      server.emplace( loop, path, [this]( QonAgent::Connection & c, const String & line ) {
         console.line( c, line );
      } );
   }
   bool clientsAre( U32 n ) {
      return eventually( loop, [&] { return server->connections() == n; } );
   }

   String path = "/tmp/qon-agent-test." + std::to_string( getpid() );
   Kiv::EventLoop loop;
   Kiv::LogRecorder logs;
   SoftChip::Chip chip{ loop };
   QonAgent::Agent agent{ loop, chip };
   QonAgent::Console console{ agent };
   std::optional< QonAgent::SocketServer > server;
};

} // namespace Tests
