// A process that writes a table until it is killed, or one that reads it and finds fault.
//
// quarn-peer write PATH SEED   fills, says "complete", waits for a line, then changes for ever
// quarn-peer read PATH         until its input ends; exit code 1 if anything was wrong

#include <poll.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tests/quarn/Peer.h"

namespace {

using namespace QuarnTest;

int
write( const char * path, U64 seed ) {
   Kiv::EventLoop loop;
   Quarn::Server server( &loop, path );
   Writer writer( &server, "t", Quarn::Room{ 2 * peerKeys } );
   for ( const auto & [key, number] : peerModel( seed ) ) {
      writer.valueIs( { key }, Checked( key, number ) );
   }
   writer.completeIs( true );
   std::printf( "complete\n" );
   std::fflush( stdout );
   pollfd input = { 0, POLLIN, 0 };
   while ( poll( &input, 1, 0 ) == 0 ) {
      loop.runOnce( 0.001 );
   }
   Kiv::Rng rng( seed );
   for ( U64 number = 1u << 20;; ) {
      for ( U32 i = 0; i < 300; ++i ) {
         const U64 key = rng.below( peerKeys );
         if ( rng.percent( 30 ) ) {
            writer.valueDel( { key } );
         } else {
            writer.valueIs( { key }, Checked( key, ++number ) );
         }
      }
      loop.runOnce( 0 );
   }
}

int
read( const char * path ) {
   Kiv::EventLoop loop;
   Quarn::Source source( &loop, path );
   Reader reader( &source, "t" );
   Follower follower( &reader, &loop, 3 );
   pollfd input = { 0, POLLIN, 0 };
   U32 wrong = 0;
   U32 ends = 0;
   bool compared = false;
   while ( poll( &input, 1, 0 ) == 0 ) {
      loop.runOnce( 0.001 );
      U32 torn = 0;
      const Model seen = lookedUp( reader, peerKeys, &torn );
      const bool over = !source.connected() && follower.idle();
      if ( over && !compared ) {
         ++ends;
         wrong += peerDiffers( reader, follower.held ) > 1;
      }
      compared = over;
      wrong += torn;
   }
   wrong += follower.torn + follower.strange;
   std::printf( "%u values, %u deletions, %u overtaken, %u generations, %u ends, %u wrong\n",
                follower.values, follower.deletions, U32( follower.overtaken() ),
                follower.generations, ends, wrong );
   return wrong ? 1 : 0;
}

} // namespace

int
main( int argc, char ** argv ) {
   if ( argc == 4 && std::strcmp( argv[1], "write" ) == 0 ) {
      return write( argv[2], std::strtoull( argv[3], nullptr, 10 ) );
   }
   if ( argc == 3 && std::strcmp( argv[1], "read" ) == 0 ) {
      return read( argv[2] );
   }
   std::fprintf( stderr, "usage: quarn-peer write PATH SEED | read PATH\n" );
   return 2;
}
