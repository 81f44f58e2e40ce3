#pragma once
// Where in Orvane each entity of the platform is mounted. The type stands beside the path.

namespace Paths {

// Interfaces and link aggregation
inline constexpr char ethPhyIntfStatus[] =
      "interface/status/eth/phy"; // Interface::EthPhyIntfStatusDir
inline constexpr char ethLagIntfStatus[] =
      "interface/status/eth/lag"; // Interface::EthLagIntfStatusDir
inline constexpr char ethLagIntfConfig[] =
      "interface/config/eth/lag"; // Interface::EthLagIntfConfigDir
inline constexpr char lagInputDeviceName[] =
      "lag/input/devicename";                                      // Lag::Input::IntfDeviceNameDir
inline constexpr char hardwareLagConfig[] = "hardware/lag/config"; // Hardware::Lag::Config
inline constexpr char hardwareLagStatus[] = "hardware/lag/status"; // Hardware::Lag::Status
inline constexpr char hardwareFapIdPort[] = "hardware/fapidport";  // Hardware::FapIdPortDir
inline constexpr char hardwareLagState[] = "hardware/lag/state";   // Hardware::Lag::Status
inline constexpr char hardwareLagOfMembers[] = "hardware/lag/ofmembers"; // Hardware::Lag::Config
inline constexpr char hardwareLagOfConfig[] = "hardware/lag/ofconfig";   // Hardware::Lag::Config
inline constexpr char aggregatedLagConfig[] =
      "lag/config/aggregated"; // Hardware::Lag::AggregatedLagConfigDir
inline constexpr char lagMemberStatus[] = "lag/member/status"; // Hardware::Lag::MemberStatusDir
inline constexpr char mlagConfig[] = "mlag/config";            // Mlag::Config
inline constexpr char mlagStatus[] = "mlag/status";            // Mlag::Status

// Bridging
inline constexpr char vlanConfig[] = "bridging/vlan/config";         // Bridging::Vlan::Config
inline constexpr char topologyConfig[] = "bridging/topology/config"; // Bridging::Topology::Config
inline constexpr char topologyStatus[] = "bridging/topology/inst/status"; // ...::Inst::Status
inline constexpr char bridgingConfig[] = "bridging/config";               // Bridging::Config
inline constexpr char flowVlanXlateConfig[] =
      "bridging/vlanmapping/flow"; // Qon::QonFlowVlanXlateConfigDir
inline constexpr char ingVlanMappingConfig[] =
      "hardware/vlanmapping/config/ingress"; // Qon::QonVlanMappingConfigDir
inline constexpr char egrVlanMappingConfig[] = "hardware/vlanmapping/config/egress"; // likewise
inline constexpr char vlanMappingIntfConfig[] =
      "hardware/vlanmapping/config/intf"; // Qon::QonVlanMappingIntfConfigDir
inline constexpr char ingVlanMappingStatus[] =
      "hardware/vlanmapping/status/ingress"; // Qon::QonVlanMappingStatusDir
inline constexpr char egrVlanMappingStatus[] = "hardware/vlanmapping/status/egress"; // likewise
inline constexpr char vlanLagMemberStatus[] =
      "hardware/vlanmapping/lagmember"; // Qon::QonVlanLagMemberStatusDir
inline constexpr char sourceVlanMappingConfig[] =
      "vlanmapping/source/config"; // Qon::SourceVlanMappingConfigDir
inline constexpr char sourceVlanMappingStatus[] =
      "vlanmapping/source/status"; // Qon::SourceVlanMappingStatusDir
inline constexpr char bridgingConfigOutputState[] =
      "vlanmapping/source/state/bridging"; // Qon::VlanMappingOutputState
inline constexpr char qonFlowConfigOutputState[] = "vlanmapping/source/state/flow";      // likewise
inline constexpr char nativeVlanConfigOutputState[] = "vlanmapping/source/state/native"; // likewise
inline constexpr char mergedVlanMappingConfig[] =
      "vlanmapping/merged"; // Qon::MergedVlanMappingConfig
inline constexpr char platformVlanMappingConfig[] =
      "hardware/vlanmapping/platform/config"; // Qon::PlatformVlanMappingConfig
inline constexpr char platformVlanMappingStatus[] =
      "hardware/vlanmapping/platform/status"; // Qon::PlatformVlanMappingStatus
inline constexpr char programmedPortToLag[] = "hardware/lag/programmed"; // Qon::ProgrammedPortToLag
inline constexpr char portChannelInterlock[] = "lag/interlock"; // Qon::PortChannelInterlockDir
inline constexpr char forwardingMode[] =
      "bridging/forwardingmode/config";                     // Bridging::ForwardingModeConfig
inline constexpr char tapAggHwConfig[] = "tapagg/hwconfig"; // TapAgg::HwConfig

// Tap aggregation
inline constexpr char tapAggConfig[] = "bridging/input/tapagg";    // Bridging::Input::TapAggConfig
inline constexpr char tapAggStatus[] = "tapagg/status";            // TapAgg::Status
inline constexpr char toolPortStatus[] = "tapagg/toolport/status"; // TapAgg::ToolPortStatus
inline constexpr char pmapGroupConfig[] = "tapagg/pmapgroup/config"; // TapAgg::PmapGroupConfig
inline constexpr char pmapGroupStatus[] = "tapagg/pmapgroup/status"; // TapAgg::PmapGroupStatus
inline constexpr char tapAggPolicyMapConfig[] =
      "tapagg/policymap/config"; // TapAgg::PolicyMapConfig
inline constexpr char hostFlushRequest[] =
      "bridging/hostflush/request"; // Bridging::HostFlush::RequestDir
inline constexpr char hostFlushReply[] =
      "bridging/hostflush/reply"; // Bridging::HostFlush::ReplyDir

// Storm control
inline constexpr char stormControlConfig[] =
      "bridging/stormcontrol/config"; // Bridging::StormControl::Config
inline constexpr char stormControlStatus[] =
      "bridging/stormcontrol/status"; // Bridging::StormControl::Status
inline constexpr char hardwareStormControlConfig[] =
      "hardware/stormcontrol/config"; // Qon::StormControl::PlatformConfig
inline constexpr char hardwareStormControlStatus[] =
      "hardware/stormcontrol/status"; // Qon::StormControl::PlatformStatus
inline constexpr char hardwareStormControlSlice[] =
      "hardware/stormcontrol/slice"; // Qon::StormControl::DropSliceDir
inline constexpr char hardwareStormControlDrop[] =
      "hardware/stormcontrol/drop/status"; // Qon::StormControl::DropStatus

// Interfaces that are taken out of service
inline constexpr char errdisableConfig[] = "errdisable/cause/config"; // Errdisable::CauseConfig
inline constexpr char errdisableStormControl[] =
      "errdisable/cause/storm-control"; // Errdisable::CauseStatus

// Mirroring, and what it reads
inline constexpr char mirroringConfig[] = "mirroring/config";             // Mirroring::Config
inline constexpr char mirroringStatus[] = "mirroring/status";             // Mirroring::Status
inline constexpr char mirroringHwCapability[] = "mirroring/hwcapability"; // Mirroring::HwCapability
inline constexpr char hardwareMirroringStatus[] =
      "hardware/mirroring/status";                      // Mirroring::HwStatus
inline constexpr char tunnelStatus[] = "tunnel/status"; // Tunnel::Status

// Access lists
inline constexpr char aclConfig[] = "acl/config";                    // Acl::Config
inline constexpr char aclIntfConfig[] = "acl/intf/config";           // Acl::IntfConfig
inline constexpr char aclParamConfig[] = "acl/param/config";         // Acl::ParamConfig
inline constexpr char aclPerHostConfig[] = "acl/perhost/config";     // Acl::PerHostConfig
inline constexpr char aclIntfCardConfig[] = "acl/intfcard/config";   // Acl::IntfCardConfig
inline constexpr char aclDpUpdateRequest[] = "acl/dpupdate/request"; // Acl::DpAclUpdateRequest
inline constexpr char aclDpUpdateStatus[] = "acl/dpupdate/status";   // Acl::DpAclUpdateStatus
inline constexpr char errdisableAcl[] = "errdisable/cause/acl";      // Errdisable::CauseStatus
inline constexpr char subIntfConfig[] = "interface/config/subintf";  // Interface::SubIntfConfigDir

// Multicast
inline constexpr char igmpSnoopingStatus[] =
      "bridging/igmpsnooping/status"; // Bridging::IgmpSnooping::Status
inline constexpr char multicastStaticConfig[] =
      "bridging/multicast/static/config"; // Bridging::Multicast::StaticConfig
inline constexpr char multicastCopyRequestConfig[] =
      "bridging/multicast/copyrequest/config"; // Bridging::Multicast::CopyRequestConfig

// The platform
inline constexpr char hwEpochStatus[] = "hwEpoch/status"; // HwEpoch::Status

// Verification of the agent
inline constexpr char verifyAgentConfig[] = "verifyagent/config";   // VerifyAgent::Config
inline constexpr char verifyAgentStatus[] = "verifyagent/status";   // VerifyAgent::Status
inline constexpr char verifyAgentRequest[] = "verifyagent/request"; // VerifyAgent::RequestDir

} // namespace Paths
