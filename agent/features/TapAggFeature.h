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
#include <set>

#include "Qon/include/tapagg/QonTapaggSm.h"
#include "agent/AgentFeature.h"
#include "agent/Configured.h"
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
   std::vector< Counter > counters() const override;
   std::vector< String > ownNames() const override {
      return { "TapAgg::", "TapAggHelper", "Bridging::Input::", "Bridging::HostFlush::" };
   }

   /** Null if the chip has no tap aggregation. */
   Qon::TapAggSm * tapAggSm() const;

 private:
   using IntfId = Ulnet::IntfId;
   using TapGroups = Bridging::Input::TapGroups;
   using Parsed = std::function< void() >;
   class Journal;

   // What rows say.
   struct Global {
      bool on = false;
      bool matchIp = false;
      bool logged = true;
      String profile;
      bool operator==( const Global & ) const = default;
   };
   struct Tap {
      TapGroups groups;
      U32 truncationSize = 0;
      Bridging::IdentityTuple identity;
      Ulnet::EthAddr macAddress;
      U32 headerRemove = 0;
      bool greStrip = false, vxlanStrip = false, mplsPop = false, raw = false;
      std::set< Ulnet::IpGenAddr > endpoints;
      String policyMap;
      bool operator==( const Tap & ) const = default;
   };
   struct Tool {
      TapGroups groups;
      U32 truncationSize = 0;
      Bridging::Input::ToolIdentityMode identityTagging = {};
      U8 dot1qRemove = 0;
      bool brStrip = false, vnStrip = false, mplsPop = false;
      bool operator==( const Tool & ) const = default;
   };
   using ClassName = std::pair< String, String >; ///< of the map, and its own

   static Global globalOf( const ConfigRow & row );
   static Tap tapOf( const ConfigRow & row );
   static Tool toolOf( const ConfigRow & row );
   static TapGroups classOf( const ConfigRow & row );
   void globalIs( const Global & is, const Global & was );
   void tapIs( IntfId intf, const Tap & is, const Tap * was );
   void tapDel( IntfId intf, const Tap & was );
   void toolIs( IntfId intf, const Tool & is );
   void toolDel( IntfId intf );
   void classIs( const ClassName & name, const TapGroups & is, const TapGroups * was );
   void classDel( const ClassName & name, const TapGroups & was );
   void leaveGroups( const TapGroups & groups );
   void toolGroupsAre( IntfId intf, const TapGroups & groups );
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
   Global global_;
   Configured< IntfId, Tap > taps_;
   Configured< IntfId, Tool > tools_;
   Configured< ClassName, TapGroups > classes_;
};

} // namespace QonAgent
