#include "platform/Quarn/Source.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "platform/Quarn/Messages.h"
#include "platform/Quarn/Reader.h"

namespace Quarn {

namespace {

constexpr Seconds retrySpan = 0.1;
constexpr U32 answersPerLook = 64;

/** Whether a process of that user may be the writer: ourselves, the superuser, or whom the socket's
    folder belongs to. Others can put a socket into a folder such as /tmp. */
bool
believable( int fd, const String & path ) {
   ucred peer = {};
   socklen_t size = sizeof( peer );
   if ( getsockopt( fd, SOL_SOCKET, SO_PEERCRED, &peer, &size ) != 0 ) {
      return false;
   }
   const auto slash = path.rfind( '/' );
   const String folder = slash == String::npos ? "." : path.substr( 0, slash + 1 );
   struct stat about = {};
   return peer.uid == geteuid() || peer.uid == 0 ||
          ( stat( folder.c_str(), &about ) == 0 && about.st_uid == peer.uid );
}

} // namespace

/** A connection that stands. */
class Source::Link : private Kiv::FdWatch {
 public:
   Link( Source * source, Handle socket )
       : FdWatch( source->loop_, socket.get() ), source_( source ), socket_( std::move( socket ) ) {
      wanted( true, false );
   }
   ~Link() override {
      if ( page_ ) {
         unmapPage( page_ );
      }
   }

   bool send( const Question & question ) {
      const ssize_t sent =
            ::send( socket_.get(), &question, sizeof( question ), MSG_DONTWAIT | MSG_NOSIGNAL );
      return sent == ssize_t( sizeof( question ) );
   }
   void sleeps() {
      sleeps_ += sleeps_ + 1 == 0 ? 2 : 1;
      if ( page_ ) {
         storeRelaxed( page_, sleeps_ );
      }
   }

 private:
   enum class Got : U8 { message, nothing, end };
   void ready( bool readable, bool writable ) override;
   Got receive();
   bool take( const Answer & answer, Handle files[2], U32 count );

