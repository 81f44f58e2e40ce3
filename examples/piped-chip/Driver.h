#pragma once
// The driver of a chip that works in another process, behind a socket pair.
//
//    writeToHw() -> send() ===> chip ... a latency later ... ===> Kiv::FdWatch (real time)
//                                                             or  pump()      (virtual time)
//         handleCmdResponse() <- answered() <- QonChip::ChipInput <----'
//
// Invariants
// 1. An answer belongs to the programmer whose command it answers; one that comes when that has gone
//    is for nobody.
// 2. While a run is replayed nothing is sent: the answers come from the recording.
// 3. The chip outlives an agent that is given its descriptor in $CHIP_FD; without one it is a child.

#include <sys/wait.h>

#include <cstdlib>

#include "Server.h"
#include "chip/Recording.h"
#include "platform/Kiv/Alarm.h"
#include "platform/Kiv/EventLoop.h"

namespace Piped {

using Velto::Ptr;

/** The way to the chip, opened when it is first needed. */
class Link {
 public:
   explicit Link( Kiv::TaskScheduler & scheduler )
       : loop_( Kiv::EventLoop::of( &scheduler ) ),
         late_( [this] { handOver(); }, scheduler.timerWheel() ) {}
   ~Link() { close(); }

   void send( const String & line ) {
      QonChip::recordedAnswer< bool >( "sent", [&] { return open().write( line ); } );
   }
   /** Lets the chip work for so long; on virtual time only. */
   void advance( Kiv::Seconds span ) {
      if ( lines_ ) {
         open().write( "advance " + toText( span ) );
         readUntil( "advanced" );
         handOver();
      }
   }
   QonChip::HeldHosts dump() {
      QonChip::HeldHosts hosts;
      open().write( "dump" );
      for ( auto & words : readUntil( "end" ) ) {
         const auto vlan = Bridging::VlanIdOrNone( fromText< U32 >( words[2] ) );
         hosts[{ { Ulnet::EthAddr( words[1] ), vlan }, Qon::MacHwType::macHwKeyBridge }] = {
               Ulnet::IntfId( words[3] ), fromText< EntryType >( words[4] ) };
      }
      return hosts;
   }
   void close() {
      watch_ = nullptr;
      if ( lines_ ) {
         ::close( lines_->fd() );
         lines_ = nullptr;
      }
      if ( child_ > 0 ) {
         ::waitpid( std::exchange( child_, 0 ), nullptr, 0 );
      }
   }

   std::function< void( U64 id, Status ) > answered;

 private:
   struct Watch : Kiv::FdWatch {
      Watch( Link & l, Kiv::EventLoop * loop ) : FdWatch( loop, l.lines_->fd() ), link( l ) {
         wanted( true, false );
      }
      void ready( bool, bool ) override {
         Link & to = link;
         if ( !to.lines_->fill() ) {
            to.watch_ = nullptr; // this: the chip has gone, and its answers never come
         }
         to.sort( "" );
         to.handOver();
      }
      Link & link;
   };

   Lines & open() {
      if ( !lines_ ) {
         const char * given = std::getenv( "CHIP_FD" );
         lines_ = std::make_unique< Lines >( given ? std::atoi( given ) : ownChip() );
         if ( loop_ ) {
            watch_ = std::make_unique< Watch >( *this, loop_ );
         } else {
            lines_->write( "virtual" );
         }
      }
      return *lines_;
   }
   int ownChip() {
      int ends[2];
      VELTO_ASSERT( ::socketpair( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends ) == 0 );
      child_ = ::fork();
      VELTO_ASSERT( child_ >= 0 );
      if ( child_ == 0 ) {
         ::close_range( 3, unsigned( ends[1] - 1 ),
                        0 ); // what the agent had open is not the chip's
         ::close_range( unsigned( ends[1] + 1 ), ~0u, 0 );
         Server().serve( ends[1] );
         ::_exit( 0 );
      }
      ::close( ends[1] );
      return ends[0];
   }
   /** Answers wait in `inbox_`; true at the line `last`, what else there was in `rest`. */
   bool sort( const String & last, std::vector< std::vector< String > > * rest = nullptr ) {
      for ( String line; lines_->next( line ); ) {
         if ( line == last ) {
            return true;
         }
         auto words = Kiv::split( line, ' ' );
         if ( words[0] == "done" ) {
            inbox_.push_back( words[1] + " " + words[2] );
         } else if ( rest ) {
            rest->push_back( words );
         }
      }
      return false;
   }
   std::vector< std::vector< String > > readUntil( const String & last ) {
      std::vector< std::vector< String > > rest;
      while ( !sort( last, &rest ) && lines_->fill() ) {
      }
      late_.in( 0 ); // whoever reads may be inside of a hook
      return rest;
   }
   void handOver() {
      while ( !inbox_.empty() ) {
         String answer = inbox_.front();
         inbox_.pop_front();
         input_.arrived( answer );
      }
   }

