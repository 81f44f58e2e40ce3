#include "agent/features/TopologyFeature.h"

#include "Qon/include/topology/VlanTopoHelper.h"
#include "agent/ConfigReader.h"
#include "agent/features/Arguments.h"
#include "agent/features/VlanHooks.h"
#include "platform/types/Paths.h"

namespace QonAgent {

using Bridging::VlanId;
using Ulnet::IntfId;
namespace Topology = Bridging::Topology;

namespace {

constexpr char oneForAll[] = "Mst0";

/** Of a chip that has none of its own: it takes every setting of BPDU trapping. */
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

TopologyFeature::TopologyFeature( Agent & agent )
    : agent_( agent ), part_( agent.chip().part< QonChip::TopologyPart >() ),
      vlans_( agent.entities().mount< Bridging::Vlan::Config >( Paths::vlanConfig ) ),
      config_( agent.entities().mount< Topology::Config >( Paths::topologyConfig ) ),
      status_( agent.entities().mount< Topology::Inst::Status >( Paths::topologyStatus ) ),
      tapAgg_( agent.entities().mount< TapAgg::HwConfig >( Paths::tapAggHwConfig ) ),
      stpSm_( makeStpSm() ) {
   tapAgg_->tapAggTopoNameIs( "TapAgg" ); // the mode may be set before anything says otherwise
   tapAgg_->tapAggTopoIdIs( 4095 );
   agent.acsd()->tapAggHwConfigIs( tapAgg_ );
   if ( stpSm_ ) {
      stpSm_->initializedIs( true );
   }
}

TopologyFeature::~TopologyFeature() {
   agent_.acsd()->tapAggHwConfigDel();
}

/** The chip's topology tables, or its VLANs if it keeps forwarding there. */
Velto::Ptr< Qon::TopoHelper >
TopologyFeature::makeHelper() {
   Velto::Ptr< Qon::TopoHelper > helper = part_ ? part_->makeTopoHelper() : nullptr;
   auto vlans = vlanHelperOf( agent_ );
   if ( !helper && vlans ) {
      helper = Qon::VlanTopoHelperIs( vlans, &agent_.scheduler() );
   }
   return helper;
}

Velto::Ptr< Qon::StpSm >
TopologyFeature::makeStpSm() {
   const auto helper = makeHelper();
   if ( !helper ) {
      return nullptr;
   }
   Velto::Ptr< Qon::StpSm > sm =
         part_ ? part_->makeStpSm( agent_.acsd(), config_, status_, helper ) : nullptr;
   return sm ? sm : Qon::smIs< AgentStpSm >( agent_.acsd(), config_, status_, helper );
}

// --- Configuration -------------------------------------------------------------------------------

std::vector< ConfigTable >
TopologyFeature::tables() const {
   return { { "STP",
              "GLOBAL",
              { { "mode", "none, pvst or mst; none" } },
              { R"("GLOBAL": {"mode": "pvst"})" } },
            { "STP_VLAN",
              "VLAN",
              { { "enabled", "true or false; true" } },
              { R"("Vlan10": {"enabled": "true"})" } },
            { "STP_PORT",
              "port or port-channel",
              { { "enabled", "true or false; true" },
                { "portfast", "true: forwards from the start; false" } },
              { R"("Ethernet8": {"portfast": "true"})" } } };
}

void
TopologyFeature::configure( ConfigReader & reader ) {
   auto tree = std::make_shared< SpanningTree >();
   reader.eachRow( "STP", [&]( const ConfigRow & row ) {
      const std::vector< String > modes = { "none", "pvst", "mst" };
      const String mode = modes[row.word( "mode", modes, 0 )];
      tree->enabled = mode != "none";
      tree->pvst = mode == "pvst";
   } );
   reader.eachRow( "STP_VLAN", [&]( const ConfigRow & row ) {
      const IntfId intf = reader.intf( "", row.part( 0, 1 ) );
      if ( !Ulnet::VlanIntfId::isVlanIntfId( intf ) ) {
         throw RowError( "", "'" + row.key() + "' is not the name of a VLAN" );
      }
      const VlanId vlan( Ulnet::VlanIntfId::vlanNum( intf ) );
      ( row.flag( "enabled", true ) ? tree->vlansWith : tree->vlansWithout ).insert( vlan );
   } );
   reader.eachRow( "STP_PORT", [&]( const ConfigRow & row ) {
      const IntfId port = reader.portOrChannel( "", row.part( 0, 1 ) );
      const bool edge = row.flag( "portfast", false );
      if ( row.flag( "enabled", true ) ) {
         tree->initial[port] = edge ? PortState::forwarding : PortState::discarding;
      }
   } );
   reader.apply( [=, this] { become( *tree ); } );
}

String
TopologyFeature::SpanningTree::topology( VlanId vlan ) const {
   return pvst ? "Vlan" + vlan.stringValue() : String( oneForAll );
}

TopologyFeature::PortState
TopologyFeature::SpanningTree::begins( VlanId vlan, IntfId port ) const {
   const bool runs =
         enabled && !vlansWithout.contains( vlan ) && ( !pvst || vlansWith.contains( vlan ) );
   auto found = initial.find( port );
   return runs && found != initial.end() ? found->second : PortState::forwarding;
}

/** The topologies of all VLANs that are configured. What the protocol has made of a port stays until
    the tables say otherwise than before. */
void
TopologyFeature::become( const SpanningTree & tree ) {
   const SpanningTree formerTree = std::exchange( tree_, tree );
   const auto former = std::exchange( topology_, {} );
   config_->bpduTrapEnabledIs( tree.enabled );
   config_->pvstBpduTrapEnabledIs( tree.enabled && tree.pvst );
   for ( auto && [vlan, vlanConfig] : vlans_->vlanConfigIteratorConst() ) {
      const String & name = topology_[vlan] = tree.topology( vlan );
      topologyIs( name, tree.pvst ? vlan.value() : 1 );
      auto before = former.find( vlan );
      const bool asBefore = before != former.end() && before->second == name;
      const auto topo = config_->topoConfig( name );
      for ( auto && [port, tagged] : vlanConfig->memberIteratorConst() ) {
         const PortState state = tree.begins( vlan, port );
         auto config = topo->topoPortConfigIs( port, state );
         if ( asBefore && formerTree.begins( vlan, port ) != state ) {
            stateIs( *config, state );
         }
      }
      if ( !asBefore ) {
         config_->vidToTopoMapIs( vlan, name );
      }
   }
   takeAway( former );
}

/** Of what the last configuration made: what this one does not. */
void
TopologyFeature::takeAway( const std::map< VlanId, String > & former ) {
   std::map< String, std::set< IntfId > > ports; // of the topologies that stay
   for ( auto & [vlan, name] : former.empty() ? former : topology_ ) {
      auto & of = ports[name];
      for ( auto && [port, tagged] : vlans_->vlanConfig( vlan )->memberIteratorConst() ) {
         of.insert( port );
      }
   }
   for ( auto & [vlan, name] : former ) {
      if ( !topology_.contains( vlan ) && config_->vidToTopoMap( vlan ) == name ) {
         config_->vidToTopoMapDel( vlan );
      }
      if ( !ports.contains( name ) ) {
         config_->topoConfigDel( name );
         status_->topoStatusDel( name );
      }
   }
   for ( auto & [name, wanted] : ports ) {
      const auto topo = config_->topoConfig( name );
      Qon::reconcile< IntfId >(
            topo->topoPortConfigIteratorConst(), wanted,
            [&]( IntfId port ) { topo->topoPortConfigDel( port ); }, []( IntfId ) {} );
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
   const IntfId port = intfOf( agent_, line );
   const auto state = Kiv::fromText< PortState >( fieldOf< String >( line, "state" ) );
   const String name = fieldOf< String >( line, "topology" );
   return [=, this] { stateIs( *topologyOf( name )->topoPortConfigIs( port, state ), state ); };
}

void
TopologyFeature::stateIs( Topology::TopoPortConfig & config, PortState state ) {
   config.changeInfoIs( Topology::TopoPortChangeInfo( ++changes_, agent_.uptime() ) );
   config.stateIs( state );
}

/** Raises Velto::RangeError if there is none. */
Velto::Ptr< Topology::TopoConfig >
TopologyFeature::topologyOf( const String & name ) const {
   if ( auto topo = config_->topoConfig( name ) ) {
      return topo;
   }
   std::vector< String > names;
   for ( auto && [other, topo] : config_->topoConfigIteratorConst() ) {
      names.push_back( other );
   }
   thereIsNo( "topology", name, names );
}

/** The port of a topology; raises likewise. */
Velto::Ptr< Topology::TopoPortConfig >
TopologyFeature::portOf( const String & name, IntfId port ) const {
   const auto topo = topologyOf( name );
   if ( auto config = topo->topoPortConfig( port ) ) {
      return config;
   }
   std::vector< String > names;
   for ( auto && [other, config] : topo->topoPortConfigIteratorConst() ) {
      names.push_back( agent_.names().spelling( other ) );
   }
   thereIsNo( "port of the topology", agent_.names().spelling( port ), names );
}

TopologyFeature::Parsed
TopologyFeature::parsePortDel( const Json & line ) {
   return [=, this, port = intfOf( agent_, line ), name = fieldOf< String >( line, "topology" )] {
      portOf( name, port );
      topologyOf( name )->topoPortConfigDel( port );
   };
}

TopologyFeature::Parsed
TopologyFeature::parseFlush( const Json & line ) {
   return [=, this, port = intfOf( agent_, line ), name = fieldOf< String >( line, "topology" )] {
      const auto config = portOf( name, port );
      config->fdbFlushIs( config->fdbFlush() + 1 );
   };
}

TopologyFeature::Parsed
TopologyFeature::parseTopology( const Json & line ) {
   return [=, this, name = fieldOf< String >( line, "topology" ),
           id = fieldOf< U32 >( line, "id" )] {
      if ( id ) {
         topologyIs( name, id );
      } else {
         topologyOf( name );
         config_->topoConfigDel( name );
         status_->topoStatusDel( name );
      }
   };
}

TopologyFeature::Parsed
TopologyFeature::parseVlan( const Json & line ) {
   return [=, this, vlan = vlanField( line ), name = fieldOf< String >( line, "topology" )] {
      if ( name.empty() && !config_->vidToTopoMapHas( vlan ) ) {
         throw Velto::RangeError( "VLAN " + vlan.stringValue() + " is in no topology" );
      }
      name.empty() ? config_->vidToTopoMapDel( vlan ) : config_->vidToTopoMapIs( vlan, name );
   };
}

TopologyFeature::Parsed
TopologyFeature::parseMode( const Json & line ) {
   const auto mode = Kiv::fromText< Qon::HwOperationalMode >( fieldOf< String >( line, "mode" ) );
   return [=, this] { agent_.acsd()->operationalModeIs( mode ); };
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
         all.insert( agent_.names().typed( text ) );
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
                  &F::parseTapAgg ) };
}

// --- What there is -------------------------------------------------------------------------------

/** A row a port; one without for a topology that has none. */
Rows
TopologyFeature::topologies( Arguments arguments ) const {
   if ( !stpSm_ ) {
      notServed( agent_, "topologies" );
   }
   for ( auto i = config_->topoConfigIteratorConst(); i; ++i ) {
      const Velto::Ptr< const Topology::TopoConfig > topo = i.ptr();
      const String name = i.key();
      if ( arguments.has( 0 ) && arguments.text( 0 ) != name ) {
         co_yield Pause();
         continue;
      }
      const Row whole = topologyRow( name, *topo );
      if ( topo->topoPortConfigs() == 0 ) {
         co_yield whole;
      }
      for ( auto port = topo->topoPortConfigIteratorConst(); port; ++port ) {
         co_yield portRow( whole, name, port.key(), *port.ptr() );
      }
   }
}

/** What is true of a topology as a whole. */
Row
TopologyFeature::topologyRow( const String & name, const Topology::TopoConfig & topo ) const {
   Value::List vlans;
   if ( auto mapped = stpSm_->topoToVlanMap( name ) ) {
      std::set< U16 > numbers;
      for ( auto && [vlan, present] : mapped->vlanIteratorConst() ) {
         numbers.insert( vlan.value() );
      }
      vlans = ranges( numbers );
   }
   Row row = { { "topology", name },
               { "id", topo.topoId() },
               { "active", yesNo( stpSm_->topoSm( name ) ) },
               { "vlans", vlans } };
   const auto status = status_->topoStatus( name );
   if ( const auto since = stpSm_->noRoomSince( name ) ) {
      row.set( "reason", "no room in the chip" );
      row.set( "since", Kiv::now() - *since );
   } else if ( !status || status->topoId() != topo.topoId() ) {
      row.set( "reason", "its status has another id" );
   }
   return row;
}

Row
TopologyFeature::portRow( const Row & whole, const String & name, IntfId intf,
                          const Topology::TopoPortConfig & config ) const {
   Row row = whole;
   row.set( "interface", agent_.names().spelling( intf ) );
   row.set( "wanted", Kiv::toText( config.state() ) );
   const auto topoSm = stpSm_->topoSm( name );
   if ( auto port = topoSm ? topoSm->topoPortSm( intf ) : nullptr ) {
      row.set( "acknowledged", Kiv::toText( port->status()->state() ) );
      const bool waits = topoSm->pendingHas( intf );
      row.set( "waiting", yesNo( waits ) );
      row.set( "flushes", port->status()->fdbFlushReport() );
      if ( waits ) {
         row.set( "reason", "the chip is not done" );
      }
   }
   return row;
}

Rows
TopologyFeature::hardware() const {
   const auto chip = part_ ? part_->readTopologies() : nullptr;
   if ( !chip ) {
      notServed( agent_, "the reading of topology tables" );
   }
   String name;
   for ( QonChip::HeldTopology held; chip->next( name, held ); co_yield Pause() ) {
      for ( auto & [intf, state] : held.ports ) {
         const Row made = { { "topology", name },
                            { "interface", agent_.names().spelling( intf ) },
                            { "state", Kiv::toText( state ) } };
         co_yield made;
      }
   }
}

std::vector< Counter >
TopologyFeature::counters() const {
   U64 without = 0;
   for ( auto i = config_->topoConfigIteratorConst(); stpSm_ && i; ++i ) {
      without += stpSm_->noRoomSince( i.key() ).has_value();
   }
   return { { "topologies", config_->topoConfigs() }, { "topologies without room", without } };
}

std::vector< ShowCommand >
TopologyFeature::showCommands() {
   const Column topology = { "topology", "Topology" }, intf = { "interface", "Interface" };
   const Argument only = {
         Argument::Kind::text, "TOPOLOGY", "topology", false,
         [this]( const ArgumentValue & value ) { return config_->topoConfigHas( value.text ); } };
   return { { "topology",
              "spanning-tree topologies: the states that are wanted and acknowledged",
              { only },
              { topology,
                { "id", "Id", true },
                { "active", "Active" },
                intf,
                { "wanted", "Wanted" },
                { "acknowledged", "Acknowledged" },
                { "waiting", "Waiting" },
                { "reason", "Reason" },
                { "since", "Since s", true },
                { "vlans", "VLANs" } },
              [this]( auto & arguments ) { return topologies( arguments ); } },
            { "hw topology",
              "the topology tables of the chip",
              {},
              { topology, intf, { "state", "State" } },
              [this]( auto & ) { return hardware(); } } };
}

FeatureKind
topologyFeature() {
   return feature< TopologyFeature >( "topology" );
}

} // namespace QonAgent
