#include "simulation/MacModel.h"

#include <algorithm>

namespace Sim {

namespace {

// What the programmer comes with, in seconds.
constexpr Kiv::Seconds pollPeriod = 0.1, drainDelay = 0.2, reportInterval = 60;
constexpr Kiv::Seconds leastDelay = 5, greatestDelay = 30, delayStep = 1;

const char * const names[] = { "drain", "poll", "retry" };

String
timeText( Kiv::Seconds time ) {
   return time == Kiv::never ? "idle" : std::to_string( time );
}

} // namespace

void
MacModel::restart() {
   commands_.clear();
   std::fill( std::begin( clocks_ ), std::end( clocks_ ), Clock() );
   holdDrain_ = holdPoll_ = running_ = episode_ = false;
   delay_ = leastDelay;
   missing_ = 0;
}

void
MacModel::lookAt( const Programmer & programmer ) {
   // A run that was cut short goes on behind its bookmark, at its next time.
   const bool cut = programmer.inProgMacOpBookmark() || programmer.overflowAddrOpBookmark();
   const bool follow = scheduler_.readCost() == 0 && ( follows_ || !cut );
   if ( std::exchange( follows_, follow ) || !follow ) {
      return;
   }
   began_ = now();
   commands_.clear();
   auto enter = [&]( const Qon::IndirectAccessMacCmd & cmd, Place place ) {
      const U32 key = cmd.addrOp() ? U32( cmd.key().key().mac().value() & 0xffff ) : flush;
      commands_[cmd.opArg()] = { key, cmd.valid(), place, cmd.transactionId(), cmd.status() };
   };
   for ( auto & cmd : programmer.pendingMacOp() ) {
      enter( *cmd, Place::pending );
   }
   for ( auto walk = programmer.inProgMacOpIteratorConst(); walk; ++walk ) {
      enter( *walk.value(), Place::inFlight );
   }
   for ( auto && [key, cmd] : programmer.overflowAddrOp() ) {
      enter( *cmd, Place::overflow );
   }
   clock( Run::drain ).time = programmer.updatePendingAddressClock()->time();
   clock( Run::poll ).time = programmer.pollReqClock()->time();
   clock( Run::retry ).time = programmer.updateOverflowAddressClock()->time();
   delay_ = programmer.updateOverflowAddressDelay();
   episode_ = programmer.overflowLogged();
   running_ = false;
   missing_ = 0;
}

void
MacModel::suspendIs( bool drain, bool poll ) {
   holdDrain_ = drain;
   holdPoll_ = poll;
}

bool
MacModel::any( Place place ) const {
   return std::any_of( commands_.begin(), commands_.end(),
                       [&]( auto & entry ) { return entry.second.place == place; } );
}

void
MacModel::accepted( S64 serial, U32 key ) {
   if ( !follows_ ) {
      return;
   }
   for ( auto i = commands_.begin(); key != flush && i != commands_.end(); ) {
      const bool older = i->second.key == key;
      i->second.live = i->second.live && !older;
      i = older && i->second.place == Place::overflow ? commands_.erase( i ) : std::next( i );
   }
   commands_[serial] = { key };
   if ( clock( Run::drain ).time == Kiv::never ) { // a drain that was put off is not pulled
      clock( Run::drain ).time = now();
   }
}

/** A clock that fires is idle before anything is done, and fires at its time. */
void
MacModel::begin( Run run, bool direct ) {
   if ( direct ) {
      return;
   }
   if ( std::max( clock( run ).time, began_ ) != now() && wrong_.empty() ) {
      wrong_ = String( names[U32( run )] ) + " at another time than due: " + timeText( now() ) +
               ", not " + timeText( clock( run ).time );
   }
   clock( run ).time = Kiv::never;
}

void
MacModel::written( S64 serial, U64 transaction, bool direct ) {
   if ( !follows_ ) {
      return;
   }
   if ( !std::exchange( running_, true ) ) {
      begin( Run::drain, direct );
   }
   auto written = commands_.find( serial );
   if ( written != commands_.end() ) {
      written->second.place = Place::inFlight;
      written->second.transaction = transaction;
      written->second.status = Status::macProgramInProgress;
   }
}

void
MacModel::answered( U64 transaction, Status status ) {
   for ( auto & [serial, command] : commands_ ) {
      if ( command.place == Place::inFlight && command.transaction == transaction ) {
         command.status = status;
      }
   }
}

void
MacModel::ran( Run run, bool direct ) {
   if ( !follows_ ) {
      return;
   }
   if ( run != Run::drain || !std::exchange( running_, false ) ) {
      begin( run, direct );
   }
   switch ( run ) {
   case Run::drain:
      afterDrain();
      break;
   case Run::poll:
      poll();
      break;
   case Run::retry:
      retry();
      break;
   }
}

void
MacModel::afterDrain() {
   if ( !holdDrain_ ) { // what was not written is out of date
      std::erase_if( commands_,
                     []( auto & entry ) { return entry.second.place == Place::pending; } );
   }
   if ( any( Place::pending ) ) {
      clock( Run::drain ).atMost( now() + drainDelay );
   }
   if ( any( Place::inFlight ) ) {
      clock( Run::poll ).atMost( now() );
   }
}

void
MacModel::wakeDrain() {
   if ( any( Place::pending ) ) {
      clock( Run::drain ).atMost( now() + ( holdDrain_ ? drainDelay : 0 ) );
   }
}

void
MacModel::poll() {
   if ( !holdPoll_ ) {
      for ( auto i = commands_.begin(); i != commands_.end(); ) {
         i = leaves( i->second ) ? commands_.erase( i ) : std::next( i );
      }
      noteEnd();
   }
   if ( any( Place::inFlight ) ) {
      clock( Run::poll ).atMost( now() + pollPeriod );
   }
   if ( holdPoll_ ) {
      return;
   }
   wakeDrain();
   if ( any( Place::overflow ) ) {
      clock( Run::retry ).atMost( now() + delay_ );
   }
}

/** What a poll does with a command: true if it is finished. */
bool
MacModel::leaves( Command & command ) {
   if ( command.place != Place::inFlight || command.status == Status::macProgramInProgress ) {
      return false;
   }
   const bool full = command.status == Status::macProgramFull;
   const bool again = command.status == Status::macProgramBusy ||
                      command.status == Status::macProgramParityError;
   if ( !command.live || !( again || ( full && command.key != flush ) ) ) {
      return true;
   }
   command.place = full ? Place::overflow : Place::pending;
   if ( full ) {
      overflowed();
   }
   return false;
}

void
MacModel::overflowed() {
   if ( !episode_ && now() >= lastReport_ + reportInterval ) {
      episode_ = true;
      lastReport_ = now();
      ++missing_;
   }
}

void
MacModel::reported( bool own ) {
   if ( own && follows_ ) {
      --missing_; // its run, which is not over, will say whether it had to come
   } else {
      lastReport_ = now();
   }
}

void
MacModel::retry() {
   delay_ = any( Place::pending ) ? std::min( 2 * delay_, greatestDelay )
                                  : std::max( delay_ - delayStep, leastDelay );
   for ( auto & [serial, command] : commands_ ) {
      command.place = command.place == Place::overflow ? Place::pending : command.place;
   }
   noteEnd();
   wakeDrain();
}

/** An episode is over when no key has a command. */
void
MacModel::noteEnd() {
   episode_ = episode_ && std::any_of( commands_.begin(), commands_.end(), []( auto & entry ) {
                 return entry.second.key != flush && entry.second.live;
              } );
}

String
MacModel::check( const Programmer & programmer ) const {
   if ( !follows_ ) {
      return "";
   }
   if ( !wrong_.empty() ) {
      return wrong_;
   }
   const Kiv::Clock * const clocks[] = { programmer.updatePendingAddressClock(),
                                         programmer.pollReqClock(),
                                         programmer.updateOverflowAddressClock() };
   for ( U32 i = 0; i < 3; ++i ) {
      if ( clocks[i]->time() != clocks_[i].time ) {
         return String( "clock of the " ) + names[i] + ": " + timeText( clocks[i]->time() ) +
                ", wanted " + timeText( clocks_[i].time );
      }
   }
   if ( programmer.updateOverflowAddressDelay() != delay_ ) {
      return "retry delay: " + std::to_string( programmer.updateOverflowAddressDelay() ) +
             ", wanted " + std::to_string( delay_ );
   }
   return missing_ == 0  ? ""
          : missing_ > 0 ? "full table not reported"
                         : "full table reported twice";
}

} // namespace Sim
