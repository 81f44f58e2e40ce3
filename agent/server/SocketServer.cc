#include "agent/server/SocketServer.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace QonAgent {

namespace {

constexpr int backlog = 64;

[[noreturn]] void
refuse( const String & path, const String & why ) {
   throw Velto::RangeError( path + ": " + why );
}

sockaddr_un
addressOf( const String & path ) {
   sockaddr_un address = {};
   address.sun_family = AF_UNIX;
   if ( path.empty() || path.size() >= sizeof( address.sun_path ) ) {
      refuse( path, "a socket's path has 1 to 107 bytes" );
   }
   std::memcpy( address.sun_path, path.data(), path.size() );
   return address;
}

int
newSocket() {
   int fd = socket( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0 );
   VELTO_ASSERT( fd >= 0 );
   return fd;
}

int
spareDescriptor() {
   return open( "/dev/null", O_RDONLY | O_CLOEXEC );
}

/** Closes a descriptor and says why it was of no use. */
[[noreturn]] void
giveUp( int fd, const String & path, const String & why ) {
   close( fd );
   refuse( path, why );
}

} // namespace

String
defaultSocket() {
   const char * folder = std::getenv( "XDG_RUNTIME_DIR" );
   return String( folder && *folder ? folder : "/tmp" ) + "/qon-agent.sock";
}

int
connectTo( const String & path ) {
   sockaddr_un address = addressOf( path );
   int fd = newSocket();
   if ( connect( fd, reinterpret_cast< sockaddr * >( &address ), sizeof( address ) ) == 0 ) {
      return fd;
   }
   int why = errno;
   close( fd );
   errno = why;
   return -1;
}

int
SocketServer::listenAt( const String & path ) {
   sockaddr_un address = addressOf( path );
   struct stat about = {};
   if ( lstat( path.c_str(), &about ) == 0 ) {
      if ( !S_ISSOCK( about.st_mode ) ) {
         refuse( path, "is not a socket, and stays" );
      }
      int other = connectTo( path );
      if ( other >= 0 ) {
         giveUp( other, path, "busy: another agent serves this socket" );
      }
      if ( errno != ECONNREFUSED ) {
         refuse( path, std::strerror( errno ) );
      }
      unlink( path.c_str() );
   }
   int fd = newSocket();
   if ( bind( fd, reinterpret_cast< sockaddr * >( &address ), sizeof( address ) ) != 0 ) {
      giveUp( fd, path, String( "no socket can be made here: " ) + std::strerror( errno ) );
   }
   if ( listen( fd, backlog ) != 0 ) {
      giveUp( fd, path, std::strerror( errno ) );
   }
   return fd;
}

SocketServer::SocketServer( Kiv::EventLoop & loop, const String & path,
                            Connection::LineHandler handler )
    : FdWatch( &loop, listenAt( path ) ), loop_( loop ), path_( path ),
      handler_( std::move( handler ) ), spare_( spareDescriptor() ) {
   fcntl( fd(), F_SETFL, O_NONBLOCK );
   wanted( true, false );
}

SocketServer::~SocketServer() {
   connections_.clear();
   unlink( path_.c_str() );
   close( fd() );
   if ( spare_ >= 0 ) {
      close( spare_ );
   }
}

void
SocketServer::ready( bool, bool ) {
   int fd = accept4( this->fd(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK );
   if ( fd < 0 && ( errno == EMFILE || errno == ENFILE ) ) {
      turnAway();
   }
   if ( fd < 0 ) {
      return;
   }
   auto ended = [this]( Connection & connection ) { connections_.erase( &connection ); };
   auto connection = std::make_unique< Connection >( loop_, fd, handler_, ended );
   Connection * key = connection.get();
   connections_[key] = std::move( connection );
}

void
SocketServer::turnAway() {
   close( spare_ );
   int fd = accept4( this->fd(), nullptr, nullptr, SOCK_CLOEXEC );
   if ( fd >= 0 ) {
      close( fd );
   }
   spare_ = spareDescriptor();
}

} // namespace QonAgent
