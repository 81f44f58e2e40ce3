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

Value::List
ranges( const std::set< U16 > & numbers ) {
   Value::List all;
   for ( auto from = numbers.begin(); from != numbers.end(); ) {
      U16 last = *from;
      auto next = std::next( from );
      while ( next != numbers.end() && *next == last + 1 ) {
         last = *next++;
      }
      all.push_back( Kiv::toText( *from ) + ( last == *from ? "" : "-" + Kiv::toText( last ) ) );
      from = next;
   }
   return all;
}

Bridging::VlanId
vlanField( const Json & line ) {
   const U32 number = fieldOf< U32 >( line, "vlan" );
   try {
      return Bridging::VlanId( number );
   } catch ( const Velto::RangeError & ) {
      throw Velto::RangeError( "field 'vlan': expected a VLAN from 1 to 4094, found " +
                               Kiv::toText( number ) );
   }
}

void
notServed( const Agent & agent, const char * what ) {
   throw Velto::RangeError( String( "the chip '" ) + agent.chip().name() + "' does not serve " +
                            what );
}

} // namespace QonAgent
