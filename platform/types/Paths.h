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
inline constexpr char mlagStatus[] = "mlag/status";            // Mlag::Status

// Bridging
inline constexpr char vlanConfig[] = "bridging/vlan/config";         // Bridging::Vlan::Config
inline constexpr char topologyConfig[] = "bridging/topology/config"; // Bridging::Topology::Config
inline constexpr char topologyStatus[] = "bridging/topology/inst/status"; // ...::Inst::Status
inline constexpr char bridgingConfig[] = "bridging/config";               // Bridging::Config
inline constexpr char tapAggHwConfig[] = "tapagg/hwconfig";               // TapAgg::HwConfig

// Access lists
inline constexpr char aclConfig[] = "acl/config";                   // Acl::Config
inline constexpr char aclIntfConfig[] = "acl/intf/config";          // Acl::IntfConfig
inline constexpr char aclParamConfig[] = "acl/param/config";        // Acl::ParamConfig
inline constexpr char subIntfConfig[] = "interface/config/subintf"; // Interface::SubIntfConfigDir

// The platform
inline constexpr char hwEpochStatus[] = "hwEpoch/status"; // HwEpoch::Status

// Verification of the agent
inline constexpr char verifyAgentConfig[] = "verifyagent/config";   // VerifyAgent::Config
inline constexpr char verifyAgentStatus[] = "verifyagent/status";   // VerifyAgent::Status
inline constexpr char verifyAgentRequest[] = "verifyagent/request"; // VerifyAgent::RequestDir

} // namespace Paths
