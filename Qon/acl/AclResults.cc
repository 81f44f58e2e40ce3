// What the units say of all instances: messages, interfaces that are taken out of service, and
// instances that are applied anew because something beside them has changed.

#include "Qon/acl/AclTrace.h"
#include "Qon/include/acl/QonAclSm.h"
#include "Qon/include/framework/QonLog.h"

namespace Qon {

using Acl::AclDirection;
using Acl::AclType;
using Ulnet::IntfId;

namespace {

QonLogHandle resourceFull( "QonAclSm", QonLog::ACL_HW_RESOURCE_FULL );
QonLogHandle resourceNormal( "QonAclSm", QonLog::ACL_HW_RESOURCE_NORMAL );
QonLogHandle computationFailed( "QonAclSm", QonLog::ACL_COMPUTATION_FAILED );
QonLogHandle computationSuccess( "QonAclSm", QonLog::ACL_COMPUTATION_SUCCESS );
QonLogHandle noEgressLogging( "QonAclSm", QonLog::ACL_EGRESS_LOGGING_NOT_SUPPORTED );
QonLogHandle unsupportedHardware( "QonAclSm", QonLog::ACL_UNSUPPORTED_HARDWARE );

template< class... Args >
void
logIfOk( QonLogHandle & message, const Args &... args ) {
   if ( message.okToLog() ) {
      Kiv::log( message, args... );
   }
}

} // namespace

// Messages of units

/** Which shortage the error is; none: no message is raised for it. */
AclSm::Shortage
AclSm::shortageOf( AclCreateError error ) const {
   switch ( error ) {
   case AclCreateError::hwResourceFull:
      return Shortage::resources;
   case AclCreateError::computationFailed:
      return Shortage::computation;
   case AclCreateError::aclLimit:
      return aclHelper()->aclLimitIsResourceFull() ? Shortage::resources : Shortage::none;
   default:
      return Shortage::none;
   }
}

String
AclSm::unitShown( const String & unit ) const {
   return unit.empty() || !aclHelper()->unitReportedByName( unit ) ? "all chips" : unit;
}

AclCreateError
AclSm::unitError( const String & unit ) const {
   auto held = units_.find( unit );
   return held ? held->error : AclCreateError::success;
}

Kiv::Seconds
AclSm::unitErrorSince( const String & unit ) const {
   auto held = units_.find( unit );
   return held ? held->since : 0;
}

std::vector< std::pair< String, AclCreateError > >
AclSm::unitErrors() const {
   std::vector< std::pair< String, AclCreateError > > all;
   for ( auto && [unit, held] : units_ ) {
      if ( held.error != AclCreateError::success ) {
         all.push_back( { unit, held.error } );
      }
   }
   return all;
}

/** A message that raises was not said: it is left to the next check. */
void
AclSm::raise( const String & unit, Shortage shortage ) {
   Unit & held = *units_.find( unit );
   const Shortage before = std::exchange( held.raised, shortage );
   held.unsaid = false;
   QonLogHandle & message = shortage == Shortage::resources     ? resourceFull
                            : shortage == Shortage::computation ? computationFailed
                            : before == Shortage::resources     ? resourceNormal
                                                                : computationSuccess;
   try {
      logIfOk( message, unitShown( unit ) );
   } catch ( ... ) {
      if ( Unit * now = units_.find( unit ) ) {
         now->raised = before;
         now->unsaid = true;
      }
      throw;
   }
}

/** One message when the unit gets into a shortage, or into another one. */
void
AclSm::syslogUnitError( const String & unit ) {
   const Unit & held = *units_.find( unit );
   const Shortage shortage = shortageOf( held.error );
   if ( shortage != Shortage::none && shortage != held.raised ) {
      raise( unit, shortage );
   }
}

void
AclSm::unitFails( const String & unit, AclCreateError error ) {
   Unit & held = *units_.emplace( unit ).first;
   const bool other = std::exchange( held.error, error ) != error;
   held.since = other ? Kiv::now() : held.since;
   if ( other || held.unsaid ) {
      syslogUnitError( unit );
   }
}

/** The message that is out is taken back, and then nothing is stored of the unit. */
void
AclSm::unitSucceeds( const String & unit ) {
   Unit & held = *units_.find( unit );
   if ( std::exchange( held.error, AclCreateError::success ) != AclCreateError::success ) {
      QON_TRACE( aclFacility, 4, "Deleted: ", unit ); // fixed text
   }
   if ( held.raised != Shortage::none ) {
      raise( unit, Shortage::none );
   }
   const Unit * now = units_.find( unit );
   if ( now && now->error == AclCreateError::success && now->raised == Shortage::none ) {
      units_.erase( unit );
   }
}

/** The last failure that has a message; if none has, the last one. */
void
AclSm::lastErrors( Kiv::DenseMap< String, LastError > & last ) const {
   for ( auto && entry : failing_ ) {
      const AclDataSm & instance = *entry.key;
      for ( auto && [unit, error] : instance.status()->unitErrorIteratorConst() ) {
         if ( error == AclCreateError::success || instance.unwanted() ) {
            continue;
         }
         const LastError mine{ error, shortageOf( error ) != Shortage::none,
                               instance.statusSm()->resultAt( unit ) };
         LastError & held = *last.emplace( unit, mine ).first;
         if ( std::pair( mine.told, mine.at ) > std::pair( held.told, held.at ) ) {
            held = mine;
         }
      }
   }
}

void
AclSm::checkStatus() {
   if ( failing_.empty() && units_.empty() && errdisabled_.empty() && outstanding_.empty() ) {
      saidAgain_ = false;
      return;
   }
   const Velto::Hold alive( this );
   for ( auto && [operation, instance] : outstanding_ ) {
      QON_TRACE( aclFacility, 7, instance->aclName(), " is in pending state." ); // fixed text
   }
   Kiv::DenseMap< String, LastError > last;
   lastErrors( last );
   Velto::FirstError error;
   bool said = true;
   for ( auto && entry : keysOf< String >( units_ ) ) {
      if ( units_.has( entry.key ) && !last.has( entry.key ) ) {
         said = error.run( [&] { unitSucceeds( entry.key ); } ) && said;
      }
   }
   for ( auto && [unit, now] : last ) {
      said = error.run( [&, &unit = unit, &now = now] { unitFails( unit, now.error ); } ) && said;
   }
   error.run( [&] { checkErrdisables(); } );
   // What could not be said is tried once more without a reason of its own.
   if ( !said && !std::exchange( saidAgain_, true ) && applyClock_ ) {
      applyClock_->timeMin( Kiv::now() );
   }
   saidAgain_ = saidAgain_ && !said;
   error.pass();
}

/** An instance's record has changed; at the end of a pass all are looked at. */
void
AclSm::statusChanged( AclDataSm * instance ) {
   if ( instance->hasErrors() ) {
      failing_.emplace( instance );
   } else {
      failing_.erase( instance );
   }
   if ( phase_ == AclApplyPhase::done && !cleanedUp_ ) {
      checkStatus();
   }
}

// Interfaces out of service

/** Adds the interfaces of an instance that cannot be installed, unless hardware is just too small. */
void
AclSm::doErrdisable( const AclDataSm & instance, KeySet< IntfId > & intfs ) const {
   bool shortage = true;
   for ( auto && [unit, error] : instance.status()->unitErrorIteratorConst() ) {
      shortage = shortage && ( error == AclCreateError::success || insufficientResources( error ) );
   }
   if ( shortage ) {
      // fixed text
      QON_TRACE( aclFacility, 4, "Insufficient resource error: Do not err disable" );
      return;
   }
   for ( auto && entry : instance.intfs() ) {
      intfs.emplace( entry.key );
   }
   QON_TRACE( aclFacility, 2, "Errdisabling for: ", instance.aclName() ); // fixed text
}

void
AclSm::checkErrdisables() {
   if ( !in_.errdisable || ( failing_.empty() && errdisabled_.empty() ) ) {
      return;
   }
   KeySet< IntfId > wanted;
   for ( auto && entry : failing_ ) {
      if ( entry.key->failing() ) {
         doErrdisable( *entry.key, wanted );
      }
   }
   if ( wanted.empty() && !errdisabled_.empty() ) {
      QON_TRACE( aclFacility, 2, "Removing all errdisables" ); // fixed text
   }
   const KeySet< IntfId > before = std::exchange( errdisabled_, wanted );
   Velto::FirstError error;
   for ( auto && entry : before ) {
      if ( !wanted.has( entry.key ) ) {
         QON_TRACE( aclFacility, 2, "Removing Errdisable on ", entry.key ); // fixed text
         error.run( [&] { in_.errdisable->intfStatusDel( entry.key ); } );
      }
   }
   for ( auto && entry : wanted ) {
      if ( !before.has( entry.key ) ) {
         QON_TRACE( aclFacility, 2, "Errdisabling ", entry.key ); // fixed text
         error.run( [&] { in_.errdisable->intfStatusIs( entry.key, Kiv::now() ); } );
      }
   }
   error.pass();
}

/** What an earlier life has left, and nobody wants now. */
void
AclSm::staleErrdisablesDel() {
   if ( in_.errdisable ) {
      for ( auto && entry : keysOf< IntfId >( in_.errdisable->intfStatusIteratorConst() ) ) {
         if ( !errdisabled_.has( entry.key ) ) {
            in_.errdisable->intfStatusDel( entry.key );
         }
      }
   }
}

// After the pass

void
AclSm::revertLater( AclDataSm * instance ) {
   reverts_.emplace( instance, Velto::Ptr< AclDataSm >( instance ) );
}

/** The instances of the next pass, if that is to bring back what was in force before. */
void
AclSm::doAclRevert() {
   QON_TRACE( aclFacility, 2, "Handling deferred revert of failed Acls" ); // fixed text
   for ( auto && [instance, held] : std::exchange( reverts_, {} ) ) {
      if ( !held->noted() ) { // else what is wanted now comes first
         QON_TRACE( aclFacility, 2, "  Reverting  ", held->aclName() ); // fixed text
         pass_.push_back( held );
      }
   }
}

/** Those that found no room are tried again when others have gone. */
void
AclSm::retryFailed() {
   if ( std::exchange( roomMade_, false ) ) {
      retryShortages();
   }
}

/** Whether there are any. */
bool
AclSm::retryShortages() {
   const U64 before = retries_;
   for ( auto && entry : keysOf< AclDataSm * >( failing_ ) ) {
      AclDataSm & instance = *entry.key;
      bool shortage = false;
      for ( auto && [unit, error] : instance.status()->unitErrorIteratorConst() ) {
         shortage = shortage || insufficientResources( error );
      }
      if ( shortage && instance.failed() && !instance.busy() && !instance.unwanted() ) {
         ++retries_;
         instance.retryIs();
      }
   }
   return retries_ != before;
}

// Rules that hardware has in another way

bool
AclSm::egressLoggingIsSupported( AclType type, const String & name, AclDirection direction ) {
   if ( direction != AclDirection::out || aclHelper()->egressLoggingSupported() ) {
      return true;
   }
   const Velto::Ptr< AclConfigSm > configSm = aclConfigSm( type, name );
   if ( configSm && configSm->ruleSet()->logs() ) {
      logIfOk( noEgressLogging );
   }
   return false;
}

S32
AclSm::mirrorGroup( const String & session ) const {
   auto status = in_.mirroringStatus ? in_.mirroringStatus->session( session ) : nullptr;
   return status ? status->mirrorGroup() : Mirroring::mirrorGroupInvalid();
}

Velto::Ptr< AclMirrorSessionSm >
AclSm::makeSession( const String & name,
                    const Velto::Ptr< const Mirroring::SessionStatus > & status ) {
   return smIs< AclMirrorSessionSm >( this, name, status );
}

void
AclSm::cleanUpSession( const String & name, AclMirrorSessionSm * sm ) {
   if ( sm->group() != Mirroring::mirrorGroupInvalid() ) {
      reapplyAclsWithMirrorSession( name );
   }
}

void
AclSm::handleMirroringSession( const String & name ) {
   const Velto::Hold alive( this );
   sessions_.review( name, Velto::Ptr< const Mirroring::SessionStatus >(
                                 in_.mirroringStatus->session( name ) ) );
}

/** Also those that nothing wants at the moment: somebody may again before the pass. */
void
AclSm::reapplyAclsWithMirrorSession( const String & session ) {
   QON_TRACE( aclFacility, 4, "Reapplying ACLs with session ", session ); // fixed text
   for ( auto && entry : keysOf< AclDataSm * >( instances_ ) ) {
      const Velto::Ptr< AclDataSm > instance( entry.key );
      instance->mirrorSessionChanged( session );
   }
}

AclMirrorSessionSm::AclMirrorSessionSm( AclSm * aclSm, const String & name,
                                        Velto::Ptr< const Mirroring::SessionStatus > status )
    : aclSm_( aclSm ), name_( name ), status_( std::move( status ) ),
      group_( Mirroring::mirrorGroupInvalid() ) {}

void
AclMirrorSessionSm::handleInitialized() {
   groupWatch_.attach( this, initialized() ? status_.ptr() : nullptr );
   if ( initialized() ) {
      handleMirrorGroup();
   }
}

void
AclMirrorSessionSm::handleMirrorGroup() {
   const Velto::Hold root( aclSm_ );
   if ( std::exchange( group_, status_->mirrorGroup() ) != group_ ) {
      aclSm_->reapplyAclsWithMirrorSession( name_ );
   }
}

// Devices without access lists

bool
AclSm::hardwareSupports( IntfId intf ) const {
   return !in_.epoch || !in_.intfCards || !in_.intfCards->cardHas( intf ) ||
          in_.epoch->aclSupported( in_.intfCards->card( intf ) );
}

/** Once for a list and a device, until the list is off all of its interfaces. */
void
AclSm::logAclUnsupportedHardware( const String & acl, IntfId intf ) {
   logIfOk( unsupportedHardware, acl, in_.intfCards->card( intf ) );
}

// Who waits until everything is in hardware

void
AclSm::handleDpAclUpdateRequest() {
   if ( in_.dpRequest->requestTime() != in_.dpStatus->completedRequestTime() ) {
      dpClock_->timeMin( Kiv::now() );
   }
}

void
AclSm::handleDpAclUpdateRequestTime() {
   const Velto::Hold alive( this );
   if ( phase_ != AclApplyPhase::done || passDue() ) {
      // fixed text
      QON_TRACE( aclFacility, 4, "Waiting for acl update to complete ",
                 in_.dpRequest->requestTime() );
      dpClock_->timeMin( Kiv::now() + 1.0 );
      return;
   }
   in_.dpStatus->completedRequestTimeIs( in_.dpRequest->requestTime() );
}

} // namespace Qon
