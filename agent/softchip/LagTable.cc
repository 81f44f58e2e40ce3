#include "agent/softchip/LagTable.h"

namespace SoftChip {

using Ulnet::IntfId;

const LagTable::Member *
LagTable::member( IntfId lag, IntfId port ) const {
   auto group = groups_.find( lag );
   return group ? group->members.find( port ) : nullptr;
}

U32
LagTable::members( IntfId lag ) const {
   auto group = groups_.find( lag );
   return group ? group->members.size() : 0;
}

IntfId
LagTable::lagOf( IntfId port ) const {
   auto lag = lagOf_.find( port );
   return lag ? *lag : IntfId();
}

LagTable::Result
LagTable::admit( const LagPlace & place, const Member & member ) const {
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

LagTable::Written
LagTable::write( const LagPlace & place, U32 index, const Member & member ) {
   const Member * held = this->member( place.lag, place.port );
   const Result result = admit( place, member );
   if ( result != Result::success ) {
      return { result };
   }
   const auto trouble = held && *held == member ? std::nullopt : faults_.next( "lagMember" );
   if ( !trouble ) {
      hold( place, index, member );
      return { Result::success };
   }
   drop( place );
   switch ( *trouble ) {
   case Trouble::fail:
      return { Result::failed };
   case Trouble::full:
      return { Result::noMember };
   case Trouble::busy:
   case Trouble::parity:
      return { Result::pending, true };
   case Trouble::lose:
      return { Result::pending };
   }
   return { Result::failed };
}

void
LagTable::hold( const LagPlace & place, U32 index, const Member & member ) {
   Group & group = *groups_.emplace( place.lag ).first;
   group.index = index;
   *group.members.emplace( place.port ).first = member;
   if ( !member.shared() ) {
      *owner_.emplace( member.port() ).first = place;
      *lagOf_.emplace( place.port ).first = place.lag;
   }
}

void
LagTable::later( Kiv::Seconds after, const LagPlace & place, U32 index,
                 const std::optional< Member > & want ) {
   late_.latencyIs( after );
   late_.add( [=, this] {
      const Member * held = member( place.lag, place.port );
      if ( held && ( !want || want->port() != held->port() ) ) {
         drop( place );
      }
      if ( want ) {
         write( place, index, *want );
      }
   } );
}

bool
LagTable::drop( const LagPlace & place ) {
   Group * group = groups_.find( place.lag );
   auto member = group ? group->members.take( place.port ) : std::nullopt;
   if ( !member ) {
      return false;
   }
   if ( !member->shared() ) {
      owner_.erase( member->port() );
      lagOf_.erase( place.port );
   }
   if ( group->members.empty() ) {
      groups_.erase( place.lag );
   }
   return true;
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

} // namespace SoftChip
