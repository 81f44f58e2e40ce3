#include "agent/base/ReadFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/Velto/Assert.h"

namespace QonAgent {

using Velto::String;

namespace {

[[noreturn]] void
refuse( const String & file, const String & why ) {
   throw Velto::RangeError( file + ": " + why );
}

struct Descriptor {
   int fd;
   ~Descriptor() {
      if ( fd > 0 ) {
         close( fd );
      }
   }
};

} // namespace

String
readFile( const String & file ) {
   Descriptor d{ file == "-" ? 0 : open( file.c_str(), O_RDONLY | O_CLOEXEC ) };
   struct stat about = {};
   if ( d.fd < 0 || fstat( d.fd, &about ) != 0 ) {
      refuse( file, String( "cannot be read: " ) + std::strerror( errno ) );
   }
   if ( S_ISDIR( about.st_mode ) ) {
      refuse( file, "is a directory, a file was expected" );
   }
   String content;
   if ( S_ISREG( about.st_mode ) ) {
      content.reserve( std::size_t( about.st_size ) + 4096 ); // its users put a line before it
   }
   char piece[65536];
   for ( ;; ) {
      ssize_t n = read( d.fd, piece, sizeof( piece ) );
      if ( n < 0 && errno != EINTR ) {
         refuse( file, String( "cannot be read: " ) + std::strerror( errno ) );
      }
      if ( n == 0 ) {
         return content;
      }
      content.append( piece, n > 0 ? std::size_t( n ) : 0 );
   }
}

} // namespace QonAgent
