#include "agent/ctl/Client.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>
#include <utility>

#include "agent/server/SocketServer.h"

namespace QonAgent {

namespace {

constexpr double retryEvery = 0.05; // seconds
constexpr double maxTimeout = 1e6;
const char verificationEnd[] = "\"END_OF_VERIFICATION\" } ] }";

} // namespace

Client::Client( const String & path, double patience, double timeout )
    : path_( path ), timeout_( timeout ) {
   for ( fd_ = connectTo( path ); fd_ < 0; fd_ = connectTo( path ) ) {
      int why = errno;
      if ( patience <= 0 ) {
         throw NoAgent( path + ": no agent serves this socket: " + std::strerror( why ) );
      }
      patience -= retryEvery;
      poll( nullptr, 0, int( retryEvery * 1000 ) );
   }
}

Client::~Client() {
   close( fd_ );
}

void
Client::send( const String & bytes ) {
   for ( std::size_t sent = 0; sent < bytes.size(); ) {
      ssize_t n = ::send( fd_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL );
      if ( n < 0 && errno != EINTR ) {
         return; // why shows in what the agent has answered
      }
      sent += n > 0 ? std::size_t( n ) : 0;
   }
}

bool
Client::receive() {
   pollfd input = { fd_, POLLIN, 0 };
   if ( timeout_ > 0 && poll( &input, 1, int( std::min( timeout_, maxTimeout ) * 1000 ) ) == 0 ) {
      char text[32];
      std::snprintf( text, sizeof( text ), "%g", timeout_ );
      throw Silence( path_ + ": the agent has not answered within " + text + " s" );
   }
   char piece[65536];
   ssize_t n;
   do {
      n = recv( fd_, piece, sizeof( piece ), 0 );
   } while ( n < 0 && errno == EINTR );
   in_.append( piece, n > 0 ? std::size_t( n ) : 0 );
   return n > 0;
}

bool
Client::next( Json & line ) {
   std::size_t searched = read_;
   auto end = in_.find( '\n', searched );
   while ( end == String::npos ) {
      in_.erase( 0, std::exchange( read_, 0 ) );
      searched = in_.size();
      if ( !receive() ) {
         return false;
      }
      end = in_.find( '\n', searched );
   }
   line = Json::parse( in_.begin() + long( read_ ), in_.begin() + long( end ), nullptr, false );
   read_ = end + 1;
   if ( line.is_discarded() ) {
      throw NoAgent( path_ + ": this is no agent: its answer is not JSON" );
   }
   return true;
}

/** What says that it is all right. */
Json
Client::checked( Json answer ) const {
   if ( !answer.value( "ok", false ) ) {
      throw Velto::RangeError( answer.value( "error", "the agent refused" ) );
   }
   return answer;
}

Json
Client::ask( const Json & request ) {
   send( request.dump( -1, ' ', false, Json::error_handler_t::replace ) + "\n" );
   Json answer;
   if ( !next( answer ) ) {
      throw NoAgent( path_ + ": the agent closed the connection" );
   }
   return checked( std::move( answer ) );
}

bool
Client::more( Json & line ) {
   if ( !next( line ) ) {
      throw NoAgent( path_ + ": the answer broke off" );
   }
   const bool last = line.contains( "ok" );
   if ( last ) {
      checked( line );
   }
   return !last;
}

Json
Client::verify( const String & name ) {
   in_.erase( 0, std::exchange( read_, 0 ) );
   send( "VTS#" + name + "#\n" );
   while ( in_.find( verificationEnd ) == String::npos ) {
      if ( !receive() ) {
         throw NoAgent( path_ + ": the verification broke off" );
      }
   }
   auto end = in_.find( verificationEnd ) + sizeof( verificationEnd ) - 1;
   Json answer = Json::parse( in_.begin(), in_.begin() + long( end ), nullptr, false );
   in_.erase( 0, end );
   if ( answer.is_discarded() || !answer.is_object() || answer.empty() ) {
      throw NoAgent( path_ + ": the verification's answer is not JSON" );
   }
   Json findings = answer.front();
   findings.erase( findings.size() - 1 ); // the end mark
   return findings;
}

} // namespace QonAgent
