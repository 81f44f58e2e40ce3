#include "simulation/SimMode.h"

#include "simulation/SimTopology.h"
#include "simulation/World.h"

namespace Sim {

namespace {

enum Operations : U8 { mode, tap, tool, rename, bpdu, forget };

constexpr Operation operationTable[] = {
      { "mode", 1, { Range::few } },
      { "tap", 8, { Range::intf, Range::flag } },
      { "tool", 5, { Range::intf, Range::flag } },
      { "rename", 1, { Range::few } },
      { "bpdu", 2, { Range::flag, Range::flag } },
      { "forget", 1 },
};

} // namespace

std::span< const Operation >
SimMode::operations() {
   return operationTable;
}

SimMode::SimMode( World & world )
    : SimFeature( world ), tapAgg_( Velto::make< TapAgg::HwConfig >( "tapAgg" ) ) {
   tapAgg_->tapAggTopoIdIs( 900 );
   tapAgg_->tapAggTopoNameIs( "TapAgg0" );
   world.acsd->tapAggHwConfigIs( tapAgg_ );
}

void
SimMode::apply( const Event & event ) {
   auto topology = world_.feature< SimTopology >();
   auto & acsd = *world_.acsd;
   bool tapAgg = acsd.operationalMode() == Qon::HwOperationalMode::tapAgg;
   switch ( Operations( event.operation ) ) {
   case mode:
      acsd.tapAggHwConfigIs( tapAgg_ );
      acsd.operationalModeIs( Qon::HwOperationalMode( event[0] % 3 ) );
      break;
   case tap:
      event[1] ? tapAgg_->tapIntfIs( world_.intf( event[0] ) )
               : tapAgg_->tapIntfDel( world_.intf( event[0] ) );
      break;
   case tool:
      event[1] ? tapAgg_->toolIntfIs( world_.intf( event[0] ) )
               : tapAgg_->toolIntfDel( world_.intf( event[0] ) );
      break;
   case rename:
      if ( event[0] % 2 ) {
         tapAgg_->tapAggTopoIdIs( 900 + event[0] );
      } else {
         tapAgg_->tapAggTopoNameIs( "TapAgg" + std::to_string( event[0] ) );
      }
      break;
   case bpdu:
      if ( topology ) {
         topology->config().bpduTrapEnabledIs( event[0] != 0 );
         topology->config().pvstBpduTrapEnabledIs( event[1] != 0 );
      }
      break;
   case forget:
      if ( !tapAgg ) {
         acsd.tapAggHwConfigIs( nullptr );
      }
      break;
   }
}

void
SimMode::tearDown() {
   world_.acsd->operationalModeIs( Qon::HwOperationalMode::switching );
}

} // namespace Sim
