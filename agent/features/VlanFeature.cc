#include "agent/features/VlanFeature.h"

#include "agent/ConfigReader.h"
#include "agent/features/Arguments.h"
#include "agent/features/VlanHooks.h"
#include "platform/types/Paths.h"

namespace QonAgent {

using Bridging::VlanId;
using Ulnet::IntfId;

VlanFeature::VlanFeature( Agent & agent )
    : agent_( agent ), part_( agent.chip().part< QonChip::VlanPart >() ),
      config_( agent.entities().mount< Bridging::Vlan::Config >( Paths::vlanConfig ) ),
      topologies_( agent.entities().mount< Bridging::Topology::Config >( Paths::topologyConfig ) ),
      helper_( vlanHelperOf( agent ) ) {
   if ( helper_ ) {
      membersSm_ = Qon::smIs< VlanMembersSm >( agent.acsd(), config_, helper_ );
      membersSm_->initializedIs( true );
   }
}

VlanId
VlanFeature::vlanOf( ConfigReader & reader, const String & name ) const {
   const IntfId intf = reader.intf( "", name );
   if ( !Ulnet::VlanIntfId::isVlanIntfId( intf ) ) {
      throw RowError( "", "'" + name + "' is not the name of a VLAN" );
   }
   return VlanId( Ulnet::VlanIntfId::vlanNum( intf ) );
}

void
VlanFeature::configure( ConfigReader & reader ) {
   auto known = std::make_shared< std::vector< VlanId > >();
   reader.eachRow( "VLAN", [&]( const ConfigRow & row ) {
      const VlanId vlan = vlanOf( reader, row.part( 0, 1 ) );
      if ( row.number( "vlanid", 1, 4094, vlan ) != vlan ) {
         throw RowError( "vlanid",
                         "'" + row.text( "vlanid" ) + "' is not the number of " + row.key() );
      }
      known->push_back( vlan );
      reader.apply( [=, this] { config_->vlanConfigIs( vlan ); } );
   } );
   reader.eachRow( "VLAN_MEMBER", [&]( const ConfigRow & row ) {
      const VlanId vlan = vlanOf( reader, row.part( 0, 2 ) );
      if ( std::find( known->begin(), known->end(), vlan ) == known->end() ) {
         throw RowError( "", "there is no " + row.part( 0, 2 ) + " in table VLAN" );
      }
      const IntfId port = reader.portOrChannel( "", row.part( 1, 2 ) );
      const bool tagged =
            row.word( "tagging_mode", { "untagged", "tagged", "priority_tagged" }, 0 ) == 1;
      reader.apply( [=, this] { config_->vlanConfigIs( vlan )->memberIs( port, tagged ); } );
   } );
}

std::function< void() >
VlanFeature::parseMember( const Json & line ) {
   const VlanId vlan( fieldOf< U32 >( line, "vlan" ) );
   const IntfId port = agent_.names().typed( fieldOf< String >( line, "intf" ) );
   const String mode = fieldOf< String >( line, "mode" );
   if ( mode != "tagged" && mode != "untagged" && mode != "none" ) {
      throw Velto::RangeError( "mode is tagged, untagged or none, not '" + mode + "'" );
   }
   return [=, this] {
      auto config = config_->vlanConfigIs( vlan );
      mode == "none" ? config->memberDel( port ) : config->memberIs( port, mode == "tagged" );
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

/** A row a member; one without for a VLAN that has none. */
std::vector< Row >
VlanFeature::vlanRows( VlanId vlan, const QonChip::HeldVlan & held ) const {
   const auto state = helper_->updateState( vlan );
   std::vector< Row > rows;
   helper_->forEachMember( vlan, [&]( IntfId port, Qon::VlanMembership how ) {
      Row r = row( vlan, port, how );
      r.set( "topology", topologies_->vidToTopoMap( vlan ) );
      r.set( "forwarding", yesNo( helper_->forwards( port, vlan ) ) );
      r.set( "hardware", yesNo( held.contains( port ) ) );
      if ( state.requested != state.completed ) {
         r.set( "generation", state.requested );
         r.set( "since", Kiv::now() - state.since );
         r.set( "state", state.failed ? "failed" : state.inProgress ? "in progress" : "waiting" );
      }
      rows.push_back( r );
   } );
   if ( rows.empty() ) {
      rows.push_back( { { "vlan", U32( vlan.value() ) },
                        { "topology", topologies_->vidToTopoMap( vlan ) } } );
   }
   return rows;
}

Rows
VlanFeature::vlans( Arguments arguments ) const {
   if ( !helper_ ) {
      notServed( agent_, "VLANs" );
   }
   auto held = part_->vlans().value_or( QonChip::HeldVlans() );
   for ( auto && [vlan, config] : config_->vlanConfigIteratorConst() ) {
      if ( !arguments.has( 0 ) || vlan.value() == arguments.vlan( 0 ).value() ) {
         for ( auto & row : vlanRows( vlan, held[vlan] ) ) {
            co_yield row;
         }
      }
   }
}

Rows
VlanFeature::hardware( Arguments arguments ) const {
   const auto held = part_ ? part_->vlans() : std::nullopt;
   if ( !held ) {
      notServed( agent_, "the reading of VLANs" );
   }
   for ( auto & [vlan, ports] : *held ) {
      if ( !arguments.has( 0 ) || vlan == arguments.vlan( 0 ).value() ) {
         for ( auto & [port, how] : ports ) {
            co_yield row( VlanId( vlan ), port, how );
         }
      }
   }
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
