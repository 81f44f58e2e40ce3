#pragma once
// VLAN mapping: what a chip brings to translate VLANs, for the generation that the agent runs.

#include <map>

#include "Qon/include/vlanmapping/QonVlanMappingSm.h"
#include "Qon/include/vlanmapping/QonVlanMappingSm2.h"
#include "chip/Chip.h"

namespace QonChip {

/** A direction, and a key of a physical port; native translations have Qon::nativeInnerVlan. */
using HeldTranslationKey = std::pair< Bridging::VlanMappingDirection, Qon::PortVlanKey >;
using HeldTranslations = std::map< HeldTranslationKey, Bridging::VlanXlateMapping >;

class VlanMappingPart {
 public:
   /** Where a chip agent that is handed translations over reports, one a direction. */
   struct Statuses {
      Ptr< Qon::QonVlanMappingStatusDir > ingress, egress;
   };

   virtual ~VlanMappingPart() = default;

   /** First generation: the state machine with the chip's hooks. */
   virtual Ptr< Qon::VlanMappingSm > makeVlanMappingSm( Qon::VlanMappingSm::Inputs inputs,
                                                        const Statuses & statuses ) = 0;

   /** Second generation: whoever programs what `config` holds, from now on, and answers each version
       of an entry in `status`, which becomes ready. Made when the state machines have started; null
       if the chip does not serve the second generation. */
   virtual Ptr< Velto::Node >
   makePlatformFollower( const Ptr< const Qon::PlatformVlanMappingConfig > & config,
                         const Ptr< Qon::PlatformVlanMappingStatus > & status ) {
      (void)config;
      (void)status;
      return nullptr;
   }

   /** What the chip translates; none if it cannot be read back. */
   virtual std::optional< HeldTranslations > translations() const { return std::nullopt; }
};

} // namespace QonChip
