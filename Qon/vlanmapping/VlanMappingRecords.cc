#include "Qon/include/vlanmapping/VlanMappingRecords.h"

#include "platform/Kiv/Describe.h"

KIV_DEFINE( Qon::QonFlowVlanXlateConfigDir )
KIV_DEFINE( Qon::QonVlanMappingConfigDir )
KIV_DEFINE( Qon::QonVlanMappingStatusDir )
KIV_DEFINE( Qon::QonVlanMappingIntfConfig )
KIV_DEFINE( Qon::QonVlanMappingIntfConfigDir )
KIV_DEFINE( Qon::QonVlanLagMemberStatus )
KIV_DEFINE( Qon::QonVlanLagStatus )
KIV_DEFINE( Qon::QonVlanLagMemberStatusDir )

namespace Qon {

const char *
shownSource( QonVlanMappingSource source ) {
   switch ( source ) {
   case QonVlanMappingSource::BriselCli:
      return "CLI"; // fixed text
   case QonVlanMappingSource::Steerline:
      return "Steerline"; // fixed text
   case QonVlanMappingSource::None:
      break;
   }
   return "None";
}

void
QonVlanLagMemberStatus::keyIs( Bridging::VlanMappingDirection d, const Bridging::VlanXlateKey & key,
                               bool there ) {
   if ( d == Bridging::VlanMappingDirection::ingress ) {
      there ? ingressKeyIs( key ) : ingressKeyDel( key );
   } else {
      there ? egressKeyIs( key ) : egressKeyDel( key );
   }
}

} // namespace Qon
