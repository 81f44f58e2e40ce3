#include "agent/features/TopologyFeature.h"

#include "Qon/include/topology/VlanTopoHelper.h"
#include "agent/configdb/ConfigReader.h"
#include "agent/features/Arguments.h"
#include "platform/types/Paths.h"

namespace QonAgent {

using Bridging::VlanId;
using Ulnet::IntfId;
namespace Topology = Bridging::Topology;

namespace {

constexpr char oneForAll[] = "Mst0";
constexpr U32 maxTopologies = 4096;

/** The chip's trapping of BPDUs is two bits that nothing else looks at. */
class AgentStpSm : public Qon::StpSm {
 public:
   using StpSm::StpSm;
   void configureBpduTrapping( bool, bool ) override {}
};

IntfId
intfOf( const Agent & agent, const Json & line ) {
   return agent.names().typed( fieldOf< String >( line, "intf" ) );
}

} // namespace

void
TopologyFeature::create( Agent & agent ) {
   agent_ = &agent;
   auto & entities = agent.entities();
   vlans_ = entities.mount< Bridging::Vlan::Config >( Paths::vlanConfig );
   config_ = entities.mount< Topology::Config >( Paths::topologyConfig );
   status_ = entities.mount< Topology::Inst::Status >( Paths::topologyStatus );
   tapAgg_ = entities.mount< TapAgg::HwConfig >( Paths::tapAggHwConfig );
   agent.acsd()->tapAggHwConfigIs( tapAgg_ );
   vlanHelper_ = dynamic_cast< SoftChip::SoftVlanHelper * >( agent.acsd()->vlanHelper() );
   Velto::Ptr< Qon::TopoHelper > helper;
   if ( kind_ == SoftChip::ChipKind::topology ) {
      topoTable_ = Velto::make< SoftChip::SoftTopoHelper >( maxTopologies, agent.faults() );
      helper = topoTable_;
   } else {
      helper = Qon::VlanTopoHelperIs( vlanHelper_, &agent.scheduler() );
   }
   stpSm_ = Qon::smIs< AgentStpSm >( agent.acsd(), config_, status_, helper );
   stpSm_->initializedIs( true );
}

void
TopologyFeature::destroy() {
   stpSm_ = nullptr;
   topoTable_ = nullptr;
   vlanHelper_ = nullptr;
   agent_->acsd()->tapAggHwConfigDel();
   tapAgg_ = nullptr;
   status_ = nullptr;
   config_ = nullptr;
   vlans_ = nullptr;
}

// --- Configuration -------------------------------------------------------------------------------

void
TopologyFeature::configure( ConfigReader & reader ) {
   auto tree = std::make_shared< SpanningTree >();
   reader.eachRow( "STP", [&]( const ConfigRow & row ) {
      const String mode = row.text( "mode" );
      reader.apply( [=] {
         tree->enabled = !mode.empty() && mode != "none";
         tree->pvst = mode == "pvst";
      } );
   } );
   reader.eachRow( "STP_VLAN", [&]( const ConfigRow & row ) {
      const IntfId intf = reader.intf( "", row.part( 0, 1 ) );
      if ( !Ulnet::VlanIntfId::isVlanIntfId( intf ) ) {
         throw RowError( "", "'" + row.key() + "' is not the name of a VLAN" );
      }
      const VlanId vlan( Ulnet::VlanIntfId::vlanNum( intf ) );
      const bool enabled = row.flag( "enabled", true );
      reader.apply( [=] { ( enabled ? tree->vlansWith : tree->vlansWithout ).insert( vlan ); } );
   } );
   reader.eachRow( "STP_PORT", [&]( const ConfigRow & row ) {
      const IntfId port = reader.portOrChannel( "", row.part( 0, 1 ) );
      const bool enabled = row.flag( "enabled", true );
      const bool edge = row.flag( "portfast", false );
      reader.apply( [=] {
         if ( enabled ) {
            tree->initial[port] = edge ? PortState::forwarding : PortState::discarding;
         }
      } );
   } );
   reader.apply( [=, this] { build( *tree ); } );
}

/** Makes the topologies of all VLANs that are configured. */
void
TopologyFeature::build( const SpanningTree & tree ) {
   config_->bpduTrapEnabledIs( tree.enabled );
   config_->pvstBpduTrapEnabledIs( tree.enabled && tree.pvst );
   for ( auto && [vlan, vlanConfig] : vlans_->vlanConfigIteratorConst() ) {
      const String name = tree.pvst ? "Vlan" + vlan.stringValue() : String( oneForAll );
      topologyIs( name, tree.pvst ? vlan.value() : 1 );
      const bool runs = tree.enabled && !tree.vlansWithout.count( vlan ) &&
                        ( !tree.pvst || tree.vlansWith.count( vlan ) );
      for ( auto && [port, tagged] : vlanConfig->memberIteratorConst() ) {
         auto initial = tree.initial.find( port );
         const PortState state =
               runs && initial != tree.initial.end() ? initial->second : PortState::forwarding;
         config_->topoConfig( name )->topoPortConfigIs( port, state );
      }
      config_->vidToTopoMapIs( vlan, name );
   }
}

void
TopologyFeature::topologyIs( const String & name, U32 id ) {
   config_->topoConfigIs( name, id )->topoIdIs( id );
   status_->topoStatusIs( name, id )->topoIdIs( id );
}

// --- Events --------------------------------------------------------------------------------------

TopologyFeature::Parsed
TopologyFeature::parsePortState( const Json & line ) {
   const IntfId port = intfOf( *agent_, line );
   const auto state = Kiv::fromText< PortState >( fieldOf< String >( line, "state" ) );
   const String name = fieldOf< String >( line, "topology" );
   return [=, this] {
      if ( auto topo = config_->topoConfig( name ) ) {
         auto config = topo->topoPortConfigIs( port, state );
         config->changeInfoIs( Topology::TopoPortChangeInfo( ++changes_, agent_->uptime() ) );
         config->stateIs( state );
      }
   };
}

TopologyFeature::Parsed
TopologyFeature::parsePortDel( const Json & line ) {
   return [=, this, port = intfOf( *agent_, line ), name = fieldOf< String >( line, "topology" )] {
      if ( auto topo = config_->topoConfig( name ) ) {
         topo->topoPortConfigDel( port );
      }
   };
}

TopologyFeature::Parsed
TopologyFeature::parseFlush( const Json & line ) {
   return [=, this, port = intfOf( *agent_, line ), name = fieldOf< String >( line, "topology" )] {
      auto topo = config_->topoConfig( name );
      if ( auto config = topo ? topo->topoPortConfig( port ) : nullptr ) {
         config->fdbFlushIs( config->fdbFlush() + 1 );
      }
   };
}

TopologyFeature::Parsed
TopologyFeature::parseTopology( const Json & line ) {
   return [=, this, name = fieldOf< String >( line, "topology" ),
           id = fieldOf< U32 >( line, "id" )] {
      if ( id ) {
         topologyIs( name, id );
      } else {
         config_->topoConfigDel( name );
         status_->topoStatusDel( name );
      }
   };
}

TopologyFeature::Parsed
TopologyFeature::parseVlan( const Json & line ) {
   return [=, this, vlan = VlanId( fieldOf< U32 >( line, "vlan" ) ),
           name = fieldOf< String >( line, "topology" )] {
      name.empty() ? config_->vidToTopoMapDel( vlan ) : config_->vidToTopoMapIs( vlan, name );
   };
}

TopologyFeature::Parsed
TopologyFeature::parseMode( const Json & line ) {
   const auto mode = Kiv::fromText< Qon::HwOperationalMode >( fieldOf< String >( line, "mode" ) );
   return [=, this] {
      if ( mode == Qon::HwOperationalMode::tapAgg && tapAgg_->tapAggTopoId() == 0 ) {
         tapAgg_->tapAggTopoNameIs( "TapAgg" );
         tapAgg_->tapAggTopoIdIs( 4095 );
      }
      agent_->acsd()->operationalModeIs( mode );
   };
}

TopologyFeature::Parsed
TopologyFeature::parseTapAgg( const Json & line ) {
   const String name = fieldOf< String >( line, "topology" );
   const U32 id = fieldOf< U32 >( line, "id" );
   if ( name.empty() || id == 0 ) {
      throw Velto::RangeError( "a topology with a name and an id above 0 is expected" );
   }
   auto ports = [&]( const char * field ) {
      std::set< IntfId > all;
      for ( auto & text : fieldOf< std::vector< String > >( line, field ) ) {
         all.insert( agent_->names().typed( text ) );
      }
      return all;
   };
   return [=, this, taps = ports( "tap" ), tools = ports( "tool" )] {
      tapAgg_->tapAggTopoNameIs( name );
      tapAgg_->tapAggTopoIdIs( id );
      Qon::reconcile< IntfId >(
            tapAgg_->tapIntfIteratorConst(), taps, [&]( IntfId i ) { tapAgg_->tapIntfDel( i ); },
            [&]( IntfId i ) { tapAgg_->tapIntfIs( i ); } );
      Qon::reconcile< IntfId >(
            tapAgg_->toolIntfIteratorConst(), tools, [&]( IntfId i ) { tapAgg_->toolIntfDel( i ); },
            [&]( IntfId i ) { tapAgg_->toolIntfIs( i ); } );
   };
}

TopologyFeature::Parsed
TopologyFeature::parseLatency( const Json & line ) {
   const double seconds = fieldOf< double >( line, "seconds" );
   if ( !( seconds >= 0 ) ) {
      throw Velto::RangeError( "field 'seconds' cannot be negative" );
   }
   return [=, this] {
      vlanHelper_->completions().latencyIs( seconds );
      if ( topoTable_ ) {
         topoTable_->completions().latencyIs( seconds );
      }
   };
}

std::vector< EventKind >
TopologyFeature::eventKinds() {
   auto kind = [this]( const char * name, const char * fields,
                       Parsed ( TopologyFeature::*parse )( const Json & ) ) {
      return EventKind{ name, R"({"time": 1, "event": ")" + String( name ) + "\", " + fields + "}",
                        [=, this]( const Json & line ) { return ( this->*parse )( line ); } };
   };
   using F = TopologyFeature;
   const char port[] = R"("topology": "Mst0", "intf": "Ethernet0")";
   return { kind( "portState", R"("topology": "Mst0", "intf": "Ethernet0", "state": "forwarding")",
                  &F::parsePortState ),
            kind( "portDel", port, &F::parsePortDel ),
            kind( "macFlush", port, &F::parseFlush ),
            kind( "topology", R"("topology": "Mst1", "id": 7)", &F::parseTopology ),
            kind( "vlanTopology", R"("vlan": 10, "topology": "Mst1")", &F::parseVlan ),
            kind( "operationalMode", R"("mode": "tapAgg")", &F::parseMode ),
            kind( "tapAgg", R"("topology": "TapAgg", "id": 4095, "tap": ["Ethernet0"], "tool": [])",
                  &F::parseTapAgg ),
            kind( "chipLatency", R"("seconds": 0.2)", &F::parseLatency ) };
}

