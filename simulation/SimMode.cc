#include "simulation/SimMode.h"

#include "simulation/SimTopology.h"
#include "simulation/World.h"

namespace Sim {

std::span< const Operation >
SimMode::operations() {
   static const Operation table[] = {
         { "mode", 1, { Range::few }, &SimMode::modeIs },
         { "tap", 8, { Range::intf, Range::flag }, &SimMode::tapIs },
         { "tool", 5, { Range::intf, Range::flag }, &SimMode::toolIs },
         { "rename", 1, { Range::few }, &SimMode::rename },
         { "bpdu", 2, { Range::flag, Range::flag }, &SimMode::bpduIs },
         { "forget", 1, {}, &SimMode::forget },
   };
   return table;
}

SimMode::SimMode( World & world )
    : SimFeature( world ), tapAgg_( Velto::make< TapAgg::HwConfig >( "tapAgg" ) ) {
   tapAgg_->tapAggTopoIdIs( 900 );
   tapAgg_->tapAggTopoNameIs( "TapAgg0" );
   world.acsd->tapAggHwConfigIs( tapAgg_ );
}

void
SimMode::modeIs( const Event & event ) {
   switchTo( Qon::HwOperationalMode( event[0] % 3 ) );
}

void
SimMode::switchTo( Qon::HwOperationalMode mode ) {
   world_.acsd->tapAggHwConfigIs( tapAgg_ );
   world_.acsd->operationalModeIs( mode );
}

void
SimMode::tapIs( const Event & event ) {
   event[1] ? tapAgg_->tapIntfIs( world_.intf( event[0] ) )
            : tapAgg_->tapIntfDel( world_.intf( event[0] ) );
}

void
SimMode::toolIs( const Event & event ) {
   event[1] ? tapAgg_->toolIntfIs( world_.intf( event[0] ) )
            : tapAgg_->toolIntfDel( world_.intf( event[0] ) );
}

void
SimMode::rename( const Event & event ) {
   if ( event[0] % 2 ) {
      tapAgg_->tapAggTopoIdIs( 900 + event[0] );
   } else {
      tapAgg_->tapAggTopoNameIs( "TapAgg" + std::to_string( event[0] ) );
   }
}

void
SimMode::bpduIs( const Event & event ) {
   if ( auto topology = world_.feature< SimTopology >() ) {
      topology->config().bpduTrapEnabledIs( event[0] != 0 );
      topology->config().pvstBpduTrapEnabledIs( event[1] != 0 );
   }
}

void
SimMode::forget( const Event & ) {
   if ( world_.acsd->operationalMode() != Qon::HwOperationalMode::tapAgg ) {
      world_.acsd->tapAggHwConfigIs( nullptr );
   }
}

void
SimMode::tearDown() {
   world_.acsd->operationalModeIs( Qon::HwOperationalMode::switching );
}

FeatureKind
simMode() {
   return featureKindOf< SimMode >( "mode" );
}

} // namespace Sim
