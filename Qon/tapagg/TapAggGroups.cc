// Names and ids: who uses which group, which of them the hardware has, and which it has no room for.

#include <algorithm>

#include "Qon/tapagg/TapAggTrace.h"

namespace Qon {

using Ulnet::IntfId;

namespace {

constexpr Kiv::Seconds groupCleanupDelay = 1.0;

QonLogHandle tapAggHwResourceFull( "QonTapaggSm", QonLog::TAPAGG_HW_RESOURCE_FULL );

} // namespace

// --- Allocation ----------------------------------------------------------------------------------

U32
TapAggSm::groupIdOf( const String & name ) const {
   auto id = groupIds_.find( name );
   return id ? *id : 0;
}

U32
TapAggSm::createTapAggGroup( const String & name ) {
   const Velto::Hold alive( this );
   const U32 id = QON_HOOK( TapAggHelper, in_.helper, allocateAggGroup, name );
   id ? groupIs( name, id ) : groupIsPending( name );
   return id;
}

void
TapAggSm::groupIs( const String & name, U32 id ) {
   *groupIds_.emplace( name ).first = id;
   scheduleGroupCleanup();
   Velto::FirstError error;
   error.run( [&] { pendingAggGroupDel( name ); } );
   error.run( [&] { allocatedGroupInfoIs( id ); } );
   if ( const AllocatedGroupInfo::Ptr info = allocatedGroupInfo( id ) ) {
      error.run( [&] { ownerIs( info, name ); } );
      groupStateChanged( name );
      error.run( [&] { updateTapAggGroup( name, id, info ); } );
   }
   error.pass();
}

/** Whom the chip gave the group before is pending: asked again at once, it might give the same one. Who
    is in it knows it by the new name. */
void
TapAggSm::ownerIs( const AllocatedGroupInfo::Ptr & info, const String & name ) {
   const String former = info->groupOwner();
   if ( former == name ) {
      return;
   }
   Velto::FirstError error;
   if ( groupIdOf( former ) == info->groupId() ) {
      groupIds_.erase( former );
      error.run( [&] { pendingAggGroupIs( former, true ); } );
      groupStateChanged( former );
      askUsers( former );
   }
   error.run( [&] { info->groupOwnerIs( name ); } );
   for ( auto && entry : keysOf< IntfId >( info->intfListIteratorConst() ) ) {
      error.run( [&] { portGroupDel( entry.key, former ); } );
      error.run( [&] { allocatedPortInfoIs( entry.key )->groupIs( name ); } );
   }
   error.pass();
}

void
TapAggSm::groupIsPending( const String & name ) {
   if ( !retrying_ ) { // which nothing would come of
      scheduleGroupCleanup();
   }
   Velto::FirstError error;
   error.run( [&] { pendingAggGroupIs( name, true ); } );
   groupStateChanged( name );
   raiseHwResourceFull();
   error.pass();
}

/** In a retry of all names, once. */
void
TapAggSm::raiseHwResourceFull() {
   if ( !in_.status->logHwResourceFull() || ( retrying_ && std::exchange( saidFull_, true ) ) ) {
      return;
   }
   if ( tapAggHwResourceFull.okToLog() ) {
      Kiv::log( tapAggHwResourceFull );
   }
}

void
TapAggSm::releaseTapAggGroup( const String & owner, U32 id ) {
   const AllocatedGroupInfo::Ptr groupInfo = allocatedGroupInfo( id );
   if ( id == 0 || !groupInfo ) {
      return;
   }
   VELTO_ASSERT( groupInfo->groupOwner() == owner );
   VELTO_ASSERT( groupInfo->intfLists() == 0 );
   const Velto::Hold alive( this );
   const String name = owner; // may be the entry's own
   QON_HOOK( TapAggHelper, in_.helper, deallocateAggGroup, id );
   released_ = true;
   if ( !cleaning_ ) {
      scheduleGroupCleanup(); // for those that are pending
   }
   Velto::FirstError error;
   if ( groupIdOf( name ) == id ) {
      groupIds_.erase( name );
      groupStateChanged( name );
      askUsers( name );
   }
   error.run( [&] { allocatedGroupInfoDel( id ); } );
   error.run( [&] { settle(); } );
   error.pass();
}

void
TapAggSm::updateTapAggGroup( const String & name, U32 id, const AllocatedGroupInfo::Ptr & info ) {
   if ( info && info->groupId() == id ) {
      askUsers( name );
      settle();
   }
}

void
TapAggSm::updateTapAggGroupInternal( U32 id ) {
   if ( const AllocatedGroupInfo::Ptr info = allocatedGroupInfo( id ) ) {
      updateTapAggGroup( info->groupOwner(), id, info );
   }
}

U32
TapAggSm::groupFor( const String & name ) {
   U32 id = groupIdOf( name );
   if ( id == 0 && !pendingAggGroupHas( name ) ) {
      id = createTapAggGroup( name );
   }
   if ( id == 0 ) {
      QON_TRACE( tapAggFacility, 1, name, ": GroupId is 0 - returning" ); // fixed text
   }
   return id;
}

// --- Users ---------------------------------------------------------------------------------------

void
TapAggSm::askUsers( const String & name ) {
   for ( IntfId tool : users_.toolsOfParts( name ) ) {
      later( What::toolPort, tool );
   }
   auto users = users_.users( name );
   if ( !users ) {
      return;
   }
   for ( auto && tool : users->tools ) {
      later( What::toolPort, tool.key );
   }
   for ( auto && tap : users->taps ) {
      later( What::tapPort, tap.key );
   }
   for ( auto && entry : users->classes ) {
      later( What::classMap, {}, entry.key.policyMap(), entry.key.classMap() );
   }
   if ( users->pmapGroup ) {
      later( What::pmapGroup, {}, name );
   }
}

/** A group that has come into use, or gone out of it, is one of the tool ports of its parts, too. */
template< class Act >
void
TapAggSm::changeUse( const String & name, Act && act ) {
   if ( users_.change( name, act ) ) {
      for ( IntfId tool : users_.toolsOfParts( name ) ) {
         later( What::toolPort, tool );
      }
   }
}

void
TapAggSm::useIs( const String & name, const TapAggIntfSm & sm, bool use ) {
   changeUse( name, [&]( TapAggUsers::Users & users ) {
      auto & ports = sm.role() == TapAggRole::tap ? users.taps : users.tools;
      use ? void( ports.emplace( sm.intf() ) ) : void( ports.erase( sm.intf() ) );
   } );
   if ( !use ) {
      scheduleGroupCleanup();
   }
}

void
TapAggSm::useIs( const String & name, const TapAggClassKey & key, bool use ) {
   changeUse( name, [&]( TapAggUsers::Users & users ) {
      use ? void( users.classes.emplace( key ) ) : void( users.classes.erase( key ) );
   } );
   if ( !use ) {
      scheduleGroupCleanup();
   }
}

void
TapAggSm::pmapUseIs( const String & name, bool use ) {
   auto users = users_.users( name );
   if ( ( users && users->pmapGroup ) == use ) {
      return;
   }
   changeUse( name, [&]( TapAggUsers::Users & changed ) { changed.pmapGroup = use; } );
   if ( !use ) {
      scheduleGroupCleanup();
   }
}

void
TapAggSm::reviewPmapGroup( const String & name ) {
   const bool wanted = active_ && in_.pmapGroupConfig->groupHas( name );
   pmapUseIs( name, wanted );
   const U32 id = wanted ? groupFor( name ) : 0;
   if ( id ) {
      in_.pmapGroupStatus->groupNameToIdIs( name, id );
   } else {
      in_.pmapGroupStatus->groupNameToIdDel( name );
   }
}

// --- Members -------------------------------------------------------------------------------------

void
TapAggSm::noteGroup( U32 id, IntfId intf ) {
   const AllocatedGroupInfo::Ptr info = allocatedGroupInfo( id );
   const bool single = lagView().role( intf ) != LagRole::aggregate;
   if ( !info || ( single && info->intfListHas( intf ) ) ) {
      return;
   }
   QonPortList ports;
   lagView().forEachTarget( intf, EmptyAggregate::nothing,
                            [&]( IntfId port ) { ports.portIs( port ); } );
   allocatedPortInfoIs( intf )->groupIs( info->groupOwner() );
   info->intfListIs( intf, ports );
}

bool
TapAggSm::inGroup( IntfId intf, U32 id ) const {
   auto tap = tapSm( intf );
   auto tool = toolSm( intf );
   return ( tap && tap->hw().isIn( id ) ) || ( tool && tool->hw().isIn( id ) );
}

// --- Clean-up ------------------------------------------------------------------------------------

void
TapAggSm::scheduleGroupCleanup() {
   groupCleanupClock_->timeIs( Kiv::now() + groupCleanupDelay );
}

void
TapAggSm::handleGroupCleanupTime() {
   ask( { What::groupCleanup } );
}

/** Interfaces that are not in the group any more leave its lists. */
void
TapAggSm::prune( const AllocatedGroupInfo::Ptr & info ) {
   for ( auto && entry : keysOf< IntfId >( info->intfListIteratorConst() ) ) {
      const IntfId intf = entry.key;
      if ( inGroup( intf, info->groupId() ) ) {
         continue;
      }
      if ( !inGroup( intf, groupIdOf( info->groupOwner() ) ) ) {
         portGroupDel( intf, info->groupOwner() );
      }
      info->intfListDel( intf );
   }
}

void
TapAggSm::portGroupDel( IntfId intf, const String & name ) {
   if ( const Velto::Ptr< AllocatedPortInfo > port = allocatedPortInfo( intf ) ) {
      port->groupDel( name );
      if ( port->groups() == 0 ) {
         allocatedPortInfoDel( intf );
      }
   }
}

/** Whose chip did not let go of the group is asked once more. */
void
TapAggSm::cleanUpGroup( const AllocatedGroupInfo::Ptr & info ) {
   prune( info );
   const U32 id = info->groupId();
   const String owner = info->groupOwner();
   if ( groupInUse( owner ) && groupIdOf( owner ) == id ) {
      return;
   }
   if ( info->intfLists() == 0 ) {
      QON_TRACE( tapAggFacility, 2, "Deleting unused group id: ", id ); // fixed text
      releaseTapAggGroup( owner, id );
      return;
   }
   for ( auto && entry : keysOf< IntfId >( info->intfListIteratorConst() ) ) {
      later( What::tapPort, entry.key );
      later( What::toolPort, entry.key );
   }
}

void
TapAggSm::cleanUpGroups() {
   std::vector< U32 > ids;
   for ( auto && [id, info] : allocatedGroupInfoIteratorConst() ) {
      ids.push_back( id );
   }
   std::sort( ids.begin(), ids.end() );
   cleaning_ = true;
   const Velto::AtEnd done( [this] { cleaning_ = false; } );
   Velto::FirstError error;
   for ( U32 id : ids ) {
      if ( const AllocatedGroupInfo::Ptr info = allocatedGroupInfo( id ) ) {
         error.run( [&] { cleanUpGroup( info ); } );
      }
   }
   if ( released_ && error.run( [this] { retryPending(); } ) ) {
      released_ = false;
   }
   error.run( [this] { dropUnusedPending(); } );
   error.pass();
}

void
TapAggSm::dropUnusedPending() {
   Velto::FirstError error;
   for ( auto && entry : keysOf< String >( pendingAggGroupIteratorConst() ) ) {
      if ( !groupInUse( entry.key ) ) {
         error.run( [&] { pendingAggGroupDel( entry.key ); } );
         groupStateChanged( entry.key );
      }
   }
   error.pass();
}

/** By name; what is not free now leaves its name pending. */
void
TapAggSm::retryPending() {
   retrying_ = true;
   saidFull_ = false;
   const Velto::AtEnd done( [this] { retrying_ = false; } );
   Velto::FirstError error;
   error.run( [this] { dropUnusedPending(); } );
   for ( auto && entry : keysOf< String >( pendingAggGroupIteratorConst() ) ) {
      ++retries_;
      error.run( [&] { createTapAggGroup( entry.key ); } );
   }
   error.pass();
}

} // namespace Qon
