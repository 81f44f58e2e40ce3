#pragma once
// The hook object of VLANs, which the features of VLANs and of topologies share.

#include "Qon/include/topology/QonVlanHelper.h"
#include "agent/Agent.h"

namespace QonAgent {

/** The agent's one hook object of VLANs, in the shared data too; null if the chip has none. */
Velto::Ptr< Qon::VlanHelper > vlanHelperOf( Agent & agent );

} // namespace QonAgent
