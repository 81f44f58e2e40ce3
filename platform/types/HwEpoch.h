#pragma once
// The platform's hardware epoch: which features which card restricts.

#include "platform/Kiv/Attr.h"
#include "platform/Kiv/Text.h"

namespace HwEpoch {

/** Features that a card's hardware epoch can restrict, by number. */
enum class EpochFeature : U8 {
   none = 0,
   aclCounters = 1,
   egressAcl = 2,
   mirrorTruncation = 3,
   stormControlPps = 4,
   haloAcl = 5,
};
KIV_ENUM( EpochFeature, none, aclCounters, egressAcl, mirrorTruncation, stormControlPps, haloAcl )

enum class RestrictionState : U8 { unrestricted = 0, restricted = 1 };
KIV_ENUM( RestrictionState, unrestricted, restricted )

/** The restriction of one feature on one card; keyed by the feature's name. */
class RestrictionStatus : public Kiv::Entity {
   KIV_BODY( RestrictionStatus, Kiv::Entity )
   KIV_ATTR( RestrictionState, state, RestrictionState::unrestricted )
 public:
   explicit RestrictionStatus( const Velto::String & feature ) : Kiv::Entity( feature ) {}
};

class CardStatus : public Kiv::Entity {
   KIV_BODY( CardStatus, Kiv::Entity )
   KIV_ENTITIES( Velto::String, RestrictionStatus, feature )
 public:
   explicit CardStatus( const Velto::String & card ) : Kiv::Entity( card ) {}
};

class Status : public Kiv::Entity {
   KIV_BODY( Status, Kiv::Entity )
   KIV_ENTITIES( Velto::String, CardStatus, card )
   KIV_ATTR( bool, pdpModeEnabled, false )
 public:
   explicit Status( const Velto::String & name ) : Kiv::Entity( name ) {}
};

} // namespace HwEpoch
