#pragma once
// What the sources of the module have in common.

#include "Qon/include/framework/HookTap.h"
#include "Qon/include/framework/QonLog.h"
#include "Qon/include/framework/QonTraceHandles.h"
#include "Qon/include/mirroring/MirroringSession.h"

namespace Qon {

extern Flintlog::Facility mirroringFacility;
extern QonLogHandle mirrorSessionResourcesFull;
extern QonLogHandle mirrorSourceResourcesFull;
extern QonLogHandle mirrorSourceResourcesNormal;
extern QonLogHandle mirrorInvalidSessionInCutThrough;
extern QonLogHandle mirrorInternalSessionResourcesUnavailable;
extern QonLogHandle mirrorAclHwResourceFull;

/** Raises a message, if it may be raised now. */
template< class... Args >
void
mirrorLog( QonLogHandle & handle, const Args &... args ) {
   if ( handle.okToLog() ) {
      Kiv::log( handle, args... );
   }
}

} // namespace Qon
