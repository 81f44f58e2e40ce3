#include "agent/Changes.h"

#include <sys/mman.h>
#include <unistd.h>

#include "platform/Kiv/Text.h"

namespace QonAgent {

namespace {

/** A file in memory that stands in for a client, so that who writes to it never waits. */
class Capture {
 public:
   Capture() : fd_( memfd_create( "answer", MFD_CLOEXEC ) ) { VELTO_ASSERT( fd_ >= 0 ); }
   ~Capture() { close( fd_ ); }
   Capture( const Capture & ) = delete;
   Capture & operator=( const Capture & ) = delete;

   int fd() const { return fd_; }
   String content() const {
      String text;
      char piece[16384];
      for ( ;; ) {
         ssize_t n = pread( fd_, piece, sizeof( piece ), off_t( text.size() ) );
         if ( n <= 0 ) {
            return text;
         }
         text.append( piece, std::size_t( n ) );
      }
   }

 private:
   int fd_;
};

String
verify( Agent & agent, const String & command ) {
   if ( !agent.verification().handle ) {
      throw Velto::RangeError( "this agent does not verify itself" );
   }
   Capture capture;
   agent.verification().handle( capture.fd(), command );
   return capture.content();
}

} // namespace

const std::vector< String > &
changeKinds() {
   static const std::vector< String > all = { "set", "insert", "delete", "raise", "verify" };
   return all;
}

String
applyChange( Agent & agent, const String & kind, const String & text ) {
   auto end = text.find( '\n' );
   String first = text.substr( 0, end );
   String rest = end == String::npos ? String() : text.substr( end + 1 );
   if ( kind == "set" ) {
      agent.entities().set( first, rest );
   } else if ( kind == "insert" ) {
      agent.entities().insert( text );
   } else if ( kind == "delete" ) {
      agent.entities().del( text );
   } else if ( kind == "raise" ) {
      auto arguments = Kiv::split( text, '\n' );
      arguments.erase( arguments.begin() );
      return Kiv::toText( Kiv::logByName( first, arguments ) );
   } else if ( kind == "verify" ) {
      return verify( agent, text );
   } else {
      throw Velto::RangeError( "there are no changes of kind '" + kind + "'" );
   }
   return "";
}

} // namespace QonAgent