   Source * source_;
   Handle socket_;
   U32 * page_ = nullptr;
   U32 sleeps_ = 0;
};

void
Source::Link::ready( bool, bool ) {
   Source * source = source_;
   const auto alive = source->link_;
   Got got = Got::message;
   for ( U32 i = 0; i < answersPerLook && got == Got::message; ++i ) {
      got = receive();
   }
   if ( got == Got::end ) {
      source->lost();
      return;
   }
   if ( page_ ) {
      storeRelaxed( page_, 0 );
   }
   source->rest();
}

/** One message. */
Source::Link::Got
Source::Link::receive() {
   Answer answer;
   iovec part = { &answer, sizeof( answer ) };
   alignas( cmsghdr ) char control[CMSG_SPACE( 2 * sizeof( int ) )] = {};
   msghdr message = {};
   message.msg_iov = &part;
   message.msg_iovlen = 1;
   message.msg_control = control;
   message.msg_controllen = sizeof( control );
   const ssize_t got = recvmsg( socket_.get(), &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC );
   if ( got < 0 && ( errno == EAGAIN || errno == EINTR ) ) {
      return Got::nothing;
   }
   Handle files[2];
   U32 count = 0;
   for ( auto * head = CMSG_FIRSTHDR( &message ); got > 0 && head;
         head = CMSG_NXTHDR( &message, head ) ) {
      for ( U32 at = 0; head->cmsg_type == SCM_RIGHTS &&
                        CMSG_LEN( ( at + 1 ) * sizeof( int ) ) <= head->cmsg_len && count < 2;
            ++at ) {
         int fd;
         std::memcpy( &fd, CMSG_DATA( head ) + at * sizeof( int ), sizeof( fd ) );
         files[count++] = Handle( fd );
      }
   }
   if ( got == 1 && count == 0 ) {
      return Got::message; // only to wake up
   }
   const bool sound = got == ssize_t( sizeof( answer ) ) &&
                      !( message.msg_flags & ( MSG_CTRUNC | MSG_TRUNC ) ) &&
                      answer.magic == Answer::magicWord;
   return sound && take( answer, files, count ) ? Got::message : Got::end;
}

/** False if it is not what it says. */
bool
Source::Link::take( const Answer & answer, Handle files[2], U32 count ) {
   const U32 memory = answer.status == answerMemory ? 1 : 0;
   if ( answer.page > 1 || count != memory + answer.page || ( answer.page && page_ ) ) {
      return false;
   }
   if ( answer.page && !( page_ = mapPage( files[memory].get() ) ) ) {
      return false;
   }
   source_->answered( answer, files[0] );
   return true;
}

Source::Source( Kiv::EventLoop * loop, const String & path )
    : loop_( loop ), path_( path ), since_( Kiv::now() ),
      retry_( [this] { reconnect(); }, loop->timerWheel() ) {
   if ( path.empty() || path.size() + 4 >= sizeof( sockaddr_un::sun_path ) ) {
      throw Velto::RangeError( path + ": the path of a socket of tables has 1 to 103 bytes" );
   }
   reconnect();
}

Source::~Source() {
   for ( auto & [number, reader] : readers_ ) {
      reader->source_ = nullptr;
      reader->gone();
   }
}

bool
Source::connected() const {
   return link_ != nullptr;
}

void
Source::reconnect() {
   Handle socket( ::socket( AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0 ) );
   sockaddr_un address = {};
   address.sun_family = AF_UNIX;
   std::memcpy( address.sun_path, path_.data(), path_.size() );
   if ( !socket || connect( socket.get(), reinterpret_cast< const sockaddr * >( &address ),
                            sizeof( address ) ) != 0 ) {
      retry_.in( retrySpan );
      return;
   }
   if ( !believable( socket.get(), path_ ) ) {
      refusal_ = path_ + ": the writer is neither this user, nor the superuser, nor the owner of "
                         "the folder";
      retry_.in( retrySpan );
      return;
   }
   refusal_.clear();
   since_ = Kiv::now();
   link_ = std::make_shared< Link >( this, std::move( socket ) );
   for ( auto & [number, reader] : readers_ ) {
      ask( reader );
   }
}

void
Source::lost() {
   if ( !link_ ) {
      return;
   }
   link_ = nullptr;
   since_ = Kiv::now();
   retry_.in( retrySpan );
   for ( auto & [number, reader] : readers_ ) {
      reader->gone();
      reader->look();
   }
}

void
Source::readerIs( Reader * reader ) {
   while ( readers_.contains( ++numbers_ ) ) {
   }
   reader->number_ = numbers_;
   readers_[numbers_] = reader;
   ask( reader );
}

void
Source::readerDel( Reader * reader ) {
   readers_.erase( reader->number_ );
}

void
Source::ask( Reader * reader ) {
   if ( !link_ ) {
      return;
   }
   Question question;
   question.version = layoutVersion;
   question.number = reader->number_;
   question.fingerprint = reader->type_.fingerprint;
   std::copy( reader->name_.begin(), reader->name_.end(), question.name );
   if ( !link_->send( question ) ) {
      lost();
   }
}

void
Source::answered( const Answer & answer, const Handle & memory ) {
   const auto found = readers_.find( answer.number );
   if ( found == readers_.end() ) {
      return;
   }
   if ( answer.status == answerMemory ) {
      found->second->memoryIs( memory.get() );
      return;
   }
   const auto * end = std::find( std::begin( answer.line ), std::end( answer.line ), '\0' );
   String line( answer.line, end );
   std::replace_if(
         line.begin(), line.end(), []( char c ) { return U8( c ) < ' '; }, ' ' );
   found->second->refused( line );
}

void
Source::rest() {
   if ( link_ ) {
      link_->sleeps();
      // What changes from here on is seen below, or its writer sees the sleep.
      __atomic_thread_fence( __ATOMIC_SEQ_CST );
   }
   for ( auto & [number, reader] : readers_ ) {
      reader->look();
   }
}

} // namespace Quarn
