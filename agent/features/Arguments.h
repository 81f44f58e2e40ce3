#pragma once
// What features do alike with the arguments of their commands and the fields of their events.

#include <algorithm>
#include <utility>
#include <vector>

#include "agent/Agent.h"
#include "agent/base/Fields.h"

namespace QonAgent {

/** The entities of a collection, by name of interface: Ethernet9 before Ethernet10. */
template< class Iterator >
auto
inOrder( Iterator i ) {
   std::vector< std::pair< Ulnet::IntfId, decltype( i.ptr() ) > > all;
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

/** What there is to show of a part that the chip has not: Velto::RangeError. */
[[noreturn]] void notServed( const Agent & agent, const char * what );

} // namespace QonAgent
