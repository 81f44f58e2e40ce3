#include "agent/softchip/SoftLagProgrammer.h"

namespace SoftChip {

using Ulnet::IntfId;

void
LagGroupSm::handleInitialized() {
   memberWatch_.attach( this, config_.ptr() );
   for ( auto && entry : Qon::keysOf< IntfId >( config_->memberIteratorConst() ) ) {
      handleMember( entry.key );
   }
}

void
LagGroupSm::handleMember( const IntfId & port ) {
   programmer_->changed( config_->lagId(), port );
}

SoftLagProgrammer::SoftLagProgrammer( Velto::Ptr< const Hardware::Lag::Config > config,
                                      Velto::Ptr< Hardware::Lag::Status > status, LagTable & table )
    : config_( std::move( config ) ), status_( std::move( status ) ), table_( table ) {}

SoftLagProgrammer::~SoftLagProgrammer() {
   const Kiv::Seconds due = clock_ ? clock_->time() : Kiv::never;
   while ( !waiting_.empty() ) {
      const LagPlace place = waiting_.front();
      waiting_.deq();
      auto group = config_->lag( place.lag );
      table_.later( due < Kiv::never ? due - Kiv::now() : Kiv::never, place,
                    group ? group->index() : 0, wanted( place ) );
   }
}

void
SoftLagProgrammer::handleInitialized() {
   if ( !initialized() ) {
      return;
   }
   clock_.attach( this, Velto::make< Kiv::Clock >() );
   lagWatch_.attach( this, config_.ptr() );
   for ( auto && entry : Qon::keysOf< IntfId >( status_->lagIteratorConst() ) ) {
      if ( !config_->lagHas( entry.key ) ) {
         status_->lagDel( entry.key );
      }
   }
   table_.finishAll();
   for ( const LagPlace & place : leftOver() ) {
      changed( place.lag, place.port );
   }
   for ( auto && entry : Qon::keysOf< IntfId >( config_->lagIteratorConst() ) ) {
      handleLag( entry.key );
   }
}

/** What an earlier programmer left in the table and is not configured. */
std::vector< LagPlace >
SoftLagProgrammer::leftOver() const {
   std::vector< LagPlace > places;
   for ( auto && [lag, group] : table_.groups() ) {
      for ( auto && [port, member] : group.members ) {
         const LagPlace place{ lag, port };
         if ( !wanted( place ) ) {
            places.push_back( place );
         }
      }
   }
   return places;
}

void
SoftLagProgrammer::kivDoZombieReactors() {
   Qon::QonBaseSm::kivDoZombieReactors();
   configs_.kivDoZombieReactors();
}

void
SoftLagProgrammer::handleLag( const IntfId & lag ) {
   configs_.review( lag, config_->lag( lag ) );
   if ( !config_->lagHas( lag ) && !table_.groups().has( lag ) ) {
      status_->lagDel( lag );
   }
}

Velto::Ptr< LagGroupSm >
SoftLagProgrammer::makeGroupSm( const IntfId &,
                                const Velto::Ptr< const Hardware::Lag::LagConfig > & config ) {
   return Qon::smIs< LagGroupSm >( this, config );
}

void
SoftLagProgrammer::cleanUpGroupSm( const IntfId & lag, LagGroupSm * ) {
   Qon::KeySet< IntfId > ports;
   if ( auto group = table_.groups().find( lag ) ) {
      ports = Qon::keysOf< IntfId >( group->members );
   }
   if ( auto state = status_->lag( lag ) ) {
      for ( auto && [port, member] : state->memberIteratorConst() ) {
         ports.emplace( port );
      }
   }
   for ( auto && entry : ports ) {
      changed( lag, entry.key );
   }
}

void
SoftLagProgrammer::changed( IntfId lag, IntfId port ) {
   const LagPlace place{ lag, port };
   if ( latency_ > 0 && wanted( place ) && !table_.member( lag, port ) ) {
      publish( place, wanted( place ), Result::pending );
   }
   waiting_.enq( place );
   if ( latency_ <= 0 ) {
      work();
   } else if ( latency_ < Kiv::never ) {
      clock_->timeMin( Kiv::now() + latency_ );
   }
}

void
SoftLagProgrammer::finishAll() {
   retryRefused();
   work();
}

/** One place at a time: who hears of the status may change the configuration again. */
void
SoftLagProgrammer::work() {
   if ( working_ ) {
      return;
   }
   const Velto::Ptr< SoftLagProgrammer > alive( this );
   working_ = true;
   while ( !waiting_.empty() ) {
      const LagPlace place = waiting_.front();
      waiting_.deq();
      apply( place );
   }
   working_ = false;
}

std::optional< Hardware::Lag::Member >
SoftLagProgrammer::wanted( const LagPlace & place ) const {
   auto group = config_->lag( place.lag );
   if ( !group || !group->memberHas( place.port ) ) {
      return std::nullopt;
   }
   return group->member( place.port );
}

void
SoftLagProgrammer::apply( const LagPlace & place ) {
   refused_.erase( place );
   const auto want = wanted( place );
   const Result result = program( place, want );
   if ( result != Result::success ) {
      refused_.emplace( place );
   }
   publish( place, want, result );
}

/** Makes the table hold the member as wanted, or not at all. */
SoftLagProgrammer::Result
SoftLagProgrammer::program( const LagPlace & place, const std::optional< Member > & want ) {
   const Member * held = table_.member( place.lag, place.port );
   if ( held && ( !want || want->port() != held->port() || want->shared() != held->shared() ) ) {
      table_.drop( place );
      retryRefused();
   }
   if ( !want ) {
      return Result::success;
   }
   const auto written = table_.write( place, config_->lag( place.lag )->index(), *want );
   if ( written.askAgain ) {
      clock_->timeMin( Kiv::now() + busyInterval );
   }
   return written.result;
}

void
SoftLagProgrammer::publish( const LagPlace & place, const std::optional< Member > & want,
                            Result result ) {
   if ( !want ) {
      Velto::Ptr< Hardware::Lag::LagStatus > state = status_->lag( place.lag );
      if ( state ) {
         state->memberDel( place.port );
         if ( state->members() == 0 && !config_->lagHas( place.lag ) &&
              status_->lag( place.lag ) == state.ptr() ) {
            status_->lagDel( place.lag );
         }
      }
      return;
   }
   auto state = status_->lagIs( place.lag );
   state->indexIs( config_->lag( place.lag )->index() );
   state->resultIs( table_.members( place.lag ) ? Result::success
                    : result == Result::noLag   ? Result::noLag
                                                : Result::pending );
   const bool done = result == Result::success;
   state->memberIs( place.port,
                    Hardware::Lag::MemberStatus( result, done && want->collecting(),
                                                 done && want->distributing(), want->shared() ) );
}

void
SoftLagProgrammer::retryRefused() {
   for ( auto && entry : refused_ ) {
      waiting_.enq( entry.key );
   }
}

String
SoftLagProgrammer::checkInvariants() const {
   for ( auto && [lag, group] : table_.groups() ) {
      for ( auto && [port, member] : group.members ) {
         const LagPlace place{ lag, port };
         const auto want = wanted( place );
         const String what = lag.stringValue() + ", member " + port.stringValue();
         if ( !want || !( *want == member ) ) {
            return what + " in the chip differs from what is configured\n";
         }
         auto owner = table_.owner( member.port() );
         if ( !member.shared() && ( !owner || !( *owner == place ) ) ) {
            return what + " is in the chip twice\n";
         }
      }
   }
   for ( auto && [lag, group] : config_->lagIteratorConst() ) {
      for ( auto && [port, member] : group->memberIteratorConst() ) {
         const LagPlace place{ lag, port };
         if ( !table_.member( lag, port ) && !refused_.has( place ) ) {
            return lag.stringValue() + ", member " + port.stringValue() +
                   " is missing in the chip\n";
         }
      }
   }
   return "";
}

Velto::Ptr< SoftLagProgrammer >
SoftLagProgrammerIs( Velto::Ptr< const Hardware::Lag::Config > config,
                     Velto::Ptr< Hardware::Lag::Status > status, LagTable & table ) {
   return Qon::smIs< SoftLagProgrammer >( std::move( config ), std::move( status ), table );
}

} // namespace SoftChip
