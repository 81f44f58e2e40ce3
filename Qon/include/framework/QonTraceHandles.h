#pragma once
// Traces of the library's modules, and the set-up of the trace handles of the routing ones.
//
//    Flintlog::Facility aclFacility( "QonAclSm" );     // in the unnamed namespace of its source
//    QON_TRACE( aclFacility, 9, "handleInitialized ", name() );
//
// A module of several sources declares its facility in a header beside them, as Qon/lag/QonLagTrace.h.
//
// The environment is read at each use. "Set" means present, if only with an empty value.
//
//    variable            set                                      unset
//    FLINTLOG_DISABLE    no trace handle is created               handles are created
//    AGENT_PROCESS_NAME  unique name: "<its value>-<process id>"  unique name: the caller's

#include "platform/Flintlog/Trace.h"

#define QON_TRACE( facility, level, ... ) FLINTLOG_TRACE( facility, level, __VA_ARGS__ )

namespace Qon {

/** Gives `handle` a trace file "<name>.qt", unless it has one already or FLINTLOG_DISABLE is
    set. Levels finer than `finest` are not written to it. */
void initializeQonL3QtHandle( Flintlog::HandlePtr & handle, const Velto::String & name,
                              U8 finest = Flintlog::finestLevel );

/** The same with a name that several processes do not share. `caller` names the caller; of a path
    the last part without its ending counts. */
void initializeQonL3QtHandleUniqueName( Flintlog::HandlePtr & handle,
                                        const Velto::String & caller = __builtin_FILE(),
                                        U8 finest = Flintlog::finestLevel );

} // namespace Qon
