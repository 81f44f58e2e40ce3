// What the console shows of multicast groups.

#include "agent/features/Arguments.h"
#include "agent/features/MulticastFeature.h"

namespace QonAgent {

using Bridging::VlanId;
using Ulnet::EthAddr;
using Ulnet::IntfId;

namespace {

constexpr U32 entriesAPause = 200;

/** Whether a group is one of those that were asked for: [VLAN] [GROUP]. */
bool
takes( const Arguments & arguments, U32 vlan, const EthAddr & group ) {
   return ( !arguments.has( 0 ) || arguments.vlan( 0 ) == vlan ) &&
          ( !arguments.has( 1 ) || arguments.mac( 1 ) == group );
}

} // namespace

void
MulticastFeature::served() const {
   if ( !sm_ ) {
      notServed( agent_, "multicast groups" );
   }
}

std::unique_ptr< QonChip::MulticastReading >
MulticastFeature::reading() const {
   auto chip = part_ ? part_->readMulticast() : nullptr;
   if ( !chip ) {
      notServed( agent_, "the reading of multicast groups" );
   }
   return chip;
}

template< class Intfs >
Value::List
MulticastFeature::spelled( const Intfs & intfs ) const {
   std::set< IntfId > ordered( intfs.begin(), intfs.end() );
   Value::List names;
   for ( IntfId intf : ordered ) {
      names.push_back( agent_.names().spelling( intf ) );
   }
   return names;
}

String
MulticastFeature::why( const Qon::MulticastSmBase & sm,
                       const Qon::HardwareL2MulticastEntry * entry ) const {
   if ( !sm.groupWanted() ) {
      return "its index is not valid";
   }
   if ( !entry ) {
      return helper_->entryOf( sm.macVlan() ) ? "somebody else has the group" : "no group";
   }
   if ( helper_->isPending( *entry ) ) {
      return "waits for its review";
   }
   if ( entry->overflowLogged() ) {
      return "no group of the chip is free";
   }
   if ( entry->macTableOverflowLogged() ) {
      return "no room in the MAC table";
   }
   if ( !entry->macTableEntryCreated() ) {
      return entry->hwL2MulticastBitmap() ? "the chip took no MAC entry" : "it never had a member";
   }
   return "";
}

Row
MulticastFeature::row( const Key & key, const char * origin,
                       const Qon::MulticastSmBase & sm ) const {
   const auto entry = helper_->entryList( sm.vGroup() );
   const String reason = why( sm, entry );
   Row made = { { "vlan", U32( key.vlan() ) },
                { "group", key.mac().stringValue() },
                { "origin", origin },
                { "members", spelled( sm.intfsWanted() ) } };
   const auto bitmap = entry ? entry->hwL2MulticastBitmap() : nullptr;
   if ( bitmap ) {
      made.set( "ports", spelled( helper_->portsOf( bitmap->hardwarePhysicalShadow() ) ) );
      made.set( "index", U64( bitmap->groupIndex() ) );
      made.set( "shared", bitmap->refCount() );
   }
   made.set( "state", reason.empty()                     ? "programmed"
                      : entry && entry->overflowLogged() ? "flooding"
                                                         : "waiting" );
   made.set( "why", reason );
   if ( entry && entry->overflowLogged() ) {
      made.set( "queue", helper_->placeInQueue( *entry ) );
      made.set( "since", Kiv::now() - entry->overflowTime() );
   }
   return made;
}

/** Those of snooping, then those of the operator. */
Rows
MulticastFeature::groups( Arguments arguments ) const {
   served();
   U32 passed = 0;
   for ( auto v = status_->vlanStatusIteratorConst(); v; ++v ) {
      const VlanId vlan = v.key();
      const Velto::Ptr< const Bridging::IgmpSnooping::VlanStatus > of( v.ptr() );
      for ( auto g = of->ethGroupIteratorConst(); g; ++g ) {
         const EthAddr group = g.key();
         auto machine = sm_->vlan( vlan );
         auto sm = machine ? machine->group( group ) : nullptr;
         if ( sm && takes( arguments, vlan, group ) ) {
            co_yield row( Key( group, vlan ), "snooping", *sm );
         } else if ( ++passed % entriesAPause == 0 ) {
            co_yield Pause();
         }
      }
   }
   for ( auto g = static_->groupIteratorConst(); g; ++g ) {
      const Qon::McastAddr key = g.key();
      auto sm = sm_->staticGroup( key );
      if ( sm && takes( arguments, key.vlanId(), key.addr() ) ) {
         co_yield row( sm->macVlan(), "static", *sm );
      } else if ( ++passed % entriesAPause == 0 ) {
         co_yield Pause();
      }
   }
}

/** A row a MAC entry. */
Rows
MulticastFeature::hardware() const {
   const auto chip = reading();
   Key key;
   for ( QonChip::HeldMulticastEntry held; chip->next( key, held ); ) {
      const Row made = { { "vlan", U32( key.vlan() ) },
                         { "group", key.mac().stringValue() },
                         { "index", U64( held.index ) },
                         { "ports", spelled( held.ports ) } };
      co_yield made;
   }
}

/** A row a port that a frame to the group is sent to; what becomes of it there says `show hw frame`. */
Rows
MulticastFeature::path( Arguments arguments ) const {
   const auto held = reading()->at( Key( arguments.mac( 0 ), arguments.vlan( 1 ) ) );
   if ( held.index < 0 ) {
      const Row made = { { "interface", "" }, { "how", "not a group's: flooded in the VLAN" } };
      co_yield made;
      co_return;
   }
   for ( IntfId port : held.ports ) {
      const Row made = { { "interface", agent_.names().spelling( port ) },
                         { "how", "group " + std::to_string( held.index ) } };
      co_yield made;
   }
}

Rows
MulticastFeature::resources() const {
   served();
   U32 noMacEntry = 0;
   helper_->forEachEntry( [&]( const Qon::HardwareL2MulticastEntry & entry ) {
      noMacEntry += entry.macTableOverflowLogged();
   } );
   Value most; // nothing where the chip does not say
   if ( const U32 room = part_->multicastGroupsToFill() ) {
      most = room;
   }
   const auto overflow = helper_->overflow();
   const auto flood = overflow->floodBitmap();
   const Row rows[] = {
         { { "resource", "groups of the chip" },
           { "used", helper_->bitmapList().size() + ( flood && flood->groupIndex() >= 0 ) },
           { "of", most } },
         { { "resource", "groups that share them" }, { "used", helper_->entryLists() } },
         { { "resource", "groups that flood" }, { "used", flood ? flood->refCount() : 0 } },
         { { "resource", "groups without room in the MAC table" }, { "used", noMacEntry } } };
   for ( const Row & made : rows ) {
      co_yield made;
   }
}

std::vector< Counter >
MulticastFeature::counters() const {
   if ( !helper_ ) {
      return {};
   }
   return { { "multicast groups", helper_->entryLists() },
            { "multicast groups without room", helper_->groupOverflowList().size() },
            { "retries", helper_->retries() } };
}

std::vector< ShowCommand >
MulticastFeature::showCommands() {
   Argument vlan = vlanArgument( []( VlanId ) { return true; } );
   Argument mac;
   mac.kind = Argument::Kind::mac;
   mac.name = "GROUP";
   mac.what = "multicast group";
   Argument wantedVlan = vlan, wantedMac = mac;
   wantedVlan.required = wantedMac.required = true;
   const Column group = { "group", "Group" }, vlanColumn = { "vlan", "VLAN", true },
                ports = { "ports", "Ports" }, index = { "index", "Index", true };
   return { { "multicast",
              "multicast groups: members, ports in hardware, who shares them, and why not",
              { vlan, mac },
              { vlanColumn,
                group,
                { "origin", "Origin" },
                { "members", "Members" },
                ports,
                index,
                { "shared", "Shared by", true },
                { "state", "State" },
                { "why", "Why" },
                { "queue", "Queue", true },
                { "since", "Since s", true } },
              [this]( auto & arguments ) { return groups( arguments ); } },
            { "hw multicast",
              "multicast groups that the chip holds",
              {},
              { vlanColumn, group, index, ports },
              [this]( auto & ) { return hardware(); } },
            { "hw multicast path",
              "the ports that the chip sends a frame to a group in a VLAN to",
              { wantedMac, wantedVlan },
              { { "interface", "Interface" }, { "how", "How" } },
              [this]( auto & arguments ) { return path( arguments ); } },
            { "resources multicast",
              "what multicast groups use of the chip",
              {},
              { { "resource", "Resource" }, { "used", "Used", true }, { "of", "Of", true } },
              [this]( auto & ) { return resources(); } } };
}

} // namespace QonAgent
