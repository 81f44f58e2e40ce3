#pragma once
// Link aggregation: what a chip brings to program groups.

#include <map>

#include "chip/Chip.h"
#include "platform/types/HardwareLag.h"

namespace QonChip {

using HeldGroup = std::map< IntfId, Hardware::Lag::Member >;
using HeldGroups = std::map< IntfId, HeldGroup >;

class LagPart {
 public:
   virtual ~LagPart() = default;

   /** An object that makes the chip hold the groups of `config` while it lives, and reports in
       `status` what became of them. It begins at once with what `config` has already. */
   virtual Ptr< Velto::Node > makeProgrammer( const Ptr< const Hardware::Lag::Config > & config,
                                              const Ptr< Hardware::Lag::Status > & status ) = 0;

   /** The chip's groups and their members; none if the chip cannot be read back. */
   virtual std::optional< HeldGroups > groups() const { return std::nullopt; }
};

} // namespace QonChip
