// The agent's socket: whatever a client does costs its own connection at most.

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/un.h>

#include <filesystem>
#include <thread>

#include <nlohmann/json.hpp>

#include "tests/agent/SocketClient.h"

namespace Tests {

namespace {

using QonAgent::Connection;
using QonAgent::Json;
using QonAgent::SocketServer;

const char getMode[] = R"({"do": "get", "path": "acsd/operationalMode"})"
                       "\n";
const char mode[] = R"({"ok":true,"value":"switching"})";

TEST( Server, AnswersLinesHoweverTheyArrive ) {
   ServerWorld w;
   SocketClient a( w.loop, w.path );
   SocketClient b( w.loop, w.path );
   String request = getMode;
   a.send( request.substr( 0, 9 ) ); // half a command
   b.send( request + request + request );
   for ( int i = 0; i < 3; ++i ) {
      EXPECT_EQ( b.line(), mode );
   }
   a.send( request.substr( 9 ) );
   EXPECT_EQ( a.line(), mode );
   a.send( "{\"do\": \"get\", \"path\": \"acsd/operationalMode\"}\r\n" );
   EXPECT_EQ( a.line(), mode );
   // The last question of a client that says nothing more is answered all the same.
   b.send( request );
   b.endInput();
   EXPECT_EQ( b.line(), mode );
   EXPECT_TRUE( b.ended() );
}

TEST( Server, GarbageIsAnsweredAndTheConnectionGoesOn ) {
   ServerWorld w;
   SocketClient client( w.loop, w.path );
   struct {
      const char * line;
      const char * error;
   } const cases[] = {
         { "\n", "1:1: not valid JSON: it ends too early" },
         { "[1, 2]\n", "expected an object such as {\"do\": \"help\"}, found array" },
         { "{}\n", "field 'do' is missing" },
         { "{\"do\": 7}\n", "field 'do': expected a text, found 7" },
         { "{\"do\": \"dance\"}\n", "cannot do 'dance'" },
         { "{\"do\": \"get\"}\n", "field 'path' is missing" },
         { "{\"do\": \"get\", \"path\": \"nowhere\"}\n", "nowhere: lies in no mount" },
         { "{\"do\": \"set\", \"path\": \"acsd/minIntfs\", \"value\": [1]}\n",
           "expected a text, a number or a truth value, found array" },
         { "{\"do\": \"watch\"}\n", "field 'path' is missing" },
         { "{\"do\": \"show\", \"words\": [\"dragons\"]}\n",
           "there is nothing to show as 'dragons'; 'show' alone lists what there is" },
         { "{\"do\": \"run\", \"seconds\": 1}\n",
           "this agent runs on real time; --virtual-time makes it wait for 'run'" },
         { "{\"do\": \"raise\", \"message\": \"X\", \"arguments\": []}\n",
           "No module raises a message \"X\"" },
   };
   for ( auto & c : cases ) {
      client.send( c.line );
      Json answer = Json::parse( client.line(), nullptr, false );
      EXPECT_EQ( answer.value( "error", "" ), c.error ) << c.line;
   }
   client.send( String( "\xff\x00\x01{", 4 ) + "\n" );
   EXPECT_NE( client.line().find( "not valid JSON" ), String::npos );
   client.send( getMode );
   EXPECT_EQ( client.line(), mode );
}

TEST( Server, AMegabyteWithoutALineEndIsOneErrorAndTheEnd ) {
   ServerWorld w;
   SocketClient other( w.loop, w.path );
   SocketClient client( w.loop, w.path );
   client.send( String( 1 << 20, 'x' ) );
   EXPECT_EQ( client.line(), R"({"ok":false,"error":"a line has at most 65536 bytes"})" );
   EXPECT_TRUE( client.ended() );
   EXPECT_TRUE( w.clientsAre( 1 ) );
   other.send( getMode );
   EXPECT_EQ( other.line(), mode );
}

TEST( Server, ClientsThatVanish ) {
   ServerWorld w;
   for ( int i = 0; i < 3; ++i ) {
      SocketClient client( w.loop, w.path );
      EXPECT_TRUE( w.clientsAre( 1 ) );
      if ( i == 1 ) {
         client.send( "{\"do\": \"ge" );
      } else if ( i == 2 ) { // gone before the answer is written
         client.send( "{\"do\": \"dump\", \"path\": \"acsd\"}\n{\"do\": \"watch\", \"path\": "
                      "\"acsd\"}\n" );
      }
      client.leave();
      EXPECT_TRUE( w.clientsAre( 0 ) ) << i;
   }
   w.agent.acsd()->minIntfsIs( 3 ); // nobody watches it any more
}

TEST( Server, ASlowReaderIsNotReadFromAndOthersAreServed ) {
   ServerWorld w;
   SocketClient slow( w.loop, w.path );
   SocketClient other( w.loop, w.path );
   for ( int i = 0; i < 400; ++i ) {
      w.agent.acsd()->internalVlanIs( intf( "Ethernet" + std::to_string( i ) ), U32( i ) );
   }
   const int questions = 50;
   String all;
   for ( int i = 0; i < questions; ++i ) {
      all += "{\"do\": \"dump\", \"path\": \"acsd\"}\n";
   }
   slow.send( all );
   other.send( getMode );
   EXPECT_EQ( other.line(), mode );
   // It reads after all, and has missed nothing.
   for ( int i = 0; i < questions; ++i ) {
      ASSERT_EQ( slow.line(), R"({"ok":true})" ) << i;
      U32 lines = 0;
      while ( slow.line() != R"({"ok":true})" ) {
         ASSERT_LT( ++lines, 1000u );
      }
      ASSERT_GT( lines, 400u ) << i;
   }
}

TEST( Server, ManyRequestsAtOnceLeaveRoomForOthersAndAreAllAnswered ) {
   ServerWorld w;
   SocketClient many( w.loop, w.path ), other( w.loop, w.path );
   w.loop.runOnce( 0 );
   const U32 requests = 300; // 15 kB: one packet
   String all;
   for ( U32 i = 0; i < requests; ++i ) {
      all += getMode;
   }
   many.send( all );
   many.endInput();
   other.send( getMode );
   EXPECT_EQ( other.line(), mode );
   const U64 before = w.loop.rounds().times;
   for ( U32 i = 0; i < requests; ++i ) {
      ASSERT_EQ( many.line(), mode ) << i;
   }
   EXPECT_GE( w.loop.rounds().times - before, 20u ); // some fifteen in each at most
   EXPECT_TRUE( many.ended() );
}

TEST( Server, AWatcherThatSaysNothingMoreStillHears ) {
   ServerWorld w;
   SocketClient watcher( w.loop, w.path );
   watcher.send( "{\"do\": \"watch\", \"path\": \"acsd/minIntfs\"}\n" );
   for ( const char * line : { R"({"ok":true})", R"({"path":"acsd/minIntfs","value":"0"})",
                               R"({"ok":true})" } ) { // what holds, and that it is all
      EXPECT_EQ( watcher.line(), line );
   }
   watcher.endInput();
   w.loop.runOnce( 0.01 );
   w.agent.acsd()->minIntfsIs( 3 );
   EXPECT_EQ( watcher.line(), R"({"path":"acsd/minIntfs","value":"3"})" );
   watcher.leave();
   EXPECT_TRUE( w.clientsAre( 0 ) );
}

TEST( Server, AWatcherThatNeverReadsIsDropped ) {
   ServerWorld w;
   SocketClient watcher( w.loop, w.path );
   SocketClient other( w.loop, w.path );
   watcher.send( "{\"do\": \"watch\", \"path\": \"acsd/minIntfs\"}\n" );
   EXPECT_EQ( watcher.line(), R"({"ok":true})" );
   EXPECT_EQ( watcher.line(), R"({"path":"acsd/minIntfs","value":"0"})" );
   EXPECT_EQ( watcher.line(), R"({"ok":true})" );
   for ( U32 i = 1; i < 60000; ++i ) {
      w.agent.acsd()->minIntfsIs( U16( i ) );
   }
   EXPECT_TRUE( w.clientsAre( 1 ) );
   other.send( getMode );
   EXPECT_EQ( other.line(), mode );
}

TEST( Server, ManyClientsAtOnceAndOneTooMany ) {
   ServerWorld w;
   std::vector< std::unique_ptr< SocketClient > > clients;
   for ( int i = 0; i < 200; ++i ) {
      clients.push_back( std::make_unique< SocketClient >( w.loop, w.path ) );
      w.loop.runOnce( 0 );
   }
   EXPECT_TRUE( w.clientsAre( 200 ) );
   for ( auto & client : clients ) {
      client->send( getMode );
      ASSERT_EQ( client->line(), mode );
   }
   // No descriptor is left: who comes is turned away, and the server stays.
   SocketClient early( w.loop, w.path );
   EXPECT_TRUE( w.clientsAre( 201 ) );
   rlimit limit = {};
   getrlimit( RLIMIT_NOFILE, &limit );
   rlimit lower = limit;
   lower.rlim_cur = 1024;
   setrlimit( RLIMIT_NOFILE, &lower );
   std::vector< int > taken;
   SocketClient late( w.loop, w.path );
   for ( int fd = dup( 0 ); fd >= 0; fd = dup( 0 ) ) {
      taken.push_back( fd );
   }
   EXPECT_TRUE( late.ended() );
   for ( int fd : taken ) {
      close( fd );
   }
   setrlimit( RLIMIT_NOFILE, &limit );
   early.send( getMode );
   EXPECT_EQ( early.line(), mode );
}

TEST( Server, TakesOverTheSocketOfTheDeadButNotOfTheLiving ) {
   ServerWorld w;
   auto attempt = [&]( const String & path ) -> String {
      try {
         SocketServer second( w.loop, path, {} );
      } catch ( const Velto::RangeError & e ) {
         return e.what();
      }
      return "";
   };
   EXPECT_EQ( attempt( w.path ), w.path + ": busy: another agent serves this socket" );
   const String plain = w.path + ".plain";
   close( open( plain.c_str(), O_CREAT | O_WRONLY, 0600 ) );
   EXPECT_EQ( attempt( plain ), plain + ": is not a socket, and stays" );
   EXPECT_EQ( unlink( plain.c_str() ), 0 );
   EXPECT_EQ( attempt( "/no/such/folder/s" ),
              "/no/such/folder/s: no socket can be made here: No such file or directory" );
   EXPECT_EQ( attempt( String( 200, 'x' ) ),
              String( 200, 'x' ) + ": a socket's path has 1 to 107 bytes" );
   w.server.reset();
   EXPECT_NE( access( w.path.c_str(), F_OK ), 0 );
   // Somebody died here without removing the file.
   int fd = socket( AF_UNIX, SOCK_STREAM, 0 );
   sockaddr_un address = {};
   address.sun_family = AF_UNIX;
   w.path.copy( address.sun_path, sizeof( address.sun_path ) - 1 );
   ASSERT_EQ( bind( fd, reinterpret_cast< sockaddr * >( &address ), sizeof( address ) ), 0 );
   close( fd );
   EXPECT_EQ( attempt( w.path ), "" );
   EXPECT_NE( access( w.path.c_str(), F_OK ), 0 );
   // Another agent that looks whether the socket is free has the folder for a moment.
   const auto parent = std::filesystem::path( w.path ).parent_path();
   const int folder = open( parent.c_str(), O_RDONLY | O_DIRECTORY );
   ASSERT_EQ( flock( folder, LOCK_EX ), 0 );
   std::thread other( [&] {
      usleep( 30000 );
      flock( folder, LOCK_UN );
   } );
   EXPECT_EQ( attempt( w.path ), "" );
   other.join();
   close( folder );
}

TEST( Server, LeavesNoDescriptorBehind ) {
   auto open = [] {
      return std::distance( std::filesystem::directory_iterator( "/proc/self/fd" ), {} );
   };
   const auto before = open();
   {
      ServerWorld w;
      SocketClient client( w.loop, w.path ), gone( w.loop, w.path );
      client.send( getMode );
      EXPECT_EQ( client.line(), mode );
   }
   EXPECT_EQ( open(), before );
}

TEST( Server, AVerificationCommandIsAnsweredAsItIs ) {
   ServerWorld w;
   SocketClient client( w.loop, w.path );
   String name = "qonVerify::qon-agent";
   String healthy = "{ \"" + name + "\" : [  { \"" + name + "\": \"END_OF_VERIFICATION\" } ] }";
   for ( auto command : { "VTS#" + name + "#\n", String( "VTS#somebody else#\n" ) } ) {
      client.send( command );
      EXPECT_EQ( client.upTo( "] }" ), healthy );
   }
   // A damaged map gives findings, and the answer is JSON.
   w.agent.entities().set( "acsd/portToLag[Ethernet9]", "Port-Channel9" );
   client.send( "VTS#" + name + "#\n" );
   Json answer = Json::parse( client.upTo( "END_OF_VERIFICATION\" } ] }" ), nullptr, false );
   ASSERT_FALSE( answer.is_discarded() );
   EXPECT_EQ( answer.front().size(), 2u );
   client.send( getMode );
   EXPECT_EQ( client.line(), mode );
}

} // namespace

} // namespace Tests
