#include "simulation/SimDamage.h"

#include <stdexcept>

#include "platform/Velto/Assert.h"
#include "simulation/World.h"

namespace Sim {

namespace {

enum Operations : U8 { finding, assertion, exception, leak, endless };

constexpr Operation operationTable[] = {
      { "finding", 0, { Range::few } },   { "assertion", 0, { Range::few } },
      { "exception", 0, { Range::few } }, { "leak", 0, { Range::few } },
      { "endless", 0, { Range::few } },
};

} // namespace

std::span< const Operation >
SimDamage::operations() {
   return operationTable;
}

void
SimDamage::apply( const Event & event ) {
   switch ( Operations( event.operation ) ) {
   case finding:
      world_.report( "damage", "damaged: on purpose" );
      break;
   case assertion:
      VELTO_ASSERT( !"damaged" );
      break;
   case exception:
      throw std::runtime_error( "damaged" );
   case leak:
      static_cast< void >( Velto::make< Alarm >( [] {} ).release() );
      break;
   case endless:
      alarm_ = Velto::make< Alarm >( [this] { alarm_->in( 0 ); } );
      alarm_->in( 0 );
      world_.apply( Event::parsed( "world run 1" ) );
      break;
   }
}

} // namespace Sim
