// The catalogue: what each message is, and that each can be raised.

#include <gtest/gtest.h>

#include <cstring>
#include <set>

#include "Qon/include/framework/QonLog.h"
#include "platform/Kiv/LogRecorder.h"

namespace {

using Qon::qonLogDescriptor;

/** A message as its raisers and operators know it. */
struct Entry {
   const char * name;
   U32 severity;
   const char * conversions;
   U32 standardAction; ///< 0 where the action is a text
   const char * module;
   Kiv::Seconds interval = 0;
};

constexpr const char * aclSm = "QonAclSm";
constexpr const char * mapSm = "QonVlanMappingSm";
constexpr const char * mcastSm = "QonMulticastSm";
constexpr const char * mirrorSm = "QonMirroringSm";
constexpr const char * verifySm = "QonVerifySm";
constexpr const char * vlanHelper = "QonVlanHelper";

const Entry entries[] = {
      { "INTF_MAX_MTU_EXCEEDED", 4, "dds", 0, vlanHelper },
      { "LINEPROTO_UPDOWN", 5, "ss", 0, vlanHelper },
      { "HARDWARE_EXCESSIVE_MULTIPLE_BIT_ERRORS", 3, "s", 3, verifySm },
      { "HARDWARE_VERIFY_AGENT_RETRY_NEEDED", 6, "s", 1, verifySm },
      { "HARDWARE_VERIFY_AGENT_FAILED", 3, "s", 1, verifySm },
      { "HARDWARE_PARITY_ERROR_CORRECTED_WITH_RESET", 4, "sss", 1, verifySm },
      { "HARDWARE_PERR_CORRECTED", 6, "s", 1, verifySm },
      { "HARDWARE_PERR_CORRECTABLE", 6, "s", 1, verifySm },
      { "HARDWARE_PERR_FATAL", 4, "s", 1, verifySm },
      { "HARDWARE_DISRUPTIVE_RESTART", 3, "sss", 1, verifySm },
      { "ETH_VLAN_MAPPING_CONFLICT", 4, "ddssss", 0, mapSm },
      { "ETH_VLAN_ENCAP_TABLE_FULL", 4, "ssd", 0, mapSm },
      { "ETH_VLAN_MAPPING_TABLE_FULL", 4, "ddss", 0, mapSm },
      { "ETH_VLAN_MAPPING_PROGRAMMED", 4, "ddsss", 0, mapSm },
      { "DATAPLANE_L2_PROTOCOL_FORWARDING_HW_RESOURCE_FULL", 3, "ss", 0,
        "QonL2ProtocolForwardingSm" },
      { "ETH_MACADDRBANKFULL", 4, "ssd", 0, "QonChipProgrammer", 60 },
      { "DATAPLANE_MACTABLEENTRYCLEAR", 4, "sd", 0, mcastSm },
      { "DATAPLANE_NOMACTABLEENTRIES", 4, "sd", 0, mcastSm, 60 },
      { "DATAPLANE_MULTICASTGROUPCLEAR", 4, "sd", 0, mcastSm },
      { "DATAPLANE_NOMULTICASTGROUPS", 4, "sdd", 0, mcastSm },
      { "ACL_COMPUTATION_SUCCESS", 6, "s", 1, aclSm },
      { "ACL_COMPUTATION_FAILED", 3, "s", 0, aclSm },
      { "ACL_HW_RESOURCE_NORMAL", 3, "s", 1, aclSm },
      { "ACL_HW_RESOURCE_FULL", 3, "s", 0, aclSm },
      { "ACL_EGRESS_LOGGING_NOT_SUPPORTED", 4, "", 1, aclSm },
      { "ACL_SUBINTF_UNSHARED_NOT_SUPPORTED", 6, "s", 1, aclSm, 15 },
      { "ACL_UNSUPPORTED_HARDWARE", 3, "ss", 0, aclSm },
      { "DATAPLANE_MIRROR_INVALID_SESSION_IN_CUT_THROUGH", 4, "ss", 0, mirrorSm },
      { "MIRRORING_ACL_HW_RESOURCE_FULL", 3, "", 0, mirrorSm },
      { "DATAPLANE_MIRROR_SESSION_RESOURCES_FULL", 3, "s", 0, mirrorSm },
      { "DATAPLANE_MIRROR_SOURCE_RESOURCES_NORMAL", 4, "", 0, mirrorSm },
      { "DATAPLANE_MIRROR_INTERNAL_SESSION_RESOURCES_UNAVAILABLE", 4, "ss", 0, mirrorSm },
      { "DATAPLANE_MIRROR_SOURCE_RESOURCES_FULL", 4, "ssdd", 0, mirrorSm },
      { "ETH_STORMCONTROL_DISCARDS", 6, "sLLLL", 1, "QonStormControlDropLogSm" },
      { "TAPAGG_HW_RESOURCE_FULL", 3, "", 0, "QonTapaggSm" },
      { "OMBRA_MOUNT_TIMEOUT", 3, "sss", 3, "QonOmbraMountSm" },
      { "SUBINTERFACE_HW_RESOURCE_FULL", 3, "s", 0, "QonSubIntfSm" },
      { "STEERLINE_MAC_VLAN_DUPLICATE_ENDPOINT", 4, "sd", 0, "QonSteerlineSm" },
};

TEST( Catalogue, SectionHoldsTheEntriesInOrderAndNothingElse ) {
   auto section = Qon::qonLogSection();
   ASSERT_EQ( section.size(), std::size( entries ) );
   for ( std::size_t i = 0; i < section.size(); ++i ) {
      const Kiv::LogDescriptor & held = section[i];
      const Entry & entry = entries[i];
      SCOPED_TRACE( entry.name );
      EXPECT_STREQ( held.name, entry.name );
      EXPECT_EQ( held.severity, entry.severity );
      EXPECT_EQ( held.zero, 0u );
      EXPECT_GT( strlen( held.explanation ), 20u );
      Velto::String action = held.recommendedAction;
      if ( entry.standardAction ) {
         EXPECT_EQ( action, Velto::String( 1, char( entry.standardAction ) ) );
         EXPECT_GT( Kiv::logRecommendedAction( held ).size(), 10u );
      } else {
         EXPECT_GT( action.size(), 10u );
         EXPECT_EQ( Kiv::logRecommendedAction( held ), action );
      }
      EXPECT_EQ( qonLogDescriptor( entry.name ), &Qon::qonLogCatalogue[i] );
   }
   EXPECT_EQ( qonLogDescriptor( "ACL_HW_RESOURCE" ), nullptr );
}

/** `format` with `args` in the place of its conversions, whose letters must be `conversions`. */
Velto::String
expanded( Velto::String format, const char * conversions,
          const std::vector< Velto::String > & args ) {
   std::size_t at = 0;
   for ( std::size_t i = 0; i < args.size(); ++i ) {
      at = format.find( Velto::String( "%" ) + conversions[i], at );
      if ( at == Velto::String::npos ) {
         return "no such conversion";
      }
      format.replace( at, 2, args[i] );
      at += args[i].size();
   }
   return format;
}

TEST( Catalogue, EveryMessageIsRaisedByNameFromItsModule ) {
   Kiv::LogRecorder log;
   for ( const Entry & entry : entries ) {
      SCOPED_TRACE( entry.name );
      std::vector< Velto::String > args;
      for ( const char * c = entry.conversions; *c; ++c ) {
         Velto::String number = std::to_string( args.size() + 1 );
         args.push_back( *c == 's' ? "arg" + number : *c == 'd' ? number : number + "0000000000" );
      }
      log.clear();
      EXPECT_TRUE( Kiv::logByName( entry.name, args, entry.module ) );
      ASSERT_EQ( log.records().size(), 1u );
      EXPECT_EQ( log.records()[0].severity, entry.severity );
      EXPECT_EQ( log.records()[0].text,
                 expanded( qonLogDescriptor( entry.name )->format, entry.conversions, args ) );
      EXPECT_EQ( log.records()[0].text.find( '%' ), Velto::String::npos );
      EXPECT_EQ( Kiv::logHandle( entry.name, entry.module )->interval(), entry.interval );
   }
}

TEST( Catalogue, TextsThatAreEasilyMended ) {
   using namespace Qon::QonLog;
   EXPECT_STREQ( DATAPLANE_MIRROR_INVALID_SESSION_IN_CUT_THROUGH.format,
                 "Attempt to add mirror source %s in mirror session %s has failed. " );
   EXPECT_STREQ( DATAPLANE_MIRROR_SESSION_RESOURCES_FULL.format,
                 "Mirroring hardware resources are insufficient to program the mirror session "
                 "%s. " );
   EXPECT_STREQ( ACL_UNSUPPORTED_HARDWARE.format, "ACL ( %s ) cannot be applied on %s." );
   EXPECT_STREQ( DATAPLANE_NOMULTICASTGROUPS.format,
                 "Insufficient hardware resources for multicast group %s in VLAN %d, exceeding the "
                 "limit of %d ( group address, VLAN ) pairs." );
   EXPECT_STREQ( DATAPLANE_MACTABLEENTRYCLEAR.recommendedAction,
                 "Okay to use this IP multicast group" );
   EXPECT_STREQ( DATAPLANE_MULTICASTGROUPCLEAR.recommendedAction,
                 "Okay to use this IP multicast group." );
   EXPECT_STREQ( DATAPLANE_MIRROR_INTERNAL_SESSION_RESOURCES_UNAVAILABLE.recommendedAction,
                 "To solve this issue, unprogram a mirror sessoion from all the modules that have "
                 "all the mirror resources being used." );
   EXPECT_STREQ( ETH_VLAN_MAPPING_CONFLICT.recommendedAction,
                 "To solve this conflict, please remove the configuration from one of the sources "
                 "and try again. " );
   EXPECT_STREQ( STEERLINE_MAC_VLAN_DUPLICATE_ENDPOINT.recommendedAction,
                 "To solve this conflict, please remove the configuration from all the conflicting "
                 "Steerline endpoints and try again. " );
   EXPECT_STREQ( ETH_VLAN_ENCAP_TABLE_FULL.explanation,
                 "The encapsulation could not be programmed due to insufficient hardware "
                 "resources. Packets on the specified interface will no longer be encapsulated. " );
   EXPECT_STREQ( ETH_VLAN_MAPPING_TABLE_FULL.explanation,
                 "The specified VLAN mapping could not be programmed due to insufficient hardware "
                 "resources. Packets on the original VLAN will no longer be mapped. " );
   for ( const auto & full : { ETH_VLAN_ENCAP_TABLE_FULL, ETH_VLAN_MAPPING_TABLE_FULL } ) {
      EXPECT_STREQ( full.recommendedAction,
                    "To solve this issue, please reduce the number of vlan mappings that are "
                    "currently configured and try again. " );
   }
   EXPECT_STREQ( LINEPROTO_UPDOWN.explanation,
                 "The link-layer connection on the given interface has come up or down.  If it is "
                 "not up, then communication with our link partner is not possible." );
   EXPECT_STREQ( ETH_MACADDRBANKFULL.explanation, DATAPLANE_NOMACTABLEENTRIES.explanation );
   EXPECT_STREQ( MIRRORING_ACL_HW_RESOURCE_FULL.explanation, ACL_HW_RESOURCE_FULL.explanation );
   EXPECT_STREQ( MIRRORING_ACL_HW_RESOURCE_FULL.recommendedAction,
                 ACL_HW_RESOURCE_FULL.recommendedAction );
}

TEST( Catalogue, BlanksAtEndsAreOnlyWhereTheyBelong ) {
   std::set< Velto::String > found;
   auto look = [&]( const char * name, const Velto::String & text ) {
      if ( text.front() == ' ' || text.back() == ' ' ) {
         found.insert( name );
      }
   };
   for ( const Kiv::LogDescriptor & held : Qon::qonLogSection() ) {
      look( held.name, held.format );
      look( held.name, held.explanation );
      look( held.name, held.recommendedAction );
   }
   EXPECT_EQ( found, ( std::set< Velto::String >{
                           "DATAPLANE_MIRROR_INVALID_SESSION_IN_CUT_THROUGH",
                           "DATAPLANE_MIRROR_SESSION_RESOURCES_FULL", "ETH_VLAN_ENCAP_TABLE_FULL",
                           "ETH_VLAN_MAPPING_CONFLICT", "ETH_VLAN_MAPPING_TABLE_FULL",
                           "STEERLINE_MAC_VLAN_DUPLICATE_ENDPOINT" } ) );
}

TEST( Catalogue, TypedArgumentsOfTheLongMessages ) {
   Kiv::LogRecorder log;
   Qon::QonLogHandle discards( "LogTest", Qon::QonLog::ETH_STORMCONTROL_DISCARDS );
   Kiv::log( discards, "Ethernet1", U64( 1 ) << 40, U64( 0 ), U64( 2 ), ~U64( 0 ) );
   EXPECT_EQ( log.records().back().text,
              "Storm Control discarded packets on Interface Ethernet1: UUcast 1099511627776, "
              "Broadcast 0, Multicast 2, All 18446744073709551615" );
   Qon::QonLogHandle sources( "LogTest", Qon::QonLog::DATAPLANE_MIRROR_SOURCE_RESOURCES_FULL );
   Kiv::log( sources, "Ethernet1", "s1", U8( 255 ), U8( 4 ) );
   EXPECT_EQ( log.records().back().text,
              "Insufficient hardware resources are available to add interface Ethernet1 as a "
              "source to session s1. There is a maximum of 255 bidirectional sources or 4 "
              "unidirectional sources available for a mirror session." );
}

} // namespace
