#pragma once
// Mirror sessions: what a chip brings to program them.

#include <map>
#include <set>

#include "Qon/include/mirroring/MirroringSmHelper.h"
#include "chip/Chip.h"

namespace QonChip {

/** What a chip holds of one session. */
struct HeldMirror {
   S32 group = Mirroring::mirrorGroupInvalid();
   Mirroring::TunnelType tunnelType = Mirroring::TunnelType::none;
   std::set< IntfId > targets;
   std::map< IntfId, Mirroring::Direction > sources; ///< those that mirror
   bool operator==( const HeldMirror & ) const = default;
};
using HeldMirrors = std::map< String, HeldMirror >;

class MirrorPart {
 public:
   virtual ~MirrorPart() = default;

   /** The hook object. It says in `capability` what the chip can do and in `status` what it holds,
       before it returns and whenever that changes, and sets `reconciled` there when sessions with a
       tunnel may be touched. */
   virtual Ptr< Qon::MirroringSmHelper >
   makeMirroringHelper( const Ptr< Mirroring::HwCapability > & capability,
                        const Ptr< Mirroring::HwStatus > & status ) = 0;

   /** The chip's sessions; none if the chip cannot be read back. */
   virtual std::optional< HeldMirrors > mirrors() const { return std::nullopt; }
};

} // namespace QonChip
