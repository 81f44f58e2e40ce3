// Members: ports and aggregates, and what becomes of them.

#include "Qon/include/framework/Reconcile.h"
#include "Qon/multicast/MulticastTrace.h"

namespace Qon {

using Ulnet::IntfId;

namespace {

bool
isLag( IntfId intf ) {
   return Ulnet::PortChannelIntfId::isPortChannelIntfId( intf );
}

} // namespace

// --- Members of a group ----------------------------------------------------------------------------

void
MulticastHelper::addIntf( IntfId intf, S64 vGroup ) {
   const EntryPtr entry( entryList( vGroup ) );
   if ( !entry ) {
      QON_TRACE( multicastFacility, 1, intf, " not added, there is no group ", vGroup );
      return;
   }
   if ( entry->deleted() ) {
      QON_TRACE( multicastFacility, 3, intf,
                 " intf appeared while the group is already pending for deletion" );
      return;
   }
   auto & members = isLag( intf ) ? entry->lagPorts_ : entry->physicalPorts_;
   if ( !members.insert( intf, entry->syncs_ ) ) {
      return;
   }
   membershipsOf( intf ).emplace( intf ).first->groupIs( vGroup );
   if ( isLag( intf ) ) {
      VELTO_ASSERT( lagGroupMembership( intf )->groups() > 0 );
   }
   entry->hadMember_ = true;
   queueGroup( *entry );
   review_->kickReview();
}

void
MulticastHelper::removeIntf( IntfId intf, S64 vGroup ) {
   const EntryPtr entry( entryList( vGroup ) );
   if ( !entry ) {
      QON_TRACE( multicastFacility, 1, intf, " not removed, there is no group ", vGroup );
      return;
   }
   if ( entry->deleted() ) {
      QON_TRACE( multicastFacility, 3, intf,
                 " intf went away while the group is already pending for deletion" );
      return;
   }
   if ( isLag( intf ) ) {
      if ( !entry->lagPorts_.erase( intf ) ) {
         return;
      }
      leaveLag( intf, vGroup );
   } else {
      QON_TRACE( multicastFacility, 8, intf, " Not a port channel, removing single port" );
      if ( !entry->physicalPorts_.erase( intf ) ) {
         return;
      }
      leave( membershipsOf( intf ), intf, vGroup );
   }
   queueGroup( *entry );
   review_->kickReview();
}

bool
MulticastHelper::resolved( IntfId port ) const {
   auto held = ports_.find( port );
   return held && held->resolved;
}

MulticastHelper::Memberships &
MulticastHelper::membershipsOf( IntfId intf ) {
   return isLag( intf ) ? lagGroups_ : resolved( intf ) ? portGroups_ : unresolvedPortGroups_;
}

void
MulticastHelper::leave( Memberships & of, IntfId intf, S64 vGroup ) {
   if ( auto groups = of.find( intf ) ) {
      groups->groupDel( vGroup );
      if ( groups->groups() == 0 ) {
         of.erase( intf );
      }
   }
}

void
MulticastHelper::leaveLag( IntfId intf, S64 vGroup ) {
   VELTO_ASSERT( lagGroupMembership( intf )->groups() > 0 );
   leave( lagGroups_, intf, vGroup );
   if ( !lagGroups_.has( intf ) ) {
      QON_TRACE( multicastFacility, 5, intf,
                 " has left the last group, removing from lagGroupMembership" );
   }
}

void
MulticastHelper::removeMembership( Entry & entry ) {
   const auto ports = std::exchange( entry.physicalPorts_, {} );
   const auto lags = std::exchange( entry.lagPorts_, {} );
   for ( auto & port : ports ) {
      leave( membershipsOf( port.intf ), port.intf, entry.vGroup() );
   }
   for ( auto & lag : lags ) {
      QON_TRACE( multicastFacility, 5, "Group has been destroyed, removing lag ", lag.intf );
      leaveLag( lag.intf, entry.vGroup() );
   }
}

void
MulticastHelper::computeDesired( Entry & entry ) {
   QonTypes::Bitmap desired;
   for ( auto & port : entry.physicalPorts_ ) {
      if ( port.bit == GroupMembers::unknown ) {
         auto held = ports_.find( port.intf );
         port.bit = held ? held->bit : GroupMembers::unknown;
      }
      if ( resolved_.bit( port.bit ) ) {
         desired.bitIs( port.bit );
      }
   }
   entry.lag_.portDelAll();
   for ( auto & lag : entry.lagPorts_ ) {
      if ( auto held = lags_.find( lag.intf ) ) {
         desired |= held->bits;
         entry.lag_.portIs( lag.intf );
      }
   }
   entry.desired_ = std::move( desired );
}

// --- Aggregates ------------------------------------------------------------------------------------

void
MulticastHelper::addOrRemoveLag( IntfId lag ) {
   const Velto::Hold alive( this );
   reviewLag( lag );
}

/** Where a port says that it is a member, the aggregate's list decides all the same. */
void
MulticastHelper::addOrRemoveLagPort( IntfId port, bool present ) {
   const Velto::Hold alive( this );
   const IntfId held = hardwarePortToLag( port ) ? hardwarePortToLag( port )
                                                 : unresolvedHardwarePortToLag( port );
   const IntfId now = present ? acsd()->portToLag( port ) : IntfId();
   for ( IntfId lag : { held, now == held ? IntfId() : now } ) {
      if ( lag ) {
         reviewLag( lag );
      }
   }
}

/** Brings the members of an aggregate to the shared data's list; its groups are pending if they changed. */
void
MulticastHelper::reviewLag( IntfId lag ) {
   const bool there = acsd()->lagToPortHas( lag );
   const bool was = lags_.has( lag );
   const auto change =
         differenceOf< IntfId >( lagPortMembership( lag ), LagView( acsd() ).membersOf( lag ) );
   if ( there == was && change.empty() ) {
      return;
   }
   auto & members = *lags_.emplace( lag ).first;
   for ( IntfId port : change.gone ) {
      members.ports.portDel( port );
      for ( PortToLag * map : { &hardwarePortToLag_, &unresolvedPortToLag_ } ) {
         if ( lagOf( *map, port ) == lag ) {
            map->erase( port );
         }
      }
   }
   for ( IntfId port : change.missing ) {
      members.ports.portIs( port );
      const bool known = resolved( port );
      ( known ? unresolvedPortToLag_ : hardwarePortToLag_ ).erase( port );
      *( known ? hardwarePortToLag_ : unresolvedPortToLag_ ).emplace( port ).first = lag;
   }
   bitsOfLag( members );
   if ( !there ) {
      lags_.erase( lag );
      lagGone( lag );
   }
   queueGroupsOf( lagGroupMembership( lag ) );
}

void
MulticastHelper::bitsOfLag( LagMembers & lag ) {
   lag.bits.clear();
   for ( IntfId port : lag.ports ) {
      if ( auto held = ports_.find( port ); held && held->resolved ) {
         lag.bits.bitIs( held->bit );
      }
   }
}

/** It may come back as another logical port. */
void
MulticastHelper::lagGone( IntfId lag ) {
   for ( auto && [ports, bitmap] : bitmapList_ ) {
      if ( bitmap->lagList_.portHas( lag ) ) {
         bitmap->lagList_.portDel( lag );
         bitmap->lagRemoved_ = true;
      }
   }
}

void
MulticastHelper::addOrRemoveMlagIntfPort( IntfId port ) {
   const Velto::Hold alive( this );
   queueGroupsOf( isLag( port ) ? lagGroupMembership( port ) : portGroups_.find( port ) );
   if ( const IntfId lag = hardwarePortToLag( port ) ) {
      queueGroupsOf( lagGroupMembership( lag ) );
   }
}

// --- Ports -----------------------------------------------------------------------------------------

U32
MulticastHelper::bitOf( IntfId port ) {
   auto [held, fresh] = ports_.emplace( port, Port{ U32( portOfBit_.size() ), false } );
   if ( fresh ) {
      portOfBit_.push_back( port );
   }
   return held->bit;
}

std::vector< IntfId >
MulticastHelper::portsOf( const QonTypes::Bitmap & bits ) const {
   std::vector< IntfId > ports;
   for ( U32 bit : bits ) {
      ports.push_back( portOf( bit ) );
   }
   return ports;
}

std::vector< IntfId >
MulticastHelper::lagsKnown() const {
   std::vector< IntfId > lags;
   for ( auto && [lag, members] : lags_ ) {
      lags.push_back( lag );
   }
   return lags;
}

/** False if it is as it was. Moves what is known of the port to where it belongs now. */
bool
MulticastHelper::portPresenceIs( IntfId port, bool present ) {
   if ( resolved( port ) == present || isLag( port ) ) {
      return false;
   }
   const U32 bit = bitOf( port );
   ports_.find( port )->resolved = present;
   resolved_.bitIs( bit, present );
   auto & groupsFrom = present ? unresolvedPortGroups_ : portGroups_;
   auto & groupsTo = present ? portGroups_ : unresolvedPortGroups_;
   if ( auto groups = groupsFrom.take( port ) ) {
      groupsTo.emplace( port, std::move( *groups ) );
   }
   auto & lagFrom = present ? unresolvedPortToLag_ : hardwarePortToLag_;
   auto & lagTo = present ? hardwarePortToLag_ : unresolvedPortToLag_;
   if ( auto lag = lagFrom.take( port ) ) {
      lagTo.emplace( port, *lag );
   }
   for ( auto && [lag, members] : lags_ ) {
      if ( members.ports.portHas( port ) ) {
         members.bits.bitIs( bit, present );
         queueGroupsOf( lagGroupMembership( lag ) );
      }
   }
   queueGroupsOf( groupsTo.find( port ) );
   return true;
}

void
MulticastHelper::handleAcsdIntf( IntfId intf ) {
   const Velto::Hold alive( this );
   if ( portPresenceIs( intf, acsd()->intfHas( intf ) ) ) {
      review_->kickReview(); // which writes what could not be written here
      reviewFlood();
   }
}

} // namespace Qon
