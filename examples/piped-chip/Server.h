#pragma once
// The chip's own side: a host table that takes a while for everything. Knows nothing of the library but
// its texts and values.
//
//    add ID MAC VLAN INTF TYPE     remove ID MAC VLAN     flush ID KIND VLAN INTF TYPE
//                                  -> a latency later -> done ID STATUS
//    dump                          -> at once -> host MAC VLAN INTF TYPE ..., end
//    virtual                       from now on time moves with "advance" only
//    advance SECONDS               -> what is due, then: advanced

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <deque>

#include "chip/MacPart.h"

namespace Piped {

using Kiv::fromText;
using Kiv::toText;
using Velto::String;
using Type = Qon::IndirectAccessMacCmdType;
using Status = Qon::MacProgramStatus;
using EntryType = Bridging::EntryType;

/** A descriptor that carries lines. */
class Lines {
 public:
   explicit Lines( int fd ) : fd_( fd ) {}
   int fd() const { return fd_; }
   /** False: nobody reads any more. */
   bool write( const String & line ) {
      const String text = line + "\n";
      for ( std::size_t at = 0; at < text.size(); ) {
         ssize_t n = ::send( fd_, text.data() + at, text.size() - at, MSG_NOSIGNAL );
         if ( n <= 0 ) {
            return false;
         }
         at += std::size_t( n );
      }
      return true;
   }
   /** Reads what has come, waiting for it; false at the end. */
   bool fill() {
      char piece[65536];
      ssize_t n = ::read( fd_, piece, sizeof( piece ) );
      text_.append( piece, n > 0 ? std::size_t( n ) : 0 );
      return n > 0;
   }
   /** The next whole line that was read. */
   bool next( String & line ) {
      const std::size_t end = text_.find( '\n', at_ );
      if ( end == String::npos ) {
         text_.erase( 0, std::exchange( at_, 0 ) );
         return false;
      }
      line = text_.substr( at_, end - at_ );
      at_ = end + 1;
      return true;
   }

 private:
   const int fd_;
   String text_;
   std::size_t at_ = 0;
};

class Server {
 public:
   static constexpr std::size_t room = 512;
   static constexpr Kiv::Seconds latency = 0.002;

   /** Works until the other side has gone, and all is done. What it holds stays. */
   void serve( int fd ) {
      Lines lines( fd );
      virtual_ = false;
      while ( true ) {
         workUntil( now(), lines );
         pollfd wait{ fd, POLLIN, 0 };
         const bool waits = !virtual_ && !work_.empty();
         ::poll( &wait, 1, waits ? int( 1000 * ( work_.front().due - now() ) ) + 1 : -1 );
         if ( wait.revents && !lines.fill() ) {
            break;
         }
         for ( String line; lines.next( line ); ) {
            heard( line, lines );
         }
      }
      workUntil( Kiv::never, lines ); // nobody waits for it, but it was asked for
   }
   std::size_t hosts() const { return hosts_.size(); }
   U64 changes() const { return changes_; }

 private:
   struct Work {
      Kiv::Seconds due;
      std::vector< String > words;
   };

   Kiv::Seconds now() const {
      timespec t;
      clock_gettime( CLOCK_MONOTONIC, &t );
      return virtual_ ? virtualNow_ : double( t.tv_sec ) + 1e-9 * double( t.tv_nsec );
   }
   void heard( const String & line, Lines & lines ) {
      auto words = Kiv::split( line, ' ' );
      if ( words[0] == "virtual" ) {
         virtual_ = true;
      } else if ( words[0] == "dump" ) {
         for ( auto & [key, host] : hosts_ ) {
            auto & pair = key.key();
            lines.write( "host " + pair.mac().stringValue() + " " + pair.vlan().stringValue() +
                         " " + host.intf.stringValue() + " " + toText( host.entryType ) );
         }
         lines.write( "end" );
      } else if ( words[0] == "advance" ) {
         const Kiv::Seconds end = virtualNow_ + fromText< double >( words[1] );
         workUntil( end, lines );
         virtualNow_ = end;
         lines.write( "advanced" );
      } else {
         work_.push_back( { now() + latency, std::move( words ) } );
      }
   }
   void workUntil( Kiv::Seconds end, Lines & lines ) {
      while ( !work_.empty() && work_.front().due <= end ) {
         auto words = std::move( work_.front().words );
         work_.pop_front();
         lines.write( "done " + words[1] + " " + toText( perform( words ) ) );
      }
   }
   Status perform( const std::vector< String > & words ) {
      const auto size = hosts_.size();
      if ( words[0] == "flush" ) {
         const Qon::MacEntryKey vlan{ { {}, Bridging::VlanIdOrNone( fromText< U32 >( words[3] ) ) },
                                      Qon::MacHwType::macHwKeyBridge };
         const auto flush = Qon::indirectAccessMacCmdFactory( fromText< Type >( words[2] ), vlan,
                                                              Ulnet::IntfId( words[4] ),
                                                              fromText< EntryType >( words[5] ) );
         std::erase_if( hosts_, [&]( auto & host ) {
            return QonChip::flushTakes( *flush, host.first, host.second );
         } );
         changes_ += size - hosts_.size();
         return Status::macProgramSuccess;
      }
      const Qon::MacEntryKey key{
            { Ulnet::EthAddr( words[2] ), Bridging::VlanIdOrNone( fromText< U32 >( words[3] ) ) },
            Qon::MacHwType::macHwKeyBridge };
      if ( words[0] == "remove" ) {
         changes_ += hosts_.erase( key );
         return Status::macProgramSuccess;
      }
      if ( size >= room && !hosts_.contains( key ) ) {
         return Status::macProgramFull;
      }
      const QonChip::HeldHost host{ Ulnet::IntfId( words[4] ), fromText< EntryType >( words[5] ) };
      auto [held, fresh] = hosts_.try_emplace( key, host );
      changes_ += fresh || !( held->second == host );
      held->second = host;
      return Status::macProgramSuccess;
   }
   QonChip::HeldHosts hosts_;
   U64 changes_ = 0;
   std::deque< Work > work_;
   bool virtual_ = false;
   Kiv::Seconds virtualNow_ = 0;
};

} // namespace Piped
