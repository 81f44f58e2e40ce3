#pragma once
// Sub-interfaces as the switch is configured.

#include "platform/Kiv/Attr.h"
#include "platform/types/Bridging.h"
#include "platform/types/Ulnet.h"

namespace Interface {

class SubIntfConfigDir : public Kiv::Entity {
   KIV_BODY( SubIntfConfigDir, Kiv::Entity )
   KIV_MAP( Ulnet::IntfId, Bridging::VlanIdOrNone, vlan ) // by which frames are told to be its own
 public:
   explicit SubIntfConfigDir( const Velto::String & name ) : Kiv::Entity( name ) {}
};

} // namespace Interface
