#include "agent/features/Arguments.h"

#include "platform/types/Interface.h"
#include "platform/types/Paths.h"

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

namespace {

template< class Dir >
void
mustBeIn( Agent & agent, const char * path, const char * what, Ulnet::IntfId intf ) {
   const auto there = agent.entities().mount< Dir >( path );
   if ( there->intfStatusHas( intf ) ) {
      return;
   }
   std::vector< String > names;
   for ( auto & [other, status] : inOrder( there->intfStatusIteratorConst() ) ) {
      names.push_back( agent.names().spelling( other ) );
   }
   thereIsNo( what, agent.names().spelling( intf ), names );
}

} // namespace

void
mustBeThere( Agent & agent, Ulnet::IntfId intf ) {
   using Ports = Interface::EthPhyIntfStatusDir;
   if ( !agent.entities().mount< Ports >( Paths::ethPhyIntfStatus )->intfStatuss() ) {
      return;
   }
   if ( Ulnet::EthIntfId::isEthIntfId( intf ) ) {
      mustBeIn< Ports >( agent, Paths::ethPhyIntfStatus, "port", intf );
   } else if ( Ulnet::PortChannelIntfId::isPortChannelIntfId( intf ) ) {
      mustBeIn< Interface::EthLagIntfStatusDir >( agent, Paths::ethLagIntfStatus, "port-channel",
                                                  intf );
   }
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
