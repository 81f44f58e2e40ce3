#pragma once
// Small values that several features share.

#include "Qon/include/framework/QonPortLists.h"
#include "platform/Kiv/Text.h"
#include "platform/types/FapIdPort.h"
#include "platform/types/TableAddStatus.h"

namespace QonTypes {

/** What kind of aggregate a link aggregation group is. */
enum class QonLagType : U8 { lagTypeUnknown, lagTypePort, lagTypeRecirc };
KIV_ENUM( QonLagType, lagTypeUnknown, lagTypePort, lagTypeRecirc )

} // namespace QonTypes

namespace Qon {

/** What the switch as a whole does with packets. In tap aggregation every port forwards. */
enum class HwOperationalMode : U8 { switching = 0, mixed = 1, tapAgg = 2 };
KIV_ENUM( HwOperationalMode, switching, mixed, tapAgg )

/** The tag protocol identifiers of a port. */
class QonPortVlanTpidData {
   U16 hwVlanTpid_ = 0;
   U16 vlanTpid_ = 0;
   bool dot1QTunnel_ = false;
   KIV_VALUE( Qon, QonPortVlanTpidData, hwVlanTpid, vlanTpid, dot1QTunnel )
};

/** The trace levels of the routing modules; changed and published as one. */
class FlintlogLevels {
   U8 qonRoutingStatusSm_ = 1;
   U8 qonArpSm_ = 2;
   U8 qonIp6NeighborSm_ = 2;
   U8 qonSubIntfSm_ = 8;
   U8 qonBfdStatusCacheSm_ = 6;
   U8 qonL2AdjHelper_ = 0;
   U8 qonL2AdjFlatteningHelper_ = 7;
   U8 qonL2AdjExpansionSm_ = 5;
   KIV_VALUE( Qon, FlintlogLevels, qonRoutingStatusSm, qonArpSm, qonIp6NeighborSm, qonSubIntfSm,
              qonBfdStatusCacheSm, qonL2AdjHelper, qonL2AdjFlatteningHelper, qonL2AdjExpansionSm )
};

} // namespace Qon
