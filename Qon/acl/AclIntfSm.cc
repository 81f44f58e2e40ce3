// Blocks of interfaces: who wishes them, what hardware is asked, who waits for the answer.

#include "Qon/include/acl/AclIntfSm.h"

#include <algorithm>

#include "Qon/acl/AclTrace.h"
#include "Qon/include/acl/QonAclSm.h"
#include "Qon/include/framework/HookTap.h"

namespace Qon {

using Acl::AclDirection;
using Acl::AclType;
using Ulnet::IntfId;

// One interface

void
AclIntfSm::pairActiveIs( AclType type, AclDirection direction, bool active ) {
   U32 & pairs = pairs_[U8( type )][U8( direction )];
   VELTO_ASSERT( active || pairs > 0 );
   pairs += active ? 1 : -1;
   used_ += active ? 1 : -1;
}

bool
AclIntfSm::wantToBlockIs( const AclDataSm * instance, bool block ) {
   const bool before = !wantToBlock_.empty();
   auto wish = std::find( wantToBlock_.begin(), wantToBlock_.end(), instance );
   if ( block && wish == wantToBlock_.end() ) {
      wantToBlock_.push_back( instance );
   } else if ( !block && wish != wantToBlock_.end() ) {
      wantToBlock_.erase( wish );
   }
   return before == wantToBlock_.empty();
}

bool
AclIntfSm::othersWantToBlock( const AclDataSm * instance ) const {
   bool others = false;
   for ( const AclDataSm * other : wantToBlock_ ) {
      others = others || ( other != instance && other->type() == instance->type() );
   }
   return others;
}

void
AclIntfSm::handleAclBlocked( bool blocked ) {
   notAsked();
   blocked_ = blocked;
}

// All of them

Velto::Ptr< AclIntfSm > &
AclSm::intfSmIs( IntfId intf ) {
   auto [held, fresh] = intfs_.emplace( intf );
   if ( fresh ) {
      // fixed text
      QON_TRACE( aclFacility, 4, "Creating ACL interface state machine for ", intf );
      *held = Velto::make< AclIntfSm >();
   }
   return *held;
}

void
AclSm::intfSmIdle( IntfId intf ) {
   auto held = intfs_.find( intf );
   if ( held && ( *held )->idle() ) {
      // fixed text
      QON_TRACE( aclFacility, 4, "Deleting ACL interface state machine for ", intf );
      intfs_.erase( intf );
   }
}

const AclIntfSm *
AclSm::aclIntfSm( IntfId intf ) const {
   auto held = intfs_.find( intf );
   return held ? held->ptr() : nullptr;
}

void
AclSm::pairActiveIs( AclType type, AclDirection direction, IntfId intf, bool active ) {
   AclIntfSm & sm = *intfSmIs( intf );
   sm.pairActiveIs( type, direction, active );
   if ( sm.idle() ) {
      intfSmIdle( intf );
   }
}

bool
AclSm::intfActive( AclType type, AclDirection direction, IntfId intf ) const {
   const AclIntfSm * sm = aclIntfSm( intf );
   return sm && sm->active( type, direction );
}

bool
AclSm::blocked( IntfId intf ) const {
   const AclIntfSm * sm = aclIntfSm( intf );
   bool blocked = sm && aclHelper()->asyncBlockIntf() && ( sm->wantToBlocks() || !sm->answered() );
   types_.forEach( [&]( AclType, AclTypeConfigSm & typeSm ) {
      blocked = blocked || typeSm.blockedIntf().has( intf );
   } );
   return blocked;
}

// What instances wish

bool
AclSm::blockIs( AclDataSm * instance, IntfId intf, bool block ) {
   const Velto::Ptr< AclTypeConfigSm > typeSm = aclTypeConfigSm( instance->type() );
   const bool later = aclHelper()->asyncBlockIntf();
   if ( block && later && ( !typeSm || typeSm->permitDuringUpdate() ) ) {
      QON_TRACE( aclFacility, 4, "Not blocking intf because of cli configuration" ); // fixed text
      return false;
   }
   auto held = block ? &intfSmIs( intf ) : intfs_.find( intf );
   if ( !held ) {
      return false;
   }
   const Velto::Ptr< AclIntfSm > sm = *held;
   const Velto::AtEnd idle( [this, &sm, intf] { sm->idle() ? intfSmIdle( intf ) : void(); } );
   if ( later ) {
      askBlock( *sm, instance, intf, block );
      return block && !sm->answered();
   }
   if ( block ) {
      sm->wantToBlockIs( instance, true );
   }
   if ( typeSm && ( block || !sm->othersWantToBlock( instance ) ) ) {
      typeSm->blockedIntfIs( intf, block );
   }
   if ( !block ) {
      sm->wantToBlockIs( instance, false ); // not if that raised: it is asked again
   }
   return false;
}

/** What raises was not asked, and is asked again by whoever still wishes it. */
void
AclSm::askBlock( AclIntfSm & sm, AclDataSm * instance, IntfId intf, bool block ) {
   if ( !sm.wantToBlockIs( instance, block ) ) {
      return;
   }
   QON_TRACE( aclFacility, 4, block ? "Blocking intf " : "Unblocking intf ", intf ); // fixed texts
   sm.asked();
   try {
      QON_HOOK( AclHelper, aclHelper(), blockIntf, intf, block );
   } catch ( ... ) {
      sm.notAsked();
      sm.wantToBlockIs( instance, !block );
      throw;
   }
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
   intfSmIdle( intf );
   forEachDirection( [&]( AclDirectionTypeConfigSm & d ) { d.waitForBlockedDel( intf ); } );
   waitsChanged();
}

bool
AclSm::blocksPending() const {
   bool pending = false;
   if ( !aclHelper()->asyncBlockIntf() ) {
      return pending;
   }
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

} // namespace Qon
