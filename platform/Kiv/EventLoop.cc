#include "platform/Kiv/EventLoop.h"

#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <utility>

#include "platform/Velto/Scope.h"

namespace Kiv {

namespace {

/** Not a reading of now(): nothing depends on it, and a recording has none of it. */
Seconds
measured() {
   const auto time = std::chrono::steady_clock::now().time_since_epoch();
   return std::chrono::duration< Seconds >( time ).count();
}

} // namespace

void
WorkTimes::add( Seconds began, Seconds ended ) {
   ++times;
   busy += ended - began;
   if ( ended - began > longest ) {
      longest = ended - began;
      longestAt = ended;
   }
}

void
WorkTimes::add( const WorkTimes & others ) {
   times += others.times;
   busy += others.busy;
   if ( others.longest > longest ) {
      longest = others.longest;
      longestAt = others.longestAt;
   }
}

FdWatch::FdWatch( EventLoop * loop, int fd ) : loop_( loop ), fd_( fd ) {
   VELTO_ASSERT( loop && fd >= 0 );
   if ( loop->live_.size() <= size_t( fd ) ) {
      loop->live_.resize( size_t( fd ) + 1 );
   }
   VELTO_ASSERT( !loop->live_[size_t( fd )] );
   loop->live_[size_t( fd )] = this;
   epoll_event e = {};
   e.data.fd = fd;
   VELTO_ASSERT( epoll_ctl( loop->epoll_, EPOLL_CTL_ADD, fd, &e ) == 0 );
}

FdWatch::~FdWatch() {
   loop_->live_[size_t( fd_ )] = nullptr;
   epoll_ctl( loop_->epoll_, EPOLL_CTL_DEL, fd_, nullptr );
}

void
FdWatch::wanted( bool readable, bool writable ) {
   epoll_event e = {};
   e.events = ( readable ? U32( EPOLLIN ) : 0 ) | ( writable ? U32( EPOLLOUT ) : 0 );
   e.data.fd = fd_;
   VELTO_ASSERT( epoll_ctl( loop_->epoll_, EPOLL_CTL_MOD, fd_, &e ) == 0 );
}

namespace {

EventLoop * latest = nullptr;

} // namespace

EventLoop::EventLoop() : former_( std::exchange( latest, this ) ) {
   epoll_ = epoll_create1( EPOLL_CLOEXEC );
   timer_ = timerfd_create( CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK );
   VELTO_ASSERT( epoll_ >= 0 && timer_ >= 0 );
   epoll_event e = {};
   e.events = EPOLLIN;
   e.data.fd = timer_;
   VELTO_ASSERT( epoll_ctl( epoll_, EPOLL_CTL_ADD, timer_, &e ) == 0 );
}

EventLoop::~EventLoop() {
   EventLoop ** link = &latest;
   while ( *link != this ) {
      link = &( *link )->former_;
   }
   *link = former_;
   close( timer_ );
   close( epoll_ );
}

EventLoop *
EventLoop::of( const TaskScheduler * scheduler ) {
   EventLoop * loop = latest;
   while ( loop && loop != scheduler ) {
      loop = loop->former_;
   }
   return loop;
}

/** Arms the timer for the next clock; what epoll may wait, in milliseconds. */
int
EventLoop::waitTime( Seconds limit ) {
   Seconds next = nextTime();
   Seconds wait = next == never ? limit : std::fmin( next - Kiv::now(), limit );
   if ( wait <= 0 ) {
      return 0;
   }
   if ( wait != never ) {
      itimerspec t = {};
      Seconds whole = std::floor( std::fmin( wait, 1e6 ) );
      t.it_value.tv_sec = time_t( whole );
      t.it_value.tv_nsec = long( ( std::fmin( wait, 1e6 ) - whole ) * 1e9 ) + 1;
      if ( t.it_value.tv_nsec >= 1000000000 ) {
         t.it_value.tv_sec += 1;
         t.it_value.tv_nsec -= 1000000000;
      }
      VELTO_ASSERT( timerfd_settime( timer_, 0, &t, nullptr ) == 0 );
   }
   return -1;
}

void
EventLoop::runOnce( Seconds limit ) {
   epoll_event events[32];
   int n = epoll_wait( epoll_, events, 32, waitTime( limit ) );
   VELTO_ASSERT( n >= 0 || errno == EINTR );
   const Seconds began = measured();
   for ( int i = 0; i < n; ++i ) {
      int fd = events[i].data.fd;
      if ( fd == timer_ ) {
         U64 expirations;
         [[maybe_unused]] auto got = read( timer_, &expirations, sizeof( expirations ) );
      } else if ( FdWatch * watch = live_[size_t( fd )] ) {
         U32 what = events[i].events;
         watch->ready( what & ( EPOLLIN | EPOLLHUP | EPOLLERR ), what & EPOLLOUT );
      }
   }
   turn();
   rounds_.add( began, measured() );
}

bool
EventLoop::runSliceOf( Task & task ) {
   const Seconds began = measured();
   const String name = task.name();
   const Velto::AtEnd noted( [&] { slices_[name].add( began, measured() ); } );
   return task.run();
}

void
EventLoop::run() {
   stopped_ = false;
   while ( !stopped_ ) {
      runOnce( never );
   }
}

} // namespace Kiv
