#pragma once
// The vocabulary of MAC commands to chips that take them through an indirect-access interface.

#include "platform/Kiv/Text.h"
#include "platform/types/Bridging.h"

namespace Qon {

/** Which host table of the chip an entry belongs to. */
enum class MacHwType : U8 { macHwKeyBridge, macHwKeyBridgeDwide, macHwKeyVfi };
KIV_ENUM( MacHwType, macHwKeyBridge, macHwKeyBridgeDwide, macHwKeyVfi )

/** The three address operations come first, the flush operations after them.

    A flush takes the hosts of the command's interface (a port or an aggregate: the one that the hosts
    were added with, never the members of an aggregate), of its VLAN, of both, or all. The type of
    `...PortType` is the command's entryType(): it takes the hosts of that one type at the interface,
    whatever kind of interface that is. A flush without it takes the dynamic ones: unknown, learned
    (here, remotely, by the peer, from EVPN) and configuredDynamic; all others stay. */
enum class IndirectAccessMacCmdType : U8 {
   addHost,
   removeHost,
   addMcastHost,
   flushAll,
   flushLag,
   flushPort,
   flushPortType,
   flushVlan,
   flushVlanLag,
   flushVlanPort,
   flushVlanPortType,
};
KIV_ENUM( IndirectAccessMacCmdType, addHost, removeHost, addMcastHost, flushAll, flushLag,
          flushPort, flushPortType, flushVlan, flushVlanLag, flushVlanPort, flushVlanPortType )

/** What the chip says about a command. */
enum class MacProgramStatus : U8 {
   macProgramSuccess,
   macProgramFailed,
   macProgramBusy,
   macProgramFull,
   macProgramParityError,
   macProgramInProgress, ///< what a new command starts with
   macProgramFlushInProgress,
};
KIV_ENUM( MacProgramStatus, macProgramSuccess, macProgramFailed, macProgramBusy, macProgramFull,
          macProgramParityError, macProgramInProgress, macProgramFlushInProgress )

/** A MAC entry in one of the chip's host tables. Ordered by address, VLAN, table. */
class MacEntryKey {
   Bridging::MacVlanPair key_;
   MacHwType macHwType_ = MacHwType::macHwKeyBridge;
   KIV_VALUE( Qon, MacEntryKey, key, macHwType )
};

} // namespace Qon
