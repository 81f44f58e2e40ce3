#include "agent/base/Readiness.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace QonAgent {

void
tellServiceManager( const Velto::String & state ) {
   const char * name = std::getenv( "NOTIFY_SOCKET" );
   sockaddr_un address = {};
   address.sun_family = AF_UNIX;
   const std::size_t size = name ? std::strlen( name ) : 0;
   if ( size < 2 || size >= sizeof( address.sun_path ) ) {
      return;
   }
   std::memcpy( address.sun_path, name, size );
   if ( name[0] == '@' ) {
      address.sun_path[0] = '\0';
   }
   int fd = socket( AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0 );
   if ( fd >= 0 ) {
      sendto( fd, state.data(), state.size(), MSG_NOSIGNAL | MSG_DONTWAIT,
              reinterpret_cast< sockaddr * >( &address ),
              socklen_t( offsetof( sockaddr_un, sun_path ) + size ) );
      close( fd );
   }
}

} // namespace QonAgent
