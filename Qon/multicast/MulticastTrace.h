#pragma once
// What the sources of the module have in common.

#include "Qon/include/framework/HookTap.h"
#include "Qon/include/framework/QonLog.h"
#include "Qon/include/framework/QonTraceHandles.h"
#include "Qon/include/multicast/QonMulticastHelper.h"

namespace Qon {

extern Flintlog::Facility multicastFacility;
extern QonLogHandle multicastNoGroups;
extern QonLogHandle multicastGroupClear;
extern QonLogHandle multicastNoMacEntries;
extern QonLogHandle multicastMacEntryClear;

/** Raises a message about a group, if it may be raised now. */
template< class... Args >
void
multicastLog( QonLogHandle & handle, const Bridging::MacVlanPair & group, const Args &... args ) {
   if ( handle.okToLog() ) {
      Kiv::log( handle, group.mac().stringValue(), U32( group.vlan() ), args... );
   }
}

/** "01:00:5e:01:01:01 vlan 10" */
inline String
shownGroup( const Bridging::MacVlanPair & group ) {
   return group.mac().stringValue() + " vlan " + group.vlan().stringValue();
}

} // namespace Qon
