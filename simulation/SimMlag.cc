#include "simulation/SimMlag.h"

#include "simulation/SimLag.h"
#include "simulation/World.h"

namespace Sim {

std::span< const Operation >
SimMlag::operations() {
   static const Operation table[] = {
         { "state", 4, { Range::few }, &SimMlag::stateIs },
         { "peer", 6, { Range::intf, Range::few }, &SimMlag::peerLinkIs },
         { "redirect", 3, { Range::flag }, &SimMlag::redirectIs },
         { "share", 10, { Range::lag, Range::flag }, &SimMlag::shareIs },
   };
   return table;
}

bool
SimMlag::ready() {
   lag_ = world_.feature< SimLag >();
   if ( lag_ ) {
      lag_->touched();
   }
   return lag_ != nullptr;
}

void
SimMlag::stateIs( const Event & event ) {
   lag_->mlag().mlagStateIs( Mlag::MlagState( event[0] < 5 ? event[0] : 3 ) );
}

void
SimMlag::peerLinkIs( const Event & event ) {
   lag_->mlag().peerLinkIntfIs( event[1] == 0 ? Ulnet::IntfId() : world_.intf( event[0] ) );
}

void
SimMlag::redirectIs( const Event & event ) {
   lag_->mlag().fastMacRedirectionIs( event[0] != 0 );
}

void
SimMlag::shareIs( const Event & event ) {
   lag_->shareIs( world_.lag( event[0] ), event[1] != 0 );
}

void
SimMlag::tearDown() {
   if ( ready() ) {
      lag_->mlag().mlagStateIs( Mlag::MlagState::disabled );
   }
}

FeatureKind
simMlag() {
   return featureKindOf< SimMlag >( "mlag" );
}

} // namespace Sim
