// What goes over the connection of shared tables: to a writer from a client that sends anything, and to
// a reader from a writer that does.

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "fuzz/File.h"
#include "fuzz/Fuzz.h"
#include "platform/Kiv/LogRecorder.h"
#include "platform/Quarn/Follower.h"
#include "platform/Quarn/Messages.h"
#include "platform/Quarn/TableWriter.h"

namespace {

using Fuzz::String;

struct Number {
   U64 number = 0;
};
QUARN_LAYOUT( Number, number )

/** A socket with its address; connected, or waiting for who connects. */
struct Peer {
   Peer( const String & path, bool listens )
       : fd( ::socket( AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0 ) ) {
      sockaddr_un address = {};
      address.sun_family = AF_UNIX;
      std::memcpy( address.sun_path, path.data(), path.size() );
      auto * plain = reinterpret_cast< const sockaddr * >( &address );
      if ( listens ) {
         VELTO_ASSERT( bind( fd.get(), plain, sizeof( address ) ) == 0 &&
                       listen( fd.get(), 4 ) == 0 );
      } else {
         VELTO_ASSERT( connect( fd.get(), plain, sizeof( address ) ) == 0 );
      }
   }
   Quarn::Handle fd;
};

/** Packets of the lengths and bytes that the input has; one that begins with 1 is a message but for a
    few bytes. `file` goes with those whose length is odd. */
template< class Message >
void
sendPacket( Fuzz::Input & input, int to, int file ) {
   char bytes[256] = {};
   U32 size = input.number< U8 >();
   const bool withFile = size % 2;
   if ( input.number< U8 >() % 2 ) {
      const Message message;
      std::memcpy( bytes, &message, sizeof( message ) );
      for ( U32 i = 0; i < 8; ++i ) {
         const U8 at = input.number< U8 >();
         bytes[at < 4 ? at + 4 : at] = char( input.number< U8 >() );
      }
      size = sizeof( message );
   } else {
      for ( U32 i = 0; i < size; ++i ) {
         bytes[i] = char( input.number< U8 >() );
      }
   }
   iovec part = { bytes, size };
   msghdr packet = {};
   packet.msg_iov = &part;
   packet.msg_iovlen = 1;
   alignas( cmsghdr ) char control[CMSG_SPACE( 2 * sizeof( int ) )] = {};
   if ( withFile ) {
      packet.msg_control = control;
      packet.msg_controllen = sizeof( control );
      auto * header = CMSG_FIRSTHDR( &packet );
      header->cmsg_level = SOL_SOCKET;
      header->cmsg_type = SCM_RIGHTS;
      header->cmsg_len = CMSG_LEN( 2 * sizeof( int ) );
      const int files[] = { file, file };
      std::memcpy( CMSG_DATA( header ), files, sizeof( files ) );
   }
   sendmsg( to, &packet, MSG_NOSIGNAL | MSG_DONTWAIT );
}

void
turns( Kiv::EventLoop & loop ) {
   for ( U32 i = 0; i < 4; ++i ) {
      loop.runOnce( 0 );
   }
}

void
toWriter( Fuzz::Input & input, const String & path, int file ) {
   Kiv::EventLoop loop;
   Quarn::Server server( &loop, path );
   Quarn::TableWriter< Number, Number > table( &server, "t" );
   const Peer client( path, false );
   turns( loop );
   while ( !input.empty() ) {
      sendPacket< Quarn::Question >( input, client.fd.get(), file );
      table.valueIs( { 1 }, { input.number< U8 >() } );
      turns( loop );
   }
}

void
toReader( Fuzz::Input & input, const String & path, int file ) {
   Kiv::EventLoop loop;
   const Peer listener( path, true );
   Quarn::Source source( &loop, path );
   Quarn::TableReader< Number, Number > table( &source, "t" );
   turns( loop );
   const Quarn::Handle connection( accept4( listener.fd.get(), nullptr, nullptr, SOCK_NONBLOCK ) );
   while ( connection && !input.empty() ) {
      sendPacket< Quarn::Answer >( input, connection.get(), file );
      turns( loop );
   }
}

} // namespace

FUZZ( tablesocket ) {
   const Kiv::LogRecorder quiet;
   const Fuzz::File place;
   const Quarn::Handle page = Quarn::makePage();
   ( input.number< U8 >() % 2 ? toWriter : toReader )( input, place.name, page.get() );
   unlink( ( place.name + ".lock" ).c_str() );
}
