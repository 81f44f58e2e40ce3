#include "agent/features/VlanFeature.h"

#include <bitset>

#include "agent/ConfigReader.h"
#include "agent/features/Arguments.h"
#include "agent/features/VlanHooks.h"
#include "platform/types/Paths.h"

namespace QonAgent {

using Bridging::VlanId;
using Ulnet::IntfId;

namespace {

constexpr U16 lastVlan = 4094;

// A row of VLAN_MEMBER in one number: the VLAN, the port's number, and whether it is tagged.
constexpr U32 vlanShift = 33;
constexpr U32 portShift = 1;

VlanId
vlanIn( U64 member ) {
   return VlanId( U16( member >> vlanShift ) );
}

} // namespace

VlanFeature::VlanFeature( Agent & agent )
    : agent_( agent ), part_( agent.chip().part< QonChip::VlanPart >() ),
      config_( agent.entities().mount< Bridging::Vlan::Config >( Paths::vlanConfig ) ),
      spanningTree_( agent.chip().part< QonChip::TopologyPart >() ),
      topologies_( agent.entities().mount< Bridging::Topology::Config >( Paths::topologyConfig ) ),
      acknowledged_(
            agent.entities().mount< Bridging::Topology::Inst::Status >( Paths::topologyStatus ) ),
      helper_( vlanHelperOf( agent ) ) {
   if ( helper_ ) {
      membersSm_ = Qon::smIs< VlanMembersSm >( agent.acsd(), config_, helper_ );
      membersSm_->initializedIs( true );
   }
}

std::vector< ConfigTable >
VlanFeature::tables() const {
   return {
         { "VLAN",
           "VLAN",
           { { "vlanid", "its number, as in the key" } },
           { R"("Vlan10": {"vlanid": "10"})", R"("Vlan20": {})" } },
         { "VLAN_MEMBER",
           "VLAN|port or port-channel",
           { { "tagging_mode", "tagged, untagged or priority_tagged; untagged" } },
           { R"("Vlan10|Ethernet8": {"tagging_mode": "tagged"})", R"("Vlan20|Ethernet8": {})" } } };
}

void
VlanFeature::configure( ConfigReader & reader ) {
   std::bitset< lastVlan + 1 > known;
   auto vlans = std::make_shared< Configured< VlanId, Kiv::Nothing >::Said >();
   reader.eachRow( "VLAN", [&]( const ConfigRow & row ) {
      const VlanId vlan = reader.vlan( row.part( 0, 1 ) );
      if ( row.number( "vlanid", 1, 4094, vlan ) != vlan ) {
         throw RowError( "vlanid",
                         "'" + row.text( "vlanid" ) + "' is not the number of " + row.key() );
      }
      known.set( vlan );
      vlans->emplace_back( vlan, Kiv::Nothing() );
   } );
   reader.apply( [=, this] {
      configured_.become(
            *vlans, [this]( VlanId vlan, auto & ) { config_->vlanConfigDel( vlan ); },
            [this]( VlanId vlan, auto &, auto ) { config_->vlanConfigIs( vlan ); } );
   } );
   auto members = std::make_shared< std::vector< U64 > >();
   auto seen = std::make_unique< Seen >();
   reader.eachRow( "VLAN_MEMBER", [&]( const ConfigRow & row ) {
      const VlanId vlan = reader.vlan( row.part( 0, 2 ) );
      if ( !known[vlan] ) {
         throw RowError( "", "there is no " + row.part( 0, 2 ) + " in table VLAN" );
      }
      const IntfId port = reader.portOrChannel( "", row.part( 1, 2 ) );
      const bool tagged =
            row.word( "tagging_mode", { "untagged", "tagged", "priority_tagged" }, 0 ) == 1;
      nameOdd( reader, row, port, tagged ? "" : row.part( 0, 2 ), *seen );
      members->push_back( packed( vlan, port, tagged ) );
   } );
   reader.apply( [=, this] { membersBecome( *members ); } );
}

U64
VlanFeature::packed( VlanId vlan, IntfId port, bool tagged ) {
   auto [number, fresh] = portNumbers_.try_emplace( port, U32( ports_.size() ) );
   if ( fresh ) {
      ports_.push_back( port );
   }
   return U64( vlan.value() ) << vlanShift | U64( number->second ) << portShift | tagged;
}

/** As Configured does it. */
void
VlanFeature::membersBecome( const std::vector< U64 > & said ) {
   std::vector< U64 > former = said;
   std::sort( former.begin(), former.end() );
   former.swap( members_ );
   auto port = [this]( U64 member ) { return ports_[U32( member >> portShift )]; };
   for ( U64 member : former ) {
      auto now = std::lower_bound( members_.begin(), members_.end(), member & ~U64( 1 ) );
      const bool gone = now == members_.end() || ( *now ^ member ) >> portShift;
      if ( auto config = gone ? config_->vlanConfig( vlanIn( member ) ) : nullptr ) {
         config->memberDel( port( member ) );
      }
   }
   for ( U64 member : said ) {
      if ( !std::binary_search( former.begin(), former.end(), member ) ) {
         config_->vlanConfigIs( vlanIn( member ) )->memberIs( port( member ), member & 1 );
      }
   }
}

/** What cannot be meant, once a port. `untaggedIn` is empty for a tagged member. */
void
VlanFeature::nameOdd( ConfigReader & reader, const ConfigRow & row, IntfId port,
                      const String & untaggedIn, Seen & seen ) const {
   const auto & names = agent_.names();
   const IntfId lag = reader.memberOf( port );
   if ( !lag.isNull() && seen.lagMembers.insert( port ).second ) {
      reader.warn( row, "",
                   names.spelling( port ) + " is a member of " + names.spelling( lag ) +
                         ", whose VLANs it has; those of its own do not count" );
   }
   if ( untaggedIn.empty() ) {
      return;
   }
   auto [first, fresh] = seen.untagged.try_emplace( port, untaggedIn );
   if ( !fresh && !first->second.empty() ) {
      reader.warn( row, "tagging_mode",
                   names.spelling( port ) + " is untagged in " + first->second + " already" );
      first->second.clear(); // said
   }
}

std::function< void() >
VlanFeature::parseMember( const Json & line ) {
   const VlanId vlan = vlanField( line );
   const IntfId port = agent_.names().typed( fieldOf< String >( line, "intf" ) );
   const String mode = fieldOf< String >( line, "mode" );
   if ( mode != "tagged" && mode != "untagged" && mode != "none" ) {
      throw Velto::RangeError( "mode is tagged, untagged or none, not '" + mode + "'" );
   }
   return [=, this] {
      auto config = config_->vlanConfig( vlan );
      if ( mode == "none" && !( config && config->memberHas( port ) ) ) {
         throw Velto::RangeError( agent_.names().spelling( port ) + " is no member of VLAN " +
                                  vlan.stringValue() );
      }
      if ( mode == "none" ) {
         config->memberDel( port );
      } else {
         mustBeThere( agent_, port );
         config_->vlanConfigIs( vlan )->memberIs( port, mode == "tagged" );
      }
   };
}

Row
VlanFeature::row( VlanId vlan, IntfId port, Qon::VlanMembership how ) const {
   return { { "vlan", U32( vlan.value() ) },
            { "interface", agent_.names().spelling( port ) },
            { "tagging", how.tagged ? "tagged" : "untagged" },
            { "ingress", yesNo( how.ingress ) },
            { "egress", yesNo( how.egress ) } };
}

/** What is true of a VLAN as a whole. */
Row
VlanFeature::vlanRow( VlanId vlan ) const {
   return { { "vlan", U32( vlan.value() ) }, { "topology", topologies_->vidToTopoMap( vlan ) } };
}

/** A port of a VLAN whose membership is requested. */
Row
VlanFeature::memberRow( VlanId vlan, IntfId port, const QonChip::HeldVlan & held ) const {
   const auto state = helper_->updateState( vlan );
   Row r = row( vlan, port, helper_->membership( port, vlan ) );
   r.set( "topology", topologies_->vidToTopoMap( vlan ) );
   r.set( "forwarding", yesNo( forwards( vlan, port ) ) );
   r.set( "hardware", yesNo( held.contains( port ) ) );
   if ( state.requested != state.completed ) {
      r.set( "generation", state.requested );
      r.set( "since", Kiv::now() - state.since );
      r.set( "state", state.failed ? "failed" : state.inProgress ? "in progress" : "waiting" );
   }
   return r;
}

/** Whether the chip forwards: by its VLANs, and by its topologies, if it has such tables. */
bool
VlanFeature::forwards( VlanId vlan, IntfId port ) const {
   if ( !helper_->forwards( port, vlan ) || !spanningTree_ ) {
      return helper_->forwards( port, vlan );
   }
   if ( const auto known = spanningTree_->forwards( vlan, port ) ) {
      return *known;
   }
   const auto topology = acknowledged_->topoStatus( topologies_->vidToTopoMap( vlan ) );
   const IntfId lag = agent_.acsd()->portToLag( port );
   const auto state = topology ? topology->topoPortStatus( lag ? lag : port ) : nullptr;
   return !state || state->state() == Bridging::Topology::PortState::forwarding;
}

std::vector< IntfId >
VlanFeature::membersOf( VlanId vlan ) const {
   std::vector< IntfId > ports;
   helper_->forEachMember( vlan, [&]( IntfId port, auto ) { ports.push_back( port ); } );
   return ports;
}

/** A row a member; one without for a VLAN that has none. */
Rows
VlanFeature::vlans( Arguments arguments ) const {
   if ( !helper_ ) {
      notServed( agent_, "VLANs" );
   }
   const auto chip = part_->readVlans();
   const auto only = arguments.vlan( 0 );
   for ( auto i = config_->vlanConfigIteratorConst(); i; ++i ) {
      const VlanId vlan = i.key();
      if ( !only.isNone() && only.value() != vlan.value() ) {
         continue;
      }
      const auto ports = membersOf( vlan );
      const auto held = chip ? chip->at( vlan ) : QonChip::HeldVlan();
      if ( ports.empty() ) {
         co_yield vlanRow( vlan );
      }
      for ( IntfId port : ports ) {
         co_yield memberRow( vlan, port, held );
      }
   }
}

Rows
VlanFeature::hardware( Arguments arguments ) const {
   const auto chip = part_ ? part_->readVlans() : nullptr;
   if ( !chip ) {
      notServed( agent_, "the reading of VLANs" );
   }
   const auto only = arguments.vlan( 0 );
   U16 vlan = only.isNone() ? 0 : only.value();
   QonChip::HeldVlan held = only.isNone() ? QonChip::HeldVlan() : chip->at( vlan );
   while ( !only.isNone() || chip->next( vlan, held ) ) {
      for ( auto & [port, how] : held ) {
         co_yield row( VlanId( vlan ), port, how );
      }
      if ( !only.isNone() ) {
         break;
      }
   }
}

std::vector< Counter >
VlanFeature::counters() const {
   U64 vlans = 0, waiting = 0, failed = 0;
   for ( auto i = config_->vlanConfigIteratorConst(); helper_ && i; ++i, ++vlans ) {
      const auto state = helper_->updateState( i.key() );
      waiting += state.requested != state.completed;
      failed += state.failed;
   }
   return { { "VLANs", vlans },
            { "VLANs that wait", waiting },
            { "VLANs that failed", failed },
            { "retries", helper_ ? helper_->retries() : 0 } };
}

std::vector< ShowCommand >
VlanFeature::showCommands() {
   const Column vlan = { "vlan", "VLAN", true }, intf = { "interface", "Interface" },
                tagging = { "tagging", "Tagging" };
   const Argument only =
         vlanArgument( [this]( VlanId number ) { return config_->vlanConfigHas( number ); } );
   return { { "vlan",
              "members of VLANs as requested, and what the hardware has of it",
              { only },
              { vlan,
                { "topology", "Topology" },
                intf,
                tagging,
                { "forwarding", "Forwarding" },
                { "hardware", "In hardware" },
                { "state", "State" },
                { "generation", "Generation", true },
                { "since", "Since s", true } },
              [this]( auto & arguments ) { return vlans( arguments ); } },
            { "hw vlan",
              "the VLANs that have members in the chip",
              { only },
              { vlan, intf, tagging },
              [this]( auto & arguments ) { return hardware( arguments ); } } };
}

std::vector< EventKind >
VlanFeature::eventKinds() {
   return { { "vlanMember",
              R"({"time": 1, "event": "vlanMember", "vlan": 10, "intf": "Ethernet0",)"
              R"( "mode": "tagged"})",
              [this]( const Json & line ) { return parseMember( line ); } } };
}

FeatureKind
vlanFeature() {
   return feature< VlanFeature >( "vlan" );
}

} // namespace QonAgent
