#include "simulation/SimDamage.h"

#include <stdexcept>

#include "platform/Velto/Assert.h"
#include "platform/Velto/Node.h"
#include "simulation/World.h"

namespace Sim {

std::span< const Operation >
SimDamage::operations() {
   static const Operation table[] = {
         { "finding", 0, { Range::few }, &SimDamage::report },
         { "assertion", 0, { Range::few }, &SimDamage::assertFalse },
         { "exception", 0, { Range::few }, &SimDamage::raise },
         { "leak", 0, { Range::few }, &SimDamage::leak },
         { "endless", 0, { Range::few }, &SimDamage::endless },
   };
   return table;
}

void
SimDamage::report( const Event & ) {
   world_.report( "damage", "damaged: on purpose" );
}

void
SimDamage::assertFalse( const Event & ) {
   VELTO_ASSERT( !"damaged" );
}

void
SimDamage::raise( const Event & ) {
   throw std::runtime_error( "damaged" );
}

void
SimDamage::leak( const Event & ) {
   struct Lost : Velto::Node {};
   static_cast< void >( Velto::make< Lost >().release() );
}

void
SimDamage::endless( const Event & ) {
   alarm_.in( 0 );
   world_.apply( Event::parsed( "world run 1" ) );
}

FeatureKind
simDamage() {
   return featureKindOf< SimDamage >( "damage" );
}

} // namespace Sim
