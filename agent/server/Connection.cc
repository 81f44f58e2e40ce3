#include "agent/server/Connection.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace QonAgent {

Connection::Connection( Kiv::EventLoop & loop, int fd, LineHandler handler, Ended ended )
    : FdWatch( &loop, fd ), handler_( std::move( handler ) ), ended_( std::move( ended ) ) {
   want();
}

Connection::~Connection() {
   more_ = nullptr;
   kept_.clear();
   close( fd() );
}

void
Connection::send( const String & bytes ) {
   out_ += bytes;
}

void
Connection::push( const String & bytes ) {
   if ( broken_ ) {
      return;
   }
   if ( pending() + bytes.size() > maxPending ) {
      // The hang-up comes back as an event, in which the connection ends.
      broken_ = true;
      shutdown( fd(), SHUT_RDWR );
      return;
   }
   out_ += bytes;
   want();
}

void
Connection::want() {
   wanted( !inputEnded_ && !ending_ && !answering() && !linesWait_, answering() || linesWait_ );
}

void
Connection::ready( bool readable, bool ) {
   bool hungUp = readable && inputEnded_; // the end of input is not waited for any more
   if ( readable && !inputEnded_ && !answering() && !linesWait_ ) {
      receive();
   }
   flush();
   if ( more_ ) {
      nextPiece();
   }
   if ( !more_ ) {
      handleLines();
   }
   bool idle = !answering() && !linesWait_ && ( ending_ || ( inputEnded_ && kept_.empty() ) );
   if ( broken_ || hungUp || idle ) {
      auto ended = ended_; // survives this object
      ended( *this );
      return;
   }
   want();
}

void
Connection::receive() {
   char piece[16384];
   ssize_t n = recv( fd(), piece, sizeof( piece ), MSG_DONTWAIT );
   if ( n > 0 ) {
      in_.append( piece, std::size_t( n ) );
   } else if ( n == 0 ) {
      inputEnded_ = true;
   } else if ( errno != EAGAIN && errno != EINTR ) {
      broken_ = true;
   }
}

void
Connection::handleLines() {
   std::size_t begin = 0;
   linesWait_ = false;
   for ( U32 handled = 0; !answering() && !ending_ && !broken_; ++handled ) {
      auto end = in_.find( '\n', begin );
      if ( ( end == String::npos ? in_.size() : end ) - begin > maxLine ) {
         send( "{\"ok\":false,\"error\":\"a line has at most 65536 bytes\"}\n" );
         ending_ = true;
      } else if ( end == String::npos ) {
         break;
      } else if ( handled == linesATurn ) {
         linesWait_ = true;
         break;
      } else {
         String line = in_.substr( begin, end - begin );
         begin = end + 1;
         if ( !line.empty() && line.back() == '\r' ) {
            line.pop_back();
         }
         handler_( *this, line );
      }
      flush();
   }
   in_.erase( 0, ending_ ? String::npos : begin );
}

/** One piece a turn, so that other clients, clocks and tasks have theirs. */
void
Connection::nextPiece() {
   if ( pending() || broken_ ) {
      return;
   }
   More more = std::exchange( more_, nullptr ); // gone, if it raises
   if ( more( out_ ) ) {
      more_ = std::move( more );
   }
   flush();
}

void
Connection::flush() {
   while ( pending() && !broken_ ) {
      ssize_t n = ::send( fd(), out_.data() + sent_, pending(), MSG_DONTWAIT | MSG_NOSIGNAL );
      if ( n < 0 && errno == EINTR ) {
         continue;
      }
      if ( n < 0 ) {
         broken_ = errno != EAGAIN;
         return;
      }
      sent_ += std::size_t( n );
   }
   if ( !pending() ) {
      out_.clear();
      sent_ = 0;
   }
}

} // namespace QonAgent
