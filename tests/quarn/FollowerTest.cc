// Server, source, reader and follower over real sockets, in one event loop.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/Kiv/Rng.h"
#include "platform/Quarn/Messages.h"
#include "tests/quarn/Tables.h"

namespace QuarnTest {
namespace {

using Quarn::Found;
using Quarn::Server;
using Quarn::Source;
using testing::HasSubstr;

class Followed : public testing::Test {
 protected:
   Followed() {
      serverIs();
      source = std::make_unique< Source >( &loop, path );
      reader = std::make_unique< Reader >( source.get(), "t" );
      follower = std::make_unique< Follower >( reader.get(), &loop, 3 );
   }
   void serverIs() {
      writer.reset();
      server.reset();
      server = std::make_unique< Server >( &loop, path );
      writer = std::make_unique< Writer >( server.get(), "t", Quarn::Room{ 5000 } );
   }
   void put( U64 key, U64 number ) {
      ASSERT_TRUE( writer->valueIs( { key }, Checked( key, number ) ) );
      model[key] = number;
   }
   void turns( U32 n ) {
      for ( ; n > 0; --n ) {
         loop.runOnce( 0.02 );
      }
   }
   bool follows() {
      return runUntil( loop, [&] { return follower->idle() && follower->held == model; } );
   }

