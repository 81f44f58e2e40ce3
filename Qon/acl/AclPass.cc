// A pass: what has changed is brought into hardware, phase by phase.

#include <algorithm>

#include "Qon/acl/AclTrace.h"
#include "Qon/include/acl/QonAclSm.h"
#include "Qon/include/framework/HookTap.h"

namespace Qon {

using Acl::AclDirection;
using Acl::AclType;
using Ulnet::IntfId;

namespace {

void
sort( std::vector< Velto::Ptr< AclDataSm > > & instances ) {
   if ( instances.size() < 2 ) {
      return;
   }
   std::stable_sort( instances.begin(), instances.end(), []( auto & a, auto & b ) {
      return a->type() != b->type()         ? a->type() < b->type()
             : a->aclName() != b->aclName() ? a->aclName() < b->aclName()
                                            : a->key() < b->key();
   } );
}

} // namespace

// What has changed

void
AclSm::changed( AclDataSm * instance ) {
   joinsKnown_ = false;
   nextIs( instance );
}

void
AclSm::nextIs( AclDataSm * instance ) {
   note( instance );
   passLater();
}

void
AclSm::note( AclDataSm * instance ) {
   if ( !instance->noted() ) {
      instance->notedIs( true );
      changed_.push_back( Velto::Ptr< AclDataSm >( instance ) );
   }
}

/** `into`, which is empty, becomes what has changed. */
void
AclSm::takeChanged( Instances & into ) {
   into.swap( changed_ );
   for ( auto & instance : into ) {
      instance->notedIs( false );
   }
}

/** Whoever settles looks at it when that is done. */
void
AclSm::passLater() {
   if ( passDue() && phase_ == AclApplyPhase::done && applyClock_ && !work_.draining() ) {
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

/** Only if nothing else waits for a pass: else all of it is one. */
void
AclSm::applyIntfsNow() {
   if ( phase_ != AclApplyPhase::done || working_ || starting_ || !staleDone_ || cleanedUp_ ||
        work_.draining() || changed_.empty() || !reverts_.empty() ||
        aclHelper()->deferredOperationsSupported() ) {
      return;
   }
   for ( auto & instance : changed_ ) {
      if ( !instance->onlyIntfsChange() ) {
         return;
      }
   }
   if ( !applyClock_->idle() ) {
      applyClock_->timeIs( Kiv::never ); // unless something is left for it
   }
   if ( changed_.size() > 1 || aclHelper()->asyncBlockIntf() || !changed_[0]->needsNoPass() ) {
      doApplyAcls();
      return;
   }
   applyWithoutPass();
}

void
AclSm::applyWithoutPass() {
   QON_TRACE( aclFacility, 4, "Applying ACLs" ); // fixed text
   {
      working_ = true;
      const Velto::AtEnd idle( [this] { working_ = false; } );
      takeChanged( pass_ );
      forEach( pass_, []( AclDataSm & instance ) { instance.applyTouched(); } );
   }
   passDone();
   passErrors();
}

void
AclSm::doApplyAcls( bool forceRecreateAll ) {
   const Velto::Hold alive( this );
   if ( phase_ != AclApplyPhase::done || working_ ) {
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
   working_ = true;
   const Velto::AtEnd idle( [this] { working_ = false; } );
   if ( forceRecreateAll ) {
      for ( auto && entry : instances_ ) {
         entry.key->forceIs();
         note( entry.key );
      }
   }
   uninstallsAsked_ = false;
   if ( !reverts_.empty() ) {
      doAclRevert();
   }
   if ( pass_.empty() ) {
      takeChanged( pass_ );
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
   for ( std::size_t n = 0; n < instances.size(); ++n ) { // hooks do not change the list
      const Velto::Ptr< AclDataSm > instance = instances[n];
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
   for ( auto & instance : aclHelper()->asyncBlockIntf() ? pass_ : Instances() ) {
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
   if ( staleGoes() && !passDue() ) {
      stale_ = Stale::gone;
      error_.run( [&] { QON_HOOK( AclHelper, aclHelper(), staleAclsDel ); } );
   }
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

/** Marks the interfaces that the next pass gives to some instance, and those that wait for it. */
void
AclSm::lookForJoins() {
   joinsKnown_ = true;
   ++joinsLook_;
   auto mark = [&]( AclType type, AclDirection direction, IntfId intf ) {
      if ( auto sm = intfs_.find( intf ) ) {
         ( *sm )->joinsIs( type, direction, joinsLook_ );
      }
   };
   auto markAll = [&]( const AclDataSm & instance ) {
      instance.forEachJoining(
            [&]( IntfId intf ) { mark( instance.type(), instance.key().direction(), intf ); } );
   };
   for ( auto & instance : changed_ ) {
      markAll( *instance );
   }
   for ( auto & instance : pass_ ) {
      if ( instance->willRevert() ) {
         markAll( *instance );
      }
   }
   forEachDirection( [&]( AclDirectionTypeConfigSm & sm ) {
      for ( IntfId port : sm.deferredPorts() ) {
         mark( sm.type(), sm.direction(), port );
      }
   } );
}

bool
AclSm::joinsNext( const AclDataSm & instance, IntfId intf ) {
   if ( !joinsKnown_ ) {
      lookForJoins();
   }
   const AclIntfSm * sm = aclIntfSm( intf );
   return sm && sm->joins( instance.type(), instance.key().direction(), joinsLook_ );
}

void
AclSm::doUnblocks() {
   working_ = true;
   const Velto::AtEnd idle( [this] { working_ = false; } );
   joinsKnown_ = false;
   forEach( unblockAcl_, []( AclDataSm & instance ) { instance.doUnblockTraffic(); } );
   unblockAcl_.clear();
}

void
AclSm::passDone() {
   working_ = true;
   const Velto::AtEnd idle( [this] { working_ = false; } );
   Instances pass;
   pass.swap( pass_ );
   unInstallAcl_.clear();
   prepareAcl_.clear();
   retryFailed();
   forEach( pass, []( AclDataSm & instance ) { instance.end(); } );
   error_.run( [&] { checkStatus(); } );
   if ( std::exchange( membersWait_, false ) ) {
      doDeferredMembers();
   }
   const bool force = std::exchange( forceAgain_, false );
   if ( force ) {
      for ( auto && entry : instances_ ) {
         entry.key->forceIs();
         changed( entry.key );
      }
   }
   staleDel();
   if ( ( std::exchange( again_, false ) || passDue() ) && applyClock_ ) {
      applyClock_->timeMin( Kiv::now() );
   }
   pass.clear();
   pass_.swap( pass ); // for its room
}

void
AclSm::doDeferredMembers() {
   forEachDirection( [&]( AclDirectionTypeConfigSm & sm ) {
      for ( IntfId port : sm.deferredPorts() ) {
         error_.run( [&] { sm.updateAclOnLagMember( port ); } );
      }
   } );
}

/** What is left of a former life decides until all that is wanted has been tried. If there is no room for
    all beside it, it goes in another pass, which blocks those that have nothing else. What is wanted
    meanwhile puts that off: it has not been tried. */
void
AclSm::staleDel() {
   const bool due = passDue();
   if ( staleDone_ || cleanedUp_ || ( due && !staleGoes() ) ) {
      return;
   }
   if ( stale_ != Stale::gone && retryShortages() ) {
      stale_ = Stale::goes;
      return;
   }
   if ( due ) {
      return;
   }
   staleDone_ = true;
   if ( stale_ != Stale::gone ) {
      error_.run( [&] { QON_HOOK( AclHelper, aclHelper(), staleAclsDel ); } );
   }
   error_.run( [&] { staleErrdisablesDel(); } );
   roomMade();
   retryFailed();
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
   if ( cleanedUp_ || answered( type, aclName, key, operation, results ) ) {
      return;
   }
   if ( !aclTypeConfigSm( type ) ) {
      auto & callbackDataSm = callbackDataSm_[U8( type )];
      if ( !callbackDataSm ) {
         callbackDataSm = smIs< AclCallbackDataSm >();
      }
      callbackDataSm->answerIs( aclName, key, { operation, results } );
      // fixed text
      QON_TRACE( aclFacility, 2, "No aclTypeConfigSm, Returning after setting up callbackDataSm" );
      return;
   }
   const Velto::Ptr< AclConfigSm > configSm = aclConfigSm( type, aclName );
   if ( !configSm ) {
      QON_TRACE( aclFacility, 2, "No aclConfigSm" ); // fixed text
      return;
   }
   const Velto::Ptr< AclDataSm > instance = configSm->aclDataSm( key );
   if ( instance && instance->operation() == operation ) {
      instance->unitsReport( results );
   }
}

/** The type is there again. */
void
AclSm::replayCallbackData( AclType type ) {
   const Velto::Ptr< AclCallbackDataSm > sm = callbackDataSm_[U8( type )];
   if ( !sm || !aclTypeConfigSm( type ) ) {
      return;
   }
   Velto::FirstError error;
   for ( auto & [place, answer] : sm->takeAnswers() ) {
      error.run( [&] {
         aclStatusUpdateCallback( type, place.first, place.second, answer.operation,
                                  answer.results );
      } );
   }
   if ( sm->answers() == 0 ) {
      QON_TRACE( aclFacility, 4, "No callback data, deleting callbackDataSm" ); // fixed text
      callbackDataSm_[U8( type )] = nullptr;
   }
   error.pass();
}

/** The answer to an operation that is under way; false if it is none. What the pass waits for counts
    whether or not the list and its type are still there. */
bool
AclSm::answered( AclType type, const String & aclName, const AclKey & key, U64 operation,
                 const AclUnitResults & results ) {
   auto held = outstanding_.find( operation );
   if ( !held || ( *held )->type() != type || ( *held )->aclName() != aclName ||
        ( *held )->key() != key ) {
      return false;
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
   return true;
}

} // namespace Qon
