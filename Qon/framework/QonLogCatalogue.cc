#include "Qon/include/framework/QonLog.h"

#include <string_view>

namespace Qon {

namespace {
// Texts that entries share. Blanks at the end of a text are part of it.
constexpr char reduceMappings[] =
      "To solve this issue, please reduce the number of vlan mappings that are currently"
      " configured and try again. ";
constexpr char hashCollisions[] =
      "The specified MAC address could not be programmed into the switching ASIC due to hash"
      " collisions in a bucket. Packets destined to the address will be flooded.";
constexpr char aclsDoNotFit[] =
      "The switch is unable to program all ACLs due to insufficient hardware resources.";
constexpr char reduceAcls[] =
      "Reconfigure your ACLs to reduce the size and/or complexity of the ACL.";
} // namespace

// fixed text, all of it: names, formats, explanations, blanks at the end.
// In a section of its own, without gaps: tools walk it from end to end.
[[gnu::section(
      "qon_log_catalogue" )]] constexpr Kiv::LogDescriptor qonLogCatalogue[qonLogMessages] = {
      { "INTF_MAX_MTU_EXCEEDED",
        "Configured mtu (%d) exceeds the maximum mtu (%d) for interface %s",
        "This interface was configured with an mtu value that exceeds the maximum mtu supported"
        " for this type of interface",
        "Change the interface configuration to be consistent with the maximum supported mtu for"
        " this interface type.",
        Kiv::logWarning, 0 },
      { "LINEPROTO_UPDOWN", "Line protocol on Interface %s, changed state to %s",
        "The link-layer connection on the given interface has come up or down.  If it is not up,"
        " then communication with our link partner is not possible.",
        "If the connection has gone down unexpectedly, check the physical connection (e.g.,"
        " cable) between the devices and the configuration of the link on both ends.",
        Kiv::logNotice, 0 },
      { "HARDWARE_EXCESSIVE_MULTIPLE_BIT_ERRORS",
        "Excessive multibit memory errors detected in chip: %s.",
        "An excessive number of multibit memory errors detected in a switching ASIC. Please"
        " contact support.",
        Kiv::logStandardAction3, Kiv::logError, 0 },
      { "HARDWARE_VERIFY_AGENT_RETRY_NEEDED", "%s",
        "Verification of forwarding agent did not complete.", Kiv::logStandardAction1,
        Kiv::logInformational, 0 },
      { "HARDWARE_VERIFY_AGENT_FAILED", "%s Agent will restart.",
        "Verification of forwarding agent failed.", Kiv::logStandardAction1, Kiv::logError, 0 },
      { "HARDWARE_PARITY_ERROR_CORRECTED_WITH_RESET",
        "Parity error %s in memory %s on %s corrected by full chip reset",
        "Software re-initialized the blocks of the switching ASIC, causing minor traffic loss.",
        Kiv::logStandardAction1, Kiv::logWarning, 0 },
      { "HARDWARE_PERR_CORRECTED", "%s",
        "Software corrected a parity error that occurred in a switching ASIC. Normal traffic"
        " forwarding, if affected by this error, will resume.",
        Kiv::logStandardAction1, Kiv::logInformational, 0 },
      { "HARDWARE_PERR_CORRECTABLE", "%s",
        "A correctable parity error occurred in a switching ASIC. The affected entry will be"
        " repaired by software.",
        Kiv::logStandardAction1, Kiv::logInformational, 0 },
      { "HARDWARE_PERR_FATAL", "%s",
        "A fatal parity error occurred in a switching ASIC. The forwarding agent restarted in"
        " order to recover from this error.",
        Kiv::logStandardAction1, Kiv::logWarning, 0 },
      { "HARDWARE_DISRUPTIVE_RESTART",
        "Non-disruptive restart of %s forwarding agent failed. All hardware entries in %s table"
        " will be deleted and re-programmed in the hardware. Reason: %s.",
        "Forwarding agent could not recover its hardware state during restart. This could result"
        " in hardware state being deleted and re-programmed in the hardware. This can result in"
        " traffic disruption.",
        Kiv::logStandardAction1, Kiv::logError, 0 },
      { "ETH_VLAN_MAPPING_CONFLICT",
        "VLAN mapping %d to %d for interface %s on %s required by %s is already in use by %s",
        "The specified VLAN mapping has already been programmed, and now conflicts with the other"
        " source",
        "To solve this conflict, please remove the configuration from one of the sources and try"
        " again. ",
        Kiv::logWarning, 0 },
      { "ETH_VLAN_ENCAP_TABLE_FULL",
        "Unable to encapsulate %s packets on interface %s with VLAN %d due to hardware resource"
        " exhaustion",
        "The encapsulation could not be programmed due to insufficient hardware resources."
        " Packets on the specified interface will no longer be encapsulated. ",
        reduceMappings, Kiv::logWarning, 0 },
      { "ETH_VLAN_MAPPING_TABLE_FULL",
        "Unable to map VLAN %d to %d for interface %s on %s due to hardware resource exhaustion",
        "The specified VLAN mapping could not be programmed due to insufficient hardware"
        " resources. Packets on the original VLAN will no longer be mapped. ",
        reduceMappings, Kiv::logWarning, 0 },
      { "ETH_VLAN_MAPPING_PROGRAMMED",
        "VLAN mapping %d to %d for interface %s on %s required by %s is now programmed",
        "The conflicting config from the other source has been removed and the config from this"
        " source has been programmed",
        "No action is needed", Kiv::logWarning, 0 },
      { "DATAPLANE_L2_PROTOCOL_FORWARDING_HW_RESOURCE_FULL",
        "Hardware resources are insufficient to program L2 protocol forwarding profile %s on %s",
        "The switch is unable to program the L2 protocol forwarding profile",
        "Reconfigure the L2 protocol forwarding profile rules", Kiv::logError, 0 },
      { "ETH_MACADDRBANKFULL",
        "Unable to program %s host table entry for MAC address %s in VLAN %d due to hardware"
        " resource exhaustion",
        hashCollisions,
        "Reduce the number of host table entries that need to be programmed into the switching"
        " ASIC. One or more of the following steps might be helpful: 1. Reduce the number of"
        " static mac entries. 2. Clear dynamic mac table entries. 3. Introduce additional layer 3"
        " boundaries to reduce the number of MAC addresses. Please contact your technical support"
        " representative if you need additional assistance.",
        Kiv::logWarning, 0 },
      { "DATAPLANE_MACTABLEENTRYCLEAR",
        "Mac Table overflow condition for multicast group %s in VLAN %d has cleared",
        "The entry has been programmed and traffic should not flood for this group",
        "Okay to use this IP multicast group", Kiv::logWarning, 0 },
      { "DATAPLANE_NOMACTABLEENTRIES",
        "Unable to program mac table entry for MAC address %s in VLAN %d due to hardware resource"
        " exhaustion",
        hashCollisions,
        "Reduce the number of host table entries that need to be programmed into the switching"
        " ASIC. One or more of the following steps might be helpful: 1. Reduce the number of"
        " static mac entries. 2. Clear dynamic mac table entries. 3. Introduce additional layer 3"
        " boundaries to reduce the number of MAC addresses. 4. Use fewer IP multicast groups.",
        Kiv::logWarning, 0 },
      { "DATAPLANE_MULTICASTGROUPCLEAR",
        "The condition of having insufficient hardware resources for programming a forwarding"
        " entry for the multicast group %s in VLAN %d has cleared",
        "Traffic sent to this multicast group will be forwarded only to ports belonging to this"
        " group",
        "Okay to use this IP multicast group.", Kiv::logWarning, 0 },
      { "DATAPLANE_NOMULTICASTGROUPS",
        "Insufficient hardware resources for multicast group %s in VLAN %d, exceeding the limit"
        " of %d ( group address, VLAN ) pairs.",
        "Insufficient hardware resources are available to program a forwarding entry for the"
        " multicast group, which was learned via IGMP Snooping or static MAC table configuration."
        "  There is a limit of ( group address, VLAN ) pairs, and this limit has been exceeded."
        "  As a result, traffic sent to this multicast group will be forwarded to all ports.",
        "Use fewer IP multicast groups.", Kiv::logWarning, 0 },
      { "ACL_COMPUTATION_SUCCESS", "Computing resources to program ACLs succeeded (%s).",
        "The switch has successfully programmed ACLs into hardware. The ACLs are now active.",
        Kiv::logStandardAction1, Kiv::logInformational, 0 },
      { "ACL_COMPUTATION_FAILED", "Computing resources to program ACLs failed (%s).",
        "The switch is unable to program the ACLs into hardware due to insufficient hardware"
        " resources. The ACL will not be active.",
        "Reconfigure your ACLs to reduce the resource usage", Kiv::logError, 0 },
      { "ACL_HW_RESOURCE_NORMAL", "All ACLs are programmed in hardware (%s)",
        "The switch was able to program all the ACLs in the hardware.", Kiv::logStandardAction1,
        Kiv::logError, 0 },
      { "ACL_HW_RESOURCE_FULL", "Hardware resources are insufficient to program all ACLs (%s)",
        aclsDoNotFit, reduceAcls, Kiv::logError, 0 },
      { "ACL_EGRESS_LOGGING_NOT_SUPPORTED", "Egress ACL logging is not supported",
        "This hardware platform does not support egress ACL logging. ACL rules with log actions"
        " are still applied to the interface without logging functionality",
        Kiv::logStandardAction1, Kiv::logWarning, 0 },
      { "ACL_SUBINTF_UNSHARED_NOT_SUPPORTED",
        "IPv4 egress ACLs are not supported on subinterfaces (%s) in unshared mode",
        "The user configuration will be stored. The ACL will become active when the egress ACL"
        " sharing mode is changed to share resources",
        Kiv::logStandardAction1, Kiv::logInformational, 0 },
      { "ACL_UNSUPPORTED_HARDWARE", "ACL ( %s ) cannot be applied on %s.",
        "The named ACL is not programmed on the named device because ACLs are not supported on"
        " the device.",
        "Remove ACLs from interfaces on the named device.", Kiv::logError, 0 },
      { "DATAPLANE_MIRROR_INVALID_SESSION_IN_CUT_THROUGH",
        "Attempt to add mirror source %s in mirror session %s has failed. ",
        "This system does not support mirror sessions that have both ingress mirror sources and"
        " egress mirror sources to the same mirror destination port while in cut-through"
        " forwarding mode.",
        "To resolve the issue switch to store-and-forward forwarding mode where this mirroring"
        " configuration can be supported.",
        Kiv::logWarning, 0 },
      { "MIRRORING_ACL_HW_RESOURCE_FULL",
        "Hardware resources are insufficient to program all mirror ACLs", aclsDoNotFit, reduceAcls,
        Kiv::logError, 0 },
      { "DATAPLANE_MIRROR_SESSION_RESOURCES_FULL",
        "Mirroring hardware resources are insufficient to program the mirror session %s. ",
        "The switch is unable to program the mirroring session due to the unavailability of"
        " hardware resources. The maximum mirror sessions limit has been exceeded. As a result"
        " this mirroring session is not operational.",
        "To solve this issue, remove a mirroring session or unconfigure a feature that is using a"
        " mirror session.",
        Kiv::logError, 0 },
      { "DATAPLANE_MIRROR_SOURCE_RESOURCES_NORMAL",
        "All mirror sources are programmed in hardware.",
        "The switch was able to program all sources in hardware.", "Normal mirroring has resumed.",
        Kiv::logWarning, 0 },
      { "DATAPLANE_MIRROR_INTERNAL_SESSION_RESOURCES_UNAVAILABLE",
        "Insufficient hardware resources are available to program the internal session %s with"
        " destination interface %s.",
        "The switch is unable to program the internal mirror session because one or more modules"
        " does not have sufficient resources to program a mirror session.",
        "To solve this issue, unprogram a mirror sessoion from all the modules that have all the"
        " mirror resources being used.",
        Kiv::logWarning, 0 },
      { "DATAPLANE_MIRROR_SOURCE_RESOURCES_FULL",
        "Insufficient hardware resources are available to add interface %s as a source to session"
        " %s. There is a maximum of %d bidirectional sources or %d unidirectional sources"
        " available for a mirror session.",
        "The switch is unable to program the source interface due to unavailability of hardware"
        " resources. The limit of source interfaces that can be programmed in a mirror session"
        " has been exceeded. As a result traffic on this interface shall not be mirrored.",
        "To solve this issue, remove a source interface or use fewer mirror sources in the mirror"
        " sessions across the switch.",
        Kiv::logWarning, 0 },
      { "ETH_STORMCONTROL_DISCARDS",
        "Storm Control discarded packets on Interface %s: UUcast %L, Broadcast %L, Multicast %L,"
        " All %L",
        "The interface's traffic is exceeding the configured storm-control threshold causing"
        " packets to be discarded",
        Kiv::logStandardAction1, Kiv::logInformational, 0 },
      { "TAPAGG_HW_RESOURCE_FULL",
        "Hardware resources are insufficient to program all Tap Ports/TapAgg Policy-Maps",
        "The switch is unable to program all Tap Ports/TapAgg Policy Maps due to insufficient"
        " hardware resources.",
        "Reconfigure your TapAgg Policy-Maps or Tap ports.", Kiv::logError, 0 },
      { "OMBRA_MOUNT_TIMEOUT", "%s is unable to mount from %s %s.",
        "A mount request to synchronize state between Ombra and switch has timed out. The"
        " services that depend on the state can be dysfunctional.",
        Kiv::logStandardAction3, Kiv::logError, 0 },
      { "SUBINTERFACE_HW_RESOURCE_FULL",
        "Hardware resources are insufficient to configure interface (%s)",
        "Interface is marked operationally down due to insufficient hardware resources",
        "Please work with customer support to determine if the device can be reconfigured to make"
        " resources available",
        Kiv::logError, 0 },
      { "STEERLINE_MAC_VLAN_DUPLICATE_ENDPOINT",
        "MAC address %s in VLAN %d is already in use by another endpoint.",
        "The specified MAC address in VLAN conflicts with the other Steerline endpoints",
        "To solve this conflict, please remove the configuration from all the conflicting"
        " Steerline endpoints and try again. ",
        Kiv::logWarning, 0 },
};

#define QON_LOG_IN_PLACE( message )                                                                \
   static_assert( std::string_view( QonLog::message.name ) == #message );
QON_LOG_MESSAGES( QON_LOG_IN_PLACE )
#undef QON_LOG_IN_PLACE

// The ends of the section, named by the linker.
extern "C" {
[[gnu::visibility( "hidden" )]] extern const Kiv::LogDescriptor __start_qon_log_catalogue[];
[[gnu::visibility( "hidden" )]] extern const Kiv::LogDescriptor __stop_qon_log_catalogue[];
}

std::span< const Kiv::LogDescriptor >
qonLogSection() {
   return { __start_qon_log_catalogue, __stop_qon_log_catalogue };
}

const Kiv::LogDescriptor *
qonLogDescriptor( const Velto::String & name ) {
   for ( const Kiv::LogDescriptor & descriptor : qonLogCatalogue ) {
      if ( name == descriptor.name ) {
         return &descriptor;
      }
   }
   return nullptr;
}

Kiv::Seconds
qonLogInterval( const Kiv::LogDescriptor & message ) {
   auto is = [&]( const Kiv::LogDescriptor & m ) {
      return std::string_view( message.name ) == m.name;
   };
   if ( is( QonLog::ETH_MACADDRBANKFULL ) || is( QonLog::DATAPLANE_NOMACTABLEENTRIES ) ) {
      return 60;
   }
   return is( QonLog::ACL_SUBINTF_UNSHARED_NOT_SUPPORTED ) ? 15 : 0;
}

} // namespace Qon
