#include "platform/types/Interface.h"

#include "platform/Kiv/Describe.h"

KIV_DEFINE( Interface::EthLagIntfStatus )
KIV_DEFINE( Interface::EthLagIntfStatusDir )
KIV_DEFINE( Interface::EthPhyIntfStatus )
KIV_DEFINE( Interface::EthPhyIntfStatusDir )
KIV_DEFINE( Interface::EthLagIntfConfig )
KIV_DEFINE( Interface::EthLagIntfConfigDir )

namespace Interface {

EthLagIntfStatus::EthLagIntfStatus( const Ulnet::IntfId & lag ) : intfId_( lag ) {}
EthPhyIntfStatus::EthPhyIntfStatus( const Ulnet::IntfId & intf ) : intfId_( intf ) {}
EthLagIntfConfig::EthLagIntfConfig( const Ulnet::IntfId & intf ) : intfId_( intf ) {}

} // namespace Interface
