#include "agent/server/SocketServer.h"

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sys/file.h>
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

SocketChoice
chosenSocket() {
   auto variable = []( const char * name ) {
      const char * value = std::getenv( name );
      return String( value ? value : "" );
   };
   if ( const String chosen = variable( "QON_SOCKET" ); !chosen.empty() ) {
      return { chosen, true };
   }
   if ( const String folder = variable( "XDG_RUNTIME_DIR" ); !folder.empty() ) {
      return { folder + "/qon-agent.sock" };
   }
   if ( geteuid() == 0 ) {
      return { "/run/qon-agent.sock" };
   }
   if ( const String home = variable( "HOME" ); !home.empty() ) {
      return { home + "/.qon-agent.sock" };
   }
   throw Velto::RangeError( "there is no place for a socket: give --socket, or set QON_SOCKET" );
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

namespace {

FileIdentity
identityOf( const String & path ) {
   struct stat about = {};
   return lstat( path.c_str(), &about ) == 0 ? FileIdentity{ about.st_dev, about.st_ino }
                                             : FileIdentity();
}

/** The folder of a socket, locked: of several agents that look whether the socket is free, one at a
    time does. */
class FolderLock {
 public:
   explicit FolderLock( const String & path ) {
      const auto slash = path.rfind( '/' );
      const String folder = slash == String::npos ? "." : path.substr( 0, slash + 1 );
      fd_ = open( folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC );
      if ( fd_ < 0 ) {
         refuse( path, String( "no socket can be made here: " ) + std::strerror( errno ) );
      }
      // Others may hold a lock for longer than an agent does: not for ever.
      for ( int tries = 0; flock( fd_, LOCK_EX | LOCK_NB ) != 0; ++tries ) {
         if ( tries == mostTries ) {
            giveUp( fd_, path, "busy: somebody has locked the socket's folder" );
         }
         poll( nullptr, 0, msPerTry );
      }
   }
   ~FolderLock() { close( fd_ ); }
   FolderLock( const FolderLock & ) = delete;
   FolderLock & operator=( const FolderLock & ) = delete;

 private:
   static constexpr int mostTries = 200;
   static constexpr int msPerTry = 10;
   int fd_;
};

/** Removes the file of an agent that died. */
void
makeRoom( const String & path ) {
   struct stat about = {};
   if ( lstat( path.c_str(), &about ) != 0 ) {
      return;
   }
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

/** Nobody connects meanwhile: the file is its owner's alone, and nobody listens yet. */
void
give( int fd, const String & path, const SocketAccess & access ) {
   auto failed = [&]( const String & what ) {
      unlink( path.c_str() );
      giveUp( fd, path, what );
   };
   if ( !access.group.empty() ) {
      const group * found = getgrnam( access.group.c_str() );
      if ( !found ) {
         failed( "there is no group '" + access.group + "'" );
      } else if ( chown( path.c_str(), uid_t( -1 ), found->gr_gid ) != 0 ) {
         failed( "it cannot be given to group '" + access.group + "': " + std::strerror( errno ) );
      }
   }
   if ( chmod( path.c_str(), access.mode ) != 0 ) {
      failed( String( "its mode cannot be set: " ) + std::strerror( errno ) );
   }
}

} // namespace

int
SocketServer::listenAt( const String & path, const SocketAccess & access ) {
   const sockaddr_un address = addressOf( path );
   const FolderLock lock( path );
   makeRoom( path );
   int fd = newSocket();
   const mode_t before = umask( 0177 );
   const bool bound =
         bind( fd, reinterpret_cast< const sockaddr * >( &address ), sizeof( address ) ) == 0;
   const int why = errno;
   umask( before );
   if ( !bound ) {
      giveUp( fd, path, String( "no socket can be made here: " ) + std::strerror( why ) );
   }
   give( fd, path, access );
   if ( listen( fd, backlog ) != 0 ) {
      giveUp( fd, path, std::strerror( errno ) );
   }
   return fd;
}

SocketServer::SocketServer( Kiv::EventLoop & loop, const String & path,
                            Connection::LineHandler handler, const SocketAccess & access )
    : FdWatch( &loop, listenAt( path, access ) ), loop_( loop ), path_( path ),
      identity_( identityOf( path ) ), handler_( std::move( handler ) ),
      spare_( spareDescriptor() ) {
   fcntl( fd(), F_SETFL, O_NONBLOCK );
   wanted( true, false );
}

SocketServer::~SocketServer() {
   connections_.clear();
   if ( identityOf( path_ ) == identity_ ) {
      unlink( path_.c_str() );
   }
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
