#include "agent/features/TapAggFeature.h"

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
   reader.eachRow( "TAP_AGG", [&]( const ConfigRow & row ) { global( reader, row ); } );
   reader.eachRow( "TAP_PORT", [&]( const ConfigRow & row ) { tapPort( reader, row ); } );
   reader.eachRow( "TOOL_PORT", [&]( const ConfigRow & row ) { toolPort( reader, row ); } );
   reader.eachRow( "TAP_POLICY_MAP", [&]( const ConfigRow & row ) { policyMap( reader, row ); } );
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

std::vector< Ulnet::IpGenAddr >
endpointsIn( const ConfigRow & row, const char * field ) {
   std::vector< Ulnet::IpGenAddr > endpoints;
   for ( const String & text : row.list( field ) ) {
      try {
         endpoints.emplace_back( text );
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
   if ( on && hwConfig_->tapAggTopoId() == 0 ) {
      hwConfig_->tapAggTopoNameIs( "TapAgg" );
      hwConfig_->tapAggTopoIdIs( 4095 );
   }
   agent_.acsd()->operationalModeIs( on ? Qon::HwOperationalMode::tapAgg
                                        : Qon::HwOperationalMode::switching );
}

void
TapAggFeature::global( ConfigReader & reader, const ConfigRow & row ) {
   if ( row.key() != "GLOBAL" ) {
      throw RowError( "", "expected the key GLOBAL" );
   }
   const bool on = row.flag( "mode", false ), logged = row.flag( "log_resource_full", true ),
              matchIp = row.flag( "mac_acl_match_ip", false );
   const String profile = row.text( "tcam_profile" );
   reader.apply( [=, this] {
      config_->tcamProfileIs( profile );
      config_->trafficSteeringMacAclMatchIpIs( matchIp );
      status_->logHwResourceFullIs( logged );
      modeIs( on );
   } );
}

void
TapAggFeature::tapPort( ConfigReader & reader, const ConfigRow & row ) {
   const IntfId intf = reader.portOrChannel( "", row.part( 0, 1 ) );
   const TapGroups groups = groupsIn( row );
   const U32 size = U32( row.number( "truncate_size", 0, mostBytes, 0 ) ),
             remove = U32( row.number( "header_remove", 0, mostBytes, 0 ) );
   const Bridging::IdentityTuple identity( U16( row.number( "identity", 0, 4094, 0 ) ),
                                           U16( row.number( "inner_identity", 0, 4094, 0 ) ) );
   const auto mac = macIn( row, "mac_address" );
   const bool gre = row.flag( "gre_strip", false ), vxlan = row.flag( "vxlan_strip", false ),
              mpls = row.flag( "mpls_pop", false ), raw = row.flag( "raw", false );
   const auto endpoints = endpointsIn( row, "gre_strip_endpoints" );
   const String policy = row.text( "policy_map" );
   reader.apply( [=, this] {
      auto tap = config_->tapPortIs( intf );
      tap->truncationSizeIs( size );
      tap->identityIs( identity );
      tap->macAddressIs( mac );
      tap->headerRemoveIs( remove );
      tap->greStripIs( gre );
      for ( auto & endpoint : endpoints ) {
         tap->greStripForEpIs( endpoint, true );
      }
      tap->vxlanStripIs( vxlan );
      tap->mplsPopIs( mpls );
      tap->groupsIs( groups );
      raw ? config_->tapRawIntfIs( intf ) : config_->tapRawIntfDel( intf );
      if ( !policy.empty() ) {
         policyMaps_->servicePolicyIs( intf )->policyMapIs( policy );
      }
      hwConfig_->tapIntfIs( intf );
   } );
}

void
TapAggFeature::toolPort( ConfigReader & reader, const ConfigRow & row ) {
   const IntfId intf = reader.portOrChannel( "", row.part( 0, 1 ) );
   const TapGroups groups = groupsIn( row );
   const U32 size = U32( row.number( "truncate_size", 0, mostBytes, 0 ) );
   const auto tagging =
         ToolIdentityMode( row.word( "identity_tagging", { "none", "dot1q", "qinq" }, 0 ) );
   const U8 tags = U8( row.number( "dot1q_remove", 0, 2, 0 ) );
   const bool br = row.flag( "br_strip", false ), vn = row.flag( "vn_strip", false ),
              mpls = row.flag( "mpls_pop", false );
   reader.apply( [=, this] {
      auto tool = config_->toolPortIs( intf );
      tool->truncationSizeIs( size );
      tool->identityTaggingIs( tagging );
      tool->dot1qRemoveIs( tags );
      tool->brStripIs( br );
      tool->vnStripIs( vn );
      tool->mplsPopIs( mpls );
      for ( const String & name : groups ) {
         tool->groupIs( name );
      }
      hwConfig_->toolIntfIs( intf );
   } );
}

/** "MAP|CLASS"; the ids of its groups are published for whoever programs the map. */
void
TapAggFeature::policyMap( ConfigReader & reader, const ConfigRow & row ) {
   const String map = row.part( 0, 2 ), className = row.part( 1, 2 );
   const TapGroups groups = groupsIn( row );
   if ( groups.empty() ) {
      throw RowError( "groups", "a class needs a group for its frames" );
   }
   reader.apply( [=, this] {
      policyMaps_->policyMapIs( map )->classMapIs( className )->groupsIs( groups );
      pmapGroups_->groupIs( groups.stringValue() );
   } );
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
   return [=, this, groups = groupsField( line )] {
      auto tool = config_->toolPortIs( intf );
      Qon::reconcile< String >(
            tool->groupIteratorConst(), groups, [&]( const String & g ) { tool->groupDel( g ); },
            [&]( const String & g ) { tool->groupIs( g ); } );
      hwConfig_->toolIntfIs( intf );
   };
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

FeatureKind
tapAggFeature() {
   return feature< TapAggFeature >( "tap-agg" );
}

} // namespace QonAgent