// --- What there is -------------------------------------------------------------------------------

Json
TopologyFeature::topologies( const std::vector< String > & arguments ) const {
   if ( arguments.size() > 1 ) {
      throw Velto::RangeError( "one topology at most" );
   }
   Json rows = Json::array();
   for ( auto && [name, topo] : config_->topoConfigIteratorConst() ) {
      if ( !arguments.empty() && arguments[0] != name ) {
         continue;
      }
      const auto topoSm = stpSm_->topoSm( name );
      Json vlans = Json::array();
      if ( auto mapped = stpSm_->topoToVlanMap( name ) ) {
         for ( auto && [vlan, present] : mapped->vlanIteratorConst() ) {
            vlans.push_back( vlan.stringValue() );
         }
      }
      Json whole = { { "topology", name },
                     { "id", topo->topoId() },
                     { "active", topoSm ? "yes" : "no" },
                     { "vlans", vlans } };
      if ( topo->topoPortConfigs() == 0 ) {
         rows.push_back( whole );
      }
      for ( auto && [intf, config] : topo->topoPortConfigIteratorConst() ) {
         Json row = whole;
         row["interface"] = agent_->names().spelling( intf );
         row["wanted"] = Kiv::toText( config->state() );
         if ( auto port = topoSm ? topoSm->topoPortSm( intf ) : nullptr ) {
            row["acknowledged"] = Kiv::toText( port->status()->state() );
            row["waiting"] = topoSm->pendingHas( intf ) ? "yes" : "no";
            row["flushes"] = port->status()->fdbFlushReport();
         }
         rows.push_back( std::move( row ) );
      }
   }
   return checkedRows( std::move( rows ), arguments, "topology" );
}

