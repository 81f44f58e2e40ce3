#include "simulation/SimMac.h"

#include <algorithm>

#include "simulation/World.h"

namespace Sim {

namespace {

enum Mode : U32 { inHook, late, onEvent };

using Type = Qon::IndirectAccessMacCmdType;

} // namespace

std::span< const Operation >
SimMac::operations() {
   static const Operation table[] = {
         { "add", 60, { Range::key, Range::port, Range::few }, &SimMac::add },
         { "remove", 40, { Range::key }, &SimMac::remove },
         { "burst", 3, { Range::key, Range::key, Range::port }, &SimMac::burst },
         { "flush", 6, { Range::few, Range::key, Range::port }, &SimMac::flush },
         { "answer", 20, { Range::few }, &SimMac::answerOne },
         { "unknown", 3, { Range::hundred, Range::few }, &SimMac::answerUnknown },
         { "again", 3, {}, &SimMac::answerAgain },
         { "mode", 3, { Range::few }, &SimMac::modeIs },
         { "suspend", 2, { Range::flag, Range::flag }, &SimMac::suspend },
         { "nested", 2, { Range::few }, &SimMac::nestedIs },
         { "quantum", 2, { Range::few }, &SimMac::quantumIs },
         { "run", 4, { Range::few }, &SimMac::runNow },
         { "restart", 1, {}, &SimMac::restartAll },
   };
   return table;
}

SimMac::SimMac( World & world )
    : SimFeature( world ), rng_( world.chance( 10 ) ), busy_( rng_.below( 40 ) ),
      parity_( rng_.below( 10 ) ), failed_( rng_.below( 5 ) ), bucketWidth_( rng_.between( 1, 4 ) ),
      mode_( rng_.below( 3 ) ), keys_( world.size( Range::key ) ), model_( world.scheduler ) {}

void
SimMac::start() {
   programmer_ = Qon::smIs< Programmer >( this, world_.scheduler.timerWheel() );
   programmer_->initializedIs( true );
   model_.restart();
   using enum MacModel::Run;
   follow( drains_, programmer_->updatePendingAddressClock(), drain );
   follow( polls_, programmer_->pollReqClock(), poll );
   follow( retries_, programmer_->updateOverflowAddressClock(), retry );
   for ( U32 i = 0; i < keys_.size(); ++i ) {
      if ( auto wish = keys_[i].wish ) {
         handIn( i, wish->type(), wish->intf().number( 0 ) - 1, wish->shadow() != 0 );
      }
   }
}

/** Hears of the end of each run that the clock fires: the programmer attached itself before. */
void
SimMac::follow( Kiv::Listener< Kiv::Clock::firedAttr > & ear, Kiv::Clock * clock,
                MacModel::Run run ) {
   ear.attach( clock, [this, run] { model_.ran( run, false ); } );
}

void
SimMac::heard( const Kiv::LogDescriptor & message, const String & text ) {
   if ( String( message.name ) == "ETH_MACADDRBANKFULL" ) {
      model_.reported( text.find( " 02:00:00:0a:" ) != String::npos );
   }
}

void
SimMac::stop() {
   for ( auto ear : { &drains_, &polls_, &retries_ } ) {
      ear->detach();
   }
   programmer_ = nullptr;
   alarm_.off();
}

Qon::MacEntryKey
SimMac::keyOf( U32 i ) const {
   return Qon::MacEntryKey( Bridging::MacVlanPair( Ulnet::EthAddr( 0x0200000a0000ull + i ),
                                                   Bridging::VlanIdOrNone( world_.vlan( i ) ) ),
                            Qon::MacHwType( i % 3 ) );
}

U32
SimMac::indexOf( const Qon::MacEntryKey & key ) const {
   return U32( key.key().mac().value() & 0xffff );
}

void
SimMac::add( const Event & event ) {
   handIn( event[0], event[2] == 7 ? Type::addMcastHost : Type::addHost, event[1], event[2] == 6 );
}

void
SimMac::remove( const Event & event ) {
   handIn( event[0], Type::removeHost, 0, false );
}

void
SimMac::burst( const Event & event ) {
   for ( U32 n = 0; n < keys_.size() / 2; ++n ) {
      handIn( event[0] + n, ( event[1] + n ) % 3 ? Type::addHost : Type::removeHost, event[2] + n,
              false );
   }
}

void
SimMac::flush( const Event & event ) {
   auto cmd = Qon::indirectAccessMacCmdFactory(
         Type( 3 + event[0] % 8 ), keyOf( event[1] % U32( keys_.size() ) ), world_.port( event[2] ),
         Bridging::EntryType::learnedDynamic, ++serial_ );
   flushes_[serial_] = {};
   model_.accepted( serial_, MacModel::flush );
   programmer_->handleFlushOp( cmd );
}

void
SimMac::answerOne( const Event & event ) {
   answer( event[0] );
}

/** An answer to what nobody asked. */
void
SimMac::answerUnknown( const Event & event ) {
   if ( !programmer_->inProgMacOpHas( event[0] ) ) {
      programmer_->handleCmdResponse( event[0], 0, Status( event[1] % 5 ) ); // nobody's
   }
}

/** The last answer once more. */
void
SimMac::answerAgain( const Event & ) {
   if ( lastAnswer_.transaction ) {
      model_.answered( lastAnswer_.transaction, lastAnswer_.status );
      programmer_->handleCmdResponse( lastAnswer_.transaction, 0, lastAnswer_.status );
   }
}

void
SimMac::modeIs( const Event & event ) {
   mode_ = event[0] % 3;
   alarm_.in( 0 );
}

void
SimMac::suspend( const Event & event ) {
   model_.suspendIs( event[0] != 0, event[1] != 0 );
   programmer_->suspendPendingIs( event[0] != 0 );
   programmer_->suspendInProgressIs( event[1] != 0 );
}

void
SimMac::nestedIs( const Event & event ) {
   nested_ = event[0];
}

void
SimMac::quantumIs( const Event & event ) {
   programmer_->updateQuantumIs( event[0] == 0 ? 128 : event[0] );
   programmer_->pollReqQuantumIs( event[0] == 0 ? 128 : event[0] );
}

void
SimMac::runNow( const Event & event ) {
   U32 which = event[0] % 3;
   direct_ = true;
   which == 0   ? programmer_->updatePendingAddresses()
   : which == 1 ? programmer_->pollInProgressCmds()
                : programmer_->updateOverflowAddresses();
   direct_ = false;
   model_.ran( MacModel::Run( which ), true );
}

void
SimMac::handIn( U32 i, Type type, U32 port, bool shadow ) {
   i %= keys_.size();
   auto cmd = Qon::indirectAccessMacCmdFactory( type, keyOf( i ), world_.port( port ),
                                                Bridging::EntryType::learnedDynamic, ++serial_ );
   cmd->shadowIs( shadow );
   keys_[i].wish = cmd;
   keys_[i].attempted = false;
   model_.accepted( serial_, i );
   programmer_->handleAddrOp( cmd );
}

/** The agent comes up again, with a chip that was reset, and hands in all that is wanted. */
void
SimMac::restartAll( const Event & ) {
   kill( Ending::midway );
   start();
}

void
SimMac::kill( Ending ) {
   stop();
   unanswered_.clear();
   flushes_.clear();
   lastAnswer_ = {};
   for ( Key & key : keys_ ) {
      key.held = false;
      key.answer = Status::macProgramInProgress;
   }
}

Qon::MacProgramStatus
SimMac::write( const Cmd & cmd, bool shadow ) {
   U32 i = cmd.addrOp() ? indexOf( cmd.key() ) : noKey;
   checkWrite( cmd, i );
   if ( shadow != ( cmd.shadow() != 0 ) ) {
      world_.report( "mac", "wrong hook: shadow" );
   }
   Status status = carryOut( cmd, i );
   unanswered_.push_back( { cmd.transactionId(), status, cmd.opArg(), i } );
   model_.written( cmd.opArg(), cmd.transactionId(), direct_ );
   if ( i != noKey ) {
      keys_[i].answer = Status::macProgramInProgress;
   }
   if ( nested_ ) {
      --nested_;
      handIn( i == noKey ? nested_ : i + nested_ % 2, Type( nested_ % 2 ), nested_, false );
   }
   if ( mode_ == inHook ) {
      answer( U32( unanswered_.size() ) - 1 );
   } else if ( mode_ == late ) {
      alarm_.in( rng_.below( 1u << rng_.between( 0, 20 ) ) * 1e-6 );
   }
   return status;
}

void
SimMac::checkWrite( const Cmd & cmd, U32 i ) {
   if ( i == noKey ) {
      checkOrder( cmd.opArg(), flushes_[cmd.opArg()].attempted );
      return;
   }
   Key & key = keys_[i];
   if ( key.wish != &cmd ) {
      world_.report( "mac", "superseded command written: " + cmd.stringValue() );
      return;
   }
   if ( key.attempted && key.answer == Status::macProgramInProgress ) {
      world_.report( "mac", "written while in flight: " + cmd.stringValue() );
   }
   checkOrder( cmd.opArg(), key.attempted );
}

void
SimMac::checkOrder( S64 serial, bool & attempted ) {
   if ( !attempted && serial < lastFirst_ ) {
      world_.report( "mac", "order: first attempt of " + std::to_string( serial ) + " after " +
                                  std::to_string( lastFirst_ ) );
   }
   lastFirst_ = std::max( lastFirst_, serial );
   attempted = true;
}

Qon::MacProgramStatus
SimMac::carryOut( const Cmd & cmd, U32 i ) {
   if ( faults_ ) {
      U32 luck = rng_.below( 100 );
      if ( luck < busy_ ) {
         return Status::macProgramBusy;
      }
      if ( luck < busy_ + parity_ ) {
         return Status::macProgramParityError;
      }
      if ( luck < busy_ + parity_ + failed_ ) {
         return i == noKey && luck % 2 ? Status::macProgramFull : Status::macProgramFailed;
      }
   }
   if ( i == noKey ) {
      carryOutFlush( cmd );
   } else if ( cmd.type() == Type::removeHost ) {
      keys_[i].held = false;
   } else {
      return place( i, cmd.intf() );
   }
   return Status::macProgramSuccess;
}

U32
SimMac::inBucket( U32 bucket ) const {
   U32 held = 0;
   for ( U32 i = bucket * 4; i < keys_.size() && bucketOf( i ) == bucket; ++i ) {
      held += keys_[i].held;
   }
   return held;
}

Qon::MacProgramStatus
SimMac::place( U32 i, Ulnet::IntfId intf ) {
   if ( !keys_[i].held && inBucket( bucketOf( i ) ) >= bucketWidth_ ) {
      return Status::macProgramFull;
   }
   keys_[i].held = true;
   keys_[i].heldIntf = intf;
   return Status::macProgramSuccess;
}

void
SimMac::carryOutFlush( const Cmd & cmd ) {
   for ( U32 i = 0; i < keys_.size(); ++i ) {
      bool port = keys_[i].heldIntf == cmd.intf();
      bool vlan = keyOf( i ).key().vlan() == cmd.key().key().vlan();
      switch ( cmd.type() ) {
      case Type::flushLag:
      case Type::flushPort:
         keys_[i].held &= !port;
         break;
      case Type::flushVlan:
         keys_[i].held &= !vlan;
         break;
      case Type::flushVlanLag:
      case Type::flushVlanPort:
         keys_[i].held &= !( port && vlan );
         break;
      default:
         keys_[i].held = false;
      }
   }
}

void
SimMac::deliver( const Answer & answer ) {
   if ( answer.key != noKey && keys_[answer.key].wish &&
        keys_[answer.key].wish->opArg() == answer.serial ) {
      keys_[answer.key].answer = answer.status;
   } else if ( answer.key == noKey && answer.status != Status::macProgramBusy &&
               answer.status != Status::macProgramParityError ) {
      flushes_[answer.serial].done = true;
   }
   lastAnswer_ = answer;
   model_.answered( answer.transaction, answer.status );
   programmer_->handleCmdResponse( answer.transaction, U32( answer.serial ), answer.status );
}

void
SimMac::answer( U32 place ) {
   if ( unanswered_.empty() ) {
      return;
   }
   auto at = unanswered_.begin() + place % unanswered_.size();
   Answer answer = *at;
   unanswered_.erase( at );
   deliver( answer );
   if ( !unanswered_.empty() && mode_ != onEvent ) {
      alarm_.in( rng_.below( 1000 ) * 1e-6 );
   }
}

void
SimMac::faultsIs( bool on ) {
   faults_ = on;
   if ( !on ) {
      nested_ = 0;
      mode_ = late;
      model_.suspendIs( false, false );
      programmer_->suspendPendingIs( false );
      programmer_->suspendInProgressIs( false );
      alarm_.in( 0 );
   }
}

String
SimMac::checkStep() const {
   model_.lookAt( *programmer_ );
   return model_.check( *programmer_ );
}

String
SimMac::checkInvariants() const {
   return programmer_->checkInvariants();
}

bool
SimMac::mayStayArmed() const {
   return programmer_->overflowAddrOps() != 0;
}

bool
SimMac::working() const {
   return programmer_->pendingMacOps() != 0 || programmer_->inProgMacOps() != 0;
}

String
SimMac::checkKey( U32 i ) const {
   const Key & key = keys_[i];
   bool overflow = programmer_->overflowAddrOpHas( keyOf( i ) );
   String name = "key " + std::to_string( i ) + ", " + key.wish->stringValue();
   if ( !key.attempted ) {
      return "wish never written: " + name;
   }
   if ( overflow ) {
      return key.answer != Status::macProgramFull ? "in overflow, not full: " + name
             : inBucket( bucketOf( i ) ) < bucketWidth_
                   ? "in overflow, though the bucket has room: " + name
                   : "";
   }
   if ( key.answer > Status::macProgramFailed ) {
      return "wish not finished: " + name;
   }
   return "";
}

String
SimMac::checkAtRest() const {
   for ( U32 i = 0; i < keys_.size(); ++i ) {
      if ( keys_[i].wish ) {
         if ( String wrong = checkKey( i ); !wrong.empty() ) {
            return wrong;
         }
      }
   }
   for ( auto & [serial, flush] : flushes_ ) {
      if ( !flush.attempted || !flush.done ) {
         return "flush not done: " + std::to_string( serial );
      }
   }
   if ( programmer_->pendingMacOps() || programmer_->inProgMacOps() ||
        programmer_->pendingFlushOps() || programmer_->inProgAddrOps() ) {
      return "work left: commands are pending or in flight at rest";
   }
   return "";
}

void
SimMac::tearDown() {
   for ( U32 i = 0; i < keys_.size(); ++i ) {
      handIn( i, Type::removeHost, 0, false );
   }
}

String
SimMac::checkTornDown() const {
   for ( U32 i = 0; i < keys_.size(); ++i ) {
      if ( keys_[i].held ) {
         return "left in the chip: key " + std::to_string( i );
      }
   }
   return programmer_->overflowAddrOps() ? "left in overflow" : "";
}

FeatureKind
simMac() {
   return featureKindOf< SimMac >( "mac" );
}

} // namespace Sim
