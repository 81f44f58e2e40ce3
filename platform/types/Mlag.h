#pragma once
// Multi-chassis link aggregation, as it is configured and as its agent publishes it.

#include "platform/Kiv/Attr.h"
#include "platform/Kiv/Text.h"
#include "platform/types/Ulnet.h"

namespace Mlag {

enum class MlagState : U8 {
   disabled = 0,
   inactive = 1,
   connecting = 2,
   primary = 3,   // established
   secondary = 4, // established
};
KIV_ENUM( MlagState, disabled, inactive, connecting, primary, secondary )

/** Which aggregates the peer link stands in for, as the switch is configured. */
class Config : public Kiv::Entity {
   KIV_BODY( Config, Kiv::Entity )
   KIV_ATTR( Velto::String, domain, "" )
   KIV_SET( Ulnet::IntfId, peerLinkSharer )
 public:
   explicit Config( const Velto::String & name ) : Kiv::Entity( name ) {}
};

class Status : public Kiv::Entity {
   KIV_BODY( Status, Kiv::Entity )
   KIV_ATTR( MlagState, mlagState, MlagState::disabled )
   KIV_ATTR( Ulnet::IntfId, peerLinkIntf ) // null is none
   KIV_ATTR( bool, fastMacRedirection, false )
 public:
   explicit Status( const Velto::String & name ) : Kiv::Entity( name ) {}
};

} // namespace Mlag
