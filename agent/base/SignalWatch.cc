#include "agent/base/SignalWatch.h"

#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace QonAgent {

namespace {

int
descriptorOf( bool reloads ) {
   sigset_t set;
   sigemptyset( &set );
   sigaddset( &set, SIGTERM );
   sigaddset( &set, SIGINT );
   if ( reloads ) {
      sigaddset( &set, SIGHUP );
   }
   VELTO_ASSERT( sigprocmask( SIG_BLOCK, &set, nullptr ) == 0 );
   int fd = signalfd( -1, &set, SFD_CLOEXEC | SFD_NONBLOCK );
   VELTO_ASSERT( fd >= 0 );
   return fd;
}

} // namespace

SignalWatch::SignalWatch( Kiv::EventLoop & loop, std::function< void() > reload )
    : FdWatch( &loop, descriptorOf( bool( reload ) ) ), reload_( std::move( reload ) ) {
   wanted( true, false );
}

SignalWatch::~SignalWatch() {
   close( fd() );
}

void
SignalWatch::ready( bool, bool ) {
   signalfd_siginfo info;
   if ( read( fd(), &info, sizeof( info ) ) == ssize_t( sizeof( info ) ) ) {
      if ( info.ssi_signo == SIGHUP ) {
         reload_();
      } else {
         stopped_ = true;
      }
   }
}

} // namespace QonAgent
