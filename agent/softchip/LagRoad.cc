// Aggregates on the road of a frame: which one it came in by, and which member it leaves by.

#include <algorithm>

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
takers( const LagTable & table, const LagTable::Group & group, const Travel & travel, bool lends ) {
   std::vector< IntfId > own, lent;
   for ( auto && [port, member] : group.members ) {
      const bool back = port == travel.intf || table.lagOf( port ) == travel.intf;
      if ( member.distributing() && !member.shared() ) {
         own.push_back( port );
      } else if ( member.distributing() && lends && !back ) {
         lent.push_back( port );
      }
   }
   return own.empty() ? lent : own;
}

} // namespace

U64
addressHash( const AclPacket & packet ) {
   return Kiv::mix( Kiv::hashJoin( packet.ethSrc.hash(), packet.ethDst.hash() ) );
}

IntfId
portTo( const Chip & chip, const Travel & travel, IntfId target, bool lent ) {
   if ( !Ulnet::PortChannelIntfId::isPortChannelIntfId( target ) ) {
      return target;
   }
   const auto group = tableOf( chip ).groups().find( target );
   const auto ports =
         group ? takers( tableOf( chip ), *group, travel, lent ) : std::vector< IntfId >();
   return ports.empty() ? IntfId() : ports[addressHash( travel.frame.packet ) % ports.size()];
}

void
addTarget( const Chip & chip, IntfId port, std::vector< IntfId > & targets ) {
   const IntfId lag = tableOf( chip ).lagOf( port );
   const IntfId target = lag ? lag : port;
   if ( std::find( targets.begin(), targets.end(), target ) == targets.end() ) {
      targets.push_back( target );
   }
}

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
   const IntfId port = portTo( chip, travel, way.target, !travel.flooded );
   if ( !port ) {
      return { false, "no member distributes: dropped" };
   }
   way.copy.port = port;
   if ( port == way.target ) {
      return { true, "" };
   }
   const bool lent = tableOf( chip ).member( way.target, port )->shared();
   return { true, "by " + port.stringValue() + ( lent ? ", lent by the peer link" : "" ) };
}

} // namespace SoftChip
