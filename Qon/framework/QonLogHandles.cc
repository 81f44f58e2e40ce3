// Handles of the messages whose modules have no source of their own in the library, or do not
// declare theirs yet. With them every message of the catalogue can be raised by name.

#include "Qon/include/framework/QonLog.h"

namespace Qon {

namespace {

QonLogHandle handles[] = {
      { "QonL2ProtocolForwardingSm", QonLog::DATAPLANE_L2_PROTOCOL_FORWARDING_HW_RESOURCE_FULL },

      { "QonAclSm", QonLog::ACL_COMPUTATION_SUCCESS },
      { "QonAclSm", QonLog::ACL_COMPUTATION_FAILED },
      { "QonAclSm", QonLog::ACL_HW_RESOURCE_NORMAL },
      { "QonAclSm", QonLog::ACL_HW_RESOURCE_FULL },
      { "QonAclSm", QonLog::ACL_EGRESS_LOGGING_NOT_SUPPORTED },
      { "QonAclSm", QonLog::ACL_SUBINTF_UNSHARED_NOT_SUPPORTED },
      { "QonAclSm", QonLog::ACL_UNSUPPORTED_HARDWARE },

      { "QonOmbraMountSm", QonLog::OMBRA_MOUNT_TIMEOUT },
      { "QonSubIntfSm", QonLog::SUBINTERFACE_HW_RESOURCE_FULL },
      { "QonSteerlineSm", QonLog::STEERLINE_MAC_VLAN_DUPLICATE_ENDPOINT },
};

} // namespace

} // namespace Qon
