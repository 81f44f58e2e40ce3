#pragma once
// What a chip promises of topologies. An id, once given, keeps its meaning.

#include "conformance/Feature.h"

namespace QonConformance::Topology {

inline constexpr Contract done{ "topo.done",
                                "Every port state that is handed over is reported done." };
inline constexpr Contract early{
      "topo.early", "A port state is reported done when the chip holds it, not before." };
inline constexpr Contract newest{
      "topo.newest", "Of several states for a port the last one is in the chip at rest." };
inline constexpr Contract vlan{
      "topo.vlan", "A VLAN is in the topology to which it was added last, and in no other." };
inline constexpr Contract absent{
      "topo.absent", "Removing a VLAN or freeing a topology that is not there is harmless." };
inline constexpr Contract again{
      "topo.again", "What was handed over for a topology that was freed does nothing to one of the "
                    "same name that is allocated later." };
inline constexpr Contract full{
      "topo.full", "allocTopo() without room answers false; what was freed can be given again." };
inline constexpr Contract flush{ "topo.flush", "Flushing the MAC addresses of a port returns." };
inline constexpr Contract flushed{
      "topo.flushed",
      "A flush takes the hosts of the port in the topology's VLANs, and no others." };
inline constexpr Contract verify{ "topo.verify",
                                  "verify() finds nothing in a chip that holds what it should." };
inline constexpr Contract tapagg{
      "topo.tapagg", "In tap-aggregation mode the VLANs of no topology are in the one of "
                     "that mode, with its ports forwarding, and afterwards in none." };
inline constexpr Contract cleanup{ "topo.cleanup",
                                   "Nothing is left in the chip of topologies that were freed." };
inline constexpr Contract destructor{
      "topo.destructor", "Destruction of the helper calls nothing and changes nothing." };
inline constexpr Contract successor{
      "topo.successor", "A second helper, made when the first is gone, finds the topologies "
                        "as they were and hears nothing that is meant for the first." };
inline constexpr Contract random{ "topo.random",
                                  "A random history of topologies ends in what is configured." };

inline constexpr const Contract * contracts[] = {
      &done,    &early,  &newest, &vlan,    &absent,     &again,     &full,  &flush,
      &flushed, &verify, &tapagg, &cleanup, &destructor, &successor, &random };

} // namespace QonConformance::Topology
