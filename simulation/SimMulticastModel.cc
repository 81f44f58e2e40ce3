// What must be of multicast groups, by the configuration and the shared data.

#include <algorithm>

#include "agent/softchip/MacPart.h"
#include "simulation/SimMulticast.h"
#include "simulation/World.h"

namespace Sim {

using Bridging::VlanId;
using Ulnet::IntfId;

namespace {

constexpr char noGroups[] = "DATAPLANE_NOMULTICASTGROUPS";
constexpr char groupClear[] = "DATAPLANE_MULTICASTGROUPCLEAR";

String
shown( const std::set< IntfId > & ports ) {
   String text;
   for ( IntfId port : ports ) {
      text += " " + port.stringValue();
   }
   return text.empty() ? " none" : text;
}

String
shown( const Bridging::MacVlanPair & key ) {
   return key.mac().stringValue() + " vlan " + key.vlan().stringValue();
}

bool
includes( const std::set< IntfId > & all, const std::set< IntfId > & some ) {
   return std::includes( all.begin(), all.end(), some.begin(), some.end() );
}

} // namespace

// --- What is wanted --------------------------------------------------------------------------------

bool
SimMulticast::isPort( IntfId intf ) const {
   return world_.acsd->intfHas( intf );
}

void
SimMulticast::addPorts( IntfId intf, Ports & ports ) const {
   if ( !Ulnet::PortChannelIntfId::isPortChannelIntfId( intf ) ) {
      if ( isPort( intf ) ) {
         ports.insert( intf );
      }
      return;
   }
   for ( auto & [port, flags] : world_.acsd->lagToPort( intf ) ) {
      if ( isPort( port ) ) {
         ports.insert( port );
      }
   }
}

SimMulticast::Ports
SimMulticast::allPorts() const {
   Ports all;
   for ( auto i = world_.acsd->intfIteratorConst(); i; ++i ) {
      if ( !Ulnet::PortChannelIntfId::isPortChannelIntfId( i.key() ) ) {
         all.insert( i.key() );
      }
   }
   return all;
}

/** Of snooping, and of the operator: one of them has the group. */
std::vector< SimMulticast::Wish >
SimMulticast::wishesFor( const Key & key ) const {
   std::vector< Wish > wishes;
   auto wish = [&]( auto & of ) {
      Wish wanted;
      wanted.members = of.intfs() != 0;
      for ( auto i = of.intfIteratorConst(); i; ++i ) {
         addPorts( i.key(), wanted.ports );
      }
      wanted.allowed = wanted.ports;
      wishes.push_back( wanted );
   };
   auto vlan = status_->vlanStatus( VlanId( key.vlan().value() ) );
   auto snooped = vlan ? vlan->ethGroup( key.mac() ) : nullptr;
   if ( snooped && snooped->indexValid() ) {
      wish( *snooped );
      for ( auto i = vlan->routerIntfIteratorConst(); i; ++i ) {
         addPorts( i.key(), wishes.back().allowed ); // it may be kept
      }
   }
   if ( auto fixed = static_->group( Qon::McastAddr( key.mac(), key.vlan() ) ) ) {
      wish( *fixed );
   }
   return wishes;
}

SimMulticast::Way
SimMulticast::wantedInChip( const Key & key ) const {
   const auto wishes = wishesFor( key );
   if ( wishes.empty() ) {
      return {};
   }
   const Wish & wish = wishes.front();
   const Qon::MacEntryKey hostKey( key, Qon::MacHwType::macHwKeyBridge );
   const auto & hosts = world_.chip->of< SoftChip::MacPart >().table();
   const bool room = table_.macEntries().contains( key ) || hosts.hasRoom( hostKey );
   const bool known = wishes.size() == 1 && wish.members && room && !saidToFlood_.contains( key ) &&
                      !hosts.entry( hostKey );
   return { known, true, wish.ports, wish.allowed };
}

bool
SimMulticast::groupsUsedUp() const {
   return table_.groups().size() >= table_.groupsAtMost();
}

// --- What was said ---------------------------------------------------------------------------------

void
SimMulticast::heard( const Kiv::LogDescriptor & descriptor, const String & text ) {
   const bool full = String( descriptor.name ) == noGroups;
   if ( !full && String( descriptor.name ) != groupClear ) {
      return;
   }
   constexpr std::size_t macLength = 17;
   const auto at = text.find( "01:00:5e" ), vlan = text.find( "VLAN " );
   const Key key( Ulnet::EthAddr( text.substr( at, macLength ) ),
                  VlanId( U32( std::stoul( text.substr( vlan + 5 ) ) ) ) );
   // A group that was deleted says nothing: its successor may say the same again.
   full ? void( saidToFlood_.insert( key ) ) : void( saidToFlood_.erase( key ) );
}

// --- Checks ----------------------------------------------------------------------------------------

String
SimMulticast::checkInvariants() const {
   if ( const String broken = sm_->checkInvariants(); !broken.empty() ) {
      return "invariant: " + broken;
   }
   auto flood = helper_->overflow()->floodBitmap();
   const U32 held = helper_->bitmapList().size() + ( flood && flood->groupIndex() >= 0 );
   if ( table_.groups().size() != held ) {
      return "leak: the chip has " + std::to_string( table_.groups().size() ) + " groups for " +
             std::to_string( held ) + " bitmaps";
   }
   return {};
}

String
SimMulticast::checkAtRest() const {
   std::set< Key > keys;
   for ( auto & [key, leads] : table_.macEntries() ) {
      keys.insert( key );
   }
   for ( U32 vlan = 0; vlan < world_.size( Range::vlan ); ++vlan ) {
      for ( U32 group = 0; group < 8; ++group ) {
         keys.insert( key( group, vlan ) );
      }
   }
   for ( const Key & each : keys ) {
      if ( const String wrong = checkGroup( each ); !wrong.empty() ) {
         return wrong;
      }
   }
   return checkChip();
}

String
SimMulticast::checkGroup( const Key & key ) const {
   const auto wishes = wishesFor( key );
   auto held = table_.portsOf( key );
   if ( wishes.empty() ) {
      return held ? "left: " + shown( key ) + " is nobody's" : "";
   }
   for ( const Wish & wish : wishes ) {
      if ( held ? includes( *held, wish.ports ) && includes( wish.allowed, *held )
                : !wish.members ) {
         return {};
      }
   }
   if ( held && *held == allPorts() && saidToFlood_.contains( key ) && groupsUsedUp() ) {
      return {};
   }
   const Qon::MacEntryKey hostKey( key, Qon::MacHwType::macHwKeyBridge );
   const auto & hosts = world_.chip->of< SoftChip::MacPart >().table();
   if ( !held && ( hosts.entry( hostKey ) || !hosts.hasRoom( hostKey ) ) ) {
      return {};
   }
   // No group is left even for the set that floods: what the chip does not know it floods by itself.
   auto flood = helper_->overflow()->floodBitmap();
   if ( !held && saidToFlood_.contains( key ) && groupsUsedUp() && flood->groupIndex() < 0 ) {
      return {};
   }
   return "ports: " + shown( key ) + " leaves by" + ( held ? shown( *held ) : " no entry" ) +
          ", wanted are" + shown( wishes.front().ports );
}

String
SimMulticast::checkChip() const {
   auto flood = helper_->overflow()->floodBitmap();
   std::set< Ports > sets;
   std::set< S64 > led;
   for ( auto & [key, leads] : table_.macEntries() ) {
      led.insert( leads );
   }
   for ( auto & [index, ports] : table_.groups() ) {
      if ( index == flood->groupIndex() ) {
         if ( ports != allPorts() ) {
            return "flood: to" + shown( ports );
         }
      } else if ( !sets.insert( ports ).second ) {
         return "shared: two groups of the chip have the ports" + shown( ports );
      } else if ( !led.contains( index ) && helper_->groupOverflowList().empty() ) {
         return "leak: nobody uses the group of" + shown( ports );
      }
   }
   return {};
}

bool
SimMulticast::mayStayArmed() const {
   return helper_->groupOverflowList().size() !=
          0; // tried again and again, for as long as it takes
}

String
SimMulticast::checkTornDown() const {
   return !table_.macEntries().empty() ? "left: MAC entries of groups"
          : table_.groups().size() > 1 ? "left: groups of the chip"
          : helper_->entryLists()      ? "left: groups"
          : !helper_->lagGroupMembership().empty() || !helper_->portGroupMembership().empty()
                ? "left: members"
                : "";
}

} // namespace Sim
