#pragma once
// Encapsulated services on interfaces.

#include "platform/Kiv/Attr.h"
#include "platform/types/Ulnet.h"

namespace Brisel {

/** The service interfaces of each interface with several encapsulations. */
class IntfEncapServiceIntfColl : public Kiv::Entity {
   KIV_BODY( IntfEncapServiceIntfColl, Kiv::Entity )
   KIV_MAP( Ulnet::IntfId, Ulnet::IntfId, serviceIntf )
 public:
   explicit IntfEncapServiceIntfColl( const Velto::String & name ) : Kiv::Entity( name ) {}
};

} // namespace Brisel
