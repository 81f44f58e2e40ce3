#include "platform/Quarn/Server.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "platform/Kiv/Text.h"
#include "platform/Quarn/Messages.h"
#include "platform/Quarn/Table.h"

namespace Quarn {

namespace {

constexpr int backlog = 64;
constexpr U32 mostReaders = 1024;
constexpr U32 mostQuestions = 256; // of one reader
constexpr U32 messagesPerLook = 16;

[[noreturn]] void
refuse( const String & path, const String & why ) {
   throw Velto::RangeError( path + ": " + why );
}

sockaddr_un
addressOf( const String & path ) {
   sockaddr_un address = {};
   address.sun_family = AF_UNIX;
   std::memcpy( address.sun_path, path.data(), path.size() );
   return address;
}

Handle
lockOf( const String & path ) {
   const String name = path + ".lock";
   Handle lock( open( name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600 ) );
   if ( !lock ) {
      refuse( path, String( "no socket can be made here: " ) + std::strerror( errno ) );
   }
   if ( flock( lock.get(), LOCK_EX | LOCK_NB ) != 0 ) {
      refuse( path, "busy: another writer serves this socket" );
   }
   return lock;
}

/** A socket that listens under that name, which nobody could connect to before it had its mode. */
Handle
listenerAt( const String & path, const String & name, U32 mode ) {
   Handle socket( ::socket( AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0 ) );
   const sockaddr_un address = addressOf( name );
   unlink( name.c_str() );
   if ( !socket ||
        bind( socket.get(), reinterpret_cast< const sockaddr * >( &address ), sizeof( address ) ) ||
        chmod( name.c_str(), mode ) != 0 || listen( socket.get(), backlog ) != 0 ) {
      const int why = errno;
      unlink( name.c_str() );
      refuse( path, String( "no socket can be made here: " ) + std::strerror( why ) );
   }
   return socket;
}

Handle
spareDescriptor() {
   return Handle( open( "/dev/null", O_RDONLY | O_CLOEXEC ) );
}

} // namespace

void
checkName( const String & name ) {
   if ( name.empty() || name.size() > longestName || name.find( '\0' ) != String::npos ) {
      throw Velto::RangeError( "a table's name has 1 to " + Kiv::toText( longestName ) +
                               " bytes, none of them 0: '" + name.substr( 0, 80 ) + "'" );
   }
}

/** The writer's end of one reader's connection. */
class Server::Connection : private Kiv::FdWatch {
 public:
   Connection( Server * server, Handle socket )
       : FdWatch( server->loop_, socket.get() ), server_( server ), socket_( std::move( socket ) ),
         page_( makePage() ) {
      wanted( true, false );
   }
   /** There is such a table now, or it is gone. */
   void changed( const String & table );
   bool wakeIfAsleep();

 private:
   struct Asked {
      Question question;
      bool open; ///< to be answered
   };
   enum class Sent : U8 { yes, later, never };

   void ready( bool readable, bool writable ) override;
   bool receive();
   bool ask( const Question & question );
   bool answerOpen();
   Sent answer( const Question & question );
   int fill( const Question & question, Answer * answer ) const;
   void refuse( Answer * answer, const String & why ) const {
      answer->status = answerRefused;
      std::snprintf( answer->line, sizeof( answer->line ), "%s", why.c_str() );
   }

