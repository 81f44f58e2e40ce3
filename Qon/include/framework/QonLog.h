#pragma once
// The messages that the library can raise, all of them, and a module's handle of one of them.
//
//    module: static QonLogHandle bankFull( "QonChipProgrammer", QonLog::ETH_MACADDRBANKFULL );
//            if ( bankFull.okToLog() ) Kiv::log( bankFull, switchName, mac, vlanId );
//
// Invariants
// 1. The catalogue is constant data, complete before any handle is constructed.
// 2. QonLog::X is the entry whose name is "X"; the order is that of the list below.
// 3. The interval of a message is the same in every module that raises it.
//
// A condition that ends is reported by a message of its own. "Once" is the raising module's
// business: it raises on the transition into the condition and on the one out of it.

#include <span>

#include "platform/Kiv/Log.h"

/** Calls X with every message, in the order of the catalogue. */
#define QON_LOG_MESSAGES( X )                                                                      \
   X( INTF_MAX_MTU_EXCEEDED )                                                                      \
   X( LINEPROTO_UPDOWN )                                                                           \
   X( HARDWARE_EXCESSIVE_MULTIPLE_BIT_ERRORS )                                                     \
   X( HARDWARE_VERIFY_AGENT_RETRY_NEEDED )                                                         \
   X( HARDWARE_VERIFY_AGENT_FAILED )                                                               \
   X( HARDWARE_PARITY_ERROR_CORRECTED_WITH_RESET )                                                 \
   X( HARDWARE_PERR_CORRECTED )                                                                    \
   X( HARDWARE_PERR_CORRECTABLE )                                                                  \
   X( HARDWARE_PERR_FATAL )                                                                        \
   X( HARDWARE_DISRUPTIVE_RESTART )                                                                \
   X( ETH_VLAN_MAPPING_CONFLICT )                                                                  \
   X( ETH_VLAN_ENCAP_TABLE_FULL )                                                                  \
   X( ETH_VLAN_MAPPING_TABLE_FULL )                                                                \
   X( ETH_VLAN_MAPPING_PROGRAMMED )                                                                \
   X( DATAPLANE_L2_PROTOCOL_FORWARDING_HW_RESOURCE_FULL )                                          \
   X( ETH_MACADDRBANKFULL )                                                                        \
   X( DATAPLANE_MACTABLEENTRYCLEAR )                                                               \
   X( DATAPLANE_NOMACTABLEENTRIES )                                                                \
   X( DATAPLANE_MULTICASTGROUPCLEAR )                                                              \
   X( DATAPLANE_NOMULTICASTGROUPS )                                                                \
   X( ACL_COMPUTATION_SUCCESS )                                                                    \
   X( ACL_COMPUTATION_FAILED )                                                                     \
   X( ACL_HW_RESOURCE_NORMAL )                                                                     \
   X( ACL_HW_RESOURCE_FULL )                                                                       \
   X( ACL_EGRESS_LOGGING_NOT_SUPPORTED )                                                           \
   X( ACL_SUBINTF_UNSHARED_NOT_SUPPORTED )                                                         \
   X( ACL_UNSUPPORTED_HARDWARE )                                                                   \
   X( DATAPLANE_MIRROR_INVALID_SESSION_IN_CUT_THROUGH )                                            \
   X( MIRRORING_ACL_HW_RESOURCE_FULL )                                                             \
   X( DATAPLANE_MIRROR_SESSION_RESOURCES_FULL )                                                    \
   X( DATAPLANE_MIRROR_SOURCE_RESOURCES_NORMAL )                                                   \
   X( DATAPLANE_MIRROR_INTERNAL_SESSION_RESOURCES_UNAVAILABLE )                                    \
   X( DATAPLANE_MIRROR_SOURCE_RESOURCES_FULL )                                                     \
   X( ETH_STORMCONTROL_DISCARDS )                                                                  \
   X( TAPAGG_HW_RESOURCE_FULL )                                                                    \
   X( OMBRA_MOUNT_TIMEOUT )                                                                        \
   X( SUBINTERFACE_HW_RESOURCE_FULL )                                                              \
   X( STEERLINE_MAC_VLAN_DUPLICATE_ENDPOINT )

namespace Qon {

#define QON_LOG_COUNT( message ) +1
constexpr U32 qonLogMessages = 0 QON_LOG_MESSAGES( QON_LOG_COUNT );
#undef QON_LOG_COUNT

extern const Kiv::LogDescriptor qonLogCatalogue[qonLogMessages];

/** The entries by name. */
namespace QonLog {
enum class Index : U32 {
#define QON_LOG_INDEX( message ) message,
   QON_LOG_MESSAGES( QON_LOG_INDEX )
#undef QON_LOG_INDEX
};
#define QON_LOG_CONSTANT( message )                                                                \
   inline constexpr const Kiv::LogDescriptor & message = qonLogCatalogue[U32( Index::message )];
QON_LOG_MESSAGES( QON_LOG_CONSTANT )
#undef QON_LOG_CONSTANT
} // namespace QonLog

/** The entry of that name; null if there is none. */
const Kiv::LogDescriptor * qonLogDescriptor( const Velto::String & name );

/** The data section that holds the catalogue, and nothing but the catalogue. */
std::span< const Kiv::LogDescriptor > qonLogSection();

/** Least number of seconds between two emissions of a message by one module; 0 is no limit. */
Kiv::Seconds qonLogInterval( const Kiv::LogDescriptor & message );

/** One module's handle of one message; a static object of the module's source. */
class QonLogHandle : public Kiv::LogHandle {
 public:
   /** `module` is the name of the module's main class. */
   QonLogHandle( const char * module, const Kiv::LogDescriptor & message )
       : LogHandle( message, qonLogInterval( message ), 1.0, 0, 0, module ) {}
};

} // namespace Qon
