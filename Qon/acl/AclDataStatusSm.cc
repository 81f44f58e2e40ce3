// What became of one instance, and what follows from it.

#include "Qon/acl/AclTrace.h"
#include "Qon/include/acl/QonAclSm.h"

namespace Qon {

// What the hardware tells

AclDataStatusSm::AclDataStatusSm( AclDataSm * dataSm, Velto::Ptr< AclDataStatus > status )
    : dataSm_( dataSm ), status_( std::move( status ) ) {}

void
AclDataStatusSm::handleInitialized() {
   unitErrorWatch_.attach( this, initialized() ? status_.ptr() : nullptr );
}

void
AclDataStatusSm::handleUnitError( const String & unit ) {
   const Velto::Ptr< AclDataSm > alive( dataSm_ );
   if ( status_->unitErrorHas( unit ) ) {
      answered( unit, status_->unitError( unit ) );
      doSetHwStatus( unit, status_->unitError( unit ) );
   } else {
      failures_.erase( unit );
   }
   if ( AclSm * aclSm = dataSm_->aclSm() ) {
      aclSm->statusChanged( dataSm_ );
   }
}

void
AclDataStatusSm::answered( const String & unit, AclCreateError error ) {
   AclSm * aclSm = dataSm_->aclSm();
   if ( error == AclCreateError::success || !aclSm ) {
      failures_.erase( unit );
      return;
   }
   Failure & failure = *failures_.emplace( unit ).first;
   failure.at = aclSm->nextOperation();
   if ( std::exchange( failure.error, error ) != error ) {
      failure.since = Kiv::now();
   }
}

U64
AclDataStatusSm::resultAt( const String & unit ) const {
   auto failure = failures_.find( unit );
   return failure ? failure->at : 0;
}

Kiv::Seconds
AclDataStatusSm::since( const String & unit ) const {
   auto failure = failures_.find( unit );
   return failure ? failure->since : 0;
}

void
AclDataStatusSm::doSetHwStatus( const String & unit, AclCreateError error ) const {
   if ( error == AclCreateError::success ) {
      QON_TRACE( aclFacility, 4, "Succeeded install on ", unit ); // fixed text
   } else {
      QON_TRACE( aclFacility, 2, "Error on unit ", unit, " creating ", dataSm_->aclName(), ": ",
                 aclErrorText( error, unit, dataSm_->aclName() ) ); // fixed text
   }
}

// Of the instance

bool
AclDataSm::hasErrors() const {
   bool errors = false;
   for ( auto && [unit, error] : status_->unitErrorIteratorConst() ) {
      errors = errors || error != AclCreateError::success;
   }
   return errors;
}

/** What is said of rules that were brought back hides nothing of those that are configured. */
void
AclDataSm::resultsAre( const AclUnitResults & results ) {
   if ( !reverting_ ) {
      record( results );
   }
}

void
AclDataSm::unitsReport( const AclUnitResults & results ) {
   const Velto::Hold alive( this );
   if ( committed_ && !failed_ ) {
      record( results );
   }
}

/** With the mirror sessions of the moment, and without logging where hardware has none. */
Velto::Ptr< const AclRuleSet >
AclDataSm::hardwareRules( const Velto::Ptr< const AclRuleSet > & source ) {
   bool logging = true;
   if ( key().direction() == Acl::AclDirection::out && source->logs() ) {
      logging = aclSm_->aclHelper()->egressLoggingSupported();
      if ( !reverting_ && !( std::exchange( logWarned_, source ) == source ) ) {
         aclSm_->egressLoggingIsSupported( type(), aclName(), key().direction() );
      }
   }
   if ( logging && source->mirrorSessions().empty() ) {
      return source;
   }
   std::vector< AclRule > rules = source->rules();
   for ( auto & rule : rules ) {
      rule.rule.logIs( rule.rule.log() && logging );
      rule.mirrorGroup = aclSm_->mirrorGroup( rule.rule.mirrorSession() );
      if ( rule.mirrorGroup == Mirroring::mirrorGroupInvalid() ) {
         rule.rule.mirrorSessionIs( "" );
      }
   }
   return Velto::make< AclRuleSet >( std::move( rules ) );
}

/** What the units say now, and nothing that they said before. */
void
AclDataSm::record( const AclUnitResults & results ) {
   KeySet< String > units;
   Velto::FirstError error;
   for ( auto & result : results ) {
      units.emplace( result.unit );
      statusSm_->answered( result.unit, result.error );
      error.run( [&] { status_->unitErrorIs( result.unit, result.error ); } );
   }
   for ( auto && entry : keysOf< String >( status_->unitErrorIteratorConst() ) ) {
      if ( !units.has( entry.key ) ) {
         error.run( [&] { status_->unitErrorDel( entry.key ); } );
      }
   }
   error.pass();
}

/** What failed gives way to what was in force before; what fails then, to nothing. */
void
AclDataSm::resultKnown( bool willRevert ) {
   if ( reverting_ ) {
      revert_ = !committed_ && inHardware_;
      good_ = committed_ ? good_ : nullptr;
      revertTo_ = nullptr;
   } else if ( committed_ ) {
      failed_ = false;
      good_ = source_;
   } else if ( !failing() ) {
      aclSm_->changed( this ); // nobody said what became of it
      return;
   } else {
      failedSince_ = failed_ ? failedSince_ : Kiv::now();
      failed_ = true;
      tried_ = source_;
      revertTo_ = willRevert ? good_ : nullptr;
      revert_ = inHardware_;
   }
   if ( revert_ ) {
      aclSm_->revertLater( this );
   }
   Velto::FirstError error;
   if ( !reverting_ ) {
      // fixed texts
      QON_TRACE( aclFacility, 4, "Moving aclDataState to ", failed_ ? "Failure" : "Done" );
      error.run( [&] {
         status_->aclDataStateIs( failed_ ? AclDataState::failure : AclDataState::done );
      } );
   }
   auto configSm = aclSm_ ? aclSm_->aclConfigSm( type(), aclName() ) : nullptr;
   if ( configSm && !sessions_ && configSm->ruleSet() == ( failed_ ? tried_ : source_ ) ) {
      error.run( [&] { data_->dirtyIs( false ); } );
   }
   error.pass();
}

} // namespace Qon