   Server * server_;
   Handle socket_;
   Handle page_;
   bool pageSent_ = false;
   U32 woken_ = 0; // the last sleep that was ended
   std::vector< Asked > asked_;
};

void
Server::Connection::ready( bool, bool ) {
   if ( !receive() || !answerOpen() ) {
      server_->connections_.erase( this ); // ends this
   }
}

/** False: the reader is gone, or does not know how to behave. */
bool
Server::Connection::receive() {
   for ( U32 i = 0; i < messagesPerLook; ++i ) {
      Question question;
      // No descriptors are taken: what is sent along is closed by the system.
      const ssize_t got = recv( socket_.get(), &question, sizeof( question ), MSG_DONTWAIT );
      if ( got < 0 && ( errno == EAGAIN || errno == EINTR ) ) {
         return true;
      }
      if ( got != ssize_t( sizeof( question ) ) || !ask( question ) ) {
         return false;
      }
   }
   return true;
}

bool
Server::Connection::ask( const Question & question ) {
   if ( question.magic != Question::magicWord || asked_.size() >= mostQuestions ||
        question.name[sizeof( question.name ) - 1] != 0 ) {
      return false;
   }
   asked_.push_back( { question, true } );
   return true;
}

void
Server::Connection::changed( const String & table ) {
   bool open = false;
   for ( Asked & asked : asked_ ) {
      if ( table == asked.question.name ) {
         asked.open = open = true;
      }
   }
   if ( open ) {
      wanted( true, true ); // answered from the loop
   }
}

/** False: the reader cannot be answered. */
bool
Server::Connection::answerOpen() {
   for ( Asked & asked : asked_ ) {
      const Sent sent = asked.open ? answer( asked.question ) : Sent::yes;
      if ( sent == Sent::later ) {
         wanted( true, true );
         return true;
      }
      if ( sent == Sent::never ) {
         return false;
      }
      asked.open = false;
   }
   wanted( true, false );
   return true;
}

/** What is answered; the memory file that goes with it, or -1. */
int
Server::Connection::fill( const Question & question, Answer * answer ) const {
   const auto found = server_->tables_.find( question.name );
   const String who = String( "table '" ) + question.name + "'";
   if ( found == server_->tables_.end() ) {
      refuse( answer, who + " is not there yet" );
      answer->status = answerWait;
      return -1;
   }
   const Table & table = *found->second;
   if ( question.version != layoutVersion ) {
      refuse( answer, who + ": the writer has layout version " + Kiv::toText( layoutVersion ) +
                            ", the reader " + Kiv::toText( question.version ) );
   } else if ( question.fingerprint != table.type_.fingerprint ) {
      refuse( answer, who + " is of another type: fingerprint " +
                            Kiv::toText( table.type_.fingerprint ) + ", the reader's is " +
                            Kiv::toText( question.fingerprint ) );
   } else if ( !table.memory_ ) {
      refuse( answer, who + " has no memory: " + table.fault_ );
   } else {
      answer->status = answerMemory;
      return table.file_.get();
   }
   return -1;
}

Server::Connection::Sent
Server::Connection::answer( const Question & question ) {
   Answer answer;
   answer.number = question.number;
   int files[2];
   U32 count = 0;
   if ( const int memory = fill( question, &answer ); memory >= 0 ) {
      files[count++] = memory;
   }
   if ( !pageSent_ && page_ ) {
      files[count++] = page_.get();
      answer.page = 1;
   }
   alignas( cmsghdr ) char control[CMSG_SPACE( sizeof( files ) )] = {};
   iovec part = { &answer, sizeof( answer ) };
   msghdr message = {};
   message.msg_iov = &part;
   message.msg_iovlen = 1;
   if ( count ) {
      message.msg_control = control;
      message.msg_controllen = CMSG_SPACE( count * sizeof( int ) );
      cmsghdr * head = CMSG_FIRSTHDR( &message );
      head->cmsg_level = SOL_SOCKET;
      head->cmsg_type = SCM_RIGHTS;
      head->cmsg_len = CMSG_LEN( count * sizeof( int ) );
      std::memcpy( CMSG_DATA( head ), files, count * sizeof( int ) );
   }
   if ( sendmsg( socket_.get(), &message, MSG_DONTWAIT | MSG_NOSIGNAL ) < 0 ) {
      return errno == EAGAIN || errno == EINTR ? Sent::later : Sent::never;
   }
   pageSent_ = true;
   return Sent::yes;
}

/** Whether a byte was sent. The page is read as a file: the reader may have taken its memory away,
    and then it reads as awake. */
bool
Server::Connection::wakeIfAsleep() {
   U32 asleep = 0;
   if ( !page_ || pread( page_.get(), &asleep, sizeof( asleep ), 0 ) != sizeof( asleep ) ||
        asleep == 0 || asleep == woken_ ) {
      return false;
   }
   woken_ = asleep;
   return send( socket_.get(), "", 1, MSG_DONTWAIT | MSG_NOSIGNAL ) == 1;
}

Server::Place
Server::listenAt( const String & path, U32 mode ) {
   const String made = path + ".new";
   if ( path.empty() || made.size() >= sizeof( sockaddr_un::sun_path ) ) {
      refuse( path, "the path of a socket of tables has 1 to 103 bytes" );
   }
   struct stat about = {};
   if ( lstat( path.c_str(), &about ) == 0 && !S_ISSOCK( about.st_mode ) ) {
      refuse( path, "is not a socket, and stays" );
   }
   Place place;
   place.path = path;
   place.lock = lockOf( path );
   place.socket = listenerAt( path, made, mode );
   if ( lstat( made.c_str(), &about ) != 0 || rename( made.c_str(), path.c_str() ) != 0 ) {
      const int why = errno;
      unlink( made.c_str() );
      refuse( path, String( "no socket can be made here: " ) + std::strerror( why ) );
   }
   place.device = about.st_dev;
   place.number = about.st_ino;
   return place;
}

Server::Server( Kiv::EventLoop * loop, const String & path, U32 mode )
    : Server( loop, listenAt( path, mode ), mode ) {}

Server::Server( Kiv::EventLoop * loop, Place place, U32 mode )
    : FdWatch( loop, place.socket.get() ), Task( loop, 0, "Quarn wakes" ), loop_( loop ),
      place_( std::move( place ) ), mode_( mode ), spare_( spareDescriptor() ) {
   wanted( true, false );
}

Server::~Server() {
   for ( auto & [name, table] : tables_ ) {
      table->server_ = nullptr;
   }
   connections_.clear();
   struct stat about = {};
   if ( place_.socket && lstat( place_.path.c_str(), &about ) == 0 &&
        about.st_dev == place_.device && about.st_ino == place_.number ) {
      unlink( place_.path.c_str() );
   }
}

void
Server::tableIs( Table * table ) {
   VELTO_ASSERT( tables_.emplace( table->name_, table ).second );
   for ( auto & [key, connection] : connections_ ) {
      connection->changed( table->name_ );
   }
}

void
Server::tableDel( Table * table ) {
   tables_.erase( table->name_ );
   for ( auto & [key, connection] : connections_ ) {
      connection->changed( table->name_ );
   }
}

/** Whether the process at the other end may read: where the socket's file is open to others, its mode
    has decided. */
bool
Server::mayRead( int fd ) const {
   ucred peer = {};
   socklen_t size = sizeof( peer );
   return getsockopt( fd, SOL_SOCKET, SO_PEERCRED, &peer, &size ) == 0 &&
          ( peer.uid == geteuid() || peer.uid == 0 || ( mode_ & 0066 ) );
}

void
Server::ready( bool, bool ) {
   Handle socket( accept4( place_.socket.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK ) );
   if ( !socket && ( errno == EMFILE || errno == ENFILE ) ) {
      turnAway();
   }
   if ( !socket || !mayRead( socket.get() ) || connections_.size() >= mostReaders ) {
      return;
   }
   auto connection = std::make_unique< Connection >( this, std::move( socket ) );
   Connection * key = connection.get();
   connections_[key] = std::move( connection );
}

void
Server::turnAway() {
   spare_.reset();
   Handle( accept4( place_.socket.get(), nullptr, nullptr, SOCK_CLOEXEC ) ).reset();
   spare_ = spareDescriptor();
}

/** The end of a turn in which something changed. */
bool
Server::run() {
   // What was written is seen by whoever is not seen asleep.
   __atomic_thread_fence( __ATOMIC_SEQ_CST );
   for ( auto & [key, connection] : connections_ ) {
      wakes_ += connection->wakeIfAsleep() ? 1 : 0;
   }
   return false;
}

} // namespace Quarn