   Kiv::EventLoop * const loop_; // null: time is virtual
   std::unique_ptr< Lines > lines_;
   std::unique_ptr< Watch > watch_;
   pid_t child_ = 0;
   std::deque< String > inbox_;
   Kiv::Alarm late_;
   QonChip::ChipInput input_{ "piped", [this]( const String & text ) {
                                auto words = Kiv::split( text, ' ' );
                                answered( fromText< U64 >( words[0] ),
                                          fromText< Status >( words[1] ) );
                             } };
};

class PipedMac : public Qon::QonMacProgrammer {
 public:
   PipedMac( Link & link, U64 & numbers, Kiv::TimerWheel * wheel )
       : QonMacProgrammer( wheel ), link_( link ), numbers_( numbers ) {
      link_.answered = [this]( U64 number, Status status ) {
         if ( auto asked = asked_.extract( number ) ) {
            handleCmdResponse( asked.mapped(), 0, status );
         }
      };
   }
   ~PipedMac() override {
      link_.answered = []( U64, Status ) {};
   }

   Status writeToHw( const Qon::MacCmdPtr & cmd ) override {
      const U64 number = ++numbers_; // of all programmers: transactions begin anew with each
      asked_[number] = cmd->transactionId();
      const auto pair = cmd->key().key(); // key() is a value
      const String id = toText( number ), vlan = pair.vlan().stringValue(),
                   what = cmd->intf().stringValue() + " " + toText( cmd->entryType() );
      if ( cmd->type() == Type::removeHost ) {
         link_.send( "remove " + id + " " + pair.mac().stringValue() + " " + vlan );
      } else if ( cmd->addrOp() ) {
         link_.send( "add " + id + " " + pair.mac().stringValue() + " " + vlan + " " + what );
      } else {
         link_.send( "flush " + id + " " + toText( cmd->type() ) + " " + vlan + " " + what );
      }
      return Status::macProgramInProgress;
   }
   Status writeToHwShadow( const Qon::MacCmdPtr & cmd ) override { return writeToHw( cmd ); }

 private:
   Link & link_;
   U64 & numbers_;
   std::map< U64, U64 > asked_; // transactions, by the number that the chip was told
};

class PipedChip : public QonChip::Chip, QonChip::MacPart {
 public:
   explicit PipedChip( Kiv::TaskScheduler & scheduler )
       : wheel_( scheduler.timerWheel() ), link_( scheduler ) {
      link_.answered = []( U64, Status ) {};
      add< QonChip::MacPart >( *this );
   }
   String name() const override { return "piped"; }
   void pump( Kiv::Seconds span ) override { link_.advance( span ); }
   void takeDown() override { link_.close(); }

 private:
   Ptr< Qon::QonMacProgrammer > makeProgrammer() override {
      return Velto::make< PipedMac >( link_, numbers_, wheel_ );
   }
   std::optional< QonChip::HeldHosts > hosts() const override { return link_.dump(); }
   U32 hostsToFill() const override { return 2 * Server::room; }

   Kiv::TimerWheel * wheel_;
   U64 numbers_ = 0;
   mutable Link link_; // reading back goes over it
};

inline std::unique_ptr< QonChip::Chip >
makePipedChip( Kiv::TaskScheduler & scheduler ) {
   return std::make_unique< PipedChip >( scheduler );
}

} // namespace Piped