Json
TopologyFeature::hardware( const std::vector< String > & arguments ) const {
   if ( !arguments.empty() ) {
      throw Velto::RangeError( "no arguments, not '" + arguments[0] + "'" );
   }
   Json rows = Json::array();
   if ( !topoTable_ ) {
      return rows;
   }
   for ( const String & name : topoTable_->topologies() ) {
      topoTable_->forEachPort( name, [&]( IntfId intf, PortState state ) {
         rows.push_back( { { "topology", name },
                           { "interface", agent_->names().spelling( intf ) },
                           { "state", Kiv::toText( state ) } } );
      } );
   }
   return rows;
}

std::vector< ShowCommand >
TopologyFeature::showCommands() {
   const Column topology = { "topology", "Topology" }, intf = { "interface", "Interface" };
   return { { "topology",
              "spanning-tree topologies: the states that are wanted and acknowledged",
              "[TOPOLOGY]",
              { topology,
                { "id", "Id", true },
                { "active", "Active" },
                intf,
                { "wanted", "Wanted" },
                { "acknowledged", "Acknowledged" },
                { "waiting", "Waiting" },
                { "vlans", "VLANs" } },
              [this]( const auto & arguments ) { return topologies( arguments ); } },
            { "hw topology",
              "the topology tables of the chip; empty for a chip without",
              "",
              { topology, intf, { "state", "State" } },
              [this]( const auto & arguments ) { return hardware( arguments ); } } };
}

} // namespace QonAgent