   Folder folder;
   const String path = folder / "tables";
   Kiv::EventLoop loop;
   std::unique_ptr< Server > server;
   std::unique_ptr< Writer > writer;
   std::unique_ptr< Source > source;
   std::unique_ptr< Reader > reader;
   std::unique_ptr< Follower > follower;
   Model model;
};

TEST_F( Followed, NothingIsSeenBeforeItIsCompleteAndEverythingAfter ) {
   put( 1, 10 );
   turns( 10 ); // so that the reader has the table
   Checked value;
   EXPECT_EQ( reader->value( { 1 }, &value ), Found::no );
   EXPECT_FALSE( reader->complete() );
   EXPECT_TRUE( source->connected() );
   writer->completeIs( true );
   EXPECT_TRUE( follows() );
   EXPECT_TRUE( reader->complete() );
   EXPECT_EQ( reader->value( { 1 }, &value ), Found::yes );
   EXPECT_EQ( value.number, 10u );
   EXPECT_EQ( reader->value( { 2 }, &value ), Found::no );
   put( 1, 11 );
   put( 2, 20 );
   EXPECT_EQ( reader->value( { 2 }, &value ), Found::yes ); // at once
   EXPECT_TRUE( follows() );
   writer->valueDel( { 1 } );
   model.erase( 1 );
   EXPECT_TRUE( follows() );
   EXPECT_EQ( follower->values, 3u );
   EXPECT_EQ( follower->deletions, 1u );
   EXPECT_EQ( follower->generations, 1u );
}

TEST_F( Followed, WhoSleepsIsWokenOnceATurn ) {
   writer->completeIs( true );
   EXPECT_TRUE( follows() );
   loop.runOnce( 0 );
   const U64 before = server->wakes();
   for ( U64 i = 0; i < 100; ++i ) {
      put( i, i );
   }
   EXPECT_TRUE( follows() );
   EXPECT_EQ( server->wakes(), before + 1 );
   loop.runOnce( 0.05 );
   EXPECT_EQ( server->wakes(), before + 1 ); // and nobody for nothing
}

TEST_F( Followed, WhoSleepsOnIsNotWokenAgain ) {
   writer->completeIs( true );
   follower.reset();
   reader.reset();
   source.reset();
   Kiv::EventLoop others;
   Source sleeper( &others, path );
   Reader asleep( &sleeper, "t" );
   Follower slow( &asleep, &others, 3 );
   auto followsOnce = [&] {
      others.runOnce( 0 );
      return slow.generations == 1 && slow.held == model && slow.idle();
   };
   ASSERT_TRUE( runUntil( loop, followsOnce ) );
   others.runOnce( 0 );
   const U64 before = server->wakes();
   for ( U64 key = 0; key < 3; ++key ) {
      put( key, key );
      loop.runOnce( 0.01 );
   }
   EXPECT_EQ( server->wakes(), before + 1 );
   EXPECT_TRUE( runUntil( loop, followsOnce ) );
}

TEST_F( Followed, ASlowReaderIsOvertakenAndTheWriterNotSlowed ) {
   writer->completeIs( true );
   Kiv::Rng rng( 1 );
   EXPECT_TRUE( follows() );
   for ( U32 round = 0; round < 5; ++round ) {
      for ( U32 i = 0; i < 20000; ++i ) { // of which the ring keeps 2,048
         const U64 key = rng.below( 4000 );
         if ( rng.percent( 45 ) ) {
            writer->valueDel( { key } );
            model.erase( key );
         } else {
            put( key, i );
         }
      }
      EXPECT_TRUE( follows() );
   }
   EXPECT_GE( follower->overtaken(), 4u ); // the first time it had not begun
   EXPECT_EQ( follower->strange + follower->torn, 0u );
   EXPECT_EQ( follower->told(), model.size() );
}

TEST_F( Followed, ANewWriterTakesOverWhenItIsCompleteAndADyingOneNever ) {
   for ( U64 i = 0; i < 500; ++i ) {
      put( i, i );
   }
   writer->completeIs( true );
   ASSERT_TRUE( follows() );
   const U32 told = follower->values;
   serverIs(); // the old one is gone
   Checked value;
   EXPECT_TRUE( runUntil( loop, [&] { return !source->connected(); } ) );
   EXPECT_FALSE( reader->complete() );
   EXPECT_EQ( reader->value( { 3 }, &value ), Found::yes );
   EXPECT_TRUE( runUntil( loop, [&] { return source->connected(); } ) );
   writer->valueIs( { 7 }, Checked( 7, 77777 ) ); // dies before it is complete
   turns( 10 );
   EXPECT_EQ( reader->value( { 7 }, &value ), Found::yes );
   EXPECT_EQ( value.number, 7u );
   serverIs();
   EXPECT_TRUE( runUntil( loop, [&] { return !source->connected(); } ) );
   EXPECT_TRUE( runUntil( loop, [&] { return source->connected(); } ) );
   EXPECT_EQ( follower->held, model );
   model.clear();
   for ( U64 i = 100; i < 600; ++i ) {
      put( i, i == 300 ? 1 : i );
   }
   writer->completeIs( true );
   EXPECT_TRUE( follows() );
   EXPECT_EQ( follower->values, told + 101 ); // the differences
   EXPECT_EQ( follower->deletions, 100u );
   EXPECT_EQ( follower->generations, 2u );
   EXPECT_TRUE( reader->complete() );
   EXPECT_EQ( follower->strange, 0u );
}

TEST_F( Followed, ATableMayComeGoAndComeAgainWhileItsWriterLives ) {
   writer->completeIs( true );
   put( 1, 1 );
   ASSERT_TRUE( follows() );
   writer.reset();
   EXPECT_TRUE( runUntil( loop, [&] { return !reader->complete(); } ) );
   EXPECT_EQ( reader->refusal(), "table 't' is not there yet" );
   EXPECT_EQ( follower->held, model );
   writer = std::make_unique< Writer >( server.get(), "t" );
   put( 2, 2 );
   model.erase( 1 );
   writer->completeIs( true );
   EXPECT_TRUE( follows() );
   EXPECT_EQ( reader->refusal(), "" );
}

TEST_F( Followed, AnotherTypeOrVersionIsRefusedInOneLine ) {
   Quarn::TableReader< Id, Other > other( source.get(), "t" );
   EXPECT_TRUE( runUntil( loop, [&] { return !other.refusal().empty(); } ) );
   EXPECT_THAT( other.refusal(), HasSubstr( "table 't' is of another type: fingerprint " ) );
   Other value;
   EXPECT_EQ( other.value( { 1 }, &value ), Found::no );
   // What a reader of another version sends and gets.
   Quarn::Handle socket( ::socket( AF_UNIX, SOCK_SEQPACKET, 0 ) );
   sockaddr_un address = {};
   address.sun_family = AF_UNIX;
   path.copy( address.sun_path, path.size() );
   ASSERT_EQ(
         connect( socket.get(), reinterpret_cast< sockaddr * >( &address ), sizeof( address ) ),
         0 );
   Quarn::Question question;
   question.version = 7;
   question.name[0] = 't';
   ASSERT_GT( send( socket.get(), &question, sizeof( question ), 0 ), 0 );
   Quarn::Answer answer;
   EXPECT_TRUE( runUntil( loop, [&] {
      return recv( socket.get(), &answer, sizeof( answer ), MSG_DONTWAIT ) > 0;
   } ) );
   EXPECT_STREQ( answer.line, "table 't': the writer has layout version 1, the reader 7" );
   // Who does not keep to the protocol is left alone.
   ASSERT_GT( send( socket.get(), "nonsense", 8, 0 ), 0 );
   EXPECT_TRUE( runUntil( loop, [&] { return server->readers() == 1; } ) );
}

TEST_F( Followed, AReaderThatTakesNoAnswersStopsNobody ) {
   Quarn::Handle socket( ::socket( AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0 ) );
   sockaddr_un address = {};
   address.sun_family = AF_UNIX;
   path.copy( address.sun_path, path.size() );
   ASSERT_EQ(
         connect( socket.get(), reinterpret_cast< sockaddr * >( &address ), sizeof( address ) ),
         0 );
   Quarn::Question question;
   question.version = Quarn::layoutVersion;
   question.name[0] = 'x';
   for ( U32 i = 0; i < 400; ++i ) {
      send( socket.get(), &question, sizeof( question ), MSG_NOSIGNAL );
      loop.runOnce( 0 );
   }
   writer->completeIs( true );
   put( 1, 1 );
   EXPECT_TRUE( follows() );
   EXPECT_TRUE( runUntil( loop, [&] { return server->readers() == 1; } ) ); // asked too much
}

TEST_F( Followed, HandlersMayEndFollowerReaderAndSource ) {
   for ( U64 i = 0; i < 10; ++i ) {
      put( i, i );
   }
   writer->completeIs( true );
   U32 calls = 0;
   follower->then = [&]( U64 ) {
      ++calls;
      std::exchange( follower, nullptr ).reset();
   };
   EXPECT_TRUE( runUntil( loop, [&] { return calls == 1; } ) );
   loop.runOnce( 0.01 );
   EXPECT_EQ( calls, 1u );
   for ( bool alsoSource : { false, true } ) {
      follower = std::make_unique< Follower >( reader.get(), &loop, 3 );
      follower->then = [&]( U64 ) {
         reader.reset();
         if ( alsoSource ) {
            source.reset();
         }
      };
      // What it had begun to tell, it tells; then nothing new.
      EXPECT_TRUE( follows() );
      EXPECT_TRUE( writer->valueIs( { 1 }, Checked( 1, 99 ) ) );
      loop.runOnce( 0.02 );
      EXPECT_EQ( follower->held, model );
      writer->valueIs( { 1 }, Checked( 1, 1 ) );
      follower.reset();
      if ( !alsoSource ) {
         reader = std::make_unique< Reader >( source.get(), "t" );
      }
   }
}

TEST_F( Followed, HandlersMayWriteTheTableThatTheyFollow ) {
   writer->completeIs( true );
   follower->then = [&]( U64 key ) {
      if ( key < 500 ) {
         put( key + 1, key + 1 );
         writer->valueDel( { key } );
         model.erase( key );
      }
   };
   put( 1, 1 );
   EXPECT_TRUE( runUntil( loop, [&] { return follower->held == Model{ { 500, 500 } }; } ) );
   EXPECT_EQ( follower->strange, 0u );
}

TEST_F( Followed, AHandlerThatRaisesIsNotToldAgainAndTheRestIs ) {
   for ( U64 i = 0; i < 100; ++i ) {
      put( i, i );
   }
   writer->completeIs( true );
   follower->then = []( U64 key ) {
      if ( key % 10 == 0 ) {
         throw std::runtime_error( "handler" );
      }
   };
   U32 raised = 0;
   const double end = Kiv::now() + 10;
   while ( follower->held != model && Kiv::now() < end ) {
      try {
         loop.runOnce( 0.02 );
      } catch ( const std::runtime_error & ) {
         ++raised;
      }
   }
   EXPECT_EQ( follower->values, 100u );
   EXPECT_EQ( raised, 10u );
}

TEST( Sockets, OneWriterAPathAndNothingElseIsReplaced ) {
   Folder folder;
   Kiv::EventLoop loop;
   const String path = folder / "s";
   auto why = [&]( const String & at ) -> String {
      try {
         Server server( &loop, at );
      } catch ( const Velto::RangeError & e ) {
         return e.what();
      }
      return "";
   };
   {
      Server server( &loop, path, 0640 );
      struct stat about = {};
      ASSERT_EQ( stat( path.c_str(), &about ), 0 );
      EXPECT_EQ( about.st_mode & 0777, 0640u );
      EXPECT_NE( stat( ( path + ".new" ).c_str(), &about ), 0 );
      EXPECT_EQ( why( path ), path + ": busy: another writer serves this socket" );
      Writer table( &server, "t" );
   }
   EXPECT_EQ( why( path ), "" );
   EXPECT_EQ( access( path.c_str(), F_OK ), -1 ); // gone with its server
   FILE * plain = fopen( path.c_str(), "w" );
   fclose( plain );
   EXPECT_EQ( why( path ), path + ": is not a socket, and stays" );
   const String missing = folder / "no/such";
   EXPECT_THAT( why( missing ), HasSubstr( missing + ": no socket can be made here: " ) );
   const String tooLong = folder / String( 120, 'x' );
   EXPECT_EQ( why( tooLong ), tooLong + ": the path of a socket of tables has 1 to 103 bytes" );
   EXPECT_THROW( Source( &loop, tooLong ), Velto::RangeError );
}

TEST( Sockets, NamesOfTablesHave1To63Bytes ) {
   Folder folder;
   Kiv::EventLoop loop;
   Server server( &loop, folder / "s" );
   Source source( &loop, folder / "s" );
   const String longest( 63, 'n' );
   Writer writer( &server, longest );
   writer.completeIs( true );
   Reader reader( &source, longest );
   EXPECT_TRUE( runUntil( loop, [&] { return reader.complete(); } ) );
   for ( const String & name : { String(), String( 64, 'n' ), String( "a\0b", 3 ) } ) {
      EXPECT_THROW( Writer( &server, name ), Velto::RangeError );
      EXPECT_THROW( Reader( &source, name ), Velto::RangeError );
   }
}

} // namespace
} // namespace QuarnTest
