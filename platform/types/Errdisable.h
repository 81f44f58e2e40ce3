#pragma once
// Interfaces that are taken out of service because of what they do.
//
//    a feature -> CauseStatus of its cause -> the error-disable agent -> the interface is down
//                                      `<- the agent deletes the entry when it recovers
//
// There is a CauseStatus for each cause; a feature writes its own only.

#include "platform/Kiv/Attr.h"
#include "platform/types/Ulnet.h"

namespace Errdisable {

/** The causes that are enabled, by name. */
class CauseConfig : public Kiv::Entity {
   KIV_BODY( CauseConfig, Kiv::Entity )
   KIV_SET( Velto::String, enabled )
 public:
   explicit CauseConfig( const Velto::String & name ) : Kiv::Entity( name ) {}
};

/** The interfaces that one cause disables. */
class CauseStatus : public Kiv::Entity {
   KIV_BODY( CauseStatus, Kiv::Entity )
   KIV_MAP( Ulnet::IntfId, double, intfStatus ) // when it was set, in seconds of Kiv::now()
 public:
   explicit CauseStatus( const Velto::String & name ) : Kiv::Entity( name ) {}
};

} // namespace Errdisable
