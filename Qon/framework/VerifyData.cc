#include "Qon/include/framework/VerifyData.h"

#include <limits.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "platform/Kiv/Describe.h"

KIV_DEFINE( Qon::VerifyRequired )
KIV_DEFINE( Qon::VerifyData )

namespace Qon {

namespace {

constexpr int patienceSlice = 10; // milliseconds
/** What a pipe that has room takes without waiting. */
constexpr std::size_t pipeful = PIPE_BUF;

/** The inside of a JSON text. Bytes beyond ASCII count as the characters of their number, so that
    the result is sound whatever the text holds. */
String
jsonEscaped( const String & text ) {
   static const char digits[] = "0123456789abcdef";
   String escaped;
   for ( char c : text ) {
      auto byte = U8( c );
      if ( byte < 0x20 || byte >= 0x7f ) {
         escaped += String( "\\u00" ) + digits[byte >> 4] + digits[byte & 15];
         continue;
      }
      if ( c == '"' || c == '\\' ) {
         escaped += '\\';
      }
      escaped += c;
   }
   return escaped;
}

String
withoutLineEnd( const String & text ) {
   return !text.empty() && text.back() == '\n' ? text.substr( 0, text.size() - 1 ) : text;
}

/** Waits until the descriptor can be written to. */
bool
waitForRoom( int fd, Kiv::Seconds patience ) {
   const auto slices = S64( patience * 1000 / patienceSlice );
   for ( S64 i = 0; i <= slices; ++i ) { // slices, so that signals do not begin it again
      pollfd wanted = { fd, POLLOUT, 0 };
      int ready = poll( &wanted, 1, patienceSlice );
      if ( ready > 0 ) {
         return ( wanted.revents & ( POLLOUT | POLLERR ) ) == POLLOUT;
      }
      if ( ready < 0 && errno != EINTR ) {
         return false;
      }
   }
   return false;
}

/** write(), for which a closed pipe is an error like others: the signal that comes with it is
    taken back, unless it was waiting before. */
ssize_t
writeQuietly( int fd, const char * bytes, std::size_t count ) {
   sigset_t pipeSignal, former, pending;
   sigemptyset( &pipeSignal );
   sigaddset( &pipeSignal, SIGPIPE );
   sigpending( &pending );
   pthread_sigmask( SIG_BLOCK, &pipeSignal, &former );
   const ssize_t written = write( fd, bytes, count );
   const int error = errno;
   if ( written < 0 && error == EPIPE && !sigismember( &pending, SIGPIPE ) ) {
      const timespec atOnce = {};
      sigtimedwait( &pipeSignal, nullptr, &atOnce );
   }
   pthread_sigmask( SIG_SETMASK, &former, nullptr );
   errno = error;
   return written;
}

/** One attempt, which does not wait longer than `patience`. */
ssize_t
writeSome( int fd, const char * bytes, std::size_t count, Kiv::Seconds patience ) {
   const ssize_t written = send( fd, bytes, count, MSG_NOSIGNAL | MSG_DONTWAIT );
   if ( written >= 0 || errno != ENOTSOCK ) {
      return written;
   }
   if ( !waitForRoom( fd, patience ) ) {
      errno = EPIPE;
      return -1;
   }
   return writeQuietly( fd, bytes, std::min( count, pipeful ) );
}

} // namespace

bool
writeToClient( U32 socket, const String & text, Kiv::Seconds patience ) {
   if ( socket == 0 ) {
      return false;
   }
   for ( std::size_t done = 0; done < text.size(); ) {
      ssize_t written =
            writeSome( int( socket ), text.data() + done, text.size() - done, patience );
      if ( written > 0 ) {
         done += std::size_t( written );
         continue;
      }
      bool full = written == 0 || errno == EAGAIN || errno == EWOULDBLOCK;
      bool again = full ? waitForRoom( int( socket ), patience ) : errno == EINTR;
      if ( !again ) {
         return false;
      }
   }
   return true;
}

VerifyCheck::~VerifyCheck() {
   attach( nullptr, "", nullptr, nullptr );
}

void
VerifyCheck::attach( Velto::Ptr< VerifyData > data, const String & name, Velto::Node * owner,
                     Run run ) {
   if ( data_ && data_ != data ) {
      std::erase( data_->checks_, this );
   }
   if ( data && data_ != data ) {
      data->checks_.push_back( this );
   }
   data_ = std::move( data );
   name_ = name;
   owner_ = owner;
   run_ = run;
}

void
VerifyData::doRequestVerify() {
   if ( verify() && verifyRequired() ) {
      verifyRequired()->verifyRequiredIs( verifyRequired()->verifyRequired() + 1 );
   }
}

void
VerifyData::resetVerifyData() {
   const Velto::Hold alive( this );
   Velto::FirstError error;
   error.run( [&] { socketIs( 0 ); } );
   error.run( [&] { cliVerifyOutputDelAll(); } );
   error.run( [&] { verifyOutputIs( VerifyOutput() ); } );
   error.run( [&] { verifyIncIs( 0 ); } );
   error.pass();
}

void
VerifyData::initVerifyData( U32 socket ) {
   const Velto::Hold alive( this );
   resetVerifyData();
   socketIs( socket );
}

void
VerifyData::updateCliVerifyOutput( const String & key, const String & value ) {
   const Velto::Hold alive( this );
   cliVerifyOutputIs( key, value );
   const String element = "{ \"" + key + "\" : \"" + value + "\" },";
   if ( socket() && !writeToClient( socket(), element, clientPatience() ) ) {
      socketIs( 0 );
   }
}

void
VerifyData::reportFinding( const VerifyOutput & output ) {
   const Velto::Hold alive( this );
   verifyOutputIs( output );
   verifyIncIs( verifyInc() + 1 );
   auto key = output.filename() + ":" + std::to_string( output.lineNum() ) + "#" +
              std::to_string( verifyInc() );
   updateCliVerifyOutput( jsonEscaped( key ),
                          jsonEscaped( withoutLineEnd( output.description() ) ) );
}

void
VerifyData::runChecks() {
   const Velto::Hold alive( this );
   Velto::FirstError error;
   firmFindings_ = 0;
   lastFirmFinding_ = VerifyOutput();
   for ( auto check : std::vector< VerifyCheck * >( checks_ ) ) {
      bool there = std::find( checks_.begin(), checks_.end(), check ) != checks_.end();
      if ( there && check->owner_->kivHears() ) {
         error.run( [&] { runCheck( check ); } );
      }
   }
   error.pass();
}

void
VerifyData::runCheck( VerifyCheck * check ) {
   const Velto::Hold ownerAlive( check->owner_ );
   const U32 before = verifyInc();
   const bool retryWanted = retryVerify();
   Velto::FirstError error;
   error.run( [&] { retryVerifyIs( false ); } );
   error.run( [&] { check->run_( check->owner_ ); } );
   if ( !retryVerify() && verifyInc() > before ) {
      firmFindings_ += verifyInc() - before;
      lastFirmFinding_ = verifyOutput();
   }
   error.run( [&] { retryVerifyIs( retryVerify() || retryWanted ); } );
   error.pass();
}

void
VerifyData::dropTentativeFindings() {
   const Velto::Hold alive( this );
   verifyIncIs( firmFindings_ );
   verifyOutputIs( lastFirmFinding_ );
}

} // namespace Qon
