#pragma once
// Tap aggregation: tables TAP_AGG, TAP_PORT, TOOL_PORT and TAP_POLICY_MAP become what Qon::TapAggSm
// works on; the console shows who wants which group, which of them there are, and how frames go.
//
//    ConfigDB, events -> Bridging::Input::TapAggConfig, TapAgg::PolicyMapConfig, ...
//                     -> Qon::TapAggSm -> the chip's helper
//                     -> TapAgg::HwConfig, which spanning tree follows
//    groups and ports that change -> a journal of times -> show tap-agg
//
//    {"event": "tapGroups", "port": "Ethernet0", "groups": ["a", "b"]}     no groups: it has none
//    {"event": "toolGroups", "port": "Ethernet4", "groups": ["a"]}
//    {"event": "toolPort", "port": "Ethernet4", "active": false}
//    {"event": "hostFlushed", "port": "PortChannel1"}
//
// Sources: TapAggFeature.cc (configuration, events), TapAggFeatureShow.cc.

#include <map>

#include "Qon/include/tapagg/QonTapaggSm.h"
#include "agent/AgentFeature.h"
#include "chip/TapAggPart.h"

namespace SoftChip {
class TapAggPart;
}

namespace QonAgent {

class ConfigRow;

class TapAggFeature : public AgentFeature {
 public:
   explicit TapAggFeature( Agent & agent );
   ~TapAggFeature() override;

   std::vector< ConfigTable > tables() const override;
   void configure( ConfigReader & reader ) override;
   std::vector< ShowCommand > showCommands() override;
   std::vector< EventKind > eventKinds() override;

   /** Null if the chip has no tap aggregation. */
   Qon::TapAggSm * tapAggSm() const;

 private:
   using IntfId = Ulnet::IntfId;
   using TapGroups = Bridging::Input::TapGroups;
   using Parsed = std::function< void() >;
   class Journal;

   void global( ConfigReader & reader, const ConfigRow & row );
   void tapPort( ConfigReader & reader, const ConfigRow & row );
   void toolPort( ConfigReader & reader, const ConfigRow & row );
   void policyMap( ConfigReader & reader, const ConfigRow & row );
   void modeIs( bool on );
   Parsed parseTapGroups( const Json & line );
   Parsed parseToolGroups( const Json & line );
   Parsed parseToolPort( const Json & line );
   Parsed parseFlushed( const Json & line );

   void served() const;
   Rows all() const;
   Row groupRow( const String & name ) const;
   Row portRow( const Qon::TapAggIntfSm & sm ) const;
   Value::List wantedBy( const String & name ) const;
   Rows hardware() const;
   Rows ways( Arguments arguments ) const;

   Agent & agent_;
   QonChip::TapAggPart * const part_; ///< null: the chip has none
   const Velto::Ptr< Bridging::Input::TapAggConfig > config_;
   const Velto::Ptr< TapAgg::Status > status_;
   const Velto::Ptr< TapAgg::ToolPortStatus > toolPorts_;
   const Velto::Ptr< TapAgg::PmapGroupConfig > pmapGroups_;
   const Velto::Ptr< TapAgg::PmapGroupStatus > pmapStatus_;
   const Velto::Ptr< TapAgg::PolicyMapConfig > policyMaps_;
   const Velto::Ptr< TapAgg::HwConfig > hwConfig_;
   const Velto::Ptr< Bridging::HostFlush::RequestDir > requests_;
   const Velto::Ptr< Bridging::HostFlush::ReplyDir > replies_;
   Velto::Ptr< Journal > sm_;
};

} // namespace QonAgent
