#include "Qon/include/vlanmapping/VlanMappingRecords2.h"

#include "platform/Kiv/Describe.h"

KIV_DEFINE( Qon::SourceIntfVlanMappingConfig )
KIV_DEFINE( Qon::SourceVlanMappingConfig )
KIV_DEFINE( Qon::SourceVlanMappingConfigDir )
KIV_DEFINE( Qon::VlanMappingOutputState )
KIV_DEFINE( Qon::SourceIntfVlanMappingStatus )
KIV_DEFINE( Qon::SourceVlanMappingStatus )
KIV_DEFINE( Qon::SourceVlanMappingStatusDir )
KIV_DEFINE( Qon::MergedIntfVlanMappingConfig )
KIV_DEFINE( Qon::MergedVlanMappingConfig )
KIV_DEFINE( Qon::PlatformIntfVlanMappingConfig )
KIV_DEFINE( Qon::PlatformVlanMappingConfig )
KIV_DEFINE( Qon::PlatformIntfVlanMappingStatus )
KIV_DEFINE( Qon::PlatformVlanMappingStatus )
KIV_DEFINE( Qon::ProgrammedPortToLag )
KIV_DEFINE( Qon::PortChannelInterlock )
KIV_DEFINE( Qon::PortChannelInterlockDir )

namespace Qon {

const char *
shownSource( VlanMappingConfigSource source ) {
   switch ( source ) {
   case VlanMappingConfigSource::bridging:
      return "CLI"; // fixed text
   case VlanMappingConfigSource::flow:
      return "Steerline"; // fixed text
   case VlanMappingConfigSource::nativeVlan:
      return "native VLAN";
   }
   return "?";
}

Bridging::SwitchportMode
vlanMappingConfigSourceActiveSwitchportMode( VlanMappingConfigSource source ) {
   switch ( source ) {
   case VlanMappingConfigSource::flow:
      return Bridging::SwitchportMode::flow;
   case VlanMappingConfigSource::bridging:
   case VlanMappingConfigSource::nativeVlan:
      return Bridging::SwitchportMode::trunk;
   }
   VELTO_ASSERT( 0 ); // there is no other source
   return Bridging::SwitchportMode::trunk;
}

} // namespace Qon
