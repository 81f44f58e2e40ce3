#include "Qon/include/acl/AclHelper.h"

#include "Qon/include/acl/QonAclSm.h"

namespace QonHelper {

bool
AclHelper::getPermitDuringAclUpdate( Acl::AclType type ) const {
   return paramConfig_ && ( paramConfig_->permitDuringAclUpdateConfigHas( type )
                                  ? paramConfig_->permitDuringAclUpdateConfig( type )
                                  : paramConfig_->defaultActionDuringAclUpdatePermit() );
}

void
AclHelper::aclStatusUpdateCallback( Acl::AclType type, const String & aclName,
                                    const Qon::AclKey & key, U64 operation,
                                    const AclUnitResults & results ) const {
   if ( aclSm_ ) {
      aclSm_->aclStatusUpdateCallback( type, aclName, key, operation, results );
   }
}

void
AclHelper::intfBlockedCallback( Ulnet::IntfId intf, bool blocked ) const {
   if ( aclSm_ ) {
      aclSm_->intfBlockedCallback( intf, blocked );
   }
}

void
AclHelper::uninstallAcl( const AclOperation & ) {
   qonAssert( Qon::unimplementedFunction( "AclHelper::uninstallAcl" ) ); // fixed text
}

AclUnitResults
AclHelper::prepareAcl( const AclOperation & ) {
   qonAssert( Qon::unimplementedFunction( "AclHelper::prepareAcl" ) ); // fixed text
   return {};
}

AclUnitResults
AclHelper::commitAcl( const AclOperation & ) {
   qonAssert( Qon::unimplementedFunction( "AclHelper::commitAcl" ) ); // fixed text
   return {};
}

void
AclHelper::aclIntfIs( const AclOperation &, const Qon::AclIntfUse &, bool ) {
   qonAssert( Qon::unimplementedFunction( "AclHelper::aclIntfIs" ) ); // fixed text
}

void
AclHelper::blockIntf( Ulnet::IntfId, bool ) {
   qonAssert( Qon::unimplementedFunction( "AclHelper::blockIntf" ) ); // fixed text
}

void
AclHelper::perHostAclIs( const AclOperation &, Ulnet::IntfId, const Ulnet::EthAddr &, bool ) {
   qonAssert( Qon::unimplementedFunction( "AclHelper::perHostAclIs" ) ); // fixed text
}

void
AclHelper::readAclCounters( Acl::AclType, const String & ) {
   qonAssert( Qon::unimplementedFunction( "AclHelper::readAclCounters" ) ); // fixed text
}

} // namespace QonHelper
