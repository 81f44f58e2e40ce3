#include "Qon/include/acl/AclTypeConfigSm.h"

#include "Qon/acl/AclTrace.h"
#include "Qon/include/acl/QonAclSm.h"
#include "Qon/include/framework/HookTap.h"

namespace Qon {

using Ulnet::IntfId;

AclTypeConfigSm::AclTypeConfigSm( AclSm * aclSm, Acl::AclType type )
    : aclSm_( aclSm ), type_( type ) {}

void
AclTypeConfigSm::handleInitialized() {
   if ( !initialized() ) {
      lists_.rest();
      directions_.rest();
      return;
   }
   reviewInputs();
}

void
AclTypeConfigSm::kivDoZombieReactors() {
   QonBaseSm::kivDoZombieReactors();
   lists_.kivDoZombieReactors();
   directions_.kivDoZombieReactors();
}

void
AclTypeConfigSm::reviewInputs() {
   config_ = cleanedUp_ ? nullptr : aclSm_->config()->type( type_ );
   intfConfig_ = cleanedUp_ ? nullptr : aclSm_->intfConfig()->type( type_ );
   aclWatch_.attach( this, config_.ptr() );
   directionWatch_.attach( this, intfConfig_.ptr() );
   Velto::FirstError error;
   error.run( [&] { reviewDirections(); } );
   error.run( [&] { reviewAcls(); } );
   error.pass();
}

void
AclTypeConfigSm::reviewDirections() {
   for ( Acl::AclDirection direction : Acl::aclDirections ) {
      handleDirection( direction );
   }
}

void
AclTypeConfigSm::reviewAcls() {
   auto wanted = [this]( const String & name ) {
      return Velto::Ptr< const Acl::AclConfig >( config_ ? config_->acl( name ) : nullptr );
   };
   if ( config_ ) {
      const Velto::Ptr< const Acl::TypeConfig > config = config_;
      lists_.reviewAll( config->aclIteratorConst(), wanted );
   } else {
      lists_.removeAll();
   }
}

void
AclTypeConfigSm::doCleanup() {
   cleanedUp_ = true;
   Velto::FirstError error;
   error.run( [&] { reviewInputs(); } );
   for ( auto && entry :
         aclSm_->keepsHardware() ? KeySet< IntfId >() : keysOf< IntfId >( blockedIntf_ ) ) {
      error.run( [&] { blockedIntfIs( entry.key, false ); } );
   }
   error.pass();
}

void
AclTypeConfigSm::handleAcl( const String & name ) {
   const Velto::Hold alive( aclSm_ );
   lists_.review( name, config_ ? config_->acl( name ) : nullptr );
}

void
AclTypeConfigSm::handleDirection( const Acl::AclDirection & direction ) {
   const Velto::Hold alive( aclSm_ );
   directions_.review( direction, intfConfig_ ? intfConfig_->direction( direction ) : nullptr );
}

Velto::Ptr< AclConfigSm >
AclTypeConfigSm::makeAcl( const String & name, const Velto::Ptr< const Acl::AclConfig > & config ) {
   return smIs< AclConfigSm >( aclSm_, type_, name, config );
}

/** Its numbers begin where those of all former directions end. */
Velto::Ptr< AclDirectionTypeConfigSm >
AclTypeConfigSm::makeDirection( const Acl::AclDirection &,
                                const Velto::Ptr< const Acl::DirectionIntfConfig > & config ) {
   const U16 aclNumberRangeStart = aclSm()->aclNumbersUsed();
   aclSm()->aclNumbersUsedIs( U16( aclNumberRangeStart + aclNumbersPerDirection ) );
   VELTO_ASSERT( aclNumberRangeStart < aclSm()->aclNumbersUsed() ); // fixed text
   return smIs< AclDirectionTypeConfigSm >( aclSm_, type_, config, aclNumberRangeStart );
}

bool
AclTypeConfigSm::permitDuringUpdate() const {
   auto helper = aclSm_->aclHelper();
   return helper->getPermitDuringAclUpdate( type_ ) &&
          !helper->permitDuringAclUpdateOverride( type_ );
}

void
AclTypeConfigSm::blockedIntfIs( IntfId intf, bool block ) {
   auto aclHelper = [this] { return aclSm_->aclHelper(); }; // named for the assertion's text
   VELTO_ASSERT( !aclHelper()->asyncAclConfig() );          // fixed text
   if ( block && permitDuringUpdate() ) {
      // fixed text
      QON_TRACE( aclFacility, 4, "Not blocking intf because of cli configuration" );
      return;
   }
   if ( block ? !blockedIntf_.emplace( intf ).second : !blockedIntf_.erase( intf ) ) {
      return;
   }
   for ( Acl::AclType other : Acl::aclTypes ) {
      auto sm = aclSm_->aclTypeConfigSm( other );
      if ( sm && sm != this && sm->blockedIntf().has( intf ) ) {
         if ( !block ) {
            // fixed text
            QON_TRACE( aclFacility, 4, intf, " still blocked for ", Kiv::toText( other ) );
         }
         return;
      }
   }
   // fixed texts
   QON_TRACE( aclFacility, 4, block ? "Blocking intf " : "Unblocking intf ", intf );
   try {
      QON_HOOK( AclHelper, aclHelper(), blockIntf, intf, block );
   } catch ( ... ) {
      if ( !block ) {
         blockedIntf_.emplace( intf ); // to be asked again
      }
      throw;
   }
}

} // namespace Qon
