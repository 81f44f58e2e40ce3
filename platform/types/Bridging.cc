#include "platform/types/Bridging.h"

namespace Bridging {

namespace {
constexpr U32 maxVlan = 4094;
}

VlanId::VlanId( U32 value ) : value_( U16( value ) ) {
   if ( value < 1 || value > maxVlan ) {
      throw Velto::RangeError( "Bridging::VlanId::value < 1 or > 4094 not allowed" );
   }
}

VlanId::VlanId( const Velto::String & text ) : VlanId( Kiv::fromText< U32 >( text ) ) {}

Velto::String
VlanId::stringValue() const {
   return Kiv::toText( value_ );
}

VlanIdOrNone::VlanIdOrNone( U32 value ) : value_( U16( value ) ) {
   if ( value > maxVlan ) {
      throw Velto::RangeError( "Bridging::VlanIdOrNone::value > 4094 not allowed" );
   }
}

VlanIdOrNone::VlanIdOrNone( const Velto::String & text )
    : VlanIdOrNone( text == "None" ? 0 : Kiv::fromText< U32 >( text ) ) {}

Velto::String
VlanIdOrNone::stringValue() const {
   return Kiv::toText( value_ );
}

} // namespace Bridging
