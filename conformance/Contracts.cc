// The promises, in the order in which they are listed. An id, once given, keeps its meaning.

#include "conformance/Conformance.h"

namespace QonConformance {

const std::vector< Contract > &
contracts() {
   static const std::vector< Contract > all = {
         { "hook.missing", "Every hook that the library calls is overridden." },

         { "mac.answer", "Every command that is written is answered, once the chip is done." },
         { "mac.unasked", "Answers are for commands in flight: none for a transaction that is "
                          "unknown or was answered before." },
         { "mac.status", "An answer is success, failed, busy, full or parity error." },
         { "mac.held", "A host that was answered with success is in the table, at its port." },
         { "mac.newest", "At rest the table holds the newest wish for every key." },
         { "mac.readd", "Adding a host that is there succeeds and makes no second entry." },
         { "mac.absent", "Removing a host that is not there is harmless." },
         { "mac.full", "A table without room answers 'full', keeps what it holds, and takes the "
                       "rest when there is room again." },
         { "mac.flush", "A flush is answered and removes the hosts that it names and no others." },
         { "mac.shadow", "A command that is meant for the software's shadow is answered, too." },
         { "mac.cleanup", "Nothing is left in the table when every host was removed." },
         { "mac.destructor", "Destruction of the programmer calls nothing and changes nothing." },
         { "mac.random", "A random history of hosts and flushes ends in the newest wishes." },

         { "vlan.done", "Every doUpdateVlan() is answered by updateVlanDone(), with success while "
                        "there is room." },
         { "vlan.generation", "The completed generation of a VLAN never goes back." },
         { "vlan.newest", "A VLAN that is reported done holds the members that were wanted last." },
         { "vlan.readd", "A VLAN that had gone and comes back is programmed like a new one." },
         { "vlan.verify", "verify() finds nothing in a chip that holds what it should." },
         { "vlan.cleanup", "Nothing is left in the chip of VLANs whose members have all gone." },
         { "vlan.destructor", "Destruction of the helper calls nothing and changes nothing." },
         { "vlan.random", "A random history of members and port states ends in what is wanted." },

         { "topo.done", "Every port state that is handed over is reported done." },
         { "topo.early", "A port state is reported done when the chip holds it, not before." },
         { "topo.newest", "Of several states for a port the last one is in the chip at rest." },
         { "topo.vlan", "A VLAN is in the topology to which it was added last, and in no other." },
         { "topo.absent", "Removing a VLAN or freeing a topology that is not there is harmless." },
         { "topo.full", "allocTopo() without room answers false; what was freed can be given "
                        "again." },
         { "topo.flush", "Flushing the MAC addresses of a port returns." },
         { "topo.verify", "verify() finds nothing in a chip that holds what it should." },
         { "topo.tapagg", "In tap-aggregation mode the VLANs of no topology are in the one of that "
                          "mode, with its ports forwarding, and afterwards in none." },
         { "topo.cleanup", "Nothing is left in the chip of topologies that were freed." },
         { "topo.destructor", "Destruction of the helper calls nothing and changes nothing." },
         { "topo.random", "A random history of topologies ends in what is configured." },

         { "lag.result", "Every member that shall be in a group gets a result that is not "
                         "'pending'." },
         { "lag.flags", "A member with success carries the flags that were asked for, in the chip "
                        "as in its status." },
         { "lag.removed", "What leaves the configuration leaves the chip and its status." },
         { "lag.single", "A port is an own member of one group at most, at any moment." },
         { "lag.readd", "A group that had gone and comes back is programmed like a new one." },
         { "lag.full", "Without room the result is 'noLag' or 'noMember', and it becomes success "
                       "when there is room again." },
         { "lag.cleanup", "Nothing is left in the chip when every group has gone." },
         { "lag.destructor", "Destruction of the programmer calls nothing and changes nothing." },
         { "lag.random", "A random history of groups ends in what is configured." },
   };
   return all;
}

} // namespace QonConformance
