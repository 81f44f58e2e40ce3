// Other processes: a writer that is killed in the middle, readers of any build, forks, and writer and
// reader in two threads below the thread sanitizer.
//
// QON_QUARN_KILLS      how often the writer is killed; 20 by default
// QON_QUARN_READER     a quarn-peer of another build, such as one for 32 bit, which reads along

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "tests/quarn/Peer.h"

extern char ** environ;

namespace QuarnTest {
namespace {

String
variable( const char * name, const String & otherwise ) {
   const char * value = std::getenv( name );
   return value ? value : otherwise;
}

String
program( const String & name ) {
   return variable( "QON_BIN", "build/debug/bin" ) + "/" + name;
}

/** A process with a pipe to its input and one from its output. */
class Process {
 public:
   explicit Process( const std::vector< String > & line ) {
      int in[2], out[2];
      VELTO_ASSERT( pipe2( in, O_CLOEXEC ) == 0 && pipe2( out, O_CLOEXEC ) == 0 );
      posix_spawn_file_actions_t actions;
      posix_spawn_file_actions_init( &actions );
      posix_spawn_file_actions_adddup2( &actions, in[0], 0 );
      posix_spawn_file_actions_adddup2( &actions, out[1], 1 );
      posix_spawn_file_actions_adddup2( &actions, out[1], 2 );
      std::vector< char * > words;
      for ( const String & word : line ) {
         words.push_back( const_cast< char * >( word.c_str() ) );
      }
      words.push_back( nullptr );
      started_ = posix_spawn( &id_, words[0], &actions, nullptr, words.data(), environ ) == 0;
      posix_spawn_file_actions_destroy( &actions );
      close( in[0] );
      close( out[1] );
      in_ = in[1];
      out_ = out[0];
   }
   ~Process() {
      if ( id_ > 0 ) {
         kill();
      }
      close( in_ );
      close( out_ );
   }
   bool started() const { return started_; }
   void kill() {
      ::kill( id_, SIGKILL );
      wait();
   }
   int wait() {
      int status = -1;
      waitpid( std::exchange( id_, 0 ), &status, 0 );
      return status;
   }
   void say( const String & text ) { VELTO_ASSERT( ::write( in_, text.data(), text.size() ) > 0 ); }
   /** All that it says until its end; its exit status. */
   int end( String * said ) {
      close( std::exchange( in_, -1 ) );
      char part[4096];
      for ( ssize_t n; ( n = ::read( out_, part, sizeof( part ) ) ) > 0; ) {
         said->append( part, size_t( n ) );
      }
      return wait();
   }

 private:
   pid_t id_ = 0;
   bool started_ = false;
   int in_ = -1;
   int out_ = -1;
};

TEST( Processes, AKilledWriterLeavesNothingTornAndLosesNothing ) {
   Folder folder;
   const String path = folder / "tables";
   Kiv::EventLoop loop;
   Quarn::Source source( &loop, path );
   Reader reader( &source, "t" );
   Follower follower( &reader, &loop, 3 );
   std::vector< std::unique_ptr< Process > > others;
   others.push_back( std::make_unique< Process >(
         std::vector< String >{ program( "quarn-peer" ), "read", path } ) );
   if ( const String other = variable( "QON_QUARN_READER", "" ); !other.empty() ) {
      others.push_back(
            std::make_unique< Process >( std::vector< String >{ other, "read", path } ) );
      ASSERT_TRUE( others.back()->started() ) << other;
   }
   const U64 kills = std::strtoull( variable( "QON_QUARN_KILLS", "20" ).c_str(), nullptr, 10 );
   Kiv::Rng rng( kills );
   U32 unclear = 0;
   for ( U64 seed = 1; seed <= kills; ++seed ) {
      const Model model = peerModel( seed );
      Process writer( { program( "quarn-peer" ), "write", path, std::to_string( seed ) } );
      ASSERT_TRUE( writer.started() );
      ASSERT_TRUE( runUntil(
            loop, [&] { return reader.complete() && follower.idle() && follower.held == model; } ) )
            << "of the writer " << seed << " " << follower.held.size() << " of " << model.size()
            << " keys were told";
      writer.say( "go\n" );
      const double end = Kiv::now() + rng.below( 4000 ) / 1e6;
      while ( Kiv::now() < end ) {
         loop.runOnce( 0.0001 );
      }
      writer.kill();
      ASSERT_TRUE( runUntil( loop, [&] { return !source.connected() && follower.idle(); } ) );
      EXPECT_FALSE( reader.complete() );
      ASSERT_LE( peerDiffers( reader, follower.held ), 1u ) << "kill " << seed;
      unclear += peerDiffers( reader, follower.held );
      U32 torn = 0;
      lookedUp( reader, peerKeys, &torn );
      ASSERT_EQ( torn + follower.torn + follower.strange, 0u ) << "kill " << seed;
   }
   for ( const auto & other : others ) {
      String said;
      EXPECT_EQ( other->end( &said ), 0 ) << said;
      std::printf( "reader: %s", said.c_str() );
   }
   std::printf( "here: %u values, %u deletions, overtaken %u times, %u entries behind the head\n",
                follower.values, follower.deletions, U32( follower.overtaken() ), unclear );
}

TEST( Processes, AChildThatLivesOnKeepsNeitherConnectionNorLock ) {
   Folder folder;
   const String path = folder / "tables";
   Kiv::EventLoop loop;
   auto server = std::make_unique< Quarn::Server >( &loop, path );
   auto writer = std::make_unique< Writer >( server.get(), "t" );
   writer->completeIs( true );
   Quarn::Source source( &loop, path );
   Reader reader( &source, "t" );
   ASSERT_TRUE( runUntil( loop, [&] { return reader.complete(); } ) );
   const pid_t child = fork();
   if ( child == 0 ) {
      pause();
      _exit( 0 );
   }
   writer.reset();
   server.reset();
   EXPECT_TRUE( runUntil( loop, [&] { return !source.connected(); } ) );
   EXPECT_NO_THROW( server = std::make_unique< Quarn::Server >( &loop, path ) );
   EXPECT_TRUE( runUntil( loop, [&] { return source.connected(); } ) );
   kill( child, SIGKILL );
   waitpid( child, nullptr, 0 );
}

TEST( Processes, WriterAndReaderInTwoThreadsRaceNowhere ) {
   if ( access( program( "quarn-threads" ).c_str(), X_OK ) != 0 ) {
      GTEST_SKIP() << "the compiler has no thread sanitizer";
   }
   rlimit space = {};
   if ( getrlimit( RLIMIT_AS, &space ) != 0 || space.rlim_cur != RLIM_INFINITY ) {
      GTEST_SKIP() << "the thread sanitizer needs an address space without a limit";
   }
   Process threads( { program( "quarn-threads" ), "60000" } );
   String said;
   EXPECT_EQ( threads.end( &said ), 0 ) << said;
   EXPECT_EQ( said.find( "ThreadSanitizer" ), String::npos ) << said;
   std::printf( "%s", said.c_str() );
}

} // namespace
} // namespace QuarnTest
