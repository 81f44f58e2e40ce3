#include "agent/features/VlanFeature.h"

#include "agent/configdb/ConfigReader.h"
#include "agent/features/Arguments.h"
#include "platform/types/Paths.h"

namespace QonAgent {

using Bridging::VlanId;
using Ulnet::IntfId;

namespace {

const char *
yesNo( bool v ) {
   return v ? "yes" : "no";
}

/** The one VLAN that the arguments name. */
std::optional< VlanId >
argumentVlan( const std::vector< String > & arguments ) {
   if ( arguments.size() > 1 ) {
      throw Velto::RangeError( "one VLAN at most" );
   }
   return arguments.empty() ? std::nullopt : std::optional( VlanId( arguments[0] ) );
}

} // namespace

void
VlanFeature::create( Agent & agent ) {
   agent_ = &agent;
   config_ = agent.entities().mount< Bridging::Vlan::Config >( Paths::vlanConfig );
   topologies_ = agent.entities().mount< Bridging::Topology::Config >( Paths::topologyConfig );
   helper_ = Velto::make< SoftChip::SoftVlanHelper >( "vlanHelper", agent.acsd(), agent.faults() );
   helper_->verifyDataIs( agent.acsd()->verifyData() );
   agent.acsd()->vlanHelperIs( helper_ );
   membersSm_ = Qon::smIs< VlanMembersSm >( agent.acsd(), config_, helper_ );
   membersSm_->initializedIs( true );
}

void
VlanFeature::destroy() {
   membersSm_ = nullptr;
   agent_->acsd()->vlanHelperDel();
   helper_ = nullptr;
   topologies_ = nullptr;
   config_ = nullptr;
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
   const IntfId port = agent_->names().typed( fieldOf< String >( line, "intf" ) );
   const String mode = fieldOf< String >( line, "mode" );
   if ( mode != "tagged" && mode != "untagged" && mode != "none" ) {
      throw Velto::RangeError( "mode is tagged, untagged or none, not '" + mode + "'" );
   }
   return [=, this] {
      auto config = config_->vlanConfigIs( vlan );
      mode == "none" ? config->memberDel( port ) : config->memberIs( port, mode == "tagged" );
   };
}

Json
VlanFeature::row( VlanId vlan, IntfId port, Qon::VlanMembership how ) const {
   return { { "vlan", vlan.value() },
            { "interface", agent_->names().spelling( port ) },
            { "tagging", how.tagged ? "tagged" : "untagged" },
            { "ingress", how.ingress },
            { "egress", how.egress } };
}

Json
VlanFeature::vlans( const std::vector< String > & arguments ) const {
   const auto only = argumentVlan( arguments );
   Json rows = Json::array();
   for ( auto && [vlan, config] : config_->vlanConfigIteratorConst() ) {
      if ( only && vlan != *only ) {
         continue;
      }
      const auto state = helper_->updateState( vlan );
      const auto before = rows.size();
      helper_->forEachMember( vlan, [&]( IntfId port, Qon::VlanMembership how ) {
         Json r = row( vlan, port, how );
         r["topology"] = topologies_->vidToTopoMap( vlan );
         r["forwarding"] = yesNo( helper_->forwards( port, vlan ) );
         r["hardware"] = yesNo( helper_->has( vlan, port ) );
         if ( state.requested != state.completed ) {
            r["generation"] = state.requested;
            r["since"] = Kiv::now() - state.since;
            r["state"] = state.failed ? "failed" : state.inProgress ? "in progress" : "waiting";
         }
         rows.push_back( std::move( r ) );
      } );
      if ( rows.size() == before ) {
         rows.push_back(
               { { "vlan", vlan.value() }, { "topology", topologies_->vidToTopoMap( vlan ) } } );
      }
   }
   return checkedRows( std::move( rows ), arguments, "VLAN" );
}

Json
VlanFeature::hardware( const std::vector< String > & arguments ) const {
   const auto only = argumentVlan( arguments );
   Json rows = Json::array();
   for ( VlanId vlan : helper_->vlans() ) {
      if ( only && vlan != *only ) {
         continue;
      }
      for ( auto & port : helper_->ports( vlan ) ) {
         rows.push_back( row( vlan, port.intf, port.how ) );
      }
      if ( helper_->ports( vlan ).empty() ) {
         rows.push_back( { { "vlan", vlan.value() } } );
      }
   }
   return checkedRows( std::move( rows ), arguments, "VLAN" );
}

std::vector< ShowCommand >
VlanFeature::showCommands() {
   const Column vlan = { "vlan", "VLAN", true }, intf = { "interface", "Interface" },
                tagging = { "tagging", "Tagging" };
   return { { "vlan",
              "members of VLANs as requested, and what the hardware has of it",
              "[VLAN]",
              { vlan,
                { "topology", "Topology" },
                intf,
                tagging,
                { "forwarding", "Forwarding" },
                { "hardware", "In hardware" },
                { "state", "State" },
                { "generation", "Generation", true },
                { "since", "Since s", true } },
              [this]( const auto & arguments ) { return vlans( arguments ); } },
            { "hw vlan",
              "the VLAN table of the chip",
              "[VLAN]",
              { vlan, intf, tagging },
              [this]( const auto & arguments ) { return hardware( arguments ); } } };
}

std::vector< EventKind >
VlanFeature::eventKinds() {
   return { { "vlanMember",
              R"({"time": 1, "event": "vlanMember", "vlan": 10, "intf": "Ethernet0",)"
              R"( "mode": "tagged"})",
              [this]( const Json & line ) { return parseMember( line ); } } };
}

} // namespace QonAgent
