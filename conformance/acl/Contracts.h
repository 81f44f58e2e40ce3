#pragma once
// What a chip promises of access lists. An id, once given, keeps its meaning.

#include "conformance/Feature.h"

namespace QonConformance::Acl {

inline constexpr Contract done{
      "acl.done", "Every uninstall, prepare and block that is handed over is done in time." };
inline constexpr Contract force{
      "acl.force", "A committed instance decides by the rules that it was prepared with." };
inline constexpr Contract intfs{
      "acl.intfs", "An instance is applied to the interfaces that were told, and to no other." };
inline constexpr Contract hosts{
      "acl.hosts", "A host has the instances that it was told of, and no other; they go with it." };
inline constexpr Contract removed{ "acl.removed",
                                   "An uninstalled instance leaves nothing in the chip." };
inline constexpr Contract blocks{ "acl.blocks", "No interface stays blocked when a pass is done." };
inline constexpr Contract full{ "acl.full",
                                "Rules without room are an error of a unit, and fit later when "
                                "others are gone." };
inline constexpr Contract destructor{
      "acl.destructor", "Destruction of the helper calls nothing and changes nothing." };
inline constexpr Contract successor{
      "acl.successor", "A second helper, made when the first is gone, finds the instances in force "
                       "until staleAclsDel(), and hears nothing that is meant for the first." };
inline constexpr Contract random{
      "acl.random", "A random history of lists and interfaces ends in what is configured." };

inline constexpr const Contract * contracts[] = {
      &done, &force, &intfs, &hosts, &removed, &blocks, &full, &destructor, &successor, &random };

} // namespace QonConformance::Acl
