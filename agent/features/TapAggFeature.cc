#include "agent/features/TapAggFeature.h"

#include "Qon/include/framework/Reconcile.h"
#include "agent/ConfigReader.h"
#include "agent/features/Arguments.h"
#include "agent/features/TapAggJournal.h"
#include "platform/types/Paths.h"

namespace QonAgent {

using Bridging::Input::TapGroups;
using Bridging::Input::ToolIdentityMode;
using Ulnet::IntfId;

TapAggFeature::TapAggFeature( Agent & agent )
    : agent_( agent ), part_( agent.chip().part< QonChip::TapAggPart >() ),
      config_( agent.entities().mount< Bridging::Input::TapAggConfig >( Paths::tapAggConfig ) ),
      status_( agent.entities().mount< TapAgg::Status >( Paths::tapAggStatus ) ),
      toolPorts_( agent.entities().mount< TapAgg::ToolPortStatus >( Paths::toolPortStatus ) ),
      pmapGroups_( agent.entities().mount< TapAgg::PmapGroupConfig >( Paths::pmapGroupConfig ) ),
      pmapStatus_( agent.entities().mount< TapAgg::PmapGroupStatus >( Paths::pmapGroupStatus ) ),
      policyMaps_(
            agent.entities().mount< TapAgg::PolicyMapConfig >( Paths::tapAggPolicyMapConfig ) ),
      hwConfig_( agent.entities().mount< TapAgg::HwConfig >( Paths::tapAggHwConfig ) ),
      requests_(
            agent.entities().mount< Bridging::HostFlush::RequestDir >( Paths::hostFlushRequest ) ),
      replies_( agent.entities().mount< Bridging::HostFlush::ReplyDir >( Paths::hostFlushReply ) ) {
   if ( !part_ ) {
      return;
   }
   sm_ = Qon::smIs< Journal >(
         Qon::TapAggSm::Inputs{ agent.acsd(), config_, part_->makeTapAggHelper(), status_,
                                toolPorts_, pmapGroups_, pmapStatus_, policyMaps_, requests_,
                                replies_, agent.acsd()->verifyData(), agent.timerWheel() } );
   sm_->initializedIs( true );
}

TapAggFeature::~TapAggFeature() = default;

Qon::TapAggSm *
TapAggFeature::tapAggSm() const {
   return sm_.ptr();
}

// --- Configuration -------------------------------------------------------------------------------

std::vector< ConfigTable >
TapAggFeature::tables() const {
   const String yes = "true or false; false", bytes = "bytes, 0 to 65535; 0: ";
   return { { "TAP_AGG",
              "GLOBAL",
              { { "mode", "on or off, of tap-aggregation mode; off" },
                { "tcam_profile", "a name" },
                { "mac_acl_match_ip", yes },
                { "log_resource_full", "true or false; true" } },
              { R"("GLOBAL": {"mode": "on"})" } },
            { "TAP_PORT",
              "port or port-channel",
              { { "groups", "names without ',', a list" },
                { "truncate_size", bytes + "whole frames" },
                { "identity", "a VLAN tag that is added, 0 to 4094; 0: none" },
                { "inner_identity", "the one behind it, 0 to 4094; 0: none" },
                { "mac_address", "the destination that frames get; none: they keep theirs" },
                { "header_remove", bytes + "none are taken off the front" },
                { "gre_strip", yes },
                { "gre_strip_endpoints", "addresses whose tunnels are stripped, a list" },
                { "vxlan_strip", yes },
                { "mpls_pop", yes },
                { "raw", "true or false, frames pass as they are; false" },
                { "policy_map", "a map of TAP_POLICY_MAP" } },
              { R"("Ethernet8": {"groups": "web,mail", "truncate_size": "128"})" } },
            { "TOOL_PORT",
              "port or port-channel",
              { { "groups", "names without ',', a list" },
                { "truncate_size", bytes + "whole frames" },
                { "identity_tagging", "none, dot1q or qinq; none" },
                { "dot1q_remove", "VLAN tags that are taken off, 0 to 2; 0" },
                { "br_strip", yes },
                { "vn_strip", yes },
                { "mpls_pop", yes } },
              { R"("Ethernet12": {"groups": "web", "identity_tagging": "dot1q"})" } },
            { "TAP_POLICY_MAP",
              "map|class",
              { { "groups", "names without ',', a list" } },
              { R"("map1|voice": {"groups": "voice"})" } } };
}

void
TapAggFeature::configure( ConfigReader & reader ) {
   auto global = std::make_shared< Global >();
   auto taps = std::make_shared< Configured< IntfId, Tap >::Said >();
   auto tools = std::make_shared< Configured< IntfId, Tool >::Said >();
   auto classes = std::make_shared< Configured< ClassName, TapGroups >::Said >();
   reader.eachRow( "TAP_AGG", [&]( const ConfigRow & row ) { *global = globalOf( row ); } );
   reader.eachRow( "TAP_PORT", [&]( const ConfigRow & row ) {
      taps->emplace_back( reader.portOrChannel( "", row.part( 0, 1 ) ), tapOf( row ) );
   } );
   reader.eachRow( "TOOL_PORT", [&]( const ConfigRow & row ) {
      tools->emplace_back( reader.portOrChannel( "", row.part( 0, 1 ) ), toolOf( row ) );
   } );
   reader.eachRow( "TAP_POLICY_MAP", [&]( const ConfigRow & row ) {
      classes->emplace_back( ClassName( row.part( 0, 2 ), row.part( 1, 2 ) ), classOf( row ) );
   } );
   reader.apply( [=, this] {
      Velto::FirstError error;
      error.run( [&] {
         tools_.become(
               *tools, [this]( IntfId intf, auto & ) { toolDel( intf ); },
               [this]( IntfId intf, const Tool & is, auto ) { toolIs( intf, is ); } );
      } );
      error.run( [&] {
         taps_.become(
               *taps, [this]( IntfId intf, const Tap & was ) { tapDel( intf, was ); },
               [this]( IntfId intf, const Tap & is, auto was ) { tapIs( intf, is, was ); } );
      } );
      error.run( [&] {
         classes_.become(
               *classes, [this]( auto & name, auto & was ) { classDel( name, was ); },
               [this]( auto & name, auto & is, auto was ) { classIs( name, is, was ); } );
      } );
      const Global was = std::exchange( global_, *global );
      error.run( [&] { globalIs( *global, was ); } );
      error.pass();
   } );
}

namespace {

constexpr U64 mostBytes = 65535;

/** Names of groups; several groups of a port are one of the hardware, named by all of them. */
void
checkGroup( const String & field, const String & name ) {
   if ( name.empty() || name.find( ',' ) != String::npos ) {
      throw RowError( field, "'" + name + "' is no name of a group: without ',', and not empty" );
   }
}

TapGroups
groupsIn( const ConfigRow & row ) {
   TapGroups groups;
   for ( const String & name : row.list( "groups" ) ) {
      checkGroup( "groups", name );
      groups.nameIs( name );
   }
   return groups;
}

std::set< Ulnet::IpGenAddr >
endpointsIn( const ConfigRow & row, const char * field ) {
   std::set< Ulnet::IpGenAddr > endpoints;
   for ( const String & text : row.list( field ) ) {
      try {
         endpoints.emplace( text );
      } catch ( const Velto::RangeError & ) {
         throw RowError( field, "'" + text + "' is not an IP address" );
      }
   }
   return endpoints;
}

Ulnet::EthAddr
macIn( const ConfigRow & row, const char * field ) {
   const String text = row.text( field );
   try {
      return text.empty() ? Ulnet::EthAddr() : Ulnet::EthAddr( text );
   } catch ( const Velto::RangeError & ) {
      throw RowError( field, "'" + text + "' is not a MAC address" );
   }
}

} // namespace

void
TapAggFeature::modeIs( bool on ) {
   agent_.acsd()->operationalModeIs( on ? Qon::HwOperationalMode::tapAgg
                                        : Qon::HwOperationalMode::switching );
}

TapAggFeature::Global
TapAggFeature::globalOf( const ConfigRow & row ) {
   if ( row.key() != "GLOBAL" ) {
      throw RowError( "", "expected the key GLOBAL" );
   }
   Global is;
   is.on = row.flag( "mode", false );
   is.logged = row.flag( "log_resource_full", true );
   is.matchIp = row.flag( "mac_acl_match_ip", false );
   is.profile = row.text( "tcam_profile" );
   return is;
}

/** A mode that an event brought stays until the file says another one than before. */
void
TapAggFeature::globalIs( const Global & is, const Global & was ) {
   if ( is == was ) {
      return;
   }
   config_->tcamProfileIs( is.profile );
   config_->trafficSteeringMacAclMatchIpIs( is.matchIp );
   status_->logHwResourceFullIs( is.logged );
   if ( is.on != was.on ) {
      modeIs( is.on );
   }
}

TapAggFeature::Tap
TapAggFeature::tapOf( const ConfigRow & row ) {
   Tap is;
   is.groups = groupsIn( row );
   is.truncationSize = U32( row.number( "truncate_size", 0, mostBytes, 0 ) );
   is.headerRemove = U32( row.number( "header_remove", 0, mostBytes, 0 ) );
   is.identity.outerIs( U16( row.number( "identity", 0, 4094, 0 ) ) );
   is.identity.innerIs( U16( row.number( "inner_identity", 0, 4094, 0 ) ) );
   is.macAddress = macIn( row, "mac_address" );
   is.greStrip = row.flag( "gre_strip", false );
   is.vxlanStrip = row.flag( "vxlan_strip", false );
   is.mplsPop = row.flag( "mpls_pop", false );
   is.raw = row.flag( "raw", false );
   is.endpoints = endpointsIn( row, "gre_strip_endpoints" );
   is.policyMap = row.text( "policy_map" );
   return is;
}

void
TapAggFeature::tapIs( IntfId intf, const Tap & is, const Tap * was ) {
   auto tap = config_->tapPortIs( intf );
   tap->truncationSizeIs( is.truncationSize );
   tap->identityIs( is.identity );
   tap->macAddressIs( is.macAddress );
   tap->headerRemoveIs( is.headerRemove );
   tap->greStripIs( is.greStrip );
   Qon::reconcile< Ulnet::IpGenAddr >(
         tap->greStripForEpIteratorConst(), is.endpoints,
         [&]( const Ulnet::IpGenAddr & end ) { tap->greStripForEpDel( end ); },
         [&]( const Ulnet::IpGenAddr & end ) { tap->greStripForEpIs( end, true ); } );
   tap->vxlanStripIs( is.vxlanStrip );
   tap->mplsPopIs( is.mplsPop );
   tap->groupsIs( is.groups );
   is.raw ? config_->tapRawIntfIs( intf ) : config_->tapRawIntfDel( intf );
   if ( !is.policyMap.empty() ) {
      policyMaps_->servicePolicyIs( intf )->policyMapIs( is.policyMap );
   } else if ( was && !was->policyMap.empty() ) {
      policyMaps_->servicePolicyDel( intf );
   }
   hwConfig_->tapIntfIs( intf );
}

void
TapAggFeature::tapDel( IntfId intf, const Tap & was ) {
   config_->tapPortDel( intf );
   config_->tapRawIntfDel( intf );
   if ( !was.policyMap.empty() ) {
      policyMaps_->servicePolicyDel( intf );
   }
   hwConfig_->tapIntfDel( intf );
}

TapAggFeature::Tool
TapAggFeature::toolOf( const ConfigRow & row ) {
   Tool is;
   is.groups = groupsIn( row );
   is.truncationSize = U32( row.number( "truncate_size", 0, mostBytes, 0 ) );
   is.identityTagging =
         ToolIdentityMode( row.word( "identity_tagging", { "none", "dot1q", "qinq" }, 0 ) );
   is.dot1qRemove = U8( row.number( "dot1q_remove", 0, 2, 0 ) );
   is.brStrip = row.flag( "br_strip", false );
   is.vnStrip = row.flag( "vn_strip", false );
   is.mplsPop = row.flag( "mpls_pop", false );
   return is;
}

void
TapAggFeature::toolIs( IntfId intf, const Tool & is ) {
   auto tool = config_->toolPortIs( intf );
   tool->truncationSizeIs( is.truncationSize );
   tool->identityTaggingIs( is.identityTagging );
   tool->dot1qRemoveIs( is.dot1qRemove );
   tool->brStripIs( is.brStrip );
   tool->vnStripIs( is.vnStrip );
   tool->mplsPopIs( is.mplsPop );
   toolGroupsAre( intf, is.groups );
}

void
TapAggFeature::toolDel( IntfId intf ) {
   config_->toolPortDel( intf );
   hwConfig_->toolIntfDel( intf );
}

/** New ones first. */
void
TapAggFeature::toolGroupsAre( IntfId intf, const TapGroups & groups ) {
   auto tool = config_->toolPortIs( intf );
   for ( const String & group : groups ) {
      tool->groupIs( group );
   }
   Qon::reconcile< String >(
         tool->groupIteratorConst(), groups, [&]( const String & g ) { tool->groupDel( g ); },
         []( const String & ) {} );
   hwConfig_->toolIntfIs( intf );
}

TapAggFeature::TapGroups
TapAggFeature::classOf( const ConfigRow & row ) {
   const TapGroups groups = groupsIn( row );
   if ( groups.empty() ) {
      throw RowError( "groups", "a class needs a group for its frames" );
   }
   return groups;
}

/** The ids of its groups are published for whoever programs the map. */
void
TapAggFeature::classIs( const ClassName & name, const TapGroups & is, const TapGroups * was ) {
   policyMaps_->policyMapIs( name.first )->classMapIs( name.second )->groupsIs( is );
   pmapGroups_->groupIs( is.stringValue() );
   if ( was ) {
      leaveGroups( *was );
   }
}

void
TapAggFeature::classDel( const ClassName & name, const TapGroups & was ) {
   if ( const Velto::Ptr< TapAgg::PolicyMap > map = policyMaps_->policyMap( name.first ) ) {
      map->classMapDel( name.second );
      if ( map->classMaps() == 0 ) {
         policyMaps_->policyMapDel( name.first );
      }
   }
   leaveGroups( was );
}

/** Unless another class has them. */
void
TapAggFeature::leaveGroups( const TapGroups & groups ) {
   for ( auto & [name, held] : classes_.held() ) {
      if ( held == groups ) {
         return;
      }
   }
   pmapGroups_->groupDel( groups.stringValue() );
}

// --- Events --------------------------------------------------------------------------------------

namespace {

TapGroups
groupsField( const Json & line ) {
   TapGroups groups;
   for ( const String & name : fieldOf< std::vector< String > >( line, "groups" ) ) {
      checkGroup( "groups", name );
      groups.nameIs( name );
   }
   return groups;
}

} // namespace

TapAggFeature::Parsed
TapAggFeature::parseTapGroups( const Json & line ) {
   const IntfId intf = agent_.names().typed( fieldOf< String >( line, "port" ) );
   return [=, this, groups = groupsField( line )] {
      config_->tapPortIs( intf )->groupsIs( groups );
      hwConfig_->tapIntfIs( intf );
   };
}

TapAggFeature::Parsed
TapAggFeature::parseToolGroups( const Json & line ) {
   const IntfId intf = agent_.names().typed( fieldOf< String >( line, "port" ) );
   return [=, this, groups = groupsField( line )] { toolGroupsAre( intf, groups ); };
}

TapAggFeature::Parsed
TapAggFeature::parseToolPort( const Json & line ) {
   const IntfId intf = agent_.names().typed( fieldOf< String >( line, "port" ) );
   return [=, this, active = fieldOf< bool >( line, "active" )] {
      toolPorts_->activeIs( intf, active );
   };
}

/** All requests of the interface are answered; so nobody waits for it. */
TapAggFeature::Parsed
TapAggFeature::parseFlushed( const Json & line ) {
   Bridging::HostFlush::FlushKey key;
   key.intfIs( agent_.names().typed( fieldOf< String >( line, "port" ) ) );
   return [=, this] {
      if ( !requests_->requestHas( key ) ) {
         throw Velto::RangeError( "no flush of '" + agent_.names().spelling( key.intf() ) +
                                  "' is asked for" );
      }
      replies_->replyIs( key );
      replies_->replyDel( key );
   };
}

std::vector< EventKind >
TapAggFeature::eventKinds() {
   auto kind = [this]( const char * name, const char * fields,
                       Parsed ( TapAggFeature::*parse )( const Json & ) ) {
      return EventKind{ name, R"({"time": 1, "event": ")" + String( name ) + "\", " + fields + "}",
                        [=, this]( const Json & line ) { return ( this->*parse )( line ); } };
   };
   using F = TapAggFeature;
   return { kind( "tapGroups", R"("port": "Ethernet0", "groups": ["a", "b"])", &F::parseTapGroups ),
            kind( "toolGroups", R"("port": "Ethernet4", "groups": ["a"])", &F::parseToolGroups ),
            kind( "toolPort", R"("port": "Ethernet4", "active": false)", &F::parseToolPort ),
            kind( "hostFlushed", R"("port": "PortChannel1")", &F::parseFlushed ) };
}

std::vector< Counter >
TapAggFeature::counters() const {
   if ( !sm_ ) {
      return {};
   }
   return { { "groups", sm_->allocatedGroupInfos() },
            { "groups that wait", sm_->pendingAggGroups() },
            { "retries", sm_->retries() } };
}

FeatureKind
tapAggFeature() {
   return feature< TapAggFeature >( "tap-agg" );
}

} // namespace QonAgent
