#include "agent/softchip/TapAggTable.h"

namespace SoftChip {

using Bridging::Input::ToolIdentityMode;
using QonChip::HeldTapPort;
using QonChip::HeldToolPort;

TapAggTable::TapAggTable( const TapAggLimits & limits, FaultPlan & plan )
    : limits_( limits ), plan_( plan ) {
   plan.hookIs( "allocateTapGroup" );
   plan.tableIs( "tapGroups" );
}

void
TapAggTable::refuse( const String & what, IntfId intf, U32 group ) {
   refused_.push_back( what + ( intf ? " " + intf.stringValue() : String() ) +
                       ( group ? ", group " + std::to_string( group ) : String() ) );
}

void
TapAggTable::init() {
   held_ = {};
   held_.inited = true;
}

void
TapAggTable::cleanup() {
   if ( !held_.inited || !held_.groups.empty() || !held_.taps.empty() || !held_.tools.empty() ) {
      refuse( "clean-up of what is in use, or not there" );
   }
   held_ = {};
}

// --- Groups --------------------------------------------------------------------------------------

U32
TapAggTable::allocate( const String & name ) {
   if ( !held_.inited ) {
      refuse( "a group before the set-up: " + name );
      return 0;
   }
   for ( auto & [id, owner] : held_.groups ) {
      if ( owner == name ) {
         return id;
      }
   }
   if ( plan_.next( "allocateTapGroup" ) || held_.groups.size() >= groupsAtMost() ) {
      return 0;
   }
   U32 id = 1;
   while ( held_.groups.contains( id ) ) {
      ++id;
   }
   held_.groups[id] = name;
   return id;
}

bool
TapAggTable::inUse( U32 group ) const {
   for ( auto & [intf, port] : held_.taps ) {
      if ( port.group == group ) {
         return true;
      }
   }
   for ( auto & [intf, port] : held_.tools ) {
      if ( port.groups.contains( group ) ) {
         return true;
      }
   }
   return false;
}

void
TapAggTable::deallocate( U32 group ) {
   if ( inUse( group ) || !held_.groups.contains( group ) ) {
      refuse( "freeing what is in use, or not there", {}, group );
   } else {
      held_.groups.erase( group );
   }
}

// --- Ports ---------------------------------------------------------------------------------------

void
TapAggTable::tapIs( IntfId intf, bool enable ) {
   if ( !held_.inited || enable == held_.taps.contains( intf ) ||
        ( !enable && !( held_.taps[intf] == HeldTapPort() ) ) ) {
      refuse( enable ? "tap port again" : "no tap port, or not as it was", intf );
      return;
   }
   enable ? void( held_.taps[intf] ) : void( held_.taps.erase( intf ) );
}

void
TapAggTable::toolIs( IntfId intf, bool enable ) {
   if ( !held_.inited || enable == held_.tools.contains( intf ) ||
        ( !enable && !( held_.tools[intf] == HeldToolPort() ) ) ) {
      refuse( enable ? "tool port again" : "no tool port, or not as it was", intf );
      return;
   }
   enable ? void( held_.tools[intf] ) : void( held_.tools.erase( intf ) );
}

HeldTapPort *
TapAggTable::tap( IntfId intf, const char * setting ) {
   auto port = held_.taps.find( intf );
   if ( port == held_.taps.end() ) {
      refuse( String( setting ) + " of no tap port", intf );
      return nullptr;
   }
   return &port->second;
}

HeldToolPort *
TapAggTable::tool( IntfId intf, const char * setting ) {
   auto port = held_.tools.find( intf );
   if ( port == held_.tools.end() ) {
      refuse( String( setting ) + " of no tool port", intf );
      return nullptr;
   }
   return &port->second;
}

void
TapAggTable::tapGroupIs( IntfId intf, U32 group ) {
   auto port = tap( intf, "group" );
   if ( port && ( group == port->group || ( group && !held_.groups.contains( group ) ) ) ) {
      refuse( "group of a tap port", intf, group );
   } else if ( port ) {
      port->group = group;
   }
}

void
TapAggTable::toolGroupIs( IntfId intf, U32 group, bool add ) {
   auto port = tool( intf, "group" );
   if ( !port ) {
      return;
   }
   const bool held = port->groups.contains( group );
   if ( add == held || !held_.groups.contains( group ) ||
        ( !add && !port->groups[group].empty() ) ) {
      refuse( "group of a tool port", intf, group );
   } else {
      add ? void( port->groups[group] ) : void( port->groups.erase( group ) );
   }
}

void
TapAggTable::toolMemberIs( IntfId lag, IntfId member, U32 group, bool add ) {
   auto port = tool( lag, "member" );
   if ( !port ) {
      return;
   }
   auto members = port->groups.find( group );
   if ( members == port->groups.end() || members->second.contains( member ) == add ) {
      refuse( "member " + member.stringValue() + " of a tool port", lag, group );
   } else {
      add ? void( members->second.insert( member ) ) : void( members->second.erase( member ) );
   }
}

// --- What becomes of frames ----------------------------------------------------------------------

namespace {

void
note( std::vector< String > & changes, bool applies, const String & what ) {
   if ( applies ) {
      changes.push_back( what );
   }
}

std::vector< String >
changesOf( const HeldTapPort & tap, const HeldToolPort & tool ) {
   std::vector< String > changes;
   note( changes, tap.greStrip, "GRE header off" );
   for ( auto & endpoint : tap.greStripForEp ) {
      note( changes, !tap.greStrip, "GRE header off to " + endpoint.stringValue() );
   }
   note( changes, tap.vxlanStrip, "VXLAN header off" );
   note( changes, tap.mplsPop || tool.mplsPop, "labels off" );
   note( changes, tap.headerRemove, std::to_string( tap.headerRemove ) + " bytes off" );
   note( changes, tool.dot1qRemove, std::to_string( tool.dot1qRemove ) + " VLAN tags off" );
   note( changes, tool.brStrip, "bridge extension tag off" );
   note( changes, tool.vnStrip, "network interface tag off" );
   note( changes, !tap.macAddress.isZero(), "to " + tap.macAddress.stringValue() );
   const bool tagged = tool.identityTagging != ToolIdentityMode::none;
   note( changes, tagged && tap.identity.outer(), "tag " + std::to_string( tap.identity.outer() ) );
   note( changes, tool.identityTagging == ToolIdentityMode::qinq && tap.identity.inner(),
         "inner tag " + std::to_string( tap.identity.inner() ) );
   const U32 size = tap.truncationSize && tool.truncationSize
                          ? std::min( tap.truncationSize, tool.truncationSize )
                          : tap.truncationSize + tool.truncationSize;
   note( changes, size, "cut to " + std::to_string( size ) );
   return changes;
}

} // namespace

std::vector< TapAggTable::TapWay >
TapAggTable::ways( IntfId intf ) const {
   std::vector< TapWay > all;
   auto tap = held_.taps.find( intf );
   if ( tap == held_.taps.end() || tap->second.group == 0 ) {
      return all;
   }
   for ( auto & [tool, port] : held_.tools ) {
      auto group = port.groups.find( tap->second.group );
      if ( group == port.groups.end() || tool == intf ) {
         continue; // nothing goes back to where it came from
      }
      TapWay way = {
            tool, { group->second.begin(), group->second.end() }, changesOf( tap->second, port ) };
      if ( !Ulnet::PortChannelIntfId::isPortChannelIntfId( tool ) ) {
         way.ports = { tool };
      }
      all.push_back( way );
   }
   return all;
}

} // namespace SoftChip
