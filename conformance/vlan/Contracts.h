#pragma once
// What a chip promises of VLANs. An id, once given, keeps its meaning.

#include "conformance/Feature.h"

namespace QonConformance::Vlan {

inline constexpr Contract done{
      "vlan.done",
      "Every doUpdateVlan() is answered by updateVlanDone(), with success while there is room." };
inline constexpr Contract generation{ "vlan.generation",
                                      "The completed generation of a VLAN never goes back." };
inline constexpr Contract newest{
      "vlan.newest", "A VLAN that is reported done holds the members that were wanted last." };
inline constexpr Contract readd{
      "vlan.readd", "A VLAN that had gone and comes back is programmed like a new one." };
inline constexpr Contract fid{
      "vlan.fid",
      "A VLAN has the filtering database that it was given last, whatever becomes of its "
      "members, and the members that it had." };
inline constexpr Contract verify{ "vlan.verify",
                                  "verify() finds nothing in a chip that holds what it should." };
inline constexpr Contract cleanup{
      "vlan.cleanup", "Nothing is left in the chip of VLANs whose members have all gone." };
inline constexpr Contract destructor{
      "vlan.destructor", "Destruction of the helper calls nothing and changes nothing." };
inline constexpr Contract successor{
      "vlan.successor", "A second helper, made when the first is gone, finds the VLANs as "
                        "they were and hears nothing that is meant for the first." };
inline constexpr Contract random{
      "vlan.random", "A random history of members and port states ends in what is wanted." };

inline constexpr const Contract * contracts[] = { &done,      &generation, &newest,  &readd,
                                                  &fid,       &verify,     &cleanup, &destructor,
                                                  &successor, &random };

} // namespace QonConformance::Vlan
