#include "agent/features/VlanHooks.h"

#include "chip/VlanPart.h"

namespace QonAgent {

Velto::Ptr< Qon::VlanHelper >
vlanHelperOf( Agent & agent ) {
   return agent.shared< Qon::VlanHelper >( [&]() -> Velto::Ptr< Qon::VlanHelper > {
      auto part = agent.chip().part< QonChip::VlanPart >();
      if ( !part ) {
         return nullptr;
      }
      auto helper = part->makeVlanHelper( agent.acsd() );
      agent.acsd()->vlanHelperIs( helper );
      return helper;
   } );
}

} // namespace QonAgent
