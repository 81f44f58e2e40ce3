#include "agent/Changes.h"

#include <sys/mman.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "agent/Events.h"
#include "agent/base/StateFile.h"
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

/** Values that come together: all of them are looked at before the first is set, so that one that
    does not fit leaves everything as it was. */
void
setTogether( Orvane::EntityManager & entities, const State & values ) {
   for ( auto & [path, value] : values ) {
      entities.check( path, textOfJson( value ) );
   }
   for ( auto & [path, value] : values ) {
      entities.set( path, textOfJson( value ) );
   }
}

/** An event that a client gives: it happens now. */
void
happen( Agent & agent, const String & text ) {
   const Json line = parseJson( text );
   if ( !line.is_object() ) {
      throw Velto::RangeError( "expected an object such as {\"event\": \"link\", ...}, found " +
                               String( line.type_name() ) );
   }
   if ( line.contains( "time" ) ) {
      throw Velto::RangeError( "an event that is given to a running agent has no time" );
   }
   String unknown;
   auto happens = Events( agent ).parse( line, &unknown );
   if ( !unknown.empty() ) {
      throw Velto::RangeError( unknown );
   }
   happens();
}

} // namespace

const std::vector< String > &
changeKinds() {
   static const std::vector< String > all = { "set",   "together", "insert", "delete",
                                              "event", "raise",    "verify" };
   return all;
}

String
applyChange( Agent & agent, const String & kind, const String & text ) {
   auto end = text.find( '\n' );
   String first = text.substr( 0, end );
   String rest = end == String::npos ? String() : text.substr( end + 1 );
   if ( kind == "set" ) {
      agent.entities().set( first, rest );
   } else if ( kind == "together" ) {
      setTogether( agent.entities(), parseState( text ) );
   } else if ( kind == "event" ) {
      happen( agent, text );
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
