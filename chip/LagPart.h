#pragma once
// Link aggregation: what a chip brings to program groups.

#include <map>

#include "Qon/include/lag/QonLagCreatorSm.h"
#include "chip/Chip.h"
#include "platform/types/HardwareLag.h"

namespace QonChip {

using HeldGroup = std::map< IntfId, Hardware::Lag::Member >;
using HeldGroups = std::map< IntfId, HeldGroup >;

/** A packet driver over a kernel that knows every aggregate by its number. */
class EveryLagDriver : public Qon::LagPacketDriver {
 public:
   EveryLagDriver() : LagPacketDriver( "lagPacketDriver" ) {}
   int getLagInfo( U32 lagIndex, char * buffer, U32 size ) override {
      const String info = "aggregate " + Kiv::toText( lagIndex );
      buffer[info.copy( buffer, size - 1 )] = 0;
      return 0;
   }
};

class LagPart {
 public:
   virtual ~LagPart() = default;

   /** An object that makes the chip hold the groups of `config` while it lives, and reports in
       `status` what became of them. It begins at once with what `config` has already. */
   virtual Ptr< Velto::Node > makeProgrammer( const Ptr< const Hardware::Lag::Config > & config,
                                              const Ptr< Hardware::Lag::Status > & status ) = 0;

   /** The packet driver; asked for by agents whose groups come from the members in the shared data.
    */
   virtual Ptr< Qon::LagPacketDriver > makePacketDriver() {
      return Velto::make< EveryLagDriver >();
   }

   /** The chip's groups and their members; none if the chip cannot be read back. */
   virtual std::optional< HeldGroups > groups() const { return std::nullopt; }
};

} // namespace QonChip
