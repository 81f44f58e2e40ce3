#pragma once
// VLANs: what a chip brings to program their members.

#include <map>

#include "Qon/include/topology/QonVlanHelper.h"
#include "chip/Chip.h"
#include "chip/Reading.h"

namespace QonChip {

using HeldVlan = std::map< IntfId, Qon::VlanMembership >;
using HeldVlans = std::map< U16, HeldVlan >;
using VlanReading = Reading< U16, HeldVlan >;

class VlanPart {
 public:
   virtual ~VlanPart() = default;

   /** The hook object. */
   virtual Ptr< Qon::VlanHelper > makeVlanHelper( const Ptr< Qon::QonCommonSmData > & acsd ) = 0;

   /** The VLANs that have members in the chip; none if the chip cannot be read back. */
   virtual std::optional< HeldVlans > vlans() const { return std::nullopt; }
   /** The same, a VLAN at a time; null if the chip cannot be read back. */
   virtual std::unique_ptr< VlanReading > readVlans() const { return wholeReading( vlans() ); }
   /** The filtering databases that VLANs were given with doUpdateVlanFid(); none: the chip takes
       none, or does not tell. */
   virtual std::optional< std::map< U16, U32 > > fids() const { return std::nullopt; }
};

} // namespace QonChip
