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

/** What there is to show of a part that the chip has not: Velto::RangeError. */
[[noreturn]] void notServed( const Agent & agent, const char * what );

} // namespace QonAgent
