// A pass: what has changed is brought into hardware, phase by phase.

#include <algorithm>

#include "Qon/acl/AclTrace.h"
#include "Qon/include/acl/QonAclSm.h"
#include "Qon/include/framework/HookTap.h"

namespace Qon {

using Acl::AclType;
using Ulnet::IntfId;

namespace {

void
sort( std::vector< Velto::Ptr< AclDataSm > > & instances ) {
   std::stable_sort( instances.begin(), instances.end(), []( auto & a, auto & b ) {
      return a->type() != b->type()         ? a->type() < b->type()
             : a->aclName() != b->aclName() ? a->aclName() < b->aclName()
                                            : a->key() < b->key();
   } );
}

} // namespace

// The block of one interface

bool
AclIntfSm::wantToBlockIs( const AclDataSm * instance, bool block ) {
   const U32 before = wantToBlock_.size();
   if ( block ) {
      wantToBlock_.emplace( instance );
   } else {
      wantToBlock_.erase( instance );
   }
   return ( before == 0 ) != wantToBlock_.empty();
}

void
AclIntfSm::handleAclBlocked( bool blocked ) {
   unanswered_ -= unanswered_ ? 1 : 0;
   blocked_ = blocked;
}

bool
AclSm::blockIs( AclDataSm * instance, IntfId intf, bool block ) {
   const Velto::Ptr< AclTypeConfigSm > typeSm = aclTypeConfigSm( instance->type() );
   if ( !aclHelper()->asyncBlockIntf() ) {
      if ( typeSm ) {
         typeSm->blockedIntfIs( intf, block );
      }
      return false;
   }
   if ( block && ( !typeSm || typeSm->permitDuringUpdate() ) ) {
      QON_TRACE( aclFacility, 4, "Not blocking intf because of cli configuration" ); // fixed text
      return false;
   }
   auto held = intfs_.find( intf );
   if ( !held && !block ) {
      return false;
   }
   const Velto::Ptr< AclIntfSm > sm =
         held ? *held : *intfs_.emplace( intf, Velto::make< AclIntfSm >( intf ) ).first;
   if ( sm->wantToBlockIs( instance, block ) ) {
      QON_TRACE( aclFacility, 4, block ? "Blocking intf " : "Unblocking intf ", intf ); // fixed
      sm->asked();
      QON_HOOK( AclHelper, aclHelper(), blockIntf, intf, block );
   }
   return block && !sm->answered();
}

void
AclSm::intfBlockedCallback( IntfId intf, bool blocked ) {
   auto held = intfs_.find( intf );
   if ( !held ) {
      return;
   }
   const Velto::Ptr< AclIntfSm > sm = *held;
   sm->handleAclBlocked( blocked );
   if ( !sm->answered() ) {
      return;
   }
   if ( sm->idle() ) {
      intfs_.erase( intf );
   }
   forEachDirection( [&]( AclDirectionTypeConfigSm & d ) { d.waitForBlockedDel( intf ); } );
   waitsChanged();
}

bool
AclSm::blocksPending() const {
   bool pending = false;
   forEachDirection( [&]( AclDirectionTypeConfigSm & sm ) {
      pending = pending || !sm.intfAddWaitForBlocked().empty() ||
                !sm.intfRemovalWaitForBlocked().empty();
   } );
   return pending;
}

std::vector< const AclDataSm * >
AclSm::blockIntfsPending() const {
   std::vector< const AclDataSm * > waiting;
   forEachDirection( [&]( AclDirectionTypeConfigSm & sm ) {
      for ( auto & instance : pass_ ) {
         if ( instance->type() == sm.type() && instance->key().direction() == sm.direction() &&
              instance->waitsForBlock( sm ) ) {
            waiting.push_back( instance.ptr() );
         }
      }
   } );
   return waiting;
}

/** Hooks are called from the clock, not from whoever changed the configuration. */
void
AclSm::waitsChanged() {
   if ( phase_ == AclApplyPhase::uninstall && !uninstallsAsked_ && applyClock_ ) {
      applyClock_->timeMin( Kiv::now() );
   }
}

// What has changed

void
AclSm::changed( AclDataSm * instance ) {
   changed_.emplace( instance, Velto::Ptr< AclDataSm >( instance ) );
   if ( phase_ == AclApplyPhase::done && applyClock_ ) {
      applyClock_->timeMin( Kiv::now() );
   }
}

void
AclSm::handleApplyClock() {
   const Velto::Hold alive( this );
   if ( phase_ == AclApplyPhase::done ) {
      doApplyAcls();
   } else {
      handleAclSmPhaseChange();
   }
}

void
AclSm::doApplyAcls( bool forceRecreateAll ) {
   const Velto::Hold alive( this );
   if ( phase_ != AclApplyPhase::done ) {
      again_ = true;
      forceAgain_ = forceAgain_ || forceRecreateAll;
      return;
   }
   QON_TRACE( aclFacility, 4, "Applying ACLs" ); // fixed text
   gather( forceRecreateAll );
   doApplyAclsPhase( AclApplyPhase::uninstall );
   passErrors();
}

void
AclSm::gather( bool forceRecreateAll ) {
   if ( forceRecreateAll ) {
      for ( auto && entry : instances_ ) {
         entry.key->forceIs();
         changed_.emplace( entry.key, Velto::Ptr< AclDataSm >( entry.key ) );
      }
   }
   uninstallsAsked_ = false;
   if ( !reverts_.empty() ) {
      doAclRevert();
   }
   if ( pass_.empty() ) {
      for ( auto && [instance, held] : std::exchange( changed_, {} ) ) {
         pass_.push_back( held );
      }
   }
   sort( pass_ );
   forEach( pass_, []( AclDataSm & instance ) { instance.begin(); } );
   for ( auto & instance : pass_ ) {
      if ( instance->changedWhole() ) {
         unInstallAcl_.push_back( instance );
      }
   }
}

template< class Act >
void
AclSm::forEach( const Instances & instances, Act && act ) {
   for ( auto & instance : Instances( instances ) ) {
      if ( !error_.run( [&] { act( *instance ); } ) && instance->raised() ) {
         changed( instance.ptr() );
      }
   }
}

void
AclSm::passErrors() {
   auto error = std::exchange( error_, {} );
   error.pass();
}

// The phases

void
AclSm::doApplyAclsPhase( AclApplyPhase phase ) {
   if ( U8( phase ) > U8( AclApplyPhase::unblock ) ) {
      return;
   }
   phase_ = phase;
   switch ( phase ) {
   case AclApplyPhase::uninstall:
      if ( pass_.empty() ) {
         doApplyAclsPhase( AclApplyPhase::unblock );
      } else {
         doBlocks();
         handleAclSmPhaseChange();
      }
      return;
   case AclApplyPhase::prepare:
      if ( outstanding_.empty() ) {
         doPrepares();
         handleAclSmPhaseChange();
      }
      return;
   case AclApplyPhase::commit:
      doCommits();
      doApplyAclsPhase( AclApplyPhase::unblock );
      return;
   case AclApplyPhase::unblock:
      doUnblocks();
      doApplyAclsPhase( AclApplyPhase::done );
      return;
   case AclApplyPhase::done:
      VELTO_ASSERT( !unblockAcls() ); // fixed text
      passDone();
      return;
   }
}

void
AclSm::handleAclSmPhaseChange() {
   if ( working_ ) {
      return;
   }
   switch ( phase_ ) {
   case AclApplyPhase::uninstall:
      if ( !uninstallsAsked_ && !blocksPending() ) {
         uninstallsAsked_ = true;
         doUninstalls();
      }
      if ( uninstallsAsked_ && outstanding_.empty() ) {
         doApplyAclsPhase( AclApplyPhase::prepare );
      }
      return;
   case AclApplyPhase::prepare:
      if ( outstanding_.empty() ) {
         doApplyAclsPhase( AclApplyPhase::commit );
      }
      return;
   case AclApplyPhase::unblock:
      doApplyAclsPhase( AclApplyPhase::done );
      return;
   case AclApplyPhase::commit:
   case AclApplyPhase::done:
      return;
   }
}

void
AclSm::doBlocks() {
   working_ = true;
   const Velto::AtEnd idle( [this] { working_ = false; } );
   forEach( pass_, []( AclDataSm & instance ) { instance.doBlockTraffic(); } );
   // Interfaces that join wait for the block that somebody else asked for.
   for ( auto & instance : intfs_.empty() ? Instances() : pass_ ) {
      auto direction = directionSm( instance->type(), instance->key().direction() );
      for ( auto & pair : direction ? instance->pairsToAdd() : std::vector< IntfPairKey >() ) {
         auto sm = intfs_.find( pair.intfId() );
         if ( sm && !( *sm )->answered() && ( *sm )->wantToBlocks() ) {
            direction->intfAddWaitForBlockedIs( pair );
         }
      }
   }
   for ( auto & instance : pass_ ) {
      if ( instance->blocks() ) {
         unblockAcl_.push_back( instance );
      }
   }
}

void
AclSm::doUninstalls() {
   working_ = true;
   const Velto::AtEnd idle( [this] { working_ = false; } );
   forEach( pass_, []( AclDataSm & instance ) { instance.removeUses(); } );
   forEach( unInstallAcl_, []( AclDataSm & instance ) { instance.uninstallAcl(); } );
}

/** Those that wait for a number get it in the order of the pass, too. */
void
AclSm::doPrepares() {
   working_ = true;
   const Velto::AtEnd idle( [this] { working_ = false; } );
   if ( std::exchange( numberFreed_, false ) ) {
      Instances fresh;
      for ( auto && entry : instances_ ) {
         AclDataSm * waiting = entry.key;
         if ( waiting->waitsForNumber() && !waiting->busy() && !waiting->numbers()->empty() ) {
            fresh.push_back( waiting );
         }
      }
      forEach( fresh, []( AclDataSm & instance ) { instance.begin(); } );
      pass_.insert( pass_.end(), fresh.begin(), fresh.end() );
      sort( pass_ );
   }
   for ( auto & instance : pass_ ) {
      if ( instance->remade() ) {
         prepareAcl_.push_back( instance );
      }
   }
   forEach( prepareAcl_, []( AclDataSm & instance ) { instance.prepareAcl(); } );
}

void
AclSm::doCommits() {
   working_ = true;
   const Velto::AtEnd idle( [this] { working_ = false; } );
   forEach( prepareAcl_, []( AclDataSm & instance ) { instance.commitAcl(); } );
   forEach( pass_, []( AclDataSm & instance ) { instance.addUses(); } );
}

bool
AclSm::joinsNext( const AclDataSm & instance, IntfId intf ) const {
   bool joins = false;
   for ( auto && [other, held] : changed_ ) {
      joins = joins ||
              ( other->type() == instance.type() &&
                other->key().direction() == instance.key().direction() && other->joins( intf ) );
   }
   return joins;
}

void
AclSm::doUnblocks() {
   working_ = true;
   const Velto::AtEnd idle( [this] { working_ = false; } );
   forEach( unblockAcl_, []( AclDataSm & instance ) { instance.doUnblockTraffic(); } );
   unblockAcl_.clear();
}

void
AclSm::passDone() {
   const Instances pass = std::exchange( pass_, {} );
   unInstallAcl_.clear();
   prepareAcl_.clear();
   retryFailed();
   forEach( pass, []( AclDataSm & instance ) { instance.end(); } );
   error_.run( [&] { checkStatus(); } );
   if ( !staleDone_ && !cleanedUp_ ) {
      staleDone_ = true;
      error_.run( [&] { QON_HOOK( AclHelper, aclHelper(), staleAclsDel ); } );
      error_.run( [&] { staleErrdisablesDel(); } );
   }
   forEachDirection( [&]( AclDirectionTypeConfigSm & sm ) {
      for ( IntfId port : sm.deferredPorts() ) {
         error_.run( [&] { sm.updateAclOnLagMember( port ); } );
      }
   } );
   const bool force = std::exchange( forceAgain_, false );
   if ( force ) {
      for ( auto && entry : instances_ ) {
         entry.key->forceIs();
         changed( entry.key );
      }
   }
   const bool due = !changed_.empty() || !reverts_.empty();
   if ( ( std::exchange( again_, false ) || due ) && applyClock_ ) {
      applyClock_->timeMin( Kiv::now() );
   }
}

// The chip's answers

void
AclSm::outstandingIs( AclDataSm * instance, U64 operation ) {
   outstanding_.emplace( operation, Velto::Ptr< AclDataSm >( instance ) );
}

void
AclSm::aclStatusUpdateCallback( AclType type, const String & aclName, const AclKey & key,
                                U64 operation, const AclUnitResults & results ) {
   const Velto::Hold alive( this );
   auto held = outstanding_.find( operation );
   if ( !held || ( *held )->type() != type || ( *held )->aclName() != aclName ||
        ( *held )->key() != key ) {
      return;
   }
   const Velto::Ptr< AclDataSm > instance = *held;
   outstanding_.erase( operation );
   forEach( { instance }, [&]( AclDataSm & i ) {
      if ( i.isUninstalling() ) {
         i.uninstallDone();
      } else {
         i.prepareDone( results );
      }
   } );
   if ( outstanding_.empty() ) {
      handleAclSmPhaseChange();
   }
   if ( !working_ ) {
      passErrors();
   }
}

} // namespace Qon
