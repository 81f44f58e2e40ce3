#pragma once
// What features do alike with the arguments of their commands and the fields of their events.

#include <algorithm>
#include <set>
#include <type_traits>
#include <utility>
#include <vector>

#include "agent/Agent.h"
#include "agent/base/Fields.h"

namespace QonAgent {

/** The entities of a collection, by name of interface: Ethernet9 before Ethernet10. They stay, though
    they may leave the collection. */
template< class Iterator >
auto
inOrder( Iterator i ) {
   using Entity = std::remove_pointer_t< decltype( i.ptr() ) >;
   std::vector< std::pair< Ulnet::IntfId, Velto::Ptr< Entity > > > all;
   for ( ; i; ++i ) {
      all.emplace_back( i.key(), i.ptr() );
   }
   std::sort( all.begin(), all.end(),
              []( const auto & a, const auto & b ) { return a.first < b.first; } );
   return all;
}

/** A port or a port-channel that a command is given, if it likes. */
Argument intfArgument( const String & name, const String & what,
                       std::function< bool( Ulnet::IntfId intf ) > known );
/** The same of a VLAN. */
Argument vlanArgument( std::function< bool( Bridging::VlanId vlan ) > known );

/** Numbers in ascending order, neighbours as one: "1", "10-4094". */
Value::List ranges( const std::set< U16 > & numbers );

/** "there is no topology 'x'; there are: a, b". The first few are named. */
template< class Names >
[[noreturn]] void
thereIsNo( const char * what, const String & name, const Names & names ) {
   constexpr U32 most = 12;
   String known;
   U32 number = 0;
   for ( auto & other : names ) {
      if ( ++number <= most ) {
         known += ( number > 1 ? ", " : "" ) + Kiv::toText( other );
      }
   }
   throw Velto::RangeError( String( "there is no " ) + what + " '" + name + "'; there " +
                            ( number == 0      ? "is none"
                              : number == 1    ? "is: " + known
                              : number <= most ? "are: " + known
                                               : "are: " + known + ", ..." ) );
}

/** A port or port-channel that an event is about. Velto::RangeError, which names what there is, if it
    is none of the configuration; without any configured port the chip may have any. */
void mustBeThere( Agent & agent, Ulnet::IntfId intf );

/** Field `vlan` of an event. */
Bridging::VlanId vlanField( const Json & line );

/** What there is to show of a part that the chip has not: Velto::RangeError. */
[[noreturn]] void notServed( const Agent & agent, const char * what );

} // namespace QonAgent
