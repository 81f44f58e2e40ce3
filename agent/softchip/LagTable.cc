#include "agent/softchip/LagTable.h"

namespace SoftChip {

using Ulnet::IntfId;

void
LagTableGroupSm::handleInitialized() {
   memberWatch_.attach( this, config_.ptr() );
   for ( auto && entry : Qon::keysOf< IntfId >( config_->memberIteratorConst() ) ) {
      handleMember( entry.key );
   }
}

void
LagTableGroupSm::handleMember( const IntfId & port ) {
   table_->changed( config_->lagId(), port );
}

LagTable::LagTable( Velto::Ptr< const Hardware::Lag::Config > config,
                    Velto::Ptr< Hardware::Lag::Status > status, FaultPlan & faults,
                    const Limits & limits )
    : config_( std::move( config ) ), status_( std::move( status ) ), faults_( faults ),
      limits_( limits ) {}

void
LagTable::handleInitialized() {
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
   for ( auto && entry : Qon::keysOf< IntfId >( config_->lagIteratorConst() ) ) {
      handleLag( entry.key );
   }
}

void
LagTable::kivDoZombieReactors() {
   Qon::QonBaseSm::kivDoZombieReactors();
   configs_.kivDoZombieReactors();
}

void
LagTable::handleLag( const IntfId & lag ) {
   configs_.review( lag, config_->lag( lag ) );
   if ( !config_->lagHas( lag ) && !groups_.has( lag ) ) {
      status_->lagDel( lag );
   }
}

Velto::Ptr< LagTableGroupSm >
LagTable::makeGroupSm( const IntfId &,
                       const Velto::Ptr< const Hardware::Lag::LagConfig > & config ) {
   return Qon::smIs< LagTableGroupSm >( this, config );
}

void
LagTable::cleanUpGroupSm( const IntfId & lag, LagTableGroupSm * ) {
   Qon::KeySet< IntfId > ports;
   if ( auto group = groups_.find( lag ) ) {
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

const Hardware::Lag::Member *
LagTable::member( IntfId lag, IntfId port ) const {
   auto group = groups_.find( lag );
   return group ? group->members.find( port ) : nullptr;
}

U32
LagTable::members( IntfId lag ) const {
   auto group = groups_.find( lag );
   return group ? group->members.size() : 0;
}

void
LagTable::changed( IntfId lag, IntfId port ) {
   const Place place{ lag, port };
   if ( latency_ > 0 && wanted( place ) && !member( lag, port ) ) {
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
LagTable::limitsIs( const Limits & limits ) {
   limits_ = limits;
   retryRefused();
   work();
}

void
LagTable::finishAll() {
   retryRefused();
   work();
}

/** One place at a time: who hears of the status may change the configuration again. */
void
LagTable::work() {
   if ( working_ ) {
      return;
   }
   Velto::Ptr< LagTable > alive( this );
   working_ = true;
   while ( !waiting_.empty() ) {
      const Place place = waiting_.front();
      waiting_.deq();
      apply( place );
   }
   working_ = false;
}

std::optional< Hardware::Lag::Member >
LagTable::wanted( const Place & place ) const {
   auto group = config_->lag( place.lag );
   if ( !group || !group->memberHas( place.port ) ) {
      return std::nullopt;
   }
   return group->member( place.port );
}

void
LagTable::apply( const Place & place ) {
   refused_.erase( place );
   const auto want = wanted( place );
   const Member * held = member( place.lag, place.port );
   if ( held && ( !want || want->port() != held->port() || want->shared() != held->shared() ) ) {
      drop( place );
      retryRefused();
   }
   Result result = Result::success;
   if ( want ) {
      result = attempt( place, *want );
      if ( result == Result::success ) {
         hold( place, *want );
      } else {
         refused_.emplace( place );
      }
   }
   publish( place, want, result );
}

LagTable::Result
LagTable::admit( const Place & place, const Member & member ) const {
   auto group = groups_.find( place.lag );
   if ( !group && groups_.size() >= faults_.limit( "lagTable", limits_.lags ) ) {
      return Result::noLag;
   }
   const bool held = group && group->members.has( place.port );
   if ( !held && members( place.lag ) >= faults_.limit( "lagMembers", limits_.members ) ) {
      return Result::noMember;
   }
   auto owner = owner_.find( member.port() );
   if ( !member.shared() && owner && !( *owner == place ) ) {
      return Result::portTaken;
   }
   return Result::success;
}

/** What writing the member comes to. A member that is held as wanted is not written again. */
LagTable::Result
LagTable::attempt( const Place & place, const Member & member ) {
   const Member * held = this->member( place.lag, place.port );
   const Result result = admit( place, member );
   if ( result != Result::success || ( held && *held == member ) ) {
      return result;
   }
   const auto trouble = faults_.next( "lagMember" );
   if ( !trouble ) {
      return Result::success;
   }
   if ( held ) {
      drop( place );
   }
   switch ( *trouble ) {
   case Trouble::fail:
      return Result::failed;
   case Trouble::full:
      return Result::noMember;
   case Trouble::busy:
   case Trouble::parity:
      clock_->timeMin( Kiv::now() + busyInterval );
      return Result::pending;
   case Trouble::lose:
      return Result::pending;
   }
   return Result::failed;
}

void
LagTable::hold( const Place & place, const Member & member ) {
   Group & group = *groups_.emplace( place.lag ).first;
   group.index = config_->lag( place.lag )->index();
   *group.members.emplace( place.port ).first = member;
   if ( !member.shared() ) {
      *owner_.emplace( member.port() ).first = place;
   }
}

void
LagTable::drop( const Place & place ) {
   Group & group = *groups_.find( place.lag );
   const Member member = *group.members.find( place.port );
   if ( !member.shared() ) {
      owner_.erase( member.port() );
   }
   group.members.erase( place.port );
   if ( group.members.empty() ) {
      groups_.erase( place.lag );
   }
}

void
LagTable::publish( const Place & place, const std::optional< Member > & want, Result result ) {
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
   state->resultIs( groups_.has( place.lag )  ? Result::success
                    : result == Result::noLag ? Result::noLag
                                              : Result::pending );
   const bool done = result == Result::success;
   state->memberIs( place.port,
                    Hardware::Lag::MemberStatus( result, done && want->collecting(),
                                                 done && want->distributing(), want->shared() ) );
}

void
LagTable::retryRefused() {
   for ( auto && entry : refused_ ) {
      waiting_.enq( entry.key );
   }
}

String
LagTable::text() const {
   String text;
   for ( auto && [lag, group] : groups_ ) {
      text += Kiv::toText( group.index ) + ": " + lag.stringValue();
      for ( auto && [port, member] : group.members ) {
         text += " " + port.stringValue() + "(" + Kiv::toText( member.port().fapId() ) + "/" +
                 Kiv::toText( member.port().port() ) + " " + ( member.collecting() ? "C" : "" ) +
                 ( member.distributing() ? "D" : "" ) + ( member.shared() ? "s" : "" ) + ")";
      }
      text += "\n";
   }
   return text;
}

String
LagTable::checkInvariants() const {
   for ( auto && [lag, group] : groups_ ) {
      for ( auto && [port, member] : group.members ) {
         const Place place{ lag, port };
         const auto want = wanted( place );
         const String what = lag.stringValue() + ", member " + port.stringValue();
         if ( !want || !( *want == member ) ) {
            return what + " in the chip differs from what is configured\n";
         }
         auto owner = owner_.find( member.port() );
         if ( !member.shared() && ( !owner || !( *owner == place ) ) ) {
            return what + " is in the chip twice\n";
         }
      }
   }
   for ( auto && [lag, group] : config_->lagIteratorConst() ) {
      for ( auto && [port, member] : group->memberIteratorConst() ) {
         const Place place{ lag, port };
         if ( !this->member( lag, port ) && !refused_.has( place ) ) {
            return lag.stringValue() + ", member " + port.stringValue() +
                   " is missing in the chip\n";
         }
      }
   }
   return "";
}

Velto::Ptr< LagTable >
LagTableIs( Velto::Ptr< const Hardware::Lag::Config > config,
            Velto::Ptr< Hardware::Lag::Status > status, FaultPlan & faults,
            const LagTable::Limits & limits ) {
   return Qon::smIs< LagTable >( std::move( config ), std::move( status ), faults, limits );
}

} // namespace SoftChip
