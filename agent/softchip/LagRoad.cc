// Aggregates on the road of a frame: which one it came in by, and which member it leaves by.

#include "agent/softchip/Chip.h"
#include "agent/softchip/LagPart.h"
#include "agent/softchip/Stages.h"
#include "platform/Kiv/Hash.h"

namespace SoftChip {

namespace {

const LagTable &
tableOf( const Chip & chip ) {
   return chip.of< LagPart >().table();
}

/** The members of a group that take the frame: its own, or those that the peer link lends it if
    there are none. What is flooded goes by the peer link itself, and nothing goes back to it. */
std::vector< IntfId >
takers( const LagTable & table, const LagTable::Group & group, const Travel & travel ) {
   std::vector< IntfId > own, lent;
   for ( auto && [port, member] : group.members ) {
      const bool back = port == travel.intf || table.lagOf( port ) == travel.intf;
      if ( member.distributing() && !member.shared() ) {
         own.push_back( port );
      } else if ( member.distributing() && !travel.flooded && !back ) {
         lent.push_back( port );
      }
   }
   return own.empty() ? lent : own;
}

/** The same for the same addresses. */
U64
addressHash( const Frame & frame ) {
   return Kiv::mix( Kiv::hashJoin( frame.source.hash(), frame.destination.hash() ) );
}

} // namespace

Verdict
passArrival( const Chip & chip, Travel & travel ) {
   const IntfId port = travel.frame.port;
   const IntfId lag = tableOf( chip ).lagOf( port );
   if ( !lag ) {
      return { true, port.stringValue() };
   }
   travel.intf = lag;
   const String where = port.stringValue() + ", a member of " + lag.stringValue();
   const bool collects = tableOf( chip ).member( lag, port )->collecting();
   return { collects, collects ? where : where + " that does not collect: dropped" };
}

/** Nothing goes back to where it came from, another member of the same aggregate included. */
Verdict
passNotBack( const Chip &, const Travel & travel, Way & way ) {
   const bool back = way.target == travel.intf;
   return { !back, back ? "the frame came from there: dropped" : "" };
}

Verdict
passMember( const Chip & chip, const Travel & travel, Way & way ) {
   if ( !Ulnet::PortChannelIntfId::isPortChannelIntfId( way.target ) ) {
      return { true, "" };
   }
   const auto group = tableOf( chip ).groups().find( way.target );
   const auto ports = group ? takers( tableOf( chip ), *group, travel ) : std::vector< IntfId >();
   if ( ports.empty() ) {
      return { false, "no member distributes: dropped" };
   }
   way.copy.port = ports[addressHash( travel.frame ) % ports.size()];
   const bool lent = tableOf( chip ).member( way.target, way.copy.port )->shared();
   return { true, "by " + way.copy.port.stringValue() + ( lent ? ", lent by the peer link" : "" ) };
}

} // namespace SoftChip
