#include "Qon/include/framework/VerifyData.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "platform/Kiv/Describe.h"

KIV_DEFINE( Qon::VerifyRequired )
KIV_DEFINE( Qon::VerifyData )

namespace Qon {

namespace {

// How long a client may take nothing.
constexpr int patienceSlice = 10; // milliseconds
constexpr int patience = 100;     // slices

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
waitForRoom( int fd ) {
   for ( int i = 0; i < patience; ++i ) { // slices, so that signals do not begin it again
      pollfd wanted = { fd, POLLOUT, 0 };
      int ready = poll( &wanted, 1, patienceSlice );
      if ( ready > 0 ) {
         return wanted.revents & POLLOUT;
      }
      if ( ready < 0 && errno != EINTR ) {
         return false;
      }
   }
   return false;
}

/** One attempt, which does not wait if the descriptor is a socket. */
ssize_t
writeSome( int fd, const char * bytes, std::size_t count ) {
   ssize_t written = send( fd, bytes, count, MSG_NOSIGNAL | MSG_DONTWAIT );
   return written < 0 && errno == ENOTSOCK ? write( fd, bytes, count ) : written;
}

} // namespace

bool
writeToClient( U32 socket, const String & text ) {
   if ( socket == 0 ) {
      return false;
   }
   for ( std::size_t done = 0; done < text.size(); ) {
      ssize_t written = writeSome( int( socket ), text.data() + done, text.size() - done );
      if ( written > 0 ) {
         done += std::size_t( written );
         continue;
      }
      bool full = written == 0 || errno == EAGAIN || errno == EWOULDBLOCK;
      bool again = full ? waitForRoom( int( socket ) ) : errno == EINTR;
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
   socketIs( 0 );
   cliVerifyOutputDelAll();
   verifyOutputIs( VerifyOutput() );
   verifyIncIs( 0 );
}

void
VerifyData::initVerifyData( U32 socket ) {
   resetVerifyData();
   socketIs( socket );
}

void
VerifyData::updateCliVerifyOutput( const String & key, const String & value ) {
   cliVerifyOutputIs( key, value );
   if ( socket() && !writeToClient( socket(), "{ \"" + key + "\" : \"" + value + "\" }," ) ) {
      socketIs( 0 );
   }
}

void
VerifyData::reportFinding( const VerifyOutput & output ) {
   verifyOutputIs( output );
   verifyIncIs( verifyInc() + 1 );
   auto key = output.filename() + ":" + std::to_string( output.lineNum() ) + "#" +
              std::to_string( verifyInc() );
   updateCliVerifyOutput( jsonEscaped( key ),
                          jsonEscaped( withoutLineEnd( output.description() ) ) );
}

void
VerifyData::runChecks() {
   firmFindings_ = 0;
   lastFirmFinding_ = VerifyOutput();
   for ( auto check : std::vector< VerifyCheck * >( checks_ ) ) {
      bool there = std::find( checks_.begin(), checks_.end(), check ) != checks_.end();
      if ( there && check->owner_->kivHears() ) {
         runCheck( check );
      }
   }
}

void
VerifyData::runCheck( VerifyCheck * check ) {
   U32 before = verifyInc();
   bool retryWanted = retryVerify();
   retryVerifyIs( false );
   check->run_( check->owner_ );
   if ( !retryVerify() && verifyInc() > before ) {
      firmFindings_ += verifyInc() - before;
      lastFirmFinding_ = verifyOutput();
   }
   retryVerifyIs( retryVerify() || retryWanted );
}

void
VerifyData::dropTentativeFindings() {
   verifyIncIs( firmFindings_ );
   verifyOutputIs( lastFirmFinding_ );
}

} // namespace Qon
