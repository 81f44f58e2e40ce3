#include "agent/features/Arguments.h"

namespace QonAgent {

Argument
intfArgument( const String & name, const String & what,
              std::function< bool( Ulnet::IntfId intf ) > known ) {
   return { Argument::Kind::intf, name, what, false,
            [=]( const ArgumentValue & value ) { return known( value.intf ); } };
}

Argument
vlanArgument( std::function< bool( Bridging::VlanId vlan ) > known ) {
   return { Argument::Kind::vlan, "VLAN", "VLAN", false, [=]( const ArgumentValue & value ) {
              return known( Bridging::VlanId( value.vlan.value() ) );
           } };
}

void
notServed( const Agent & agent, const char * what ) {
   throw Velto::RangeError( String( "the chip '" ) + agent.chip().name() + "' does not serve " +
                            what );
}

} // namespace QonAgent
